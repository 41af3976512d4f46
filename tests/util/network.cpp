// SPDX-License-Identifier: MIT
#include "network.h"

#include "support/program.h"

#include <linux/if_bridge.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace zan::test {

namespace fs = std::filesystem;

namespace {

void mount_or_throw(const char *source, const fs::path &target, const char *type,
                    unsigned long flags) {
    if (mount(source, target.c_str(), type, flags, nullptr) < 0)
        throw std::system_error(errno, std::generic_category(), "mount " + target.string());
}

// Links what the directory lacks to what the real one has.
void link_rest(const fs::path &directory, const fs::path &real,
               const std::map<std::string, std::optional<std::string>> &files,
               const std::string &prefix) {
    for (const auto &entry : fs::directory_iterator(real)) {
        const std::string name = entry.path().filename();
        if (!fs::exists(fs::symlink_status(directory / name)) && !files.contains(prefix + name))
            fs::create_symlink(entry.path(), directory / name);
    }
}

} // namespace

void ip(const std::string &lines) {
    Program program({"/bin/sh", "-c", "PATH=$PATH:/sbin:/usr/sbin exec ip -batch -"},
                    {.input = lines, .host = true});
    ASSERT_EQ(program.wait(), 0) << program.error();
}

void provide_proc(const std::map<std::string, std::optional<std::string>> &files) {
    const fs::path real = "/tmp/real-proc";
    fs::create_directory(real);
    mount_or_throw("/proc", real, nullptr, MS_BIND | MS_REC);
    mount_or_throw("tmpfs", "/proc", "tmpfs", 0);
    fs::create_directory("/proc/net");
    for (const auto &[name, text] : files) {
        const fs::path path = fs::path("/proc") / name;
        fs::create_directories(path.parent_path());
        if (text)
            std::ofstream(path) << *text;
    }
    link_rest("/proc", real, files, "");
    link_rest("/proc/net", real / "self/net", files, "net/");
}

std::string why_no_bridge_requests() {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    int port = 0;
    unsigned long arguments[4] = {BRCTL_GET_PORT_LIST, reinterpret_cast<unsigned long>(&port), 1,
                                  0};
    ifreq request{};
    std::strcpy(request.ifr_name, "br0");
    request.ifr_data = reinterpret_cast<char *>(arguments);
    const int result = ioctl(fd, SIOCDEVPRIVATE, &request);
    close(fd);
    return result >= 0 ? "" : "bridge requests do not reach the kernel";
}

} // namespace zan::test
