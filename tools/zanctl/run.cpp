// SPDX-License-Identifier: MIT
#include "run.h"

#include <charconv>

namespace zan::ctl {
namespace {

// The daemon's text may end with the path, which is printed before it.  The path of a
// count ends with "#" in the request.
std::string without_subject(const std::string &text, const std::string &subject) {
    for (const std::string &end : {": " + subject, ": " + subject + "#"})
        if (text.size() > end.size() && text.ends_with(end))
            return text.substr(0, text.size() - end.size());
    return text;
}

} // namespace

std::string format_refusal(const std::string &subject, const Refusal &refusal) {
    const std::string code = refusal.code() ? " (" + std::to_string(*refusal.code()) + ")" : "";
    return subject + ": " + without_subject(refusal.what(), subject) + code;
}

void print_refusal(Output &output, const Options &options, const std::string &given,
                   const Refusal &refusal) {
    const std::string &subject = refusal.subject().empty() ? given : refusal.subject();
    const std::string text = without_subject(refusal.what(), subject);
    if (options.json()) {
        const Json code = refusal.code() ? Json(*refusal.code()) : Json(nullptr);
        output.line(
            to_line({{"path", subject}, {"refused", true}, {"code", code}, {"text", text}}));
        return;
    }
    report(format_refusal(subject, refusal));
}

std::string ask(Session &session, zan_cfg_cmd cmd, const std::string &payload, int arg) {
    return session.request({ZAN_CLASS_CFG, cmd, ZAN_MODULE_CFG, payload, arg});
}

long to_number(const std::string &text) {
    long number = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end)
        throw Refusal("the daemon answered \"" + text + "\", which is not a number");
    return number;
}

void print(Output &output, const Options &options, const std::string &plain, const Json &json) {
    output.line(options.json() ? to_line(json) : plain);
}

void print_json(Output &output, const Options &options, const Json &json) {
    if (options.json())
        output.line(to_line(json));
}

} // namespace zan::ctl
