// SPDX-License-Identifier: MIT
//
// Failed assertions and attention checks: their lines and their hooks.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdint>
#include <limits>
#include <string>
#include <thread>

#include "base/log/log.h"
#include "tests/support/capture.h"
#include "tests/support/hooks.h"
#include "tests/support/outputlevel.h"

namespace {

using tests::Capture;
using tests::HookRecorder;
using tests::OutputLevel;

/// Runs an action on a thread with this name.
template <class Action>
void runNamed(const char* name, Action action) {
    std::thread thread([name, &action] {
        ASSERT_EQ(0, pthread_setname_np(pthread_self(), name));
        action();
    });
    thread.join();
}

void failAssertion() {
    base::reportFailedAssertion("System/drivemanager/partition", 123, "path!=NULL");
}

void failAttention() {
    base::reportFailedAttention("System/KestrovaPOpen", 122, "pid >= 0");
}

void failWithValues() {
    base::reportFailedAssertionWithValues("System/protocols/http/httpconnection", 9, "opt==0",
                                          " opt=", 17U, ", d-opt=", -3);
}

TEST(AssertionTest, LineNamesPlaceConditionAndThread) {
    const OutputLevel level(1);
    const HookRecorder hooks;
    const Capture capture;
    runNamed("recorder", failAssertion);
    EXPECT_EQ(
        "System/drivemanager/partition:123 Assertion `path!=NULL' failed "
        "(calling task: recorder).\n",
        capture.output());
    EXPECT_EQ(1, hooks.assertions());
    EXPECT_TRUE(hooks.attentions().empty());
}

TEST(AssertionTest, ConditionAndThreadNameAreTextsNotFormats) {
    const HookRecorder hooks;
    const Capture capture;
    runNamed("%s%n", [] { base::reportFailedAssertion("a", -1, "x%sy"); });
    EXPECT_EQ("a:-1 Assertion `x%sy' failed (calling task: %s%n).\n", capture.output());
}

TEST(AssertionTest, SilentAtLevelZeroButTheHookFires) {
    const OutputLevel level(0);
    const HookRecorder hooks;
    const Capture capture;
    failAssertion();
    failAssertion();
    EXPECT_EQ("", capture.output());
    EXPECT_EQ(2, hooks.assertions());
}

TEST(AttentionTest, LineAndHookAtLevelTwo) {
    const OutputLevel level(2);
    const HookRecorder hooks;
    const Capture capture;
    runNamed("recorder", failAttention);
    EXPECT_EQ("System/KestrovaPOpen:122 Attention `pid >= 0' failed (calling task: recorder).\n",
              capture.output());
    EXPECT_EQ(0, hooks.assertions());
    ASSERT_EQ(1U, hooks.attentions().size());
    const tests::AttentionCall call = hooks.attentions()[0];
    EXPECT_EQ("System/KestrovaPOpen", call.mFile);
    EXPECT_EQ(122, call.mLine);
    EXPECT_EQ(2U, call.mLevel);
    EXPECT_EQ("||", call.mPrefixes);
}

TEST(AttentionTest, SilentBelowLevelTwoButTheHookFires) {
    for (const std::uint32_t verbosity : {0U, 1U}) {
        const OutputLevel level(verbosity);
        const HookRecorder hooks;
        const Capture capture;
        failAttention();
        EXPECT_EQ("", capture.output());
        EXPECT_EQ(1U, hooks.attentions().size());
    }
}

TEST(StreamedAssertionTest, LineIsFollowedByTheValues) {
    const OutputLevel level(1);
    const HookRecorder hooks;
    const Capture capture;
    runNamed("fetcher", failWithValues);
    EXPECT_EQ(
        "System/protocols/http/httpconnection:9 Assertion `opt==0' failed "
        "(calling task: fetcher).\n opt=17, d-opt=-3\n",
        capture.output());
    EXPECT_EQ(1, hooks.assertions());
}

TEST(StreamedAssertionTest, TakesEveryKindOfValue) {
    const HookRecorder hooks;
    const Capture capture;
    runNamed("t", [] {
        base::reportFailedAssertionWithValues("f", 1, "c", " text=", std::string("s"),
                                              ", flag=", true,
                                              ", big=", std::numeric_limits<std::uint64_t>::max(),
                                              ", small=", std::numeric_limits<std::int64_t>::min());
    });
    EXPECT_EQ(
        "f:1 Assertion `c' failed (calling task: t).\n text=s, flag=true, "
        "big=18446744073709551615, small=-9223372036854775808\n",
        capture.output());
}

TEST(StreamedAssertionTest, SilentAtLevelZeroButTheHookFires) {
    const OutputLevel level(0);
    const HookRecorder hooks;
    const Capture capture;
    failWithValues();
    EXPECT_EQ("", capture.output());
    EXPECT_EQ(1, hooks.assertions());
}

// A hook is the place for a breakpoint: it is called after the line has been printed, and a thread
// that stops there must not prevent other threads from printing.
TEST(HookTest, RunsAfterTheLineAndOutsideThePrintLock) {
    const OutputLevel level(2);
    HookRecorder hooks;
    const Capture capture;
    std::string seen;
    int tokens = 0;
    hooks.onCall([&] {
        seen += capture.output();
        const int token = getprintaccess();
        tokens += token != 0 ? 1 : 0;
        if (token != 0) {
            releaseprintaccess();
        }
    });
    failAssertion();
    EXPECT_NE(std::string::npos, seen.find("path!=NULL"));
    failAttention();
    EXPECT_NE(std::string::npos, seen.find("pid >= 0"));
    failWithValues();
    EXPECT_NE(std::string::npos, seen.find(", d-opt=-3\n"));
    EXPECT_EQ(3, tokens);
}

TEST(HookTest, RunsInTheCallersThreadAndTheCallerGoesOn) {
    HookRecorder hooks;
    const Capture capture;
    pthread_t hookThread{};
    hooks.onCall([&hookThread] { hookThread = pthread_self(); });
    failAssertion();
    EXPECT_NE(0, pthread_equal(pthread_self(), hookThread));
}

TEST(HookTest, FiresAlsoWhenTheCallerHoldsThePrintLock) {
    HookRecorder hooks;
    const Capture capture;
    const base::PrintAccess access;
    failAssertion();
    failAttention();
    EXPECT_EQ(1, hooks.assertions());
    EXPECT_EQ(1U, hooks.attentions().size());
}

}  // namespace
