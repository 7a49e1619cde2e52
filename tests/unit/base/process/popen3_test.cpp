// SPDX-License-Identifier: MIT
//
// Children with pipes: what they receive, and what the caller receives.
#include "base/process/popen3.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/capture.h"
#include "tests/support/descriptors.h"
#include "tests/support/failingcalls.h"
#include "tests/support/tempdir.h"
#include "tests/unit/base/childview.h"

namespace {

using failingcalls::Call;
using tests::ChildView;
using tests::readToEnd;
using tests::TempDir;

/// Arguments for the program childview; the report is the file "report" of the directory.
class Arguments {
public:
    Arguments(const TempDir& directory, std::vector<std::string> actions)
        : mTexts(std::move(actions)) {
        mTexts.insert(mTexts.begin(), {KESTROVA_CHILDVIEW, directory.path("report")});
        for (const std::string& text : mTexts) {
            mPointers.push_back(text.c_str());
        }
        mPointers.push_back(nullptr);
    }
    const char** get() { return mPointers.data(); }

private:
    std::vector<std::string> mTexts;
    std::vector<const char*> mPointers;
};

int statusOf(int child) {
    int status = -1;
    EXPECT_EQ(child, ::waitpid(child, &status, 0));
    return status;
}

int lowestFree() {
    const int descriptor = ::dup(STDIN_FILENO);
    (void)::close(descriptor);
    return descriptor;
}

constexpr int kUntouched = -77;

class Popen3PipesTest : public testing::TestWithParam<int> {
protected:
    bool piped(int number) const { return (GetParam() & 1 << number) != 0; }
};

// Every combination of pipes. Streams without a pipe are the caller's, and no other descriptor is
// inherited.
TEST_P(Popen3PipesTest, ConnectsWhatIsAskedForAndNothingElse) {
    const TempDir directory;
    const tests::Capture capture;
    Arguments arguments(directory, piped(0)
                                       ? std::vector<std::string>{"say:out", "complain:err", "read"}
                                       : std::vector<std::string>{"say:out", "complain:err"});
    int ends[3] = {kUntouched, kUntouched, kUntouched};
    const int child = kestrova_popen3_adv(
        piped(0) ? &ends[0] : nullptr, piped(1) ? &ends[1] : nullptr, piped(2) ? &ends[2] : nullptr,
        arguments.get(), environ, nullptr, nullptr, nullptr);
    ASSERT_GT(child, 0);
    for (int number = 0; number < 3; ++number) {
        if (piped(number)) {
            ASSERT_GT(ends[number], 2);
            EXPECT_EQ(FD_CLOEXEC, ::fcntl(ends[number], F_GETFD));
            EXPECT_EQ(number == 0 ? O_WRONLY : O_RDONLY,
                      ::fcntl(ends[number], F_GETFL) & O_ACCMODE);
        } else {
            EXPECT_EQ(kUntouched, ends[number]);
        }
    }
    if (piped(0)) {
        EXPECT_EQ(5, ::write(ends[0], "input", 5));
        (void)::close(ends[0]);
    }
    const std::string output = piped(1) ? readToEnd(ends[1]) : "";
    const std::string errors = piped(2) ? readToEnd(ends[2]) : "";
    EXPECT_EQ(0, statusOf(child));
    EXPECT_EQ("out", piped(1) ? output : capture.output());
    EXPECT_EQ("err", piped(2) ? errors : capture.errors());
    const ChildView view(directory.path("report"));
    EXPECT_EQ("0 1 2", view.numbers());
    EXPECT_EQ(piped(0), view.on(0) == "pipe r") << view.on(0);
    EXPECT_EQ(piped(1), view.on(1) == "pipe w") << view.on(1);
    EXPECT_EQ(piped(2), view.on(2) == "pipe w") << view.on(2);
    if (piped(0)) {
        EXPECT_EQ("input", view.only("input"));
    }
}

INSTANTIATE_TEST_SUITE_P(Combinations, Popen3PipesTest, testing::Range(0, 8));

TEST(Popen3Test, ChildGetsArgumentsAsTheyAre) {
    const TempDir directory;
    Arguments arguments(directory, {"say:", "write:2:", "complain:"});
    const int child = kestrova_popen3_adv(nullptr, nullptr, nullptr, arguments.get(), environ,
                                          nullptr, nullptr, nullptr);
    EXPECT_EQ(0, statusOf(child));
    EXPECT_EQ((std::vector<std::string>{KESTROVA_CHILDVIEW, directory.path("report"),
                                        "say:", "write:2:", "complain:"}),
              ChildView(directory.path("report")).all("argument"));
}

/// Starts with an environment and an extra list. Returns the child's environment.
std::vector<std::string> environmentWith(char** environment, const char** extra) {
    const TempDir directory;
    Arguments arguments(directory, {});
    const int child = kestrova_popen3_adv(nullptr, nullptr, nullptr, arguments.get(), environment,
                                          extra, nullptr, nullptr);
    EXPECT_EQ(0, statusOf(child));
    return ChildView(directory.path("report")).all("environment");
}

TEST(Popen3Test, EnvironmentIsTheGivenOneOrTheCallersOwn) {
    char first[] = "A=1";
    char second[] = "B=2";
    char* given[] = {first, second, nullptr};
    char* none[] = {nullptr};
    EXPECT_EQ((std::vector<std::string>{"A=1", "B=2"}), environmentWith(given, nullptr));
    EXPECT_EQ((std::vector<std::string>{}), environmentWith(none, nullptr));
    std::vector<std::string> own;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        own.emplace_back(*entry);
    }
    EXPECT_EQ(own, environmentWith(nullptr, nullptr));
}

TEST(Popen3Test, ExtraListReplacesEntriesOfTheSameNameAndAddsOthers) {
    char first[] = "A=1";
    char second[] = "AB=2";
    char third[] = "C=3";
    char* given[] = {first, second, third, nullptr};
    const char* extra[] = {"A=new", "D=4", "C=", "D=5", nullptr};
    EXPECT_EQ((std::vector<std::string>{"A=new", "AB=2", "C=", "D=5"}),
              environmentWith(given, extra));
    const char* nothing[] = {nullptr};
    EXPECT_EQ((std::vector<std::string>{"A=1", "AB=2", "C=3"}), environmentWith(given, nothing));
}

TEST(Popen3Test, ExitStatusAndSignalReachTheCaller) {
    const TempDir directory;
    for (const char* const action : {"exit:0", "exit:3", "exit:255"}) {
        Arguments arguments(directory, {action});
        const int status = statusOf(kestrova_popen3_adv(nullptr, nullptr, nullptr, arguments.get(),
                                                        environ, nullptr, nullptr, nullptr));
        EXPECT_EQ(action, "exit:" + std::to_string(WEXITSTATUS(status)));
    }
    Arguments arguments(directory, {"raise:9"});
    const int status = statusOf(kestrova_popen3_adv(nullptr, nullptr, nullptr, arguments.get(),
                                                    environ, nullptr, nullptr, nullptr));
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(SIGKILL, WTERMSIG(status));
}

struct HookData {
    int mPipe;
    int mOwner;
};

void hook(void* argument) {
    const auto* const data = static_cast<const HookData*>(argument);
    // Runs in the child, whose streams are already pipes.
    (void)!::write(data->mPipe, ::getpid() == data->mOwner ? "parent" : "child", 6);
    (void)!::write(STDOUT_FILENO, "hook ", 5);
}

TEST(Popen3Test, HookRunsInTheChildBeforeTheProgram) {
    const TempDir directory;
    Arguments arguments(directory, {"say:program"});
    int told[2] = {-1, -1};
    ASSERT_EQ(0, ::pipe2(told, O_CLOEXEC));
    HookData data = {told[1], ::getpid()};
    int out = -1;
    const int child =
        kestrova_popen3_adv(nullptr, &out, nullptr, arguments.get(), environ, nullptr, hook, &data);
    (void)::close(told[1]);
    ASSERT_GT(child, 0);
    EXPECT_EQ("hook program", readToEnd(out));
    EXPECT_EQ("child", readToEnd(told[0]).substr(0, 5));
    EXPECT_EQ(0, statusOf(child));
    EXPECT_EQ("0 1 2", ChildView(directory.path("report")).numbers());
}

struct Refusal {
    const char* mName;
    const char* mPath;
    int mError;
};

class Popen3RefusalTest : public testing::TestWithParam<Refusal> {};

TEST_P(Popen3RefusalTest, ProgramThatCannotBeExecutedIsAFailureWithItsReason) {
    const char* arguments[] = {GetParam().mPath, nullptr};
    int ends[3] = {kUntouched, kUntouched, kUntouched};
    const int before = lowestFree();
    errno = 0;
    EXPECT_GT(0, kestrova_popen3_adv(&ends[0], &ends[1], &ends[2], arguments, environ, nullptr,
                                     nullptr, nullptr));
    EXPECT_EQ(GetParam().mError, errno);
    EXPECT_EQ(before, lowestFree());
    EXPECT_EQ(kUntouched, ends[0] + ends[1] - ends[2]);
    EXPECT_EQ(-1, ::waitpid(-1, nullptr, 0));
    EXPECT_EQ(ECHILD, errno);
}

INSTANTIATE_TEST_SUITE_P(Paths, Popen3RefusalTest,
                         testing::Values(Refusal{"Absent", "/nowhere/at/all", ENOENT},
                                         Refusal{"NotExecutable", "/dev/null", EACCES},
                                         Refusal{"Directory", "/proc", EACCES},
                                         Refusal{"NameWithoutPath", "sh", ENOENT}),
                         [](const auto& refusal) { return refusal.param.mName; });

TEST(Popen3Test, WithAHookTheChildEndsWith127InItsPlace) {
    (void)std::fflush(stdout);  // a sanitizer flushes it at any exit, including the child's
    const char* arguments[] = {"/nowhere/at/all", nullptr};
    HookData data = {-1, 0};
    int out = -1;
    const int child =
        kestrova_popen3_adv(nullptr, &out, nullptr, arguments, environ, nullptr, hook, &data);
    ASSERT_GT(child, 0);
    EXPECT_EQ("hook ", readToEnd(out));
    EXPECT_EQ(127, WEXITSTATUS(statusOf(child)));
}

TEST(Popen3Test, NoProgramIsRefused) {
    const char* arguments[] = {nullptr};
    EXPECT_GT(0, kestrova_popen3_adv(nullptr, nullptr, nullptr, nullptr, environ, nullptr, nullptr,
                                     nullptr));
    EXPECT_GT(0, kestrova_popen3_adv(nullptr, nullptr, nullptr, arguments, environ, nullptr,
                                     nullptr, nullptr));
    EXPECT_EQ(EINVAL, errno);
}

TEST(Popen3Test, FailingPipeForkOrSpawnLeavesNothingBehind) {
    const TempDir directory;
    Arguments arguments(directory, {});
    HookData data = {-1, 0};
    struct Failing {
        Call mCall;
        int mNth;
        bool mHook;
    };
    for (const Failing& failing : {Failing{Call::ePipe2, 1, false}, Failing{Call::ePipe2, 2, false},
                                   Failing{Call::ePipe2, 3, false}, Failing{Call::eClone, 1, false},
                                   Failing{Call::eFork, 1, true}}) {
        int ends[3] = {kUntouched, kUntouched, kUntouched};
        const int before = lowestFree();
        const failingcalls::Scope calls;
        failingcalls::fail(failing.mCall, ENOMEM, failing.mNth);
        errno = 0;
        EXPECT_GT(0, kestrova_popen3_adv(&ends[0], &ends[1], &ends[2], arguments.get(), environ,
                                         nullptr, failing.mHook ? hook : nullptr, &data));
        EXPECT_EQ(ENOMEM, errno) << static_cast<int>(failing.mCall) << failing.mNth;
        EXPECT_EQ(before, lowestFree());
        EXPECT_EQ(kUntouched, ends[1]);
        EXPECT_EQ(-1, ::waitpid(-1, nullptr, 0));
    }
}

}  // namespace
