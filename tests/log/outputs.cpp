// SPDX-License-Identifier: MIT
#include "log/outputs.h"

#include "support/patience.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace zan::test {
namespace {

namespace fs = std::filesystem;

int check(int result, const std::string &what) {
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
}

// Written behind what is to be read: a terminal hands on in order, but later.
constexpr std::string_view marker = "\x01the end\x02";

std::string without_header(const std::string &datagram) {
    // "<192>Nov 21 12:04:59 PROGRAM: "
    constexpr std::string_view priority = "<192>";
    constexpr std::size_t time_size = 15;
    const std::string program = std::string(" ") + program_invocation_short_name + ": ";
    EXPECT_TRUE(datagram.starts_with(priority)) << datagram;
    EXPECT_EQ(datagram.substr(priority.size() + time_size, program.size()), program) << datagram;
    return datagram.substr(priority.size() + time_size + program.size());
}

void build_dev() {
    fs::create_directory("/tmp/dev");
    check(mount("/dev", "/tmp/dev", nullptr, MS_BIND, nullptr), "bind /dev");
    check(mount("tmpfs", "/dev", "tmpfs", 0, "mode=0755"), "tmpfs on /dev");
    fs::create_symlink("/tmp/dev/null", "/dev/null");
    fs::create_directory("/dev/pts");
    check(mount("devpts", "/dev/pts", "devpts", 0, "newinstance,ptmxmode=0666"), "devpts");
    fs::create_symlink("pts/ptmx", "/dev/ptmx");
}

} // namespace

// ---- Terminal

Terminal::Terminal() : master_(check(open("/dev/ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC), "ptmx")) {
    int number = 0;
    int unlocked = 0;
    check(ioctl(master_, TIOCGPTN, &number), "TIOCGPTN");
    check(ioctl(master_, TIOCSPTLCK, &unlocked), "TIOCSPTLCK");
    path_ = "/dev/pts/" + std::to_string(number);
    slave_ = check(open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC), path_);
    termios mode = {};
    check(tcgetattr(slave_, &mode), "tcgetattr");
    cfmakeraw(&mode);
    check(tcsetattr(slave_, TCSANOW, &mode), "tcsetattr");
}

Terminal::~Terminal() {
    close(slave_);
    close(master_);
}

std::string Terminal::take() {
    check(static_cast<int>(write(slave_, marker.data(), marker.size())), path_);
    std::string text;
    pollfd ready = {master_, POLLIN, 0};
    while (!text.ends_with(marker)) {
        char block[4096];
        if (poll(&ready, 1, static_cast<int>(patience.count()) * 1000) != 1)
            throw std::runtime_error(path_ + " has swallowed something: " + text);
        text.append(block, static_cast<std::size_t>(
                               check(static_cast<int>(read(master_, block, sizeof block)), path_)));
    }
    return text.substr(0, text.size() - marker.size());
}

void Terminal::lock() {
    int locked = 1;
    check(ioctl(master_, TIOCSPTLCK, &locked), "TIOCSPTLCK");
}

// ---- LogOutputs

LogOutputs::LogOutputs() {
    build_dev();
    for (int n = 0; n < terminals; ++n) {
        auto &terminal = terminals_.at(static_cast<std::size_t>(n));
        terminal = std::make_unique<Terminal>();
        EXPECT_EQ(terminal->path(), "/dev/pts/" + std::to_string(n));
    }
    console_ = std::make_unique<Terminal>();
    set_console(console_->path());
    open_syslog();
}

LogOutputs::~LogOutputs() {
    close(syslog_);
}

void LogOutputs::open_syslog() {
    syslog_ = check(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket");
    sockaddr_un address = {AF_UNIX, "/dev/log"};
    check(bind(syslog_, reinterpret_cast<sockaddr *>(&address), sizeof address), "/dev/log");
}

std::vector<std::string> LogOutputs::syslog() {
    std::vector<std::string> messages;
    char datagram[65536];
    for (;;) {
        const ssize_t size = recv(syslog_, datagram, sizeof datagram, MSG_DONTWAIT);
        if (size < 0)
            return messages;
        messages.push_back(without_header({datagram, static_cast<std::size_t>(size)}));
    }
}

void LogOutputs::set_console(const std::string &path) {
    fs::remove("/dev/console");
    fs::create_symlink(path, "/dev/console");
}

void LogOutputs::remove_syslog() {
    close(syslog_);
    syslog_ = -1;
    fs::remove("/dev/log");
}

void LogOutputs::hide_terminals() {
    check(mount("tmpfs", "/dev/pts", "tmpfs", 0, "mode=0755"), "tmpfs on /dev/pts");
}

// ---- time

void set_test_time_zone() {
    setenv("TZ", "XYZ-03:25", 1);
}

std::string clock_text(std::time_t time) {
    const long of_day = (time + (3 * 60 + 25) * 60) % 86400;
    char text[64];
    std::snprintf(text, sizeof text, "%02ld:%02ld:%02ld", of_day / 3600, of_day / 60 % 60,
                  of_day % 60);
    return text;
}

bool is_logged_since(std::time_t since, const std::string &text, const std::string &pattern) {
    const std::time_t now = std::time(nullptr);
    for (std::time_t time = since; time <= now; ++time) {
        std::string expected = pattern;
        for (std::size_t at = expected.find('@'); at != std::string::npos; at = expected.find('@'))
            expected.replace(at, 1, clock_text(time));
        if (text == expected)
            return true;
    }
    return false;
}

} // namespace zan::test
