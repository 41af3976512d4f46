// SPDX-License-Identifier: MIT
#include "support/program.h"

#include "support/patience.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <sstream>
#include <system_error>

extern char **environ;

namespace zan::test {

namespace {

struct Pipe {
    int read_end = -1;
    int write_end = -1;
};

Pipe make_pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0)
        throw std::system_error(errno, std::generic_category(), "pipe2");
    return {ends[0], ends[1]};
}

void close_and_forget(int &descriptor) {
    if (descriptor >= 0)
        close(descriptor);
    descriptor = -1;
}

std::vector<std::string> with_emulator(const std::vector<std::string> &command, bool host) {
    std::vector<std::string> full;
    if (!host) {
        // Words separated by semicolons, as CMake writes a list.
        std::istringstream words(ZAN_TEST_EMULATOR);
        for (std::string word; std::getline(words, word, ';');)
            full.push_back(word);
    }
    full.insert(full.end(), command.begin(), command.end());
    return full;
}

// Of two settings of one name a program may take either.
std::vector<std::string> environment(const ProgramOptions &options) {
    std::vector<std::string> full;
    for (const auto &[name, value] : options.env)
        full.push_back(name + "=" + value);
    const auto is_set = [&](const std::string &inherited) {
        const std::string name = inherited.substr(0, inherited.find('='));
        return std::any_of(options.env.begin(), options.env.end(),
                           [&](const auto &setting) { return setting.first == name; });
    };
    for (char **entry = environ; *entry != nullptr; ++entry)
        if (!is_set(*entry))
            full.emplace_back(*entry);
    return full;
}

std::vector<char *> pointers(std::vector<std::string> &texts) {
    std::vector<char *> list;
    for (std::string &text : texts)
        list.push_back(text.data());
    list.push_back(nullptr);
    return list;
}

// Reads what is there: false at the end of the stream.
bool drain(int descriptor, std::string &into) {
    char block[4096];
    const ssize_t n = read(descriptor, block, sizeof block);
    if (n > 0)
        into.append(block, static_cast<size_t>(n));
    return n > 0 || (n < 0 && errno == EINTR);
}

} // namespace

Program::Program(const std::vector<std::string> &command, const ProgramOptions &options) {
    // Everything that allocates happens before the fork: other threads may hold the
    // allocator's lock at that moment.
    std::vector<std::string> arguments = with_emulator(command, options.host);
    std::vector<std::string> settings = environment(options);
    const std::vector<char *> argv = pointers(arguments);
    const std::vector<char *> envp = pointers(settings);
    Pipe in = make_pipe();
    Pipe out = make_pipe();
    Pipe err = make_pipe();

    pid_ = fork();
    if (pid_ < 0)
        throw std::system_error(errno, std::generic_category(), "fork");
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(in.read_end, STDIN_FILENO);
        dup2(out.write_end, STDOUT_FILENO);
        dup2(err.write_end, STDERR_FILENO);
        sigset_t blocked;
        options.block_signals ? sigfillset(&blocked) : sigemptyset(&blocked);
        sigprocmask(SIG_SETMASK, &blocked, nullptr);
        execvpe(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    close(in.read_end);
    close(out.write_end);
    close(err.write_end);
    in_ = in.write_end;
    out_ = out.read_end;
    err_ = err.read_end;
    write(options.input);
    if (!options.keep_stdin)
        close_stdin();
}

Program::~Program() {
    if (!status_) {
        signal(SIGKILL);
        reap(0);
    }
    close_and_forget(in_);
    close_and_forget(out_);
    close_and_forget(err_);
}

void Program::signal(int number) const {
    if (!status_)
        kill(pid_, number);
}

void Program::write(const std::string &text) {
    // A program that ended early must not end the test with SIGPIPE.
    struct sigaction ignore {
    }, before{};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &before);
    for (size_t done = 0; done < text.size();) {
        const ssize_t n = ::write(in_, text.data() + done, text.size() - done);
        if (n < 0 && errno != EINTR)
            break;
        done += n > 0 ? static_cast<size_t>(n) : 0;
    }
    sigaction(SIGPIPE, &before, nullptr);
}

void Program::close_stdin() {
    close_and_forget(in_);
}

bool Program::read_some(int timeout_ms) {
    pollfd streams[] = {{out_, POLLIN, 0}, {err_, POLLIN, 0}};
    poll(streams, 2, timeout_ms);
    if (streams[0].revents != 0 && !drain(out_, output_))
        close_and_forget(out_);
    if (streams[1].revents != 0 && !drain(err_, error_))
        close_and_forget(err_);
    return out_ >= 0 || err_ >= 0;
}

template<typename Condition> bool Program::read_while(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (condition()) {
        if (!read_some(50) || std::chrono::steady_clock::now() > deadline)
            return !condition();
    }
    return true;
}

bool Program::read_until(const std::string &text) {
    return read_while([&] { return output_.find(text) == std::string::npos; });
}

bool Program::read_error_until(const std::string &text) {
    return read_while([&] { return error_.find(text) == std::string::npos; });
}

bool Program::reap(int flags) {
    int status = 0;
    if (status_)
        return true;
    const pid_t ended = waitpid(pid_, &status, flags);
    if (ended == pid_)
        status_ = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    return status_.has_value();
}

bool Program::running() {
    return !reap(WNOHANG);
}

int Program::wait() {
    close_stdin();
    // A grandchild may keep the streams open longer than the program lives.
    read_while([&] { return !reap(WNOHANG); });
    if (!eventually([&] { return reap(WNOHANG); }))
        return -1;
    while (read_some(0)) {
        pollfd streams[] = {{out_, POLLIN, 0}, {err_, POLLIN, 0}};
        if (poll(streams, 2, 0) <= 0)
            break;
    }
    return *status_;
}

} // namespace zan::test
