// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <string>
#include <string_view>

namespace zan::sim {

class Descriptor;

// The only directory in which zansim reads and writes files for modules.  A name is
// relative to it, or a full path in it.  Names that lead out of it, by ".." or symbolic
// links, are refused.
class FileStore {
public:
    // The default directory under /tmp, created by the first write.
    FileStore();

    // Uses this directory, and creates it if necessary.
    static Result<FileStore> open(const std::string &directory);

    const std::string &directory() const { return directory_; }

    // Whether the name is allowed; the file need not exist.
    Result<Done> check(std::string_view name) const;

    Result<std::string> read(std::string_view name) const;
    Result<Done> write(std::string_view name, std::string_view text) const;

private:
    Result<Descriptor> open_parent(std::string_view name, std::string &last, bool create) const;

    std::string directory_;
    bool is_default_ = true;
};

} // namespace zan::sim
