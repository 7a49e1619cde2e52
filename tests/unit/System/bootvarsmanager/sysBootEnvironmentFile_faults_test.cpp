// SPDX-License-Identifier: MIT
//
// A boot environment in a plain file when the system refuses: no permission, no room, a lock that
// is not released, and every call and allocation failing once.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "System/bootvarsmanager/sysBootEnvironmentFile.h"
#include "tests/support/descriptors.h"
#include "tests/support/failingcalls.h"
#include "tests/support/failingnew.h"
#include "tests/support/inchild.h"
#include "tests/support/outputlevel.h"
#include "tests/support/tempdir.h"
#include "tests/unit/System/bootvarsmanager/bootbox.h"

using failingcalls::Call;
using tests::imageOf;
using tests::TempDir;
using tests::Variables;

namespace {

using File = sysBootEnvironmentFile;

const Variables kOld = {{"a", "1"}, {"b", "2"}};
const Variables kNew = {{"a", "1"}, {"b", "2"}, {"c", "3"}};

struct Outcome {
    bool mResult = false;
    bool mThrew = false;
    int mCalls = 0;
    int mAllocations = 0;
    int mAlive = 0;
    int mError = 0;
};

/// An environment in a directory of its own, for operations from the same beginning.
class World {
public:
    /// Sets c to 3; the nth call fails, or the nth allocation.
    Outcome change(Call call, int error, int nth, int allocation = 0) {
        prepare();
        Outcome outcome;
        {
            File file(path().c_str());
            const std::set<int> descriptors = tests::openDescriptors();
            if (nth > 0) {
                failingcalls::fail(call, error, nth);
            }
            const int before = failingcalls::count(call);
            const tests::FailingNew memory(allocation);
            try {
                outcome.mResult = file.setVarS("c", "3");
            } catch (const std::bad_alloc&) {
                outcome.mThrew = true;
            }
            outcome.mAllocations = memory.count();
            outcome.mCalls = failingcalls::count(call) - before;
            outcome.mError = file.error();
            const tests::FailingNew::Pause pause;
            std::set<int> open = tests::openDescriptors();
            for (const int number : descriptors) {
                open.erase(number);
            }
            // The test keeps a failing close from the kernel.
            EXPECT_LE(open.size(), nth > 0 && call == Call::eClose ? 1U : 0U);
            for (const int number : open) {
                (void)::close(number);
            }
        }
        failingcalls::reset();
        return outcome;
    }

    std::string path() const { return mFolder.path("env"); }
    bool leftTemporary() const { return ::access(mFolder.path("env.tmp").c_str(), F_OK) == 0; }
    std::string loaded() const {
        const tests::OutputLevel quiet(0);
        File file(path().c_str());
        std::string text;
        return file.exportText(text) ? text : file.reason();
    }

private:
    void prepare() {
        (void)mFolder.write("env", imageOf(kOld));
        (void)mFolder.write("env.bkp", imageOf(Variables{{"a", "0"}}));
        (void)::unlink(mFolder.path("env.tmp").c_str());
    }

    TempDir mFolder;
};

const char kOldText[] = "a=1\nb=2\n";
const char kNewText[] = "a=1\nb=2\nc=3\n";

}  // namespace

TEST(EnvironmentFileFaults, EveryCall) {
    const tests::OutputLevel quiet(0);
    const failingcalls::Scope scope;
    World world;
    int refused = 0;
    for (const Call call : {Call::eOpen, Call::eRead, Call::eWrite, Call::eFsync, Call::eClose,
                            Call::eRename, Call::eStat, Call::eFcntl}) {
        const int calls = world.change(call, 0, 0).mCalls;
        for (int nth = 1; nth <= calls; ++nth) {
            for (const int error : {EIO, EACCES, ENOSPC, EROFS}) {
                SCOPED_TRACE(testing::Message() << static_cast<int>(call) << " number " << nth
                                                << ": " << std::strerror(error));
                const Outcome outcome = world.change(call, error, nth);
                EXPECT_FALSE(outcome.mThrew);
                EXPECT_FALSE(world.leftTemporary());
                const std::string now = world.loaded();
                // One that could not be read makes its backup count.
                const bool fromBackup = now == "a=0\nc=3\n" && outcome.mResult;
                EXPECT_TRUE(now == kOldText || now == kNewText || fromBackup) << now;
                if (outcome.mResult) {
                    EXPECT_NE(now, kOldText);
                } else {
                    ++refused;
                    EXPECT_EQ(outcome.mError, error);
                }
            }
        }
    }
    EXPECT_GT(refused, 20);
}

TEST(EnvironmentFileFaults, EveryAllocation) {
    const tests::OutputLevel quiet(0);
    const failingcalls::Scope scope;
    World world;
    const int all = world.change(Call::eSync, 0, 0).mAllocations;
    EXPECT_GT(all, 5);
    for (int nth = 1; nth <= all; ++nth) {
        SCOPED_TRACE(nth);
        const Outcome outcome = world.change(Call::eSync, 0, 0, nth);
        EXPECT_TRUE(outcome.mThrew);
        EXPECT_EQ(world.loaded(), kOldText);
        EXPECT_FALSE(world.leftTemporary());
    }
}

TEST(EnvironmentFileFaults, AFullFileSystem) {
    tests::inSandbox([](tests::Sandbox& /*sandbox*/) {
        const tests::OutputLevel quiet(0);
        ASSERT_EQ(::mkdir("/small", 0755), 0);
        ASSERT_EQ(::mount("small", "/small", "tmpfs", 0, "size=64k,mode=755"), 0);
        File file("/small/env");
        EXPECT_TRUE(file.create());
        EXPECT_TRUE(file.setVarS("a", "1"));
        const std::string before = tests::readFile("/small/env");
        EXPECT_FALSE(file.setVarS("big", std::string(65000, 'v').c_str()));
        EXPECT_EQ(file.error(), ENOSPC);
        EXPECT_EQ(file.reason(), "/small/env.tmp: No space left on device");
        EXPECT_EQ(tests::readFile("/small/env"), before);
        EXPECT_NE(::access("/small/env.tmp", F_OK), 0);
        EXPECT_TRUE(file.setVarS("b", "2")) << file.reason();
        EXPECT_EQ(file.verify(), File::eStGood);
        EXPECT_EQ(::umount("/small"), 0);
    });
}

TEST(EnvironmentFileFaults, AReadOnlyFileSystem) {
    tests::inSandbox([](tests::Sandbox& /*sandbox*/) {
        const tests::OutputLevel quiet(0);
        ASSERT_EQ(::mkdir("/fixed", 0755), 0);
        ASSERT_EQ(::mount("fixed", "/fixed", "tmpfs", 0, "size=64k,mode=755"), 0);
        tests::writeFile("/fixed/env", imageOf(kOld));
        ASSERT_EQ(::mount("fixed", "/fixed", "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr), 0);
        File file("/fixed/env");
        std::string value;
        EXPECT_TRUE(file.getVarS("a", value));
        EXPECT_FALSE(file.setVarS("a", "2"));
        EXPECT_EQ(file.error(), EROFS);
        EXPECT_FALSE(file.create(true));
        EXPECT_EQ(file.error(), EROFS);
        EXPECT_EQ(::umount("/fixed"), 0);
    });
}

namespace {

/// What a function says as a user without rights; "" when that user cannot be taken on.
std::string asNobody(const std::function<std::string()>& function) {
    return tests::inChild([&] {
        constexpr uid_t nobody = 65534;
        if (::setgroups(0, nullptr) != 0 || ::setgid(nobody) != 0 || ::setuid(nobody) != 0) {
            return std::string("not root");
        }
        return function();
    });
}

}  // namespace

TEST(EnvironmentFileFaults, WithoutPermission) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root to become another user";
    }
    const tests::OutputLevel quiet(0);
    const TempDir folder;
    const std::string path = folder.write("env", imageOf(kOld));
    ASSERT_EQ(::chmod(folder.path("").c_str(), 0755), 0);
    const auto attempt = [&] {
        return asNobody([&] {
            File file(path.c_str());
            std::string text;
            const bool read = file.exportText(text);
            const std::string reading = read ? text : file.reason();
            (void)file.setVarS("c", "3");
            return reading + "|" + file.reason();
        });
    };
    EXPECT_EQ(attempt(), std::string(kOldText) + "|" + path + ".tmp: Permission denied");
    ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
    const std::string denied = path + ": Permission denied; there is no backup";
    EXPECT_EQ(attempt(), denied + "|" + denied);
    ASSERT_EQ(::chmod(folder.path("").c_str(), 0711), 0);
    EXPECT_EQ(attempt(), denied + "|" + folder.path("").substr(0, folder.path("").size() - 1) +
                             ": Permission denied");
}

TEST(EnvironmentFileFaults, ALockThatIsNotReleased) {
    const tests::OutputLevel quiet(0);
    const failingcalls::Scope scope;
    const TempDir folder;
    const std::string path = folder.write("env", imageOf(kOld));
    const int directory = ::open(folder.path("").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(::flock(directory, LOCK_EX), 0);
    File file(path.c_str());
    std::string value;
    EXPECT_TRUE(file.getVarS("a", value)) << "reading needs no lock";
    EXPECT_FALSE(file.setVarS("c", "3"));  // waits for 5 s
    EXPECT_EQ(file.error(), EWOULDBLOCK);
    EXPECT_NE(file.reason().find(": locked by another process"), std::string::npos);
    EXPECT_EQ(TempDir::read(path), imageOf(kOld));
    ASSERT_EQ(::close(directory), 0);
    EXPECT_TRUE(file.setVarS("c", "3"));
    EXPECT_EQ(TempDir::read(path), imageOf(kNew));
}
