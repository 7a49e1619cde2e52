// SPDX-License-Identifier: MIT
//
// A cancellation becomes pending at each call of an operation, one after another.
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <set>

#include "System/bootvarsmanager/softwarepartition.h"
#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "tests/support/capture.h"
#include "tests/support/descriptors.h"
#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/bootvarsmanager/bootbox.h"

using failingcalls::Call;
using tests::BootBox;
using tests::inSandbox;
using tests::listed;
using tests::Sandbox;

namespace {

const tests::Variables kOld = {{"a", "1"}, {"b", "2"}};
constexpr char kOldText[] = "a=1;b=2;";
constexpr char kNewText[] = "a=1;b=2;c=new;";

struct CallName {
    Call mCall;
    const char* mName;
};
const CallName kCalls[] = {
    {Call::eOpen, "open"},     {Call::eFdopen, "fdopen"}, {Call::eRead, "read"},
    {Call::eClose, "close"},   {Call::eStat, "stat"},     {Call::eFcntl, "fcntl"},
    {Call::eMount, "mount"},   {Call::eUmount, "umount"}, {Call::eSync, "sync"},
    {Call::eRename, "rename"}, {Call::eFsync, "fsync"},   {Call::eWrite, "write"},
};

char succeeded;
void* const kSucceeded = &succeeded;

void* set(void*) {
    return sysBootVarsManager().setVarS("c", "new") ? kSucceeded : nullptr;
}

void* list(void*) {
    KestrovaVector<std::string> names;
    KestrovaVector<std::string> values;
    (void)sysBootVarsManager().getVarList(names, values);
    return names.size() == kOld.size() ? kSucceeded : nullptr;
}

/// Runs an operation on its own thread. Returns null if it failed, PTHREAD_CANCELED if it was
/// cancelled.
void* run(void* (*operation)(void*)) {
    pthread_t thread = {};
    void* result = nullptr;
    EXPECT_EQ(pthread_create(&thread, nullptr, operation, nullptr), 0);
    EXPECT_EQ(pthread_join(thread, &result), 0);
    return result;
}

/// The nth call of this kind cancels its own thread. Returns the number of calls.
int runCancelled(void* (*operation)(void*), Call call, int nth, void*& result) {
    int calls = 0;
    failingcalls::before(call, [&calls, nth] {
        if (++calls == nth) {
            (void)pthread_cancel(pthread_self());
        }
    });
    result = run(operation);
    return calls;
}

void prepare(BootBox& box, const char* options) {
    for (const char* const name : {tests::kBackupFile, tests::kTemporaryFile}) {
        (void)::unlink(name);
    }
    tests::writeFile(tests::kPrimaryFile, tests::imageOf(kOld));
    failingcalls::reset();
    box.setMounted(options);
    box.simulateMounts();
}

/// Cancels at every call of every kind, and expects complete effects.
void sweep(const char* options, void* (*operation)(void*)) {
    inSandbox([=](Sandbox& sandbox) {
        const failingcalls::Scope scope;
        const tests::OutputLevel quiet(0);
        BootBox box(sandbox, options);
        int cancelled = 0;
        for (const CallName& each : kCalls) {
            int calls = 1;
            for (int nth = 1; nth <= calls; ++nth) {
                SCOPED_TRACE(testing::Message() << each.mName << " " << nth);
                prepare(box, options);
                const std::set<int> descriptors = tests::openDescriptors();
                void* result = nullptr;
                const int made = runCancelled(operation, each.mCall, nth, result);
                calls = nth == 1 ? made : calls;
                failingcalls::reset();
                box.simulateMounts();
                cancelled += result == PTHREAD_CANCELED ? 1 : 0;
                EXPECT_EQ(tests::openDescriptors(), descriptors);
                EXPECT_EQ(box.state(), options != nullptr ? options : "");
                const std::string found = listed();
                EXPECT_TRUE(found == kOldText || (operation == set && found == kNewText)) << found;
            }
        }
        EXPECT_GT(cancelled, 0);
    });
}

}  // namespace

TEST(BootVarsCancellation, SettingOnAReadWritePartition) {
    sweep("rw", set);
}

TEST(BootVarsCancellation, SettingOnAReadOnlyPartition) {
    sweep("ro", set);
}

TEST(BootVarsCancellation, SettingOnAPartitionThatIsNotMounted) {
    sweep(nullptr, set);
}

TEST(BootVarsCancellation, ReadingOnAPartitionThatIsNotMounted) {
    sweep(nullptr, list);
}

// The restore reports its failure with perror(), a cancellation point, from a destructor.
TEST(BootVarsCancellation, ARestoreThatFailsIsReported) {
    for (const char* const options : {"ro", static_cast<const char*>(nullptr)}) {
        inSandbox([options](Sandbox& sandbox) {
            const failingcalls::Scope scope;
            const tests::OutputLevel quiet(0);
            BootBox box(sandbox, options);
            prepare(box, options);
            // The cancellation arrives after the last cancellation point before the restore.
            const Call way = options != nullptr ? Call::eMount : Call::eUmount;
            failingcalls::fail(way, EBUSY, 2);
            const tests::Capture capture;
            int calls = 0;
            failingcalls::before(way, [&calls] {
                if (++calls == 2) {
                    (void)pthread_cancel(pthread_self());
                }
            });
            EXPECT_EQ(run(set), kSucceeded);
            EXPECT_EQ(capture.errors(),
                      options != nullptr
                          ? "Error making software partition readonly: Device or resource busy\n"
                          : "Error umount software partition readonly: Device or resource busy\n");
            failingcalls::reset();
            EXPECT_EQ(listed(), kNewText);
        });
    }
}

namespace {

void* restoreCancelled(void*) {
    (void)pthread_cancel(pthread_self());
    const bool restored =
        restoreMountState(eMsNotMounted, tests::kSoftwareDevice, "/boot-sw", "ext3");
    return restored ? kSucceeded : nullptr;
}

}  // namespace

TEST(BootVarsCancellation, RestoringIsNoCancellationPoint) {
    inSandbox([](Sandbox& sandbox) {
        const failingcalls::Scope scope;
        const tests::OutputLevel quiet(0);
        const BootBox box(sandbox, "rw");
        failingcalls::fail(Call::eUmount, EBUSY);
        const tests::Capture capture;
        EXPECT_EQ(run(restoreCancelled), nullptr);
        EXPECT_EQ(capture.errors(),
                  "Error umount software partition readonly: Device or resource busy\n");
    });
}
