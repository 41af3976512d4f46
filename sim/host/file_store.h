// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <string>
#include <string_view>

namespace zan::sim {

class Descriptor;

// The one directory in which zansim reads and writes files for modules.  A name is
// relative to it, or its full path; "..", symbolic links and everything else that
// leads out of it are refused.
class FileStore {
public:
    // Under /tmp, where it is made once there is something to write.
    FileStore();

    // A directory that exists, or can be made.
    static Result<FileStore> open(const std::string &directory);

    const std::string &directory() const { return directory_; }

    // Whether the name may be used; nothing need be there.
    Result<Done> check(std::string_view name) const;

    Result<std::string> read(std::string_view name) const;
    Result<Done> write(std::string_view name, std::string_view text) const;

private:
    Result<Descriptor> open_parent(std::string_view name, std::string &last, bool create) const;

    std::string directory_;
    bool is_default_ = true;
};

} // namespace zan::sim
