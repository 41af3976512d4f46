// SPDX-License-Identifier: MIT
// Event messages, as the JSON that modules send each other.
#include "event_codec.h"
#include "file.h"
#include "printable.h"
#include "run.h"

#include <zan.h>

#include <cerrno>
#include <system_error>

namespace zan::ctl::event_commands {
namespace {

constexpr std::size_t kind_width = 27; // that of the commands in the help

struct EventOptions : Options {
    std::string kind;
    std::vector<std::string> members; // KEY=VALUE
    std::optional<std::string> text;
};

std::string joined(std::span<const char *const> words) {
    std::string text;
    for (const char *const word : words)
        text += (text.empty() ? "" : ", ") + std::string(word);
    return text;
}

// The completion reads this text.
std::string kinds_and_members() {
    std::string text = "Kinds:";
    for (const EventCodec &codec : event_codecs()) {
        std::string kind = codec.kind;
        kind.resize(kind_width, ' ');
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
    return "unknown kind: " + kind + " (expected one of: " + joined(kinds) + ")";
}

void add_kind(CLI::App &app, EventOptions &options) {
    app.add_option("KIND", options.kind, "The kind of event")
        ->option_text(" ")
        ->required()
        ->check(check_kind);
    add_note(app, kinds_and_members());
}

// Throws CLI::ValidationError for a member that the event does not have.
MemberValues member_values(const EventCodec &codec, const std::vector<std::string> &members) {
    const auto invalid = [](const std::string &text) {
        return CLI::ValidationError("KEY=VALUE", text);
    };
    MemberValues values(codec.keys.size());
    for (const std::string &member : members) {
        const std::size_t end = member.find('=');
        if (end == std::string::npos)
            throw invalid("missing \"=\": " + member);
        const std::string key = member.substr(0, end);
        const auto found = std::find(codec.keys.begin(), codec.keys.end(), key);
        if (found == codec.keys.end())
            throw invalid("unknown key of " + std::string(codec.kind) + ": " + key +
                          " (expected one of: " + joined(codec.keys) + ")");
        std::optional<std::string> &value =
            values[static_cast<std::size_t>(found - codec.keys.begin())];
        if (value)
            throw invalid("duplicate key: " + key);
        value = member.substr(end + 1);
    }
    return values;
}

void define_encode(CLI::App &app, EventOptions &options) {
    add_kind(app, options);
    app.add_option("KEY=VALUE", options.members, "The members, in any order")->option_text("...");
    app.parse_complete_callback([&options] {
        if (const EventCodec *const codec = find_event_codec(options.kind))
            member_values(*codec, options.members);
    });
}

void define_decode(CLI::App &app, EventOptions &options) {
    add_kind(app, options);
    app.add_option("TEXT", options.text, "The JSON text (default: standard input)")
        ->option_text(" ");
}

ExitCode run_encode(const EventOptions &options, Output &output) {
    const EventCodec &codec = *find_event_codec(options.kind);
    output.line(codec.encode(member_values(codec, options.members)));
    return ExitCode::done;
}

ExitCode run_decode(const EventOptions &options, Output &output) {
    const EventCodec &codec = *find_event_codec(options.kind);
    const std::optional<std::string> text = options.text ? options.text : read_file("-");
    if (!text)
        throw std::system_error(errno, std::generic_category(), "cannot read standard input");
    const auto values = codec.decode(*text);
    if (!values) {
        print_refusal(output, options, "event decode", Refusal("the text is not JSON"));
        return ExitCode::refused;
    }
    Json members = Json::object();
    for (std::size_t i = 0; i < values->size(); ++i) {
        const std::optional<std::string> &value = (*values)[i];
        if (!value)
            continue;
        members[codec.keys[i]] = *value;
        if (!options.json())
            output.line(std::string(codec.keys[i]) + "=" + printable(*value));
    }
    print_json(output, options, {{"kind", codec.kind}, {"members", members}});
    return ExitCode::done;
}

constexpr Command commands[] = {
    command_group("event", "Encode and decode event messages"),
    command<define_encode, run_encode>("event encode", "Print an event message as JSON"),
    command<define_decode, run_decode>("event decode", "Print the members of an event message"),
};

const FamilyRegistration registration({"Event messages, without a daemon", 80, commands});

} // namespace
} // namespace zan::ctl::event_commands
