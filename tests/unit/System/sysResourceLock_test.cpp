// SPDX-License-Identifier: MIT
//
// The lock within one process.
#include "System/sysResourceLock.h"

#include <pthread.h>
#include <sys/file.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <thread>
#include <vector>

#include "tests/support/descriptors.h"
#include "tests/support/processview.h"
#include "tests/unit/System/lockbox.h"

namespace {

using tests::inLockBox;
using tests::kLockMinute;
using tests::kVarsLock;
using tests::openDescriptors;
using tests::readFile;

using Lock = sysResourceLock;
constexpr auto kDrive = Lock::eResRecordingDrive;
constexpr auto kVars = Lock::eResBootVariables;

Lock::Holder look(Lock::Resource resource) {
    Lock::Holder holder;
    EXPECT_TRUE(Lock::holder(resource, holder)) << holder.mReason;
    return holder;
}

mode_t modeOf(const char* path) {
    struct stat status = {};
    EXPECT_EQ(0, ::lstat(path, &status)) << path;
    return status.st_mode;
}

TEST(SysResourceLock, TouchesNothingUntilItIsTaken) {
    inLockBox([] {
        const Lock lock(kDrive);
        EXPECT_FALSE(lock.held());
        EXPECT_FALSE(look(kDrive).mHeld);
        EXPECT_NE(0, ::access(tests::kLockFolder, F_OK));
        EXPECT_EQ(0, lock.error());
        EXPECT_EQ("", lock.reason());
    });
}

TEST(SysResourceLock, TakesItsFileForRootOnly) {
    inLockBox([] {
        (void)::umask(0);
        Lock lock(kVars, "kestrova shell");
        ASSERT_TRUE(lock.tryLock()) << lock.reason();
        EXPECT_TRUE(lock.held());
        EXPECT_EQ(S_IFDIR | 0700U, modeOf(tests::kLockFolder));
        EXPECT_EQ(S_IFREG | 0600U, modeOf(kVarsLock));
        EXPECT_NE(std::string::npos, readFile(kVarsLock).find("command kestrova shell\n"));
        lock.unlock();
        EXPECT_FALSE(lock.held());
        EXPECT_TRUE(lock.tryLock());
    });
}

TEST(SysResourceLock, ItsDescriptorIsNotInherited) {
    inLockBox([] {
        const std::set<int> before = openDescriptors();
        Lock lock(kVars);
        ASSERT_TRUE(lock.tryLock());
        std::set<int> added = openDescriptors();
        for (const int descriptor : before) {
            added.erase(descriptor);
        }
        ASSERT_EQ(1U, added.size());
        EXPECT_EQ(FD_CLOEXEC, ::fcntl(*added.begin(), F_GETFD));
        EXPECT_GT(*added.begin(), STDERR_FILENO);
        lock.unlock();
        EXPECT_EQ(before, openDescriptors());
    });
}

TEST(SysResourceLock, AnotherObjectIsRefusedAndLearnsWhoHoldsIt) {
    inLockBox([] {
        Lock first(kVars, "kestrova shell");
        ASSERT_TRUE(first.tryLock());
        Lock second(kVars, "kestrova vars set");
        EXPECT_FALSE(second.tryLock());
        EXPECT_TRUE(second.busy());
        EXPECT_EQ(EWOULDBLOCK, second.error());
        EXPECT_EQ("the boot variables are in use by process " + std::to_string(::getpid()) +
                      " (kestrova shell)",
                  second.reason());
        EXPECT_EQ(::getpid(), second.blocker().mPid);
        EXPECT_FALSE(second.tryLock(Lock::eMoShared));
        first.unlock();
        EXPECT_TRUE(second.tryLock());
        EXPECT_EQ("", second.reason());
        EXPECT_FALSE(second.busy());
        EXPECT_FALSE(second.blocker().mHeld);
    });
}

TEST(SysResourceLock, ResourcesAreIndependent) {
    inLockBox([] {
        Lock vars(kVars);
        Lock drive(kDrive);
        EXPECT_TRUE(vars.tryLock());
        EXPECT_TRUE(drive.tryLock());
        Lock other(kDrive);
        EXPECT_FALSE(other.tryLock());
        EXPECT_EQ(0U, other.reason().rfind("the drive is in use by process ", 0));
    });
}

TEST(SysResourceLock, ReadersShareItAndKeepWritersAway) {
    inLockBox([] {
        std::vector<std::unique_ptr<Lock>> readers;
        // One more than the file has room for.
        for (int i = 0; i < 9; ++i) {
            readers.push_back(std::make_unique<Lock>(kVars, "reader"));
            ASSERT_TRUE(readers.back()->tryLock(Lock::eMoShared)) << readers.back()->reason();
            EXPECT_TRUE(readers.back()->publish("reading", i));
        }
        EXPECT_EQ(Lock::eMoShared, look(kVars).mMode);
        Lock writer(kVars);
        EXPECT_FALSE(writer.tryLock());
        EXPECT_EQ("reader", writer.blocker().mCommand);
        // The last one, which has no record, also excludes the writer.
        while (readers.size() > 1) {
            readers.erase(readers.begin());
            EXPECT_FALSE(writer.tryLock());
        }
        EXPECT_EQ("the boot variables are in use by another process", writer.reason());
        EXPECT_EQ(0, writer.blocker().mPid);
        EXPECT_TRUE(writer.blocker().mHeld);
        readers.clear();
        EXPECT_TRUE(writer.tryLock());
    });
}

TEST(SysResourceLock, OneObjectTakesItOnce) {
    inLockBox([] {
        Lock lock(kVars);
        ASSERT_TRUE(lock.tryLock());
        EXPECT_FALSE(lock.tryLock());
        EXPECT_FALSE(lock.lock(Lock::eMoShared, kLockMinute));
        EXPECT_EQ(EALREADY, lock.error());
        EXPECT_FALSE(lock.busy());
        EXPECT_TRUE(lock.held());
    });
}

TEST(SysResourceLock, OnlookersSeeWhatTheHolderDoes) {
    inLockBox([] {
        const long long begin = std::time(nullptr);
        Lock lock(kDrive, "kestrova drive format");
        ASSERT_TRUE(lock.tryLock());
        EXPECT_EQ("", look(kDrive).mState);
        EXPECT_TRUE(lock.publish("formatting", 60));
        const Lock::Holder holder = look(kDrive);
        EXPECT_TRUE(holder.mHeld);
        EXPECT_EQ(Lock::eMoExclusive, holder.mMode);
        EXPECT_EQ(::getpid(), holder.mPid);
        EXPECT_GE(holder.mSince, begin);
        EXPECT_LE(holder.mSince, std::time(nullptr));
        EXPECT_EQ("kestrova drive format", holder.mCommand);
        EXPECT_EQ("formatting", holder.mState);
        EXPECT_EQ(60, holder.mPercent);
        EXPECT_EQ("", holder.mReason);
        EXPECT_TRUE(lock.publish(nullptr, -1));
        EXPECT_EQ(0, look(kDrive).mPercent);
        EXPECT_TRUE(lock.publish(std::string(1000, 'x').c_str(), 101));
        EXPECT_EQ(100, look(kDrive).mPercent);
        EXPECT_EQ(std::string(64, 'x'), look(kDrive).mState);
        lock.unlock();
        EXPECT_FALSE(look(kDrive).mHeld);
        EXPECT_EQ(0, look(kDrive).mPid);
        EXPECT_FALSE(lock.publish("formatting", 60));
        EXPECT_EQ(ENOLCK, lock.error());
    });
}

TEST(SysResourceLock, WithoutANameTheHolderIsTheProgram) {
    inLockBox([] {
        Lock lock(kDrive);
        ASSERT_TRUE(lock.tryLock());
        EXPECT_EQ(program_invocation_short_name, look(kDrive).mCommand);
    });
}

TEST(SysResourceLock, LookingNeverMakesAnAttemptFail) {
    inLockBox([] {
        std::atomic<bool> over{false};
        std::atomic<int> seen{0};
        std::vector<std::thread> onlookers;
        for (int i = 0; i < 2; ++i) {
            onlookers.emplace_back([&over, &seen] {
                while (!over) {
                    seen += look(kVars).mHeld ? 1 : 0;
                }
            });
        }
        Lock lock(kVars);
        int attempts = 0;
        int failed = 0;
        // Until the observers have really run at the same time.
        while (attempts < 2000 || seen < 100) {
            ++attempts;
            failed +=
                lock.tryLock(attempts % 2 == 0 ? Lock::eMoShared : Lock::eMoExclusive) ? 0 : 1;
            (void)lock.publish("working", attempts % 100);
            lock.unlock();
        }
        over = true;
        for (std::thread& onlooker : onlookers) {
            onlooker.join();
        }
        EXPECT_EQ(0, failed) << lock.reason();
    });
}

TEST(SysResourceLock, WaitsUntilTheTimeHasPassed) {
    inLockBox([] {
        Lock first(kVars);
        ASSERT_TRUE(first.tryLock());
        Lock second(kVars);
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_FALSE(second.lock(Lock::eMoExclusive, 150));
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(150));
        EXPECT_TRUE(second.busy());
        EXPECT_FALSE(second.lock(Lock::eMoShared, 0));
    });
}

/// A thread that takes and releases the lock. Created while the lock is held, so that it waits.
class Waiter {
public:
    Waiter() : mThread([this] { run(); }) {
        EXPECT_TRUE(tests::eventually([this] { return tests::sleepsForATime(mId); }));
    }
    ~Waiter() { mThread.join(); }
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

    void cancel() { EXPECT_EQ(0, ::pthread_cancel(mThread.native_handle())); }

private:
    void run() {
        mId = ::gettid();
        Lock lock(kVars, "waiter");
        EXPECT_TRUE(lock.lock(Lock::eMoExclusive, kLockMinute)) << lock.reason();
    }

    std::atomic<pid_t> mId{0};
    std::thread mThread;
};

TEST(SysResourceLock, WaitsUntilItIsFree) {
    inLockBox([] {
        Lock first(kVars);
        ASSERT_TRUE(first.tryLock());
        {
            const Waiter waiter;
            first.unlock();
        }
        EXPECT_FALSE(look(kVars).mHeld);
        EXPECT_NE(std::string::npos, readFile(kVarsLock).find("command waiter\n"));
    });
}

TEST(SysResourceLock, ACancelledWaitLeavesNothing) {
    inLockBox([] {
        Lock first(kVars);
        ASSERT_TRUE(first.tryLock());
        const std::set<int> before = openDescriptors();
        for (int i = 0; i < 20; ++i) {
            Waiter waiter;
            waiter.cancel();
        }
        EXPECT_EQ(before, openDescriptors());
        first.unlock();
        EXPECT_TRUE(first.tryLock());
    });
}

TEST(SysResourceLock, AFileThatWasRemovedIsMadeAnew) {
    inLockBox([] {
        Lock first(kVars);
        ASSERT_TRUE(first.tryLock());
        ASSERT_EQ(0, ::unlink(kVarsLock));
        first.unlock();
        ASSERT_TRUE(first.tryLock());
        Lock second(kVars);
        EXPECT_FALSE(second.tryLock());
        EXPECT_EQ(::getpid(), second.blocker().mPid);
    });
}

TEST(SysResourceLock, ALockOfAScriptCountsToo) {
    inLockBox([] {
        Lock lock(kVars);
        ASSERT_TRUE(lock.tryLock());
        const std::string script = std::string("/usr/bin/flock -n ") + kVarsLock + " /usr/bin/true";
        EXPECT_NE(0, std::system(script.c_str()));
        lock.unlock();
        EXPECT_EQ(0, std::system(script.c_str()));
        // As flock(1) holds it while its command runs.
        const int file = ::open(kVarsLock, O_RDWR | O_CLOEXEC);
        ASSERT_EQ(0, ::flock(file, LOCK_EX | LOCK_NB));
        EXPECT_FALSE(lock.tryLock());
        EXPECT_EQ("the boot variables are in use by another process", lock.reason());
        EXPECT_FALSE(look(kVars).mHeld);
        ASSERT_EQ(0, ::close(file));
        EXPECT_TRUE(lock.tryLock());
    });
}

}  // namespace
