// SPDX-License-Identifier: MIT
//
// The texts that zansim takes from people and modules: fault rules, patterns, paths,
// scripted answers, event messages, actions, and the forms in which it shows bytes.
//
// An input is a byte for the reader and the texts that it takes, each up to a NUL.
#include "base/glob.h"
#include "base/text.h"
#include "fault/fault.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "request/action.h"
#include "state/management.h"
#include "trace/event_message.h"
#include "tree/path.h"

#include <algorithm>

namespace {

using namespace zan::fuzz;
using namespace zan::sim;

void read_rule(const std::string &rule, const std::string &path, const std::string &source) {
    const auto fault = parse_fault(rule);
    if (!fault) {
        require(!fault.error().text.empty(), "what is wrong with a rule");
        const auto column = fault.error().column;
        return require(column >= 1 && column <= std::max<std::size_t>(rule.size(), 1),
                       "the column of a mistake");
    }
    require(fault->text == rule, "the text of a rule");
    require(fault->threshold <= std::uint64_t{1} << 32U, "a chance");
    require(fault->effect.kind != Effect::Kind::fail || fault->effect.code < 0, "a result");
    for (const int type : {1, 7}) {
        const bool matches = fault->matches({type, 2, path, source});
        if (fault->path.empty() && fault->source.empty() && fault->command.empty())
            require(matches == ((!fault->type || *fault->type == type) &&
                                (!fault->cmd || *fault->cmd == 2)),
                    "a rule without patterns");
    }
}

// What is behind the first slash; nothing when there is none.
std::string_view rest_of(std::string_view path) {
    const std::size_t slash = path.find('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
}

// As the description has it, step by step.
bool fits_plainly(std::string_view pattern, std::string_view path) {
    if (pattern.empty())
        return path.empty();
    const std::string_view wanted = pattern.substr(0, pattern.find('/'));
    if (wanted == "**")
        return fits_plainly(rest_of(pattern), path) ||
               (!path.empty() && fits_plainly(pattern, rest_of(path)));
    return !path.empty() && text_matches(std::string(wanted), path.substr(0, path.find('/'))) &&
           fits_plainly(rest_of(pattern), rest_of(path));
}

void match(const std::string &pattern, const std::string &path) {
    // No rule has more of them.
    if (std::count(pattern.begin(), pattern.end(), '*') > 4)
        return;
    const Block block(path);
    require(path_matches(pattern, {block.get(), path.size()}) == fits_plainly(pattern, path),
            "whether a path fits a pattern");
}

std::string text_of(const Path &path) {
    std::string text;
    for (const Element &element : path) {
        text += '/' + element.name;
        if (element.any_instance)
            text += ":#";
        else if (element.instance != 0)
            text += ':' + std::to_string(element.instance);
    }
    return text.empty() ? "/" : text;
}

void read_paths(const std::string &one, const std::string &other) {
    const auto path = parse_path(one);
    const auto pattern = parse_pattern(one);
    require(path || !path.error().text.empty(), "what is wrong with a path");
    require(!path || (pattern && *pattern == *path), "a path that is a pattern too");
    require(!pattern || text_of(*pattern) == one, "a path that was taken apart");
    if (path)
        require(covers(*path, *path) && reaches_into(*path, *path), "a path within itself");
    const auto wanted = parse_pattern(other);
    if (!path || !wanted)
        return;
    const bool both = covers(*wanted, *path) && reaches_into(*wanted, *path);
    require(!both || wanted->size() == path->size(), "a path below and above another");
}

std::string decoded(std::string_view field) {
    std::string text;
    if (field == "%00")
        return text;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] != '%') {
            text += field[i];
            continue;
        }
        const auto byte = unhex(field.substr(i + 1, 2));
        require(byte && byte->size() == 1, "two digits behind a percent sign");
        text += *byte;
        i += 2;
    }
    return text;
}

void show(const std::string &text, std::size_t most) {
    const std::string whole = encode_field(text);
    // No value is a NUL alone, which would look like no value.
    require(text == std::string(1, '\0') || decoded(whole) == text, "a field that was decoded");
    require(whole.find_first_of(std::string_view("\0 \n\t", 4)) == std::string::npos,
            "a field without blanks");
    const std::string cut = encode_field(text, most);
    require(text.empty() || (cut.size() <= most && whole.starts_with(cut)), "a field cut short");
    require(unhex(hex(text)) == text, "bytes as digits");
    const std::string shown = escape(text);
    require(is_readable(shown) && shown.find('\n') == std::string::npos, "a text on its line");
    if (const auto bytes = unhex(text))
        require(hex(*bytes).size() == text.size(), "digits as bytes");
    if (const auto number = to_number(text))
        require(to_number(std::to_string(*number)) == number, "a number");
}

void read_messages(const std::string &text) {
    if (const auto message = read_event_message(text))
        require(!message->kind.empty(), "the kind of an event");
    Management management;
    const auto parsed = management.parse(text, "input");
    require(parsed || parsed.error().text.starts_with("input: "), "what is wrong with answers");
    if (const auto *const answer = management.scripted(5, "request"))
        require(answer->payload.size() <= 35000, "the size of an answer");
    Record record;
    record.payload = text;
    // Of the size that an action has, with what was given at its end as well.
    for (const bool padded : {false, true}) {
        if (padded)
            record.payload.insert(0, 1036 - std::min<std::size_t>(text.size(), 1036), 'x');
        const auto action = read_action(record);
        require(!action || std::string_view(action->name).size() < sizeof action->name,
                "the end of an action's name");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    Input input(data, size);
    const int reader = input.byte();
    const std::string one = input.text();
    const std::string two = input.text();
    switch (reader % 5) {
    case 0:
        read_rule(one, two, input.text());
        break;
    case 1:
        match(one, two);
        break;
    case 2:
        read_paths(one, two);
        break;
    case 3:
        // Any byte but NUL in the first, any in all of it.
        show(one, two.size());
        show(std::string(reinterpret_cast<const char *>(data), size), two.size());
        break;
    default:
        read_messages(std::string(reinterpret_cast<const char *>(data + 1), size - 1));
        break;
    }
    return 0;
}
