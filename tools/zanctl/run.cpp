// SPDX-License-Identifier: MIT
#include "run.h"

#include <charconv>
#include <cstdio>

namespace zan::ctl {

void print_refusal(const std::string &subject, const Refused &refusal) {
    std::fprintf(stderr, "zanctl: %s: %s\n", subject.c_str(), refusal.what());
}

std::string ask(Session &session, zan_cfg_cmd cmd, const std::string &payload, int arg) {
    return session.request({ZAN_CLASS_CFG, cmd, ZAN_MODULE_CFG, payload, arg});
}

long to_number(const std::string &text) {
    long number = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end)
        throw Refused("answered \"" + text + "\", which is no number");
    return number;
}

void print(Output &output, const Arguments &arguments, const std::string &plain, const Json &json) {
    output.line(arguments.json ? to_line(json) : plain);
}

void print_json(Output &output, const Arguments &arguments, const Json &json) {
    if (arguments.json)
        output.line(to_line(json));
}

} // namespace zan::ctl
