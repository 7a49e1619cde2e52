// SPDX-License-Identifier: MIT
//
// Finding, mounting and restoring the software partition, with the test's own mount tables.
#include "System/bootvarsmanager/softwarepartition.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "System/BlockdevCfg.fmp.h"
#include "tests/support/capture.h"
#include "tests/support/failingcalls.h"
#include "tests/support/hooks.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/bootvarsmanager/bootbox.h"

using failingcalls::Call;
using failingcalls::MountRequest;
using tests::BootBox;
using tests::inSandbox;
using tests::kSoftwareDevice;
using tests::Sandbox;

namespace {

const std::string kDevice = kSoftwareDevice;
const std::string kPlace = kDevice + " /boot-sw ext3";

struct Outcome {
    bool mResult = false;
    bool mChanged = false;
    MountState mState = eMsNotMounted;
    std::string mPlace;
    std::string mLog;
    std::string mErrors;
};

Outcome mountAs(MountState required) {
    Outcome outcome;
    std::string device;
    std::string mountPoint;
    std::string type;
    outcome.mChanged = true;
    outcome.mState = eMsReadWrite;
    const std::set<int> before = tests::openDescriptors();
    {
        const tests::Capture capture;
        outcome.mResult = mountSoftwarePartition(outcome.mChanged, outcome.mState, device,
                                                 mountPoint, type, required);
        outcome.mLog = tests::withoutContext(capture.output());
        outcome.mErrors = capture.errors();
    }
    EXPECT_EQ(tests::openDescriptors(), before);
    outcome.mPlace = device + " " + mountPoint + " " + type;
    return outcome;
}

struct Restored {
    bool mResult;
    std::string mLog;
    std::string mErrors;
};

Restored restoreTo(MountState state) {
    const tests::Capture capture;
    const bool result = restoreMountState(state, kDevice, "/boot-sw", "ext3");
    return {result, tests::withoutContext(capture.output()), capture.errors()};
}

/// Runs in a sandbox with recorded mount calls.
void inBootBox(const char* options, const std::function<void(BootBox&)>& body) {
    inSandbox([&](Sandbox& sandbox) {
        const failingcalls::Scope scope;
        BootBox box(sandbox, options);
        box.simulateMounts();
        body(box);
    });
}

using Calls = std::vector<std::string>;

}  // namespace

TEST(SoftwarePartition, ReadOnlyServesAReadOnlyRequest) {
    inBootBox("ro,relatime", [](BootBox& box) {
        const Outcome outcome = mountAs(eMsReadOnly);
        EXPECT_TRUE(outcome.mResult);
        EXPECT_FALSE(outcome.mChanged);
        EXPECT_EQ(outcome.mState, eMsReadOnly);
        EXPECT_EQ(outcome.mPlace, kPlace);
        EXPECT_EQ(outcome.mLog, "Mouting HDD mode:1\nis mouted 1 1 \n");
        EXPECT_EQ(outcome.mErrors, "");
        EXPECT_EQ(box.mountCalls(), Calls());
    });
}

TEST(SoftwarePartition, ReadWriteServesBoth) {
    inBootBox("rw", [](BootBox& box) {
        for (const MountState required : {eMsReadOnly, eMsReadWrite}) {
            const Outcome outcome = mountAs(required);
            EXPECT_TRUE(outcome.mResult);
            EXPECT_FALSE(outcome.mChanged);
            EXPECT_EQ(outcome.mState, eMsReadWrite);
            const std::string number = std::to_string(required);
            EXPECT_EQ(outcome.mLog,
                      "Mouting HDD mode:" + number + "\nis mouted 2 " + number + " \n");
        }
        EXPECT_EQ(box.mountCalls(), Calls());
    });
}

TEST(SoftwarePartition, ReadOnlyIsRemountedToWriteAndBack) {
    inBootBox("ro", [](BootBox& box) {
        const Outcome outcome = mountAs(eMsReadWrite);
        EXPECT_TRUE(outcome.mResult);
        EXPECT_TRUE(outcome.mChanged);
        EXPECT_EQ(outcome.mState, eMsReadOnly);
        EXPECT_EQ(outcome.mLog, "Mouting HDD mode:2\nis mouted 1 2 \nremount " + kPlace + "\n");
        EXPECT_EQ(box.state(), "rw");
        const Restored restored = restoreTo(outcome.mState);
        EXPECT_TRUE(restored.mResult);
        EXPECT_EQ(restored.mLog, "remount " + kPlace + "\n");
        EXPECT_EQ(box.mountCalls(), (Calls{"mount 40", "mount 41"}));
        EXPECT_EQ(box.state(), "ro");
        EXPECT_EQ(failingcalls::count(Call::eSync), 1);
    });
}

TEST(SoftwarePartition, UnmountedIsMountedAsAskedAndUnmounted) {
    for (const auto& [required, flags] : {std::pair(eMsReadOnly, "9"), {eMsReadWrite, "8"}}) {
        inBootBox(nullptr, [required = required, flags = flags](BootBox& box) {
            const Outcome outcome = mountAs(required);
            EXPECT_TRUE(outcome.mResult);
            EXPECT_TRUE(outcome.mChanged);
            EXPECT_EQ(outcome.mState, eMsNotMounted);
            EXPECT_EQ(outcome.mPlace, kPlace);
            EXPECT_EQ(outcome.mLog,
                      "Mouting HDD mode:" + std::to_string(required) + "\nmount " + kPlace + "\n");
            const Restored restored = restoreTo(outcome.mState);
            EXPECT_TRUE(restored.mResult);
            EXPECT_EQ(restored.mLog, "umount /boot-sw\n");
            EXPECT_EQ(box.mountCalls(), (Calls{std::string("mount ") + flags, "umount"}));
            EXPECT_EQ(failingcalls::count(Call::eSync), 1);
        });
    }
}

TEST(SoftwarePartition, ReadWriteIsRestoredByARemount) {
    inBootBox("ro", [](BootBox& box) {
        const Restored restored = restoreTo(eMsReadWrite);
        EXPECT_TRUE(restored.mResult);
        EXPECT_EQ(restored.mLog, "remount " + kPlace + "\n");
        EXPECT_EQ(box.mountCalls(), Calls{"mount 40"});
        EXPECT_EQ(failingcalls::count(Call::eSync), 1);
    });
}

TEST(SoftwarePartition, AnyOtherStateIsRestoredByASyncAlone) {
    inBootBox("ro", [](BootBox& box) {
        const Restored restored = restoreTo(static_cast<MountState>(3));
        EXPECT_TRUE(restored.mResult);
        EXPECT_EQ(restored.mLog + restored.mErrors, "");
        EXPECT_EQ(box.mountCalls(), Calls());
        EXPECT_EQ(failingcalls::count(Call::eSync), 1);
    });
}

TEST(SoftwarePartition, ARequestForNotMountedIsReportedAndCarriedOut) {
    inBootBox("ro", [](BootBox& box) {
        const tests::HookRecorder hooks;
        const Outcome outcome = mountAs(eMsNotMounted);
        EXPECT_TRUE(outcome.mResult);
        EXPECT_EQ(hooks.assertions(), 1);
        // The kernel needs a mode; any mode but read-only is read-write.
        EXPECT_EQ(box.mountCalls(), Calls{"mount 40"});
        const std::size_t end = outcome.mLog.find('\n');
        const std::string first = outcome.mLog.substr(0, end);
        EXPECT_EQ(first.rfind("System/bootvarsmanager/sysBootVarsManager:", 0), 0U) << first;
        EXPECT_NE(first.find(" Assertion `iReqMountState!=eMsNotMounted' failed (calling task: "),
                  std::string::npos);
        EXPECT_EQ(outcome.mLog.substr(end + 1),
                  "Mouting HDD mode:0\nis mouted 1 0 \nremount " + kPlace + "\n");
    });
}

TEST(SoftwarePartition, AMountTableThatCannotBeOpenedIsAFailureWithoutAWord) {
    inBootBox("rw", [](BootBox& box) {
        for (const Call call : {Call::eOpen, Call::eFdopen}) {
            failingcalls::fail(call, EMFILE);
            const Outcome outcome = mountAs(eMsReadOnly);
            EXPECT_FALSE(outcome.mResult);
            EXPECT_FALSE(outcome.mChanged);
            EXPECT_EQ(outcome.mState, eMsNotMounted);
            EXPECT_EQ(outcome.mLog, "Mouting HDD mode:1\n");
            EXPECT_EQ(outcome.mErrors, "");
        }
        EXPECT_EQ(box.mountCalls(), Calls());
    });
}

TEST(SoftwarePartition, AnUnknownFirstOptionCountsAsNotMountedAndIsRemounted) {
    inBootBox("noexec,ro", [](BootBox& box) {
        const tests::HookRecorder hooks;
        const Outcome outcome = mountAs(eMsReadOnly);
        EXPECT_TRUE(outcome.mResult);
        EXPECT_TRUE(outcome.mChanged);
        EXPECT_EQ(outcome.mState, eMsNotMounted);
        EXPECT_EQ(hooks.assertions(), 1);
        EXPECT_EQ(box.mountCalls(), Calls{"mount 41"});
        EXPECT_NE(outcome.mLog.find(" Assertion `0' failed (calling task: "), std::string::npos);
        EXPECT_NE(outcome.mLog.find(").\n opt=noexec,ro, d-opt=6\n"), std::string::npos)
            << outcome.mLog;
        EXPECT_NE(outcome.mLog.find("is mouted 0 1 \nremount " + kPlace + "\n"), std::string::npos);
    });
}

TEST(SoftwarePartition, TellsWhyAMountIsRefused) {
    const struct {
        const char* mOptions;
        MountState mRequired;
        const char* mText;
    } cases[] = {
        {nullptr, eMsReadOnly, "Error mounting update device: "},
        {nullptr, eMsReadWrite, "Error mounting update device: "},
        {"ro", eMsReadWrite, "Error making software partition writable: "},
        {"other", eMsReadOnly, "Error making software partition writable: "},
    };
    for (const auto& each : cases) {
        inBootBox(each.mOptions, [&](BootBox&) {
            const tests::HookRecorder hooks;
            failingcalls::fail(Call::eMount, EBUSY);
            const Outcome outcome = mountAs(each.mRequired);
            EXPECT_FALSE(outcome.mResult);
            EXPECT_FALSE(outcome.mChanged);
            EXPECT_EQ(outcome.mErrors, std::string(each.mText) + "Device or resource busy\n");
        });
    }
}

TEST(SoftwarePartition, TellsWhyARestoreIsRefused) {
    inBootBox("rw", [](BootBox&) {
        const struct {
            MountState mState;
            Call mCall;
            const char* mText;
        } cases[] = {
            {eMsNotMounted, Call::eUmount, "Error umount software partition readonly: "},
            {eMsReadOnly, Call::eMount, "Error making software partition readonly: "},
            {eMsReadWrite, Call::eMount, "Error making software partition readonly: "},
        };
        for (const auto& each : cases) {
            failingcalls::fail(each.mCall, EBUSY);
            const Restored restored = restoreTo(each.mState);
            EXPECT_FALSE(restored.mResult);
            EXPECT_EQ(restored.mErrors, std::string(each.mText) + "Device or resource busy\n");
        }
        EXPECT_EQ(failingcalls::count(Call::eSync), 0);
    });
}

namespace {

/// Returns the result for a mount table: the directory found, or "mounted with" the flags of a new
/// mount.
std::string found(const std::string& table) {
    tests::writeFile("/stub/mounts", table);
    std::string asked;
    failingcalls::answerMount([&](const MountRequest& request) {
        asked = "mounted with " + std::to_string(request.mFlags);
        return 0;
    });
    const Outcome outcome = mountAs(eMsReadOnly);
    EXPECT_TRUE(outcome.mResult);
    EXPECT_EQ(outcome.mChanged, !asked.empty());
    return outcome.mChanged ? asked : outcome.mPlace;
}

const char kFresh[] = "mounted with 9";

}  // namespace

TEST(SoftwarePartitionSearch, GoesByNodeNotByName) {
    inBootBox("rw", [](BootBox&) {
        const std::string end = " /place ext3 ro 0 0\n";
        // A symbolic link and a file of the same kind are the same device: both have number 0.
        ASSERT_EQ(::symlink(kSoftwareDevice, "/dev/alias"), 0);
        tests::writeFile("/dev/same", "");
        tests::writeFile("/dev/other-mode", "");
        ASSERT_EQ(::chmod("/dev/other-mode", 0600), 0);
        ASSERT_EQ(::chmod("/dev/same", 0644), 0);
        ASSERT_EQ(::chmod(kSoftwareDevice, 0644), 0);
        EXPECT_EQ(found("/dev/alias" + end), "/dev/alias /place ext3");
        EXPECT_EQ(found("/dev/same" + end), "/dev/same /place ext3");
        EXPECT_EQ(found("/dev/other-mode" + end), kFresh);
        EXPECT_EQ(found("/dev/null" + end), kFresh);
        EXPECT_EQ(found("/boot-sw" + end), kFresh);
        EXPECT_EQ(found("/dev/missing" + end), kFresh);
    });
}

TEST(SoftwarePartitionSearch, TheFirstMatchCounts) {
    inBootBox("rw", [](BootBox&) {
        EXPECT_EQ(found("none /x tmpfs rw 0 0\n" + kDevice + " /one ext3 ro 0 0\n" + kDevice +
                        " /two ext3 rw 0 0\n"),
                  kDevice + " /one ext3");
    });
}

TEST(SoftwarePartitionSearch, EndsAtALineThatIsTooShort) {
    inBootBox("rw", [](BootBox&) {
        const std::string entry = kDevice + " /one ext3 ro 0 0\n";
        for (const char* const line : {"\n", "a\n", "a b\n", "a b c\n", " \t\n"}) {
            EXPECT_EQ(found(line + entry), kFresh) << line;
        }
        EXPECT_EQ(found("a b c d\n" + entry), kDevice + " /one ext3");
        EXPECT_EQ(found(kDevice + " /one ext3 ro"), kDevice + " /one ext3");
        EXPECT_EQ(found(""), kFresh);
    });
}

TEST(SoftwarePartitionSearch, LinesAndFieldsOfAnyLengthOverflowNothing) {
    inBootBox("rw", [](BootBox&) {
        const std::string entry = kDevice + " /one ext3 ro 0 0\n";
        const std::string options = std::string(5000, 'o');
        EXPECT_EQ(found("none /x overlay lower=" + options + " 0 0\n" + entry),
                  kDevice + " /one ext3");
        // A line longer than the buffer is read in pieces; a piece with one field is not an entry.
        EXPECT_EQ(found("none /x overlay " + std::string(20000, 'o') + "\n" + entry), kFresh);
        EXPECT_EQ(found(std::string(100000, 'x')), kFresh);
        const std::string place = "/" + std::string(4094, 'p');
        EXPECT_EQ(found(kDevice + " " + place + " ext3 ro 0 0\n"), kDevice + " " + place + " ext3");
    });
}

TEST(SoftwarePartitionSearch, WithoutTheConfiguredNodeNothingIsFound) {
    inBootBox("rw", [](BootBox&) {
        ASSERT_EQ(::unlink(kSoftwareDevice), 0);
        EXPECT_EQ(found(kDevice + " /one ext3 ro 0 0\n"), kFresh);
    });
}

TEST(SoftwarePartitionSearch, WithoutAPartitionTableNothingIsMounted) {
    inSandbox([](Sandbox&) {
        const failingcalls::Scope scope;
        const tests::HookRecorder hooks;
        std::string asked;
        failingcalls::answerMount([&](const MountRequest& request) {
            asked = std::string("'") + request.mDevice + request.mDirectory + request.mType + "'";
            errno = ENOENT;
            return -1;
        });
        EXPECT_FALSE(mountAs(eMsReadOnly).mResult);
        EXPECT_EQ(asked, "''");
        EXPECT_EQ(hooks.assertions(), 1);
    });
}

TEST(SoftwarePartitionAccess, RestoresAtTheEndOfTheScopeWhatItChanged) {
    inBootBox("ro", [](BootBox& box) {
        const tests::Capture capture;
        {
            const SoftwarePartitionAccess access(eMsReadWrite);
            EXPECT_TRUE(access.mounted());
            EXPECT_EQ(access.mountPoint(), "/boot-sw");
            EXPECT_EQ(box.state(), "rw");
        }
        EXPECT_EQ(box.state(), "ro");
        {
            const SoftwarePartitionAccess access(eMsReadOnly);
            EXPECT_TRUE(access.mounted());
        }
        failingcalls::fail(Call::eMount, EIO);
        {
            const SoftwarePartitionAccess access(eMsReadWrite);
            EXPECT_FALSE(access.mounted());
        }
        EXPECT_EQ(box.mountCalls(), (Calls{"mount 40", "mount 41"}));
    });
}
