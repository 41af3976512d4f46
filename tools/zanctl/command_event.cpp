// SPDX-License-Identifier: MIT
// Event messages: to and from the JSON that modules send each other.
#include "event_codec.h"
#include "interrupt.h"
#include "printable.h"
#include "run.h"

#include <zan.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <unistd.h>

namespace zan::ctl {
namespace {

constexpr std::size_t widest_kind = 27; // as commands are listed

std::string joined(std::span<const char *const> words) {
    std::string text;
    for (const char *const word : words)
        text += (text.empty() ? "" : ", ") + std::string(word);
    return text;
}

// Completion reads it, too.
std::string kinds_and_members() {
    std::string text = "Kinds:";
    for (const EventCodec &codec : event_codecs()) {
        std::string kind = codec.kind;
        kind.resize(widest_kind, ' ');
        text += "\n  " + kind + ' ' + joined(codec.keys);
    }
    return text;
}

std::string check_kind(const std::string &kind) {
    if (find_event_codec(kind) != nullptr)
        return {};
    std::vector<const char *> kinds;
    for (const EventCodec &codec : event_codecs())
        kinds.push_back(codec.kind);
    return "no kind \"" + kind + "\"; there are " + joined(kinds);
}

void add_kind(CLI::App &app, Arguments &arguments) {
    app.add_option("KIND", arguments.event.kind, "Which event it is")
        ->option_text(" ")
        ->required()
        ->check(check_kind);
    add_note(app, kinds_and_members());
}

// Throws CLI::ValidationError for what is no member of the event.
MemberValues member_values(const EventCodec &codec, const std::vector<std::string> &members) {
    const auto mistake = [](const std::string &what) {
        return CLI::ValidationError("KEY=VALUE", what);
    };
    MemberValues values(codec.keys.size());
    for (const std::string &member : members) {
        const std::size_t end = member.find('=');
        if (end == std::string::npos)
            throw mistake("\"" + member + "\" has no \"=\"");
        const std::string key = member.substr(0, end);
        const auto found = std::find(codec.keys.begin(), codec.keys.end(), key);
        if (found == codec.keys.end())
            throw mistake(std::string(codec.kind) + " has no \"" + key + "\", but " +
                          joined(codec.keys));
        std::optional<std::string> &value =
            values[static_cast<std::size_t>(found - codec.keys.begin())];
        if (value)
            throw mistake("\"" + key + "\" is there twice");
        value = member.substr(end + 1);
    }
    return values;
}

void define_encode(CLI::App &app, Arguments &arguments) {
    add_kind(app, arguments);
    app.add_option("KEY=VALUE", arguments.event.members, "What it tells, in any order")
        ->option_text("...");
    app.parse_complete_callback([&arguments] {
        if (const EventCodec *const codec = find_event_codec(arguments.event.kind))
            member_values(*codec, arguments.event.members);
    });
}

void define_decode(CLI::App &app, Arguments &arguments) {
    add_kind(app, arguments);
    app.add_option("TEXT", arguments.event.text, "The JSON text; standard input without it")
        ->option_text(" ");
}

int run_encode(const Arguments &arguments, Output &output) {
    const EventCodec &codec = *find_event_codec(arguments.event.kind);
    output.line(codec.encode(member_values(codec, arguments.event.members)));
    return exit_done;
}

std::string standard_input() {
    std::string text;
    char block[4096];
    for (;;) {
        const ssize_t size = read(STDIN_FILENO, block, sizeof block);
        throw_if_interrupted();
        if (size < 0 && errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "cannot read standard input");
        if (size == 0)
            return text;
        text.append(block, size > 0 ? static_cast<std::size_t>(size) : 0);
    }
}

int run_decode(const Arguments &arguments, Output &output) {
    const EventCodec &codec = *find_event_codec(arguments.event.kind);
    const auto values =
        codec.decode(arguments.event.text ? *arguments.event.text : standard_input());
    if (!values) {
        std::fprintf(stderr, "zanctl: event decode: the text is not JSON\n");
        return exit_refused;
    }
    Json members = Json::object();
    for (std::size_t i = 0; i < values->size(); ++i) {
        const std::optional<std::string> &value = (*values)[i];
        if (!value)
            continue;
        members[codec.keys[i]] = *value;
        if (!arguments.json)
            output.line(std::string(codec.keys[i]) + "=" + printable(*value));
    }
    print_json(output, arguments, {{"kind", codec.kind}, {"members", members}});
    return exit_done;
}

constexpr Command event_commands[] = {
    {"event", "Encode and decode event messages"},
    {"event encode", "Print an event message as JSON, ready to be sent", define_encode, run_encode},
    {"event decode", "Print what an event message tells", define_decode, run_decode},
};

} // namespace

const Family event_family = {"Event messages, without a daemon", event_commands};

} // namespace zan::ctl
