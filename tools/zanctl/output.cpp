// SPDX-License-Identifier: MIT
#include "output.h"

#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace zan::ctl {

Output::Output() {
    const int own = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (own >= 0)
        stream_ = fdopen(own, "w");
    dup2(STDERR_FILENO, STDOUT_FILENO);
    // In the order in which things happened, also in a file.
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
}

Output::~Output() {
    if (stream_ != nullptr)
        std::fclose(stream_);
}

void Output::line(std::string_view text) {
    errno = EBADF; // there was no standard output
    if (stream_ == nullptr || std::fwrite(text.data(), 1, text.size(), stream_) != text.size() ||
        std::fputc('\n', stream_) == EOF || std::fflush(stream_) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot write standard output");
}

} // namespace zan::ctl
