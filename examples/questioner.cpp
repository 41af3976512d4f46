// SPDX-License-Identifier: MIT
//
// A module that sends a message to another one: registers, asks the mesh agent for
// its channel, prints the answer, and unregisters.
#include <chrono>
#include <cstdio>
#include <string>
#include <string_view>
#include <thread>
#include <zan.h>

namespace {

using namespace std::chrono_literals;

constexpr const char *module_name = "questioner";
constexpr const char *agent_name = "mesh_agent";
constexpr std::string_view question = "which channel?";

std::string answer;

int on_message(char *data, int len, zan_body *body) {
    answer = std::string(body->src) + " answers: " + std::string(data, static_cast<unsigned>(len));
    return 0;
}

int fail(const char *what, int result) {
    std::fprintf(stderr, "%s: %s failed with %d\n", module_name, what, result);
    return 1;
}

// Sends without acknowledgement: while the library waits for one on the queue, it
// drops all other messages, and the answer could be among them.
int ask() {
    return zan_send(agent_name, question.data(), static_cast<int>(question.size()));
}

// Polls for the answer, with a deadline: if the agent is not running, no error arrives.
bool wait_for_answer() {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (answer.empty() && std::chrono::steady_clock::now() < deadline) {
        if (zan_recv_msq() == 0)
            std::this_thread::sleep_for(50ms);
    }
    return !answer.empty();
}

int talk() {
    zan_set_message_handler(on_message);
    if (const int result = ask(); result < 0)
        return fail("asking", result);
    if (!wait_for_answer()) {
        std::fprintf(stderr, "%s: %s does not answer\n", module_name, agent_name);
        return 1;
    }
    std::printf("%s\n", answer.c_str());
    return 0;
}

} // namespace

int main() {
    if (const int result = zan_register(module_name, 0); result < 0)
        return fail("registering", result);
    const int failed = talk();
    if (const int result = zan_unregister(module_name, 0); result < 0)
        return fail("unregistering", result);
    return failed;
}
