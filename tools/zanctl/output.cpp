// SPDX-License-Identifier: MIT
#include "output.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace zan::ctl {

Output::Output() : has_colors_(zan::ctl::has_colors(STDOUT_FILENO)) {
    const int own = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (own >= 0)
        stream_ = fdopen(own, "w");
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(null >= 0 ? null : STDERR_FILENO, STDOUT_FILENO);
    if (null > STDERR_FILENO)
        close(null);
}

Output::~Output() {
    if (stream_ != nullptr)
        std::fclose(stream_);
}

void Output::show_diagnostics() {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    // Keeps them in order with zanctl's own messages, in a file too.
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
}

void Output::line(std::string_view text) {
    errno = EBADF; // for a program started without standard output
    if (stream_ == nullptr || std::fwrite(text.data(), 1, text.size(), stream_) != text.size() ||
        std::fputc('\n', stream_) == EOF || std::fflush(stream_) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot write standard output");
}

bool has_colors(int descriptor) {
    const char *const no_color = std::getenv("NO_COLOR");
    const char *const terminal = std::getenv("TERM");
    return isatty(descriptor) != 0 && (no_color == nullptr || *no_color == '\0') &&
           terminal != nullptr && std::string_view(terminal) != "dumb";
}

std::string colored(bool enabled, Color color, std::string_view text) {
    static constexpr const char *codes[] = {"", "\033[1;31m", "\033[1;32m", "\033[1;34m"};
    if (!enabled || color == Color::none || text.empty())
        return std::string(text);
    return codes[static_cast<int>(color)] + std::string(text) + "\033[0m";
}

void report(const std::string &text) {
    const std::string name = colored(has_colors(STDERR_FILENO), Color::red, "zanctl:");
    std::fprintf(stderr, "%s %s\n", name.c_str(), text.c_str());
}

} // namespace zan::ctl
