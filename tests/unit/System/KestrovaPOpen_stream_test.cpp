// SPDX-License-Identifier: MIT
//
// Commands whose output is a stream.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <set>
#include <string>

#include "System/KestrovaPOpen.h"
#include "base/log/log.h"
#include "tests/support/capture.h"
#include "tests/support/descriptors.h"
#include "tests/support/failingcalls.h"
#include "tests/support/hooks.h"
#include "tests/support/outputlevel.h"

// Replaces the library's function, to return a value that no kernel returns.
extern "C" {
int __real_kestrova_popen3_adv(int*, int*, int*, const char**, char**, const char**,
                               void (*)(void*), void*) asm("__real_" KESTROVA_POPEN3_ADV);
int __wrap_kestrova_popen3_adv(int*, int*, int*, const char**, char**, const char**,
                               void (*)(void*), void*) asm("__wrap_" KESTROVA_POPEN3_ADV);
}

namespace {

bool answerZero = false;

}  // namespace

int __wrap_kestrova_popen3_adv(int* in, int* out, int* err, const char** argv, char** envp,
                               const char** extra, void (*hook)(void*), void* argument) {
    return answerZero ? 0
                      : __real_kestrova_popen3_adv(in, out, err, argv, envp, extra, hook, argument);
}

namespace {

using failingcalls::Call;
using tests::Capture;
using tests::HookRecorder;
using tests::openDescriptors;
using tests::OutputLevel;

std::FILE* const kUntouched = stdin;

std::string readAll(std::FILE* stream) {
    std::string text;
    char line[128];
    while (std::fgets(line, sizeof(line), stream) != nullptr) {
        text += line;
    }
    EXPECT_EQ(0, std::fclose(stream));
    return text;
}

void expectExit(int pid, int code) {
    int status = -1;
    EXPECT_EQ(eCsExited, kestrova_pstatus(pid, status, true));
    EXPECT_EQ(code, status);
}

TEST(KestrovaPopenFoutTest, OnlyTheOutputIsPiped) {
    const std::set<int> before = openDescriptors();
    {
        const Capture capture;
        std::FILE* stream = nullptr;
        const int pid = kestrova_popen_fout(stream, "echo one; echo err >&2; printf half; exit 3");
        ASSERT_GT(pid, 0);
        EXPECT_EQ("one\nhalf", readAll(stream));
        expectExit(pid, 3);
        EXPECT_EQ("err\n", capture.errors());
        EXPECT_EQ("", capture.output());
    }
    EXPECT_EQ(before, openDescriptors());
}

TEST(KestrovaPopenFoutTest, HalfALineIsThereBeforeItsEnd) {
    std::FILE* stream = nullptr;
    const int pid = kestrova_popen_fout(stream, "printf half; kill -STOP $$; echo ' a line'");
    ASSERT_GT(pid, 0);
    char half[5] = "";
    EXPECT_EQ(4U, std::fread(half, 1, 4, stream));
    EXPECT_STREQ("half", half);
    siginfo_t info = {};
    EXPECT_EQ(0, ::waitid(P_PID, static_cast<id_t>(pid), &info, WSTOPPED));
    EXPECT_EQ(0, ::kill(pid, SIGCONT));
    EXPECT_EQ(" a line\n", readAll(stream));
    expectExit(pid, 0);
}

TEST(KestrovaPopenFoutTest, FormattedCommandsAreCut) {
    for (const int length : {10, 245, 246, 1000}) {
        std::FILE* stream = nullptr;
        // Zeros after ten characters of the command itself.
        const int pid = kestrova_popen_fout_fmt(stream, "printf %%s %0*d", length, 0);
        ASSERT_GT(pid, 0);
        EXPECT_EQ(std::string(static_cast<unsigned>(std::min(length, 245)), '0'), readAll(stream));
        expectExit(pid, 0);
    }
}

TEST(KestrovaPopenFoutTest, CommandWhoseConversionFailsDoesNotRun) {
    const OutputLevel verbosity(2);
    const HookRecorder hooks;
    const Capture capture;
    const wchar_t text[] = {static_cast<wchar_t>(0x7fffffff), L'\0'};
    std::FILE* stream = kUntouched;
    EXPECT_GT(0, kestrova_popen_fout_fmt(stream, "echo ran >&2; %ls", text));
    EXPECT_EQ(kUntouched, stream);
    EXPECT_EQ(-1, ::waitpid(-1, nullptr, 0));
    EXPECT_EQ("", capture.output() + capture.errors());
    EXPECT_TRUE(hooks.attentions().empty());
}

/// Returns the line of a failed attention check with its line number replaced.
std::string withoutLine(std::string text) {
    const std::size_t colon = text.find(':');
    const std::size_t blank = text.find(' ');
    return colon < blank ? text.replace(colon + 1, blank - colon - 1, "N") : text;
}

TEST(KestrovaPopenFoutTest, FailureToStartIsReportedAtLevelTwo) {
    const std::string report =
        "System/KestrovaPOpen:N Attention `pid >= 0' failed (calling task: " +
        std::string(KestrovaThreadThisName()) + ").\n";
    for (const unsigned level : {0U, 1U, 2U}) {
        const OutputLevel verbosity(level);
        const HookRecorder hooks;
        std::string output;
        std::FILE* stream = kUntouched;
        {
            const Capture capture;
            const failingcalls::Scope calls;
            failingcalls::failAll(Call::eClone, ENOMEM);
            EXPECT_GT(0, kestrova_popen_fout(stream, "true"));
            EXPECT_GT(0, kestrova_popen_fout_fmt(stream, "true"));
            output = capture.output();
        }
        EXPECT_EQ(kUntouched, stream);
        const std::size_t half = output.size() / 2;
        EXPECT_EQ(level < 2 ? "" : report, withoutLine(output.substr(0, half)));
        EXPECT_EQ(output.substr(0, half), output.substr(half));
        ASSERT_EQ(2U, hooks.attentions().size());
        EXPECT_EQ("System/KestrovaPOpen", hooks.attentions()[0].mFile);
        EXPECT_EQ(2U, hooks.attentions()[0].mLevel);
        EXPECT_EQ("||", hooks.attentions()[0].mPrefixes);
    }
}

TEST(KestrovaPopenFoutTest, NoPidIsNoFailureAndNoStream) {
    const OutputLevel verbosity(2);
    const HookRecorder hooks;
    const Capture capture;
    answerZero = true;
    std::FILE* stream = kUntouched;
    EXPECT_EQ(0, kestrova_popen_fout(stream, "true"));
    EXPECT_EQ(0, kestrova_popen_fout_fmt(stream, "true"));
    answerZero = false;
    EXPECT_EQ(kUntouched, stream);
    EXPECT_EQ("", capture.output());
    EXPECT_TRUE(hooks.attentions().empty());
}

/// Makes fdopen() fail for a command that only SIGINT ends. Returns the result, with the descriptor
/// closed.
int failStream(int interruptions) {
    const std::set<int> before = openDescriptors();
    std::FILE* stream = kUntouched;
    int result = 0;
    {
        const failingcalls::Scope calls;
        failingcalls::fail(Call::eFdopen, EMFILE);
        if (interruptions > 0) {
            failingcalls::fail(Call::eWaitpid, EINTR);
        }
        result = kestrova_popen_fout(stream, "exec cat /dev/zero");
        EXPECT_EQ(1 + interruptions, failingcalls::count(Call::eWaitpid));
    }
    EXPECT_EQ(nullptr, stream);
    // The descriptor stays open, so that only the signal ends the child.
    std::set<int> more = openDescriptors();
    EXPECT_EQ(before.size() + 1, more.size());
    for (const int descriptor : more) {
        if (before.count(descriptor) == 0) {
            EXPECT_EQ(0, ::close(descriptor));
        }
    }
    return result;
}

TEST(KestrovaPopenFoutTest, WithoutAStreamTheChildIsInterruptedAndReaped) {
    const OutputLevel verbosity(2);
    const HookRecorder hooks;
    const Capture capture;
    for (const int interruptions : {0, 1}) {
        EXPECT_EQ(-1, failStream(interruptions));
        EXPECT_EQ(-1, ::waitpid(-1, nullptr, WNOHANG));
        EXPECT_EQ(ECHILD, errno);
    }
    EXPECT_EQ("", capture.output());
    EXPECT_TRUE(hooks.attentions().empty());
}

// The child exits only on SIGINT, and then reports it.
TEST(KestrovaPopenFoutTest, TheSignalIsSigint) {
    const Capture capture;
    const failingcalls::Scope calls;
    failingcalls::fail(Call::eFdopen, ENOMEM);
    int pid = -1;
    failingcalls::before(Call::eWaitpid, [&pid] {
        // The signal has been sent; examine the child's end before it is reaped.
        siginfo_t info = {};
        EXPECT_EQ(0, ::waitid(P_ALL, 0, &info, WEXITED | WNOWAIT));
        EXPECT_EQ(CLD_KILLED, info.si_code);
        EXPECT_EQ(SIGINT, info.si_status);
        pid = info.si_pid;
    });
    std::FILE* stream = kUntouched;
    const std::set<int> before = openDescriptors();
    EXPECT_EQ(-1, kestrova_popen_fout_fmt(stream, "exec sleep %d", 1000));
    EXPECT_GT(pid, 0);
    EXPECT_EQ(nullptr, stream);
    for (const int descriptor : openDescriptors()) {
        if (before.count(descriptor) == 0) {
            EXPECT_EQ(0, ::close(descriptor));
        }
    }
}

}  // namespace
