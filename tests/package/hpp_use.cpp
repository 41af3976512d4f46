// SPDX-License-Identifier: MIT
// Nothing before the header; and what templates leave unchecked until they are used.
#include <zan.hpp>

int use(zan::Module &module);

int use(zan::Module &module) {
    const zan::Path path = zan::Path("/sys/user")[1] / "name";
    int failures = 0;
    const auto note = [&failures](const auto &result) { failures += result.ok() ? 0 : 1; };
    note(module.get(path));
    note(module.get<bool>(path));
    note(module.get<int>(path, std::chrono::seconds(1)));
    note(module.get<std::uint64_t>(path));
    note(module.set(path, "text"));
    note(module.set(path, std::string("text")));
    note(module.set(path, std::string_view("text")));
    note(module.set(path, true));
    note(module.set(path, 5));
    note(module.login({"a", "b", "c", "d"}));
    note(module.firewall({{'f', "add"}, {'p', "80"}}));
    note(module.async([](zan::Module &m) { return m.get<int>("/x"); },
                      [](const zan::Result<int> &value) { static_cast<void>(value); }));
    const auto changes = module.on_change(path, [](const zan::Change &) {});
    note(changes);
    for (const zan::Path &user : module.instances("/sys/user").value_or(std::vector<zan::Path>()))
        note(module.remove(user));
    return failures;
}
