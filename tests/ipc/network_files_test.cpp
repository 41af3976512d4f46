// SPDX-License-Identifier: MIT
// The files that tell where a socket is found.
#include <zan.h>

#include "ipc/sockets.h"
#include "support/capture.h"
#include "support/raw.h"
#include "support/sandbox.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <ostream>
#include <string>

namespace zan::test {
namespace {

constexpr char port_file[] = "/tmp/zan.socket";
constexpr char address_file[] = "/tmp/zan.socketip";
constexpr char write_failure[] = "zan: write socket port file failed\n";

// The daemon's files may be somebody's outside a sandbox.
class DaemonFiles : public testing::Test {
protected:
    void SetUp() override { ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX(); }
};

TEST_F(DaemonFiles, PortIsWrittenAsALine) {
    StdoutCapture out;
    EXPECT_EQ(zan_socket_write_port_file(2690), 1);
    EXPECT_EQ(out.stop(), "");
    EXPECT_EQ(read_file(port_file), "2690\n");
}

TEST_F(DaemonFiles, PortReplacesWhatTheFileHeld) {
    write_file(port_file, "a longer line than the new one\nand another\n");
    EXPECT_EQ(zan_socket_write_port_file(1), 1);
    EXPECT_EQ(read_file(port_file), "1\n");
}

TEST_F(DaemonFiles, PortFileThatCannotBeOpenedIsReported) {
    mkdir(port_file, 0700);
    StdoutCapture out;
    EXPECT_EQ(zan_socket_write_port_file(2690), 0);
    EXPECT_EQ(out.stop(), write_failure);
}

TEST_F(DaemonFiles, PortFileThatTakesNothingIsReported) {
    ASSERT_EQ(symlink("/dev/full", port_file), 0);
    StdoutCapture out;
    EXPECT_EQ(zan_socket_write_port_file(2690), 0);
    EXPECT_EQ(out.stop(), write_failure);
}

TEST_F(DaemonFiles, PortIsTheDefaultWithoutAFile) {
    EXPECT_EQ(zan_get_socket_port(), 2679);
}

struct PortLine {
    const char *name;
    std::string contents;
    int port;
};
void PrintTo(const PortLine &line, std::ostream *out) {
    *out << line.name;
}

class PortFile : public DaemonFiles, public testing::WithParamInterface<PortLine> {};

TEST_P(PortFile, IsReadAsADecimalNumber) {
    write_file(port_file, GetParam().contents);
    EXPECT_EQ(zan_get_socket_port(), GetParam().port);
}

INSTANTIATE_TEST_SUITE_P(
    Contents, PortFile,
    testing::Values(PortLine{"Line", "2690\n", 2690}, PortLine{"LineWithoutEnd", "2690", 2690},
                    PortLine{"FirstOfTwoLines", "2690\n2691\n", 2690},
                    PortLine{"EmptyFirstLine", "\n2690\n", 0},
                    PortLine{"NumberAmidBlanks", "  2690 \n", 2690},
                    PortLine{"NumberBeforeText", "2690 or so\n", 2690},
                    PortLine{"Text", "port\n", 0}, PortLine{"Nothing", "", 0},
                    PortLine{"Negative", "-5\n", -5}, PortLine{"Zero", "0\n", 0},
                    PortLine{"MoreThanAPort", "70000\n", 70000},
                    PortLine{"TooLargeForAnInt", "99999999999999999999\n", 2147483647},
                    PortLine{"NulFirst", std::string("\0002690\n", 6), 0},
                    PortLine{"Line255", std::string(251, '0') + "2690\n", 2690},
                    PortLine{"LineCutAt255", std::string(253, '0') + "2690\n", 26},
                    PortLine{"NumberBehind255", std::string(255, '0') + "2690\n", 0}),
    [](const auto &line) { return std::string(line.param.name); });

// ---- The daemon's address --------------------------------------------------

class AddressFile : public DaemonFiles {
protected:
    // The whole buffer, so that a byte behind the text shows.
    std::string read() {
        char text[33];
        std::memset(text, '#', sizeof text);
        zan_get_socket_ip(text);
        return {text, sizeof text};
    }
    static std::string padded(const std::string &start) {
        return start + std::string(33 - start.size(), '#');
    }
};

TEST_F(AddressFile, LeavesTheBufferUntouchedWhenItIsMissing) {
    EXPECT_EQ(read(), padded(""));
}

TEST_F(AddressFile, LeavesTheBufferUntouchedWhenItIsEmpty) {
    write_file(address_file, "");
    EXPECT_EQ(read(), padded(""));
}

TEST_F(AddressFile, GivesTheFirstLineWithItsEnd) {
    write_file(address_file, "10.0.0.1\n10.0.0.2\n");
    EXPECT_EQ(read(), padded(std::string("10.0.0.1\n\0", 10)));
}

TEST_F(AddressFile, GivesALineThatHasNoEnd) {
    write_file(address_file, "10.0.0.1");
    EXPECT_EQ(read(), padded(std::string("10.0.0.1\0", 9)));
}

TEST_F(AddressFile, GivesALineThatJustFits) {
    const std::string line(31, '1');
    write_file(address_file, line);
    StdoutCapture out;
    EXPECT_EQ(read(), padded(line + '\0'));
    EXPECT_EQ(out.stop(), "");
}

TEST_F(AddressFile, CutsALongerLineWithAWarning) {
    const std::string kept = "1234567890123456789012345678901";
    write_file(address_file, kept + "\n");
    StdoutCapture out;
    EXPECT_EQ(read(), padded(kept + '\0'));
    EXPECT_EQ(out.stop(), overflow_warning(kept));
}

TEST_F(AddressFile, CutsALineLongerThanAnyAddress) {
    write_file(address_file, std::string(5000, '9') + "\n");
    StdoutCapture out;
    EXPECT_EQ(read(), padded(std::string(31, '9') + '\0'));
    EXPECT_EQ(out.stop(), overflow_warning(std::string(31, '9')));
}

TEST_F(AddressFile, IsNotReadIntoNothing) {
    write_file(address_file, "10.0.0.1\n");
    zan_get_socket_ip(nullptr);
}

// ---- The modules' ports ----------------------------------------------------

class ModulePortFile : public testing::Test {
protected:
    ~ModulePortFile() override {
        unlink(path);
        rmdir(path);
    }
    static constexpr char path[] = "/tmp/network_test_probe.info";
    static constexpr char module[] = "network_test_probe";
};

TEST_F(ModulePortFile, IsWrittenAsALine) {
    StdoutCapture out;
    EXPECT_EQ(ipc_socket_write_port_file(module, 12345), 1);
    EXPECT_EQ(out.stop(), "");
    EXPECT_EQ(read_file(path), "12345\n");
    EXPECT_EQ(ipc_get_socket_port(module), 12345);
}

TEST_F(ModulePortFile, ThatCannotBeOpenedIsReported) {
    mkdir(path, 0700);
    StdoutCapture out;
    EXPECT_EQ(ipc_socket_write_port_file(module, 12345), 0);
    EXPECT_EQ(out.stop(), write_failure);
}

TEST_F(ModulePortFile, ThatIsMissingMeansPortZero) {
    EXPECT_EQ(ipc_get_socket_port(module), 0);
}

TEST_F(ModulePortFile, ThatHoldsNoNumberMeansPortZero) {
    write_file(path, "garbage\n");
    EXPECT_EQ(ipc_get_socket_port(module), 0);
    write_file(path, "");
    EXPECT_EQ(ipc_get_socket_port(module), 0);
}

TEST_F(ModulePortFile, NeedsAModule) {
    EXPECT_EQ(ipc_socket_write_port_file(nullptr, 12345), 0);
    EXPECT_EQ(ipc_get_socket_port(nullptr), 0);
}

TEST_F(ModulePortFile, IsCutToAPathThatFits) {
    StdoutCapture out;
    const std::string name(4000, 'm');
    EXPECT_EQ(ipc_socket_write_port_file((name + "/" + name).c_str(), 12345), 1);
    EXPECT_EQ(unlink(("/tmp/" + std::string(250, 'm')).c_str()), 0);
    EXPECT_EQ(out.stop(), "");
}

TEST_F(ModulePortFile, GivesTheAddressOfTheModule) {
    write_file(path, "12345\n");
    sockaddr_in address;
    std::memset(&address, '#', sizeof address);
    EXPECT_EQ(ipc_socket_get_addr(module, &address), htons(12345));
    EXPECT_EQ(address.sin_family, AF_INET);
    EXPECT_EQ(text_of(address), "127.0.0.1:12345");
}

TEST_F(ModulePortFile, ThatIsMissingGivesAnAddressWithPortZero) {
    sockaddr_in address;
    std::memset(&address, '#', sizeof address);
    EXPECT_EQ(ipc_socket_get_addr(module, &address), 0);
    EXPECT_EQ(address.sin_family, AF_INET);
    EXPECT_EQ(text_of(address), "127.0.0.1:0");
}

TEST_F(ModulePortFile, GivesNoAddressIntoNothing) {
    write_file(path, "12345\n");
    EXPECT_EQ(ipc_socket_get_addr(module, nullptr), 0);
}

} // namespace
} // namespace zan::test
