// SPDX-License-Identifier: MIT
#include "fault/faults.h"

#include "base/file.h"

namespace zan::sim {

// Bounds what modules add while zansim runs.
constexpr std::size_t max_rules = 256;

void Faults::add(Fault fault) {
    std::seed_seq sequence{seed_, static_cast<std::uint32_t>(rules_.size())};
    rules_.push_back({.fault = std::move(fault), .chance = std::mt19937(sequence)});
}

Result<Done> Faults::add(std::string_view rule) {
    if (rules_.size() >= max_rules)
        return Error{0, "there are " + std::to_string(max_rules) + " rules already"};
    auto fault = parse_fault(rule);
    if (!fault)
        return Error{0,
                     "column " + std::to_string(fault.error().column) + ": " + fault.error().text};
    add(std::move(*fault));
    return Done{};
}

Result<Done> Faults::load(const std::string &file) {
    const auto text = load_file(file);
    if (!text)
        return text.error();
    std::string_view rest = *text;
    for (int number = 1; !rest.empty(); ++number) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        const std::size_t start = line.find_first_not_of(" \t\r");
        if (start == std::string_view::npos || line[start] == '#')
            continue;
        auto fault = parse_fault(line.substr(0, line.find_last_not_of(" \t\r") + 1));
        if (!fault)
            return Error{0, file + ':' + std::to_string(number) + ':' +
                                std::to_string(fault.error().column) + ": " + fault.error().text};
        add(std::move(*fault));
    }
    return Done{};
}

bool Faults::Rule::applies() {
    if (++candidates <= fault.skip || matched == fault.times || chance() >= fault.threshold)
        return false;
    ++matched;
    return true;
}

const Fault *Faults::match(const FaultTarget &target) {
    for (Rule &rule : rules_) {
        if (rule.fault.matches(target) && rule.applies())
            return &rule.fault;
    }
    return nullptr;
}

std::string Faults::text() const {
    std::string text;
    for (const Rule &rule : rules_)
        text += rule.fault.text + '\n';
    return text;
}

} // namespace zan::sim
