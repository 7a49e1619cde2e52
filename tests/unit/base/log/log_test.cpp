// SPDX-License-Identifier: MIT
//
// What is printed, and at which level.
#include "base/log/log.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>

#include "tests/support/capture.h"
#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"

namespace {

using tests::Capture;
using tests::OutputLevel;

constexpr std::uint32_t kNobodyUsesThisErrno = 12345;

TEST(LevelTest, MessageComesOutWhenTheVerbosityIsAtLeastItsLevel) {
    for (const std::uint32_t verbosity : {0U, 1U, 2U, 3U}) {
        const OutputLevel level(verbosity);
        for (const unsigned wanted : {0U, 1U, 2U, 3U}) {
            EXPECT_EQ(wanted <= verbosity, base::levelEnabled(wanted)) << verbosity << wanted;
            const Capture capture;
            base::logMessage(wanted, "level %u\n", wanted);
            EXPECT_EQ(wanted <= verbosity ? "level " + std::to_string(wanted) + "\n" : "",
                      capture.output());
        }
    }
}

TEST(LevelTest, ComparesUnsigned) {
    for (const std::uint32_t verbosity : {0x7fffffffU, 0x80000000U, 0xffffffffU}) {
        const OutputLevel level(verbosity);
        EXPECT_TRUE(base::levelEnabled(1));
        EXPECT_TRUE(base::levelEnabled(2));
        EXPECT_EQ(verbosity == 0xffffffffU, base::levelEnabled(0xffffffffU));
    }
    const OutputLevel level(1);
    EXPECT_FALSE(base::levelEnabled(0x80000000U));
    EXPECT_FALSE(base::levelEnabled(0xffffffffU));
}

TEST(LevelTest, IsOneUntilTheApplicationSaysOtherwise) {
    EXPECT_EQ(1U, kestrova_debug_output_level);
}

TEST(MessageTest, WithoutContextIsTheTextAlone) {
    const Capture capture;
    base::logMessage(1, "%s %d%%\n", "formatting", 42);
    EXPECT_EQ("formatting 42%\n", capture.output());
    EXPECT_EQ("", capture.errors());
}

TEST(MessageTest, WithContextHasALineWithPlaceAndLevelInFront) {
    const OutputLevel level(2);
    const Capture capture;
    base::logMessageAt("System/drivemanager/partition", 77, 2, "mounting %s\n", "/dvr");
    EXPECT_EQ("System/drivemanager/partition:77 (level 2):\nmounting /dvr\n", capture.output());
}

TEST(MessageTest, SuppressedContextIsNotPrintedEither) {
    const Capture capture;
    base::logMessageAt("System/system", 1, 2, "unseen\n");
    base::logNameAt("System/system", 1, 2, "unseen ", "name");
    EXPECT_EQ("", capture.output());
}

TEST(MessageTest, TestsTheLevelOnceForAllOfItsParts) {
    // Another thread may lower the level at any time, even between two writes of one message.
    const failingcalls::Scope scope;
    failingcalls::before(failingcalls::Call::eWrite, [] { kestrova_debug_output_level = 0; });
    const auto printed = [](void (*log)()) {
        const OutputLevel level(1);
        const Capture capture;
        log();
        return capture.output();
    };
    EXPECT_EQ("a/b:7 (level 1):\nwhole\n",
              printed([] { base::logMessageAt("a/b", 7, 1, "%s\n", "whole"); }));
    EXPECT_EQ("a/b:7 (level 1):\n name=x\n",
              printed([] { base::logNameAt("a/b", 7, 1, " name=", "x"); }));
    EXPECT_EQ("a/b:7 Assertion `c' failed (calling task: task).\n opt=1\n", printed([] {
                  (void)pthread_setname_np(pthread_self(), "task");
                  base::reportFailedAssertionWithValues("a/b", 7, "c", " opt=", 1);
              }));
}

TEST(MessageTest, NameGoesThroughTheConsoleStreamWholeWithNulBytes) {
    const Capture capture;
    base::logNameAt("System/drivemanager/partition", 5, 1, "label ", std::string("a\0b", 3));
    EXPECT_EQ("System/drivemanager/partition:5 (level 1):\n" + std::string("label a\0b\n", 10),
              capture.output());
}

TEST(MessageTest, CharacterIsAMessageOfItsOwn) {
    const Capture capture;
    for (const char character : {'a', '\0', '\xff', '%', '\n'}) {
        base::logBytes(1, &character, 1);
        base::logBytes(2, "2", 1);
    }
    EXPECT_EQ(std::string("a\0\xff%\n", 5), capture.output());
}

TEST(PrintFunctionsTest, PrefixesStandInFrontOfTheText) {
    const base::PrintAccess access;
    const Capture capture;
    kestrova_print_context_file_line("base/x", 9, 1, 0, "a", "b", "c ");
    kestrova_print_with_level(1, "d", "e", "f ", "%s %d\n", "text", -1);
    EXPECT_EQ("abc base/x:9 (level 1):\ndef text -1\n", capture.output());
}

TEST(PrintFunctionsTest, TestTheLevelThemselves) {
    const base::PrintAccess access;
    const Capture capture;
    kestrova_print_context_file_line("base/x", 9, 2, 0, "", "", "");
    kestrova_print_with_level(2, "", "", "", "text\n");
    EXPECT_EQ("", capture.output());
}

TEST(PrintFunctionsTest, PercentSignsOfArgumentsAndPrefixesAreNotFormats) {
    const base::PrintAccess access;
    const Capture capture;
    kestrova_print_with_level(1, "%n", "%s", "100% ", "%s\n", "%d");
    EXPECT_EQ("%n%s100% %d\n", capture.output());
}

TEST(PrintFunctionsTest, EmptyMessagePrintsNothing) {
    const Capture capture;
    base::logMessage(1, "%s", "");
    EXPECT_EQ("", capture.output());
}

TEST(ThreadNameTest, IsTheCallingThreadsOwn) {
    std::string inThread;
    std::thread worker([&inThread] {
        ASSERT_EQ(0, pthread_setname_np(pthread_self(), "fifteen-letters"));
        inThread = KestrovaThreadThisName();
    });
    worker.join();
    EXPECT_EQ("fifteen-letters", inThread);
    char ours[16] = "";
    ASSERT_EQ(0, pthread_getname_np(pthread_self(), ours, sizeof(ours)));
    EXPECT_STREQ(ours, KestrovaThreadThisName());
}

/// Calls every function of the log with a known errno. Returns the functions that changed it.
std::string whoChangesErrno() {
    std::string culprits;
    const auto check = [&culprits](const char* name, auto call) {
        errno = kNobodyUsesThisErrno;
        call();
        if (errno != static_cast<int>(kNobodyUsesThisErrno)) {
            culprits += std::string(name) + " ";
        }
    };
    const std::string longText(5000, 'x');
    check("getprintaccess", [] { (void)getprintaccess(); });
    check("context", [] { kestrova_print_context_file_line("base/x", 1, 1, 0, "", "", ""); });
    check("print", [&] { kestrova_print_with_level(1, "", "", "", "%s", longText.c_str()); });
    check("releaseprintaccess", [] { releaseprintaccess(); });
    check("logMessage", [] { base::logMessage(1, "text\n"); });
    check("logBytes", [] { base::logBytes(1, "x", 1); });
    check("suppressed", [] { base::logMessage(2, "text\n"); });
    check("logMessageAt", [] { base::logMessageAt("base/x", 1, 1, "text\n"); });
    check("logNameAt", [&] { base::logNameAt("base/x", 1, 1, "name ", longText); });
    check("assertion", [] { base::reportFailedAssertion("base/x", 1, "a==b"); });
    check("attention", [] { base::reportFailedAttention("base/x", 1, "a==b"); });
    check("values", [] { base::reportFailedAssertionWithValues("base/x", 1, "a==b", " a=", 1); });
    check("stream", [] { *pCoutKestrovaOstream << "piece" << 7 << "\n"; });
    return culprits;
}

TEST(ErrnoTest, IsKeptByEveryLogCall) {
    const Capture capture;
    EXPECT_EQ("", whoChangesErrno());
}

TEST(ErrnoTest, IsKeptWhenNothingCanBeWritten) {
    const Capture capture;
    ASSERT_EQ(0, ::close(STDOUT_FILENO));
    EXPECT_EQ("", whoChangesErrno());
}

}  // namespace
