// SPDX-License-Identifier: MIT
//
// The marker of the production test, and the serial ports.
#include "System/sysSuperUserUtils.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "tests/support/failingcalls.h"
#include "tests/unit/System/maintenance.h"

namespace {

using failingcalls::Call;
using tests::inSandbox;
using tests::makeNode;
using tests::Sandbox;
using tests::utilities;
using tests::Words;
using tests::writeFile;

constexpr char kMarker[] = "/settings/noptest";

TEST(SysSuperUserUtilsTest, ProductionRemovesTheMarker) {
    inSandbox([](Sandbox&) {
        ASSERT_EQ(0, ::mkdir("/settings", 0755));
        EXPECT_EQ(-1, utilities().ResetToProduction());
        EXPECT_EQ(ENOENT, errno);
        writeFile(kMarker, "");
        writeFile("/settings/other", "");
        EXPECT_EQ(0, utilities().ResetToProduction());
        EXPECT_EQ(-1, ::access(kMarker, F_OK));
        EXPECT_EQ(0, ::access("/settings/other", F_OK));
        EXPECT_EQ(-1, utilities().ResetToProduction());
    });
}

TEST(SysSuperUserUtilsTest, ProductionFailsWhereTheMarkerCannotBeRemoved) {
    inSandbox([](Sandbox&) {
        EXPECT_EQ(-1, utilities().ResetToProduction());
        ASSERT_EQ(0, ::mkdir("/settings", 0755));
        ASSERT_EQ(0, ::mount("ro", "/settings", "tmpfs", 0, nullptr));
        writeFile(kMarker, "");
        ASSERT_EQ(0, ::mount("ro", "/settings", "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr));
        EXPECT_EQ(-1, utilities().ResetToProduction());
        EXPECT_EQ(EROFS, errno);
        EXPECT_EQ(0, ::access(kMarker, F_OK));
    });
}

unsigned countWith(const Words& nodes) {
    for (const std::string& node : nodes) {
        makeNode(node);
    }
    const failingcalls::Scope calls;
    const unsigned count = utilities().GetNumSerial();
    EXPECT_EQ(30, failingcalls::count(Call::eStat));
    for (const std::string& node : nodes) {
        (void)::unlink(node.c_str());
    }
    return count;
}

TEST(SysSuperUserUtilsTest, SerialPortsAreCountedByTheirNodes) {
    inSandbox([](Sandbox&) {
        EXPECT_EQ(0U, countWith({}));
        EXPECT_EQ(2U, countWith({"/dev/ttyS0", "/dev/ttyS1"}));
        EXPECT_EQ(1U, countWith({"/dev/ttyS5"}));
        EXPECT_EQ(3U, countWith({"/dev/ttyS9", "/dev/tty/0", "/dev/ttyAS3"}));
        EXPECT_EQ(0U, countWith({"/dev/ttyS10", "/dev/ttyS", "/dev/tts/0", "/dev/ttyA0"}));
        Words all;
        for (const char* const scheme : {"/dev/ttyS", "/dev/tty/", "/dev/ttyAS"}) {
            for (int port = 0; port < 10; ++port) {
                all.push_back(scheme + std::to_string(port));
            }
        }
        EXPECT_EQ(30U, countWith(all));
        // A dangling link is not a port.
        ASSERT_EQ(0, ::symlink("/dev/nowhere", "/dev/ttyS0"));
        EXPECT_EQ(0U, countWith({}));
    });
}

}  // namespace
