// SPDX-License-Identifier: MIT
//
// Every call of an operation fails once, at each position and with each usual reason.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "tests/support/capture.h"
#include "tests/support/failingcalls.h"
#include "tests/support/failingnew.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/bootvarsmanager/bootbox.h"

using failingcalls::Call;
using tests::BootBox;
using tests::imageOf;
using tests::inSandbox;
using tests::kBackupFile;
using tests::kPrimaryFile;
using tests::kTemporaryFile;
using tests::listed;
using tests::Sandbox;
using tests::toText;
using tests::Variables;

namespace {

const Variables kOld = {{"a", "1"}, {"b", "AAEC"}};
const Variables kOlder = {{"a", "0"}};

struct Operation {
    const char* mName;
    const char* mKey;    ///< what a change sets, null for a reading operation
    const char* mValue;  ///< "" for nothing
    bool (*mRun)(sysBootVarsManager&);
};

const Operation kOperations[] = {
    {"getVarS", nullptr, "",
     [](sysBootVarsManager& vars) {
         char value[16];
         return vars.getVarS("a", value, sizeof(value));
     }},
    {"getVarB", nullptr, "",
     [](sysBootVarsManager& vars) {
         unsigned length = 0;
         unsigned char bytes[16];
         return vars.getVarB("b", length, bytes, sizeof(bytes));
     }},
    {"getVarList", nullptr, "",
     [](sysBootVarsManager& vars) {
         KestrovaVector<std::string> names;
         KestrovaVector<std::string> values;
         return vars.getVarList(names, values);
     }},
    {"setVarS", "c", "new", [](sysBootVarsManager& vars) { return vars.setVarS("c", "new"); }},
    {"setVarB", "c", "AQI=",
     [](sysBootVarsManager& vars) {
         const unsigned char bytes[] = {1, 2};
         return vars.setVarB("c", bytes, sizeof(bytes));
     }},
    {"clearVar", "a", "", [](sysBootVarsManager& vars) { return vars.clearVar("a"); }},
};

struct Reasons {
    Call mCall;
    const char* mName;
    std::vector<int> mErrors;
};

const Reasons kReasons[] = {
    {Call::eOpen, "open", {EACCES, EMFILE, ENFILE, ENOENT, ENOMEM, EROFS, ENOSPC, EIO}},
    {Call::eFdopen, "fdopen", {ENOMEM}},
    {Call::eRead, "read", {EIO, EISDIR, ENOMEM}},
    {Call::eFsync, "fsync", {EIO, ENOSPC, EROFS, EINTR}},
    {Call::eClose, "close", {EIO, EINTR, ENOSPC}},
    {Call::eStat, "stat", {ENOENT, EACCES, ELOOP, ENOMEM, EIO}},
    {Call::eRename, "rename", {EACCES, EBUSY, ENOSPC, EROFS, EXDEV, EIO}},
    {Call::eMount, "mount", {EBUSY, EINVAL, ENODEV, ENOENT, EPERM, ENXIO, EROFS, ENOMEM}},
    {Call::eUmount, "umount", {EBUSY, EINVAL, EPERM}},
    {Call::eFcntl, "fcntl", {EBADF}},
};

/// The files before an operation.
struct Files {
    const char* mName;
    std::string mPrimary;
    std::string mBackup;
    Variables mLoaded;
};

const Files kFiles[] = {
    {"both", imageOf(kOld), imageOf(kOlder), kOld},
    {"damaged primary", imageOf(kOld).substr(0, 20), imageOf(kOlder), kOlder},
    {"no backup", imageOf(kOld), "", kOld},
};

struct Outcome {
    bool mResult = false;
    bool mThrew = false;
    int mCalls = 0;
    int mAllocations = 0;
    int mAlive = 0;  ///< blocks that are not freed
    std::string mLog;
    std::string mErrors;
};

/// A sandbox in which operations run one after another from the same state.
class World {
public:
    World(Sandbox& sandbox, const char* options) : mOptions(options), mBox(sandbox, options) {}

    /// Runs an operation in which the nth call fails, or with `allocation` the nth allocation.
    Outcome run(const Files& files, const Operation& operation, Call call, int error, int nth,
                int allocation = 0) {
        prepare(files);
        sysBootVarsManager manager;
        Outcome outcome;
        const std::set<int> descriptors = tests::openDescriptors();
        {
            const tests::Capture capture;
            if (nth > 0) {
                failingcalls::fail(call, error, nth);
            }
            const int before = failingcalls::count(call);
            runCounted(manager, operation, allocation, outcome);
            outcome.mCalls = failingcalls::count(call) - before;
            outcome.mLog = tests::withoutContext(capture.output());
            outcome.mErrors = capture.errors();
        }
        failingcalls::reset();
        expectClosed(descriptors, nth > 0 && call == Call::eClose ? 1 : 0);
        return outcome;
    }

    /// Expects the original mount state, unless the restore was refused.
    void expectRestored(const Outcome& outcome) {
        if (outcome.mErrors.find(" readonly: ") == std::string::npos) {
            EXPECT_EQ(mBox.state(), mOptions != nullptr ? mOptions : "");
        }
        mBox.setMounted("rw");
    }

private:
    /// Expects no new descriptor, except those whose close() the test did not pass to the kernel.
    static void expectClosed(const std::set<int>& before, std::size_t kept) {
        std::set<int> now = tests::openDescriptors();
        for (const int number : before) {
            EXPECT_EQ(now.erase(number), 1U);
        }
        EXPECT_EQ(now.size(), kept);
        for (const int number : now) {
            (void)::close(number);
        }
    }

    void prepare(const Files& files) {
        tests::writeFile(kPrimaryFile, files.mPrimary);
        (void)::unlink(kBackupFile);
        if (!files.mBackup.empty()) {
            tests::writeFile(kBackupFile, files.mBackup);
        }
        (void)::unlink(kTemporaryFile);
        mBox.setMounted(mOptions);
        failingcalls::reset();
        mBox.simulateMounts();
    }

    static void runCounted(sysBootVarsManager& manager, const Operation& operation, int allocation,
                           Outcome& outcome) {
        const tests::FailingNew memory(allocation);
        try {
            outcome.mResult = operation.mRun(manager);
        } catch (const std::bad_alloc&) {
            outcome.mThrew = true;
        }
        outcome.mAllocations = memory.count();
        outcome.mAlive = memory.alive();
    }

    const char* mOptions;
    BootBox mBox;
};

bool contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

Variables changed(Variables vars, const Operation& operation) {
    vars.erase(operation.mKey);
    if (operation.mValue[0] != '\0') {
        vars[operation.mKey] = operation.mValue;
    }
    return vars;
}

/// Returns the variables that the operation may have loaded, derived from its log.
std::vector<Variables> loadedBy(const Files& files, const std::string& log) {
    const std::string loading = log.substr(0, log.find("Setting key"));
    if (contains(loading, "Unable to mount device") || !contains(loading, "Path: ")) {
        return {{}};
    }
    if (!contains(loading, "trying backup")) {
        return {kOld};
    }
    if (files.mBackup.empty()) {
        return {{}};
    }
    // If the primary is damaged, the unreadable file may be the backup.
    return files.mLoaded == kOld ? std::vector<Variables>{kOlder}
                                 : std::vector<Variables>{kOlder, {}};
}

/// Expects that the change is complete.
void expectChanged(const Files& files, const Operation& operation, const Outcome& outcome) {
    std::vector<std::string> complete;
    for (const Variables& vars : loadedBy(files, outcome.mLog)) {
        complete.push_back(toText(changed(vars, operation)));
    }
    EXPECT_THAT(complete, testing::Contains(listed()));
}

void expectUntouched(const Files& files) {
    EXPECT_EQ(tests::readFile(kPrimaryFile), files.mPrimary);
    EXPECT_EQ(tests::readFile(kBackupFile), files.mBackup);
}

/// Expects the result that the log of a change implies.
void expectChange(const Files& files, const Operation& operation, const Outcome& outcome) {
    const std::size_t at = outcome.mLog.find("Saving Environment");
    const std::string saving = at == std::string::npos ? "" : outcome.mLog.substr(at);
    if (outcome.mResult) {
        expectChanged(files, operation, outcome);
        EXPECT_NE(::access(kTemporaryFile, F_OK), 0);
        return;
    }
    if (contains(saving, "Error making environment current")) {
        // The primary may already be the backup, from which it is then read.
        EXPECT_EQ(listed(), toText(files.mLoaded));
        EXPECT_EQ(::access(kTemporaryFile, F_OK), 0);
    } else if (contains(saving, "Moving /boot-sw//boot_env.tmp")) {
        // The file is in place, but may not be persistent.
        expectChanged(files, operation, outcome);
    } else {
        EXPECT_TRUE(contains(saving, "Unable to mount device") ||
                    contains(saving, "Failed to wirte environment file") ||
                    contains(saving, "Error backing up environment") ||
                    saving.find("Path:") == std::string::npos)
            << outcome.mLog;
        expectUntouched(files);
    }
}

void expectOutcome(const Files& files, const Operation& operation, const Outcome& outcome) {
    if (operation.mKey == nullptr) {
        expectUntouched(files);
        EXPECT_NE(::access(kTemporaryFile, F_OK), 0);
    } else {
        expectChange(files, operation, outcome);
    }
}

void sweep(World& world, const Files& files, const Operation& operation, const Reasons& reasons) {
    const int calls = world.run(files, operation, reasons.mCall, 0, 0).mCalls;
    for (int nth = 1; nth <= calls; ++nth) {
        for (const int error : reasons.mErrors) {
            SCOPED_TRACE(testing::Message()
                         << operation.mName << ", " << files.mName << ": " << reasons.mName
                         << " number " << nth << " of " << calls << ": " << std::strerror(error));
            const Outcome outcome = world.run(files, operation, reasons.mCall, error, nth);
            EXPECT_FALSE(outcome.mThrew);
            world.expectRestored(outcome);
            expectOutcome(files, operation, outcome);
        }
    }
}

void sweepAll(const char* options) {
    inSandbox([options](Sandbox& sandbox) {
        const failingcalls::Scope scope;
        World world(sandbox, options);
        for (const Files& files : kFiles) {
            for (const Operation& operation : kOperations) {
                for (const Reasons& reasons : kReasons) {
                    sweep(world, files, operation, reasons);
                }
            }
        }
    });
}

}  // namespace

TEST(BootVarsFaults, EveryCallOnAReadWritePartition) {
    sweepAll("rw");
}

TEST(BootVarsFaults, EveryCallOnAReadOnlyPartition) {
    sweepAll("ro");
}

TEST(BootVarsFaults, EveryCallOnAPartitionThatIsNotMounted) {
    sweepAll(nullptr);
}

TEST(BootVarsFaults, EveryAllocation) {
    inSandbox([](Sandbox& sandbox) {
        const failingcalls::Scope scope;
        World world(sandbox, "rw");
        for (const Files& files : kFiles) {
            for (const Operation& operation : kOperations) {
                const Outcome whole = world.run(files, operation, Call::eSync, 0, 0);
                EXPECT_GT(whole.mAllocations, 0);
                EXPECT_EQ(whole.mAlive, 0);
                for (int nth = 1; nth <= whole.mAllocations; ++nth) {
                    SCOPED_TRACE(testing::Message() << operation.mName << ", " << files.mName
                                                    << ": allocation " << nth);
                    const Outcome outcome = world.run(files, operation, Call::eSync, 0, 0, nth);
                    EXPECT_TRUE(outcome.mThrew);
                    EXPECT_EQ(outcome.mAlive, 0);
                    world.expectRestored(outcome);
                    expectOutcome(files, operation, outcome);
                }
            }
        }
    });
}

TEST(BootVarsFaults, EveryAllocationRestoresTheMount) {
    inSandbox([](Sandbox& sandbox) {
        const failingcalls::Scope scope;
        World world(sandbox, "ro");
        for (const Operation& operation : kOperations) {
            const int all = world.run(kFiles[0], operation, Call::eSync, 0, 0).mAllocations;
            for (int nth = 1; nth <= all; ++nth) {
                SCOPED_TRACE(testing::Message() << operation.mName << ": allocation " << nth);
                world.expectRestored(world.run(kFiles[0], operation, Call::eSync, 0, 0, nth));
            }
        }
    });
}

namespace {

/// In an operation that does not log, the only write is that of the temporary file.
Outcome writeFails(World& world, const Operation& operation, int error) {
    const tests::OutputLevel quiet(0);
    return world.run(kFiles[0], operation, Call::eWrite, error, 1);
}

}  // namespace

TEST(BootVarsFaults, AWriteThatFailsLeavesTheFiles) {
    inSandbox([](Sandbox& sandbox) {
        const failingcalls::Scope scope;
        World world(sandbox, "rw");
        for (const int error : {ENOSPC, EIO, EDQUOT, EFBIG, EROFS}) {
            for (const Operation& operation : kOperations) {
                const Outcome outcome = writeFails(world, operation, error);
                EXPECT_EQ(outcome.mResult, operation.mKey == nullptr);
                EXPECT_EQ(outcome.mCalls, operation.mKey == nullptr ? 0 : 1);
                expectUntouched(kFiles[0]);
            }
        }
    });
}

TEST(BootVarsFaults, AnInterruptionIsNoFailure) {
    inSandbox([](Sandbox& sandbox) {
        const failingcalls::Scope scope;
        World world(sandbox, "rw");
        for (const Operation& operation : kOperations) {
            EXPECT_TRUE(writeFails(world, operation, EINTR).mResult);
            for (const Call call : {Call::eOpen, Call::eRead}) {
                const int calls = world.run(kFiles[0], operation, call, 0, 0).mCalls;
                EXPECT_GT(calls, 0);
                for (int nth = 1; nth <= calls; ++nth) {
                    const Outcome outcome = world.run(kFiles[0], operation, call, EINTR, nth);
                    EXPECT_TRUE(outcome.mResult) << operation.mName << " " << nth;
                    EXPECT_EQ(outcome.mLog.find("trying backup"), std::string::npos);
                }
            }
        }
    });
}

TEST(BootVarsFaults, TransfersInPiecesAreCompleted) {
    inSandbox([](Sandbox& sandbox) {
        const failingcalls::Scope scope;
        const BootBox box(sandbox);
        const tests::OutputLevel quiet(0);
        const Variables vars = {{"big", std::string(9000, 'v')}, {"c", "new"}};
        for (const std::size_t most : {1U, 2U, 511U, 4095U, 4096U}) {
            tests::writeFile(kPrimaryFile, imageOf({{"big", std::string(9000, 'v')}}));
            failingcalls::limitTransfers(most);
            EXPECT_TRUE(sysBootVarsManager().setVarS("c", "new")) << most;
            EXPECT_EQ(listed(), toText(vars)) << most;
            failingcalls::limitTransfers(0);
            EXPECT_EQ(tests::readFile(kPrimaryFile), imageOf(vars)) << most;
        }
    });
}

TEST(BootVarsFaults, AWriteThatFailsHalfwayLeavesTheFiles) {
    inSandbox([](Sandbox& sandbox) {
        const failingcalls::Scope scope;
        const BootBox box(sandbox);
        const tests::OutputLevel quiet(0);
        tests::writeFile(kPrimaryFile, imageOf(kOld));
        const auto bytes = static_cast<int>(imageOf(changed(kOld, kOperations[3])).size());
        for (int nth = 1; nth <= bytes; ++nth) {
            failingcalls::limitTransfers(1);
            failingcalls::fail(Call::eWrite, ENOSPC, nth);
            EXPECT_FALSE(sysBootVarsManager().setVarS("c", "new")) << nth;
            EXPECT_EQ(tests::readFile(kTemporaryFile).size(), static_cast<std::size_t>(nth - 1));
            EXPECT_EQ(listed(), toText(kOld)) << nth;
        }
        failingcalls::limitTransfers(0);
        EXPECT_TRUE(sysBootVarsManager().setVarS("c", "new"));
        EXPECT_EQ(tests::readFile(kBackupFile), imageOf(kOld));
    });
}

TEST(BootVarsFaults, TheSyncsAreMadeInTheirPlaces) {
    inSandbox([](Sandbox& sandbox) {
        const failingcalls::Scope scope;
        const BootBox box(sandbox);
        const tests::OutputLevel quiet(0);
        tests::writeFile(kPrimaryFile, imageOf(kOld));
        std::string order;
        for (const auto& [call, name] : {std::pair(Call::eWrite, "write "),
                                         {Call::eFsync, "fsync "},
                                         {Call::eRename, "rename "}}) {
            failingcalls::before(call, [&order, name = name] { order += name; });
        }
        EXPECT_TRUE(sysBootVarsManager().setVarS("c", "new"));
        EXPECT_EQ(order, "write fsync rename rename fsync ");
    });
}
