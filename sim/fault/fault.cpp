// SPDX-License-Identifier: MIT
#include "fault/fault.h"

#include "base/glob.h"
#include "base/text.h"
#include "request/services.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <set>
#include <vector>

namespace zan::sim {

namespace {

constexpr int max_stars = 4;

using namespace std::chrono_literals;

constexpr auto max_delay = 1h;

struct Word {
    std::string text; // without its quotes
    std::size_t column = 0;
    bool quoted = false; // from its first character
};

template<typename T> using Read = Result<T, RuleError>;

RuleError rule_error(const Word &word, std::string text) {
    return {word.column, std::move(text)};
}

std::string shown(std::string_view text) {
    return '"' + escape(text) + '"';
}

// Words are separated by spaces, except inside quotes, where a backslash escapes a
// quote or another backslash.
Read<std::vector<Word>> words_of(std::string_view text) {
    std::vector<Word> words;
    for (std::size_t at = 0; at < text.size();) {
        if (text[at] == ' ' || text[at] == '\t') {
            ++at;
            continue;
        }
        Word word{.text = {}, .column = at + 1, .quoted = text[at] == '"'};
        bool inside = false;
        std::size_t opened = at;
        for (; at < text.size() && (inside || (text[at] != ' ' && text[at] != '\t')); ++at) {
            if (text[at] == '"') {
                inside = !inside;
                opened = at;
                continue;
            }
            if (inside && text[at] == '\\' && at + 1 < text.size())
                ++at;
            word.text += text[at];
        }
        if (inside)
            return RuleError{opened + 1, "quotation mark without end"};
        words.push_back(std::move(word));
    }
    return words;
}

Read<std::chrono::milliseconds> duration_of(const Word &word) {
    const std::string_view text = word.text;
    const bool milli = text.ends_with("ms");
    const std::size_t unit = milli ? 2 : text.ends_with('s') ? 1 : 0;
    const auto number = to_number(text.substr(0, text.size() - unit));
    const std::int64_t most = max_delay / (milli ? std::chrono::milliseconds(1) : 1s);
    if (unit == 0 || !number || *number < 1 || *number > most)
        return rule_error(word, shown(text) + " is not a time from 1ms to 3600s");
    return milli ? std::chrono::milliseconds(*number) : std::chrono::seconds(*number);
}

Read<std::uint64_t> count_of(const Word &word, std::string_view value, std::int64_t least) {
    const auto number = to_number(value);
    if (!number || *number < least)
        return rule_error(word, shown(value) + " is not a number from " + std::to_string(least));
    return static_cast<std::uint64_t>(*number);
}

Read<std::uint64_t> threshold_of(const Word &word, std::string_view value) {
    const bool percent = value.ends_with('%');
    const std::string_view digits = value.substr(0, value.size() - (percent ? 1 : 0));
    double number = 0;
    const char *const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number);
    if (percent)
        number /= 100;
    if (error != std::errc{} || stop != end || !(number > 0 && number <= 1))
        return rule_error(word,
                          shown(value) + " is not a probability above 0 and up to 1, or 100%");
    return static_cast<std::uint64_t>(number * 4294967296.0);
}

// Reads the words of one rule.
class Parser {
public:
    Parser(std::string_view text, std::vector<Word> words) : words_(std::move(words)) {
        fault_.text = text;
    }

    Read<Fault> parse();

private:
    using Step = Read<Done> (Parser::*)(const Word &, std::string_view);
    struct Keyword {
        std::string_view name;
        Step read;
    };

    Read<Done> action(const Word &word);
    Read<Done> condition(const Word &word, std::size_t equals);

    Read<Done> delay(const Word &word, std::string_view);
    Read<Done> fail(const Word &word, std::string_view);
    template<Effect::Kind kind> Read<Done> simple(const Word &word, std::string_view);

    Read<Done> request_class(const Word &word, std::string_view value);
    Read<Done> command(const Word &word, std::string_view value);
    template<auto member> Read<Done> pattern(const Word &word, std::string_view value);
    Read<Done> probability(const Word &word, std::string_view value);
    Read<Done> skip(const Word &word, std::string_view value);
    Read<Done> times(const Word &word, std::string_view value);

    template<std::size_t size>
    static std::string names_of(const std::array<Keyword, size> &keywords);

    static const std::array<Keyword, 7> actions;
    static const std::array<Keyword, 7> conditions;

    std::vector<Word> words_;
    std::size_t next_ = 0;
    std::set<std::string, std::less<>> given_;
    Word command_; // for its column
    Fault fault_;
};

constexpr std::array<Parser::Keyword, 7> Parser::actions{{
    {"delay", &Parser::delay},
    {"drop", &Parser::simple<Effect::Kind::drop>},
    {"mute", &Parser::simple<Effect::Kind::mute>},
    {"fail", &Parser::fail},
    {"header-only", &Parser::simple<Effect::Kind::header_only>},
    {"wrong-first", &Parser::simple<Effect::Kind::wrong_first>},
    {"die", &Parser::simple<Effect::Kind::die>},
}};

constexpr std::array<Parser::Keyword, 7> Parser::conditions{{
    {"class", &Parser::request_class},
    {"command", &Parser::command},
    {"path", &Parser::pattern<&Fault::path>},
    {"source", &Parser::pattern<&Fault::source>},
    {"probability", &Parser::probability},
    {"skip", &Parser::skip},
    {"times", &Parser::times},
}};

template<std::size_t size> std::string Parser::names_of(const std::array<Keyword, size> &keywords) {
    std::string names;
    for (const Keyword &keyword : keywords)
        names += (names.empty() ? "" : ", ") + std::string(keyword.name);
    return names;
}

Read<Fault> Parser::parse() {
    while (next_ < words_.size()) {
        const Word word = words_[next_++];
        const std::size_t equals = word.quoted ? std::string::npos : word.text.find('=');
        const auto done = equals == std::string::npos ? action(word) : condition(word, equals);
        if (!done)
            return done.error();
    }
    if (fault_.effect.kind == Effect::Kind::none && fault_.effect.delay.count() == 0)
        return RuleError{1, "no action (" + names_of(actions) + ')'};
    if (!fault_.command.empty() && !is_command_name(fault_.command, fault_.type))
        return rule_error(command_, "no command of that class is named " + shown(fault_.command));
    return std::move(fault_);
}

Read<Done> Parser::action(const Word &word) {
    for (const Keyword &keyword : actions) {
        if (!word.quoted && keyword.name == word.text)
            return (this->*keyword.read)(word, {});
    }
    return rule_error(word, shown(word.text) + " is neither an action (" + names_of(actions) +
                                ") nor a condition like class=CFG");
}

Read<Done> Parser::condition(const Word &word, std::size_t equals) {
    const std::string_view name = std::string_view(word.text).substr(0, equals);
    const std::string_view value = std::string_view(word.text).substr(equals + 1);
    for (const Keyword &keyword : conditions) {
        if (keyword.name != name)
            continue;
        if (!given_.insert(std::string(name)).second)
            return rule_error(word, std::string(name) + " is given twice");
        return (this->*keyword.read)(word, value);
    }
    return rule_error(word, shown(name) + " is not a condition (" + names_of(conditions) + ')');
}

Read<Done> Parser::delay(const Word &word, std::string_view) {
    if (fault_.effect.delay.count() != 0)
        return rule_error(word, "delay is given twice");
    if (next_ == words_.size())
        return rule_error(word, "delay without a time, as in \"delay 250ms\"");
    const auto duration = duration_of(words_[next_++]);
    if (!duration)
        return duration.error();
    fault_.effect.delay = *duration;
    return Done{};
}

template<Effect::Kind kind> Read<Done> Parser::simple(const Word &word, std::string_view) {
    if (fault_.effect.kind != Effect::Kind::none)
        return rule_error(word, "a second action; only delay goes with another");
    fault_.effect.kind = kind;
    return Done{};
}

Read<Done> Parser::fail(const Word &word, std::string_view) {
    if (const auto first = simple<Effect::Kind::fail>(word, {}); !first)
        return first.error();
    if (next_ == words_.size())
        return rule_error(word, "fail without a result, as in \"fail -5\"");
    const Word &code = words_[next_++];
    const auto number = to_number(code.text);
    if (!number || *number >= 0 || *number < std::numeric_limits<std::int32_t>::min())
        return rule_error(code, shown(code.text) + " is not a negative result");
    fault_.effect.code = static_cast<int>(*number);
    if (next_ < words_.size() && words_[next_].quoted)
        fault_.effect.text = words_[next_++].text;
    return Done{};
}

Read<Done> Parser::request_class(const Word &word, std::string_view value) {
    fault_.type = class_by_name(value);
    if (const auto number = to_number(value);
        !fault_.type && number && *number >= 1 && *number <= 9)
        fault_.type = static_cast<std::int32_t>(*number);
    if (!fault_.type)
        return rule_error(word, shown(value) + " is not a class");
    return Done{};
}

Read<Done> Parser::command(const Word &word, std::string_view value) {
    if (const auto number = to_number(value)) {
        if (*number < 0 || *number > std::numeric_limits<std::int32_t>::max())
            return rule_error(word, shown(value) + " is not a command");
        fault_.cmd = static_cast<std::int32_t>(*number);
        return Done{};
    }
    if (!is_command_name(value, std::nullopt))
        return rule_error(word, shown(value) + " is not a command");
    fault_.command = value;
    command_ = word;
    return Done{};
}

template<auto member> Read<Done> Parser::pattern(const Word &word, std::string_view value) {
    if (value.empty())
        return rule_error(word, "no pattern");
    // Each additional star multiplies the time that a mismatch takes.
    if (value.size() >= ZAN_PATH_SIZE || std::count(value.begin(), value.end(), '*') > max_stars)
        return rule_error(word, "a pattern has at most " + std::to_string(ZAN_PATH_SIZE - 1) +
                                    " characters and " + std::to_string(max_stars) + " stars");
    fault_.*member = value;
    return Done{};
}

Read<Done> Parser::probability(const Word &word, std::string_view value) {
    const auto threshold = threshold_of(word, value);
    if (!threshold)
        return threshold.error();
    fault_.threshold = *threshold;
    return Done{};
}

Read<Done> Parser::skip(const Word &word, std::string_view value) {
    const auto count = count_of(word, value, 0);
    if (!count)
        return count.error();
    fault_.skip = *count;
    return Done{};
}

Read<Done> Parser::times(const Word &word, std::string_view value) {
    const auto count = count_of(word, value, 1);
    if (!count)
        return count.error();
    fault_.times = *count;
    return Done{};
}

} // namespace

Result<Fault, RuleError> parse_fault(std::string_view text) {
    auto words = words_of(text);
    if (!words)
        return words.error();
    return Parser(text, std::move(*words)).parse();
}

bool Fault::matches(const FaultTarget &target) const {
    if ((type && *type != target.type) || (cmd && *cmd != target.cmd))
        return false;
    if (!command.empty()) {
        const Service *const service = find_service(target.type, target.cmd);
        if (service == nullptr || service->name != command)
            return false;
    }
    return (path.empty() || (!target.path.empty() && path_matches(path, target.path))) &&
           (source.empty() || text_matches(source, target.source));
}

} // namespace zan::sim
