// SPDX-License-Identifier: MIT
#include "host/file_store.h"

#include "base/file.h"
#include "base/text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace zan::sim {

namespace {

constexpr char default_directory[] = "/tmp/zan_sim.files";
constexpr std::size_t max_file_size = 16U << 20U;

Error refused(std::string_view name, const std::string &why) {
    return {bad_file, "file refused (" + why + "): " + escape(name)};
}

Error failed(std::string_view name, const char *step) {
    return {file_failed,
            "file " + std::string(step) + " (" + std::strerror(errno) + "): " + escape(name)};
}

using Names = std::vector<std::string>;

// The elements of a name relative to the directory.
Result<Names> elements_of(std::string_view name, std::string_view directory) {
    std::string_view rest = name;
    if (rest.starts_with('/')) {
        if (!rest.starts_with(directory) || !rest.substr(directory.size()).starts_with('/'))
            return refused(name, "outside " + std::string(directory));
        rest.remove_prefix(directory.size());
    }
    Names names;
    while (!rest.empty()) {
        const std::string_view element = rest.substr(0, rest.find('/'));
        rest.remove_prefix(std::min(element.size() + 1, rest.size()));
        if (element == "..")
            return refused(name, "\"..\" in its name");
        if (!element.empty() && element != ".")
            names.emplace_back(element);
    }
    if (names.empty())
        return refused(name, "no name");
    return names;
}

bool is_link(int directory, const std::string &name) {
    struct stat state {};
    return fstatat(directory, name.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISLNK(state.st_mode);
}

bool is_regular(int fd) {
    struct stat state {};
    return fstat(fd, &state) == 0 && S_ISREG(state.st_mode);
}

} // namespace

FileStore::FileStore() : directory_(default_directory) {}

Result<FileStore> FileStore::open(const std::string &directory) {
    if (mkdir(directory.c_str(), 0777) != 0 && errno != EEXIST)
        return Error{0, directory + ": cannot be made: " + std::strerror(errno)};
    char real[PATH_MAX];
    const bool found = realpath(directory.c_str(), real) != nullptr;
    const Descriptor fd(found ? ::open(real, O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1);
    if (!fd)
        return Error{0, directory + ": cannot be used: " + std::strerror(errno)};
    FileStore store;
    store.directory_ = real;
    store.is_default_ = false;
    return store;
}

// The directory of the named file, and the name in it.  No step follows a symbolic
// link, so concurrent changes cannot lead elsewhere.
Result<Descriptor> FileStore::open_parent(std::string_view name, std::string &last,
                                          bool create) const {
    auto names = elements_of(name, directory_);
    if (!names)
        return names.error();
    if (create && is_default_)
        mkdir(directory_.c_str(), 0755);
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    Descriptor place(::open(directory_.c_str(), flags));
    if (!place)
        return failed(directory_, "directory cannot be used");
    // Any user may create a directory of that name under /tmp.
    struct stat state {};
    if (is_default_ && (fstat(place.get(), &state) != 0 || state.st_uid != geteuid()))
        return refused(name, directory_ + " is another user's");
    last = std::move(names->back());
    names->pop_back();
    for (const std::string &element : *names) {
        Descriptor next(openat(place.get(), element.c_str(), flags));
        if (!next && is_link(place.get(), element))
            return refused(name, "a symbolic link in its name");
        if (!next)
            return failed(name, "cannot be reached");
        place = std::move(next);
    }
    if (is_link(place.get(), last))
        return refused(name, "a symbolic link");
    return place;
}

Result<Done> FileStore::check(std::string_view name) const {
    const auto names = elements_of(name, directory_);
    if (!names)
        return names.error();
    return Done{};
}

Result<std::string> FileStore::read(std::string_view name) const {
    std::string last;
    const auto place = open_parent(name, last, false);
    if (!place)
        return place.error();
    // Must not block: it may be a pipe without writer.
    const Descriptor fd(
        openat(place->get(), last.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd)
        return failed(name, "cannot be read");
    if (!is_regular(fd.get()))
        return refused(name, "not a regular file");
    std::string text;
    if (!read_all(fd.get(), text, max_file_size))
        return failed(name, "cannot be read");
    return text;
}

Result<Done> FileStore::write(std::string_view name, std::string_view text) const {
    std::string last;
    const auto place = open_parent(name, last, true);
    if (!place)
        return place.error();
    if (!replace_in(place->get(), last, text))
        return failed(name, "cannot be written");
    return Done{};
}

} // namespace zan::sim
