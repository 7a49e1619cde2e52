// SPDX-License-Identifier: MIT
//
// The software partition as on the box: ext3 on a block device, mounted by the kernel.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "tests/support/capture.h"
#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/bootvarsmanager/bootbox.h"

using failingcalls::Call;
using tests::BootBox;
using tests::inSandbox;
using tests::kSoftwareDevice;
using tests::listed;
using tests::Sandbox;

namespace {

/// Returns the options of the mount on /boot-sw, "" if there is none, as reported by the kernel.
std::string mounted() {
    std::istringstream lines(tests::readFile("/proc/self/mounts"));
    std::string found;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string device;
        std::string directory;
        std::string type;
        std::string options;
        fields >> device >> directory >> type >> options;
        if (directory == "/boot-sw" && type.rfind("ext", 0) == 0) {
            found = options;
        }
    }
    return found;
}

bool isReadOnly() {
    return mounted().rfind("ro", 0) == 0;
}

bool mountNow(const char* device, unsigned long flags) {
    return ::mount(device, "/boot-sw", "ext3", flags, nullptr) == 0;
}

bool set(const char* value) {
    const tests::OutputLevel quiet(0);
    return sysBootVarsManager().setVarS("name", value);
}

/// Runs in a sandbox with a real software partition. The kernel executes all calls; their flags are
/// recorded.
void onExt3(const std::function<void(std::vector<unsigned long>& flags)>& body) {
    inSandbox([&](Sandbox& sandbox) {
        tests::writeFile("/tmp/image", "", 8 << 20);
        ASSERT_EQ(std::system("/usr/sbin/mkfs.ext3 -q -F -m 0 /tmp/image"), 0);
        const BootBox box(sandbox, nullptr);
        // From here the kernel's own table is used.
        ASSERT_EQ(::umount("/proc/self/mounts"), 0);
        ASSERT_EQ(::unlink(kSoftwareDevice), 0);
        if (!sandbox.attachLoop("/tmp/image", kSoftwareDevice)) {
            GTEST_SKIP() << "no loop device";
        }
        if (!mountNow(kSoftwareDevice, 0)) {
            GTEST_SKIP() << "no ext3 in the kernel";
        }
        ASSERT_EQ(::umount("/boot-sw"), 0);
        const failingcalls::Scope scope;
        std::vector<unsigned long> flags;
        failingcalls::watchMounts([&](const failingcalls::MountRequest& request) {
            flags.push_back(request.mFlags);
            EXPECT_STREQ(request.mType, "ext3");
            EXPECT_EQ(request.mData, nullptr);
        });
        body(flags);
        (void)::umount("/boot-sw");
    });
}

using Flags = std::vector<unsigned long>;

}  // namespace

TEST(SoftwarePartitionOnLoop, UnmountedItIsMountedAndUnmounted) {
    onExt3([](Flags& flags) {
        EXPECT_TRUE(set("one"));
        EXPECT_EQ(flags, (Flags{9, 8}));
        EXPECT_EQ(mounted(), "");
        EXPECT_EQ(listed(), "name=one;");
        EXPECT_EQ(flags, (Flags{9, 8, 9}));
        EXPECT_EQ(mounted(), "");
        EXPECT_FALSE(::access("/boot-sw/boot_env", F_OK) == 0);
    });
}

TEST(SoftwarePartitionOnLoop, ReadOnlyItIsRemountedForWritingAlone) {
    onExt3([](Flags& flags) {
        ASSERT_TRUE(mountNow(kSoftwareDevice, MS_RDONLY));
        flags.clear();
        EXPECT_EQ(listed(), "");
        EXPECT_EQ(flags, Flags());
        EXPECT_TRUE(set("one"));
        EXPECT_EQ(flags, (Flags{40, 41}));
        EXPECT_TRUE(isReadOnly());
        EXPECT_EQ(listed(), "name=one;");
    });
}

TEST(SoftwarePartitionOnLoop, ReadWriteItIsLeftAsItIs) {
    onExt3([](Flags& flags) {
        ASSERT_TRUE(mountNow(kSoftwareDevice, 0));
        flags.clear();
        EXPECT_TRUE(set("one"));
        EXPECT_TRUE(set("two"));
        EXPECT_EQ(listed(), "name=two;");
        EXPECT_EQ(flags, Flags());
        EXPECT_FALSE(isReadOnly());
        EXPECT_EQ(tests::readFile("/boot-sw/boot_env.bkp"), tests::imageOf({{"name", "one"}}));
    });
}

TEST(SoftwarePartitionOnLoop, MountedUnderAnotherNameOfTheNodeItIsFound) {
    onExt3([](Flags& flags) {
        struct stat status = {};
        ASSERT_EQ(::stat(kSoftwareDevice, &status), 0);
        ASSERT_EQ(::mknod("/dev/alias", status.st_mode, status.st_rdev), 0);
        ASSERT_TRUE(mountNow("/dev/alias", MS_RDONLY));
        flags.clear();
        EXPECT_TRUE(set("one"));
        EXPECT_EQ(flags, (Flags{40, 41}));
        EXPECT_TRUE(isReadOnly());
    });
}

TEST(SoftwarePartitionOnLoop, AnAliasWithOtherPermissionsIsAnotherDevice) {
    onExt3([](Flags& flags) {
        struct stat status = {};
        ASSERT_EQ(::stat(kSoftwareDevice, &status), 0);
        ASSERT_EQ(::mknod("/dev/alias", status.st_mode, status.st_rdev), 0);
        ASSERT_EQ(::chmod("/dev/alias", 0644), 0);
        ASSERT_TRUE(mountNow("/dev/alias", MS_RDONLY));
        flags.clear();
        const tests::Capture capture;
        // A mount that was not recognised is mounted again, which the kernel refuses in another
        // mode.
        EXPECT_FALSE(set("one"));
        EXPECT_EQ(flags, (Flags{9, 8}));
        EXPECT_NE(capture.errors().find("Error mounting update device: Device or resource busy\n"),
                  std::string::npos)
            << capture.errors();
    });
}

TEST(SoftwarePartitionOnLoop, AFileThatIsOpenToWriteKeepsItReadWrite) {
    onExt3([](Flags& flags) {
        ASSERT_TRUE(mountNow(kSoftwareDevice, MS_RDONLY));
        flags.clear();
        int busy = -1;
        failingcalls::before(Call::eRename, [&] {
            if (busy < 0) {
                busy = ::open("/boot-sw/busy", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
            }
        });
        const tests::Capture capture;
        // The save is on the disk; the failed restore is only reported.
        EXPECT_TRUE(set("one"));
        EXPECT_GE(busy, 0);
        EXPECT_EQ(flags, (Flags{40, 41}));
        EXPECT_EQ(capture.errors(),
                  "Error making software partition readonly: Device or resource busy\n");
        EXPECT_FALSE(isReadOnly());
        (void)::close(busy);
        EXPECT_EQ(listed(), "name=one;");
    });
}

TEST(SoftwarePartitionOnLoop, BusyItStaysMounted) {
    onExt3([](Flags& flags) {
        int busy = -1;
        failingcalls::before(Call::eRename, [&] {
            if (busy < 0) {
                busy = ::open("/boot-sw", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            }
        });
        const tests::Capture capture;
        EXPECT_TRUE(set("one"));
        EXPECT_EQ(flags, (Flags{9, 8}));
        EXPECT_EQ(capture.errors(),
                  "Error umount software partition readonly: Device or resource busy\n");
        EXPECT_NE(mounted(), "");
        (void)::close(busy);
        EXPECT_EQ(listed(), "name=one;");
    });
}

TEST(SoftwarePartitionOnLoop, AFullPartitionFailsAndKeepsTheVariables) {
    onExt3([](Flags&) {
        ASSERT_TRUE(set("one"));
        ASSERT_TRUE(mountNow(kSoftwareDevice, 0));
        ASSERT_EQ(std::system("/usr/bin/cat /dev/zero >/boot-sw/filling 2>/dev/null"), 256);
        const std::string before = tests::readFile("/boot-sw/boot_env");
        EXPECT_FALSE(set(std::string(60000, 'v').c_str()));
        EXPECT_EQ(tests::readFile("/boot-sw/boot_env"), before);
        EXPECT_EQ(listed(), "name=one;");
        ASSERT_EQ(::unlink("/boot-sw/filling"), 0);
        EXPECT_TRUE(set("two"));
        EXPECT_EQ(listed(), "name=two;");
    });
}
