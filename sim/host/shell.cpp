// SPDX-License-Identifier: MIT
#include "host/shell.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

namespace zan::sim {

namespace {

constexpr std::size_t max_runs = 16;

// The command gets a process group of its own, which is killed as a whole, default
// signals, no input, and standard error as its output: standard output has the trace.
int spawn_shell(const std::string &command, pid_t &pid) {
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t files;
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_init(&files);
    sigset_t none;
    sigset_t usual;
    sigemptyset(&none);
    sigemptyset(&usual);
    sigaddset(&usual, SIGPIPE);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &usual);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                              POSIX_SPAWN_SETPGROUP);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&files, STDERR_FILENO, STDOUT_FILENO);
    std::string shell = "sh";
    std::string option = "-c";
    std::string line = command;
    char *const words[] = {shell.data(), option.data(), line.data(), nullptr};
    const int error = posix_spawn(&pid, "/bin/sh", &files, &attributes, words, environ);
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    return error;
}

Result<Done> outcome_of(int status) {
    if (WIFSIGNALED(status))
        return Error{shell_failed,
                     "shell command: ended by signal " + std::to_string(WTERMSIG(status))};
    if (WEXITSTATUS(status) != 0)
        return Error{shell_failed,
                     "shell command: exit status " + std::to_string(WEXITSTATUS(status))};
    return Done{};
}

} // namespace

Result<Done> Shell::start(const std::string &command, OnExit ended) {
    sweep();
    if (runs_.size() >= max_runs)
        return Error{shell_failed,
                     "shell command: " + std::to_string(max_runs) + " are running already"};
    Run &run = runs_.emplace_back();
    if (const int error = spawn_shell(command, run.pid); error != 0) {
        runs_.pop_back();
        return Error{shell_failed, std::string("shell command: ") + std::strerror(error)};
    }
    run.waiting = std::thread([this, &run, done_ = std::move(ended)] { wait_for(run, done_); });
    return Done{};
}

void Shell::wait_for(Run &run, const OnExit &ended) {
    siginfo_t state{};
    // The process id stays reserved until waitpid(), so that end() never kills another
    // process.
    while (waitid(P_PID, static_cast<id_t>(run.pid), &state, WEXITED | WNOWAIT) != 0 &&
           errno == EINTR) {
    }
    int status = 0;
    bool silent = false;
    {
        const std::lock_guard guard(mutex_);
        waitpid(run.pid, &status, 0);
        run.over = true;
        silent = ending_;
    }
    if (!silent)
        ended(outcome_of(status));
    run.done_ = true;
}

// Joins the threads that have finished.
void Shell::sweep() {
    for (auto run = runs_.begin(); run != runs_.end();) {
        if (!run->done_) {
            ++run;
            continue;
        }
        run->waiting.join();
        run = runs_.erase(run);
    }
}

void Shell::end() {
    {
        const std::lock_guard guard(mutex_);
        ending_ = true;
        for (const Run &run : runs_) {
            if (!run.over)
                kill(-run.pid, SIGKILL);
        }
    }
    for (Run &run : runs_)
        run.waiting.join();
    runs_.clear();
}

} // namespace zan::sim
