// SPDX-License-Identifier: MIT
//
// The only program that an emulated board runs by itself: it takes the commands of
// test cases from the host, one at a time, and runs each in surroundings like those
// that scripts/sandbox gives.  Alone on its machine and without a shell for each
// step, it adds a few milliseconds to a case.
//
// A request is one line of fields that end in tabs: an identifier, the seconds that
// the command may take, its directory, the command and its arguments.  The answer is
// a line "@IDENTIFIER STATUS SIZE", then SIZE bytes of output.
//
// Called as qemu-mipsel it runs the rest of its command line: tests that start
// programs of the target through the emulator find the real machine in its place.
#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace {

struct Request {
    std::string id;
    int seconds = 0;
    std::string directory;
    std::vector<std::string> command;
};

const char *project_directory = nullptr;

struct Outcome {
    int status = 0;
    std::string output;
};

[[noreturn]] void die(const char *what) {
    std::fprintf(stderr, "board_runner: %s: %s\n", what, std::strerror(errno));
    _exit(126);
}

void require(bool done, const char *what) {
    if (!done)
        die(what);
}

void write_file(const char *path, const char *text) {
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    require(file >= 0 && write(file, text, std::strlen(text)) > 0, path);
    close(file);
}

void raise_loopback() {
    const int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP;
    require(ioctl(any, SIOCSIFFLAGS, &request) == 0, "lo");
    close(any);
}

// An empty /tmp, in which a project that lies below /tmp itself stays visible.
void private_tmp() {
    const std::string project = project_directory;
    const int hidden = open(project_directory, O_PATH | O_DIRECTORY | O_CLOEXEC);
    require(hidden >= 0, project_directory);
    require(mount("tmpfs", "/tmp", "tmpfs", 0, "mode=1777") == 0, "/tmp");
    if (project.starts_with("/tmp/")) {
        for (std::size_t at = project.find('/', 5); at != std::string::npos;
             at = project.find('/', at + 1))
            mkdir(project.substr(0, at).c_str(), 0755);
        mkdir(project_directory, 0755);
        const std::string source = "/proc/self/fd/" + std::to_string(hidden);
        require(mount(source.c_str(), project_directory, nullptr, MS_BIND, nullptr) == 0, "bind");
    }
    close(hidden);
}

void enter_sandbox() {
    require(unshare(CLONE_NEWIPC | CLONE_NEWNS | CLONE_NEWNET) == 0, "unshare");
    require(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "/");
    private_tmp();
    require(mount("tmpfs", "/var/log", "tmpfs", 0, "mode=0755") == 0, "/var/log");
    write_file("/proc/sys/kernel/msgmax", "65536");
    write_file("/proc/sys/kernel/msgmnb", "1048576");
    raise_loopback();
}

[[noreturn]] void execute(std::vector<std::string> &command) {
    std::vector<char *> argv;
    for (std::string &word : command)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    die(argv[0]);
}

[[noreturn]] void run_in_sandbox(Request &request, int output) {
    setpgid(0, 0); // not setsid(): a terminal that a session's first process opens is its own
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    enter_sandbox();
    require(chdir(request.directory.c_str()) == 0, request.directory.c_str());
    execute(request.command);
}

int milliseconds_now() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int>(now.tv_sec * 1000 + now.tv_nsec / 1000000);
}

// False when there is nothing more to read for now.
bool read_some(int stream, std::string &into) {
    char block[4096];
    const ssize_t n = read(stream, block, sizeof block);
    if (n > 0)
        into.append(block, static_cast<std::size_t>(n));
    return n > 0;
}

// Reads the output until the process ends: whether it did so in time.
bool await_end(pid_t pid, int stream, int seconds, std::string &output) {
    const int deadline = milliseconds_now() + seconds * 1000;
    pollfd events[] = {{stream, POLLIN, 0},
                       {static_cast<int>(syscall(SYS_pidfd_open, pid, 0)), POLLIN, 0}};
    require(events[1].fd >= 0, "pidfd_open");
    for (int left = seconds * 1000; left > 0 && events[1].revents == 0;
         left = deadline - milliseconds_now()) {
        poll(events, 2, left);
        if (events[0].revents != 0 && !read_some(stream, output))
            events[0].fd = -1; // everyone has closed it
    }
    close(events[1].fd);
    return events[1].revents != 0;
}

Outcome run(Request &request) {
    Outcome outcome;
    int stream[2];
    require(pipe2(stream, O_CLOEXEC | O_NONBLOCK) == 0, "pipe2");
    fcntl(stream[1], F_SETFL, 0);
    const pid_t pid = fork();
    require(pid >= 0, "fork");
    if (pid == 0)
        run_in_sandbox(request, stream[1]);
    close(stream[1]);

    if (!await_end(pid, stream[0], request.seconds, outcome.output))
        outcome.output +=
            "\nboard_runner: not ended after " + std::to_string(request.seconds) + " s\n";
    // What the command left running goes with it: there is nobody else here.
    kill(-1, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    while (waitpid(-1, nullptr, 0) > 0)
        continue;
    while (read_some(stream[0], outcome.output))
        continue;
    close(stream[0]);
    outcome.status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        outcome.output += std::string("board_runner: ") + strsignal(WTERMSIG(status)) + "\n";
    return outcome;
}

bool read_line(int line, std::string &text) {
    char c = 0;
    text.clear();
    while (true) {
        if (read(line, &c, 1) != 1)
            return false;
        if (c == '\n')
            return true;
        text += c;
    }
}

bool parse(const std::string &text, Request &request) {
    std::vector<std::string> fields;
    std::size_t from = 0;
    for (std::size_t tab = text.find('\t'); tab != std::string::npos; tab = text.find('\t', from)) {
        fields.push_back(text.substr(from, tab - from));
        from = tab + 1;
    }
    if (fields.size() < 4)
        return false;
    request = {
        fields[0], std::atoi(fields[1].c_str()), fields[2], {fields.begin() + 3, fields.end()}};
    return true;
}

void answer(int line, const Request &request, const Outcome &outcome) {
    std::string text = "@" + request.id + " " + std::to_string(outcome.status) + " " +
                       std::to_string(outcome.output.size()) + "\n" + outcome.output;
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t n = write(line, text.data() + done, text.size() - done);
        require(n > 0, "the line to the host");
        done += static_cast<std::size_t>(n);
    }
}

} // namespace

int main(int argc, char **argv) {
    const char *const slash = std::strrchr(argv[0], '/');
    if (std::strcmp(slash != nullptr ? slash + 1 : argv[0], "qemu-mipsel") == 0 && argc > 1) {
        execvp(argv[1], argv + 1);
        die(argv[1]);
    }
    if (argc != 3) {
        std::fprintf(stderr, "usage: board_runner LINE PROJECT-DIRECTORY\n");
        return 2;
    }
    project_directory = argv[2];
    const int line = open(argv[1], O_RDWR | O_CLOEXEC);
    require(line >= 0, argv[1]);
    std::string text;
    Request request;
    while (read_line(line, text))
        if (parse(text, request))
            answer(line, request, run(request));
    die("the line to the host");
}
