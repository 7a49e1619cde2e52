// SPDX-License-Identifier: MIT
//
// The lock between processes, and its state after one of them dies.
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>

#include <cstdint>

#include "System/sysResourceLock.h"
#include "tests/unit/System/lockbox.h"

namespace {

using tests::Child;
using tests::inLockBox;
using tests::kLockMinute;
using tests::Signpost;

using Lock = sysResourceLock;
constexpr auto kVars = Lock::eResBootVariables;

bool held(Lock::Resource resource) {
    Lock::Holder holder;
    EXPECT_TRUE(Lock::holder(resource, holder)) << holder.mReason;
    return holder.mHeld;
}

TEST(SysResourceLock, AKilledHolderHoldsNothing) {
    inLockBox([] {
        Signpost locked;
        Child holder([&locked] {
            Lock lock(kVars, "kestrova shell");
            (void)(lock.tryLock() && lock.publish("saving", 10) && locked.reach());
            return ::pause();
        });
        ASSERT_TRUE(locked.await());
        Lock lock(kVars);
        EXPECT_FALSE(lock.tryLock());
        EXPECT_EQ(holder.pid(), lock.blocker().mPid);
        EXPECT_EQ("saving", lock.blocker().mState);
        EXPECT_EQ(SIGKILL, holder.end(SIGKILL));
        EXPECT_FALSE(held(kVars));
        EXPECT_TRUE(lock.tryLock()) << lock.reason();
    });
}

/// Runs everything that a holder does in a child that stops at each system call, and kills it at
/// the nth stop. Returns false if it has exited before.
bool killedAtStop(int nth) {
    const pid_t child = ::fork();
    if (child == 0) {
        (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
        (void)::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        (void)::raise(SIGSTOP);
        Lock lock(kVars, "victim");
        const bool good = lock.tryLock() && lock.publish("working", 50);
        lock.unlock();
        ::_exit(good ? 0 : 1);
    }
    int status = 0;
    for (int stop = 0; ::waitpid(child, &status, 0) == child && WIFSTOPPED(status); ++stop) {
        if (stop == nth) {
            (void)::kill(child, SIGKILL);
            (void)::waitpid(child, &status, 0);
            return WIFSIGNALED(status);
        }
        (void)::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    }
    EXPECT_EQ(0, status);
    return false;
}

TEST(SysResourceLock, AHolderMayBeKilledAtEverySystemCall) {
    inLockBox([] {
        int stops = 0;
        for (; killedAtStop(stops); ++stops) {
            EXPECT_FALSE(held(kVars)) << stops;
            Lock next(kVars, "next");
            EXPECT_TRUE(next.tryLock()) << stops << ": " << next.reason();
            EXPECT_TRUE(next.publish("next", 1)) << stops;
        }
        EXPECT_GT(stops, 20);
    });
}

/// A child that is stopped before the nth call of a system call.
class StoppedAtCall {
public:
    StoppedAtCall(long call, int nth, const std::function<int()>& action)
        : mChild([&action] {
              (void)::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
              (void)::raise(SIGSTOP);
              return action();
          }) {
        int status = 0;
        while (::waitpid(mChild.pid(), &status, 0) == mChild.pid() && WIFSTOPPED(status)) {
            nth -= isEntry(call) ? 1 : 0;
            if (nth == 0) {
                mStopped = true;
                return;
            }
            (void)::ptrace(PTRACE_SETOPTIONS, mChild.pid(), nullptr,
                           reinterpret_cast<void*>(PTRACE_O_TRACESYSGOOD));
            (void)::ptrace(PTRACE_SYSCALL, mChild.pid(), nullptr, nullptr);
        }
    }

    bool stopped() const { return mStopped; }
    /// Lets it continue, and waits until it has exited. Returns the raw status.
    int finish() {
        (void)::ptrace(PTRACE_DETACH, mChild.pid(), nullptr, nullptr);
        return mChild.wait();
    }

private:
    bool isEntry(long call) const {
        __ptrace_syscall_info information = {};
        const long size = ::ptrace(PTRACE_GET_SYSCALL_INFO, mChild.pid(),
                                   reinterpret_cast<void*>(sizeof(information)), &information);
        return size > 0 && information.op == PTRACE_SYSCALL_INFO_ENTRY &&
               information.entry.nr == static_cast<std::uint64_t>(call);
    }

    Child mChild;
    bool mStopped = false;
};

TEST(SysResourceLock, AFileThatIsReplacedBeforeItIsLockedExcludesNobody) {
    inLockBox([] {
        StoppedAtCall late(SYS_flock, 1, [] {
            Lock lock(kVars, "late");
            return lock.tryLock() ? 1 : lock.busy() ? 0 : 2;
        });
        ASSERT_TRUE(late.stopped());
        ASSERT_EQ(0, ::unlink(tests::kVarsLock));
        Lock lock(kVars);
        ASSERT_TRUE(lock.tryLock());
        EXPECT_EQ(0, late.finish());
    });
}

TEST(SysResourceLock, ALinkThatComesAfterTheCheckIsNotFollowed) {
    inLockBox([] {
        tests::writeFile("/run/precious", "");
        ASSERT_EQ(0, ::chmod("/run/precious", 0600));
        {
            Lock lock(kVars);
            ASSERT_TRUE(lock.tryLock());
        }
        // After the base directory and the lock directory.
        StoppedAtCall victim(SYS_openat, 3, [] {
            Lock lock(kVars, "victim");
            return lock.tryLock() ? 1 : lock.error() == ELOOP ? 0 : 2;
        });
        ASSERT_TRUE(victim.stopped());
        ASSERT_EQ(0, ::unlink(tests::kVarsLock));
        ASSERT_EQ(0, ::symlink("/run/precious", tests::kVarsLock));
        EXPECT_EQ(0, victim.finish());
        EXPECT_EQ("", tests::readFile("/run/precious"));
    });
}

TEST(SysResourceLock, NoStepOfTwoProcessesOverlaps) {
    inLockBox([] {
        constexpr int rounds = 200;
        tests::writeFile("/run/count", "0");
        const auto add = [] {
            for (int i = 0; i < rounds; ++i) {
                Lock lock(kVars);
                if (!lock.lock(Lock::eMoExclusive, kLockMinute)) {
                    return 1;
                }
                tests::writeFile("/run/count",
                                 std::to_string(std::stoi(tests::readFile("/run/count")) + 1));
            }
            return 0;
        };
        Child one(add);
        Child two(add);
        Child three(add);
        EXPECT_EQ(0, one.wait());
        EXPECT_EQ(0, two.wait());
        EXPECT_EQ(0, three.wait());
        EXPECT_EQ(std::to_string(3 * rounds), tests::readFile("/run/count"));
    });
}

TEST(SysResourceLock, TheEndOfAForkedChildReleasesNothing) {
    inLockBox([] {
        Lock lock(kVars);
        ASSERT_TRUE(lock.tryLock());
        Child child([&lock] {
            lock.unlock();
            return lock.held() ? 1 : 0;
        });
        EXPECT_EQ(0, child.wait());
        EXPECT_TRUE(held(kVars));
        Lock other(kVars);
        EXPECT_FALSE(other.tryLock());
    });
}

TEST(SysResourceLock, AForkedChildDoesNotKeepWhatItsParentReleases) {
    inLockBox([] {
        Lock lock(kVars);
        ASSERT_TRUE(lock.tryLock());
        const Child child([] { return ::pause(); });
        lock.unlock();
        EXPECT_FALSE(held(kVars));
        Lock other(kVars);
        EXPECT_TRUE(other.tryLock()) << other.reason();
    });
}

}  // namespace
