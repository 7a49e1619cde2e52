// SPDX-License-Identifier: MIT
#include "base/process/interruptsignals.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <optional>
#include <thread>
#include <vector>

#include "base/process/shellcommand.h"
#include "tests/support/inchild.h"

namespace {

using base::interruptBit;
using base::InterruptsBorrowed;
using base::interruptsNotIgnored;
using tests::Findings;
using tests::inChild;

constexpr unsigned kBoth = interruptBit(SIGINT) | interruptBit(SIGQUIT);

/// Does what system() does to both while its command runs.
void ignoreBoth() {
    (void)::signal(SIGINT, SIG_IGN);
    (void)::signal(SIGQUIT, SIG_IGN);
}

TEST(InterruptSignalsTest, OnlyTwoSignalsHaveABit) {
    EXPECT_EQ(3U, kBoth);
    for (const int number : {SIGTERM, SIGHUP, SIGPIPE, 0}) {
        EXPECT_EQ(0U, interruptBit(number));
    }
}

TEST(InterruptSignalsTest, WithoutACommandTheDispositionsCount) {
    EXPECT_EQ("", inChild([] {
                  Findings findings;
                  (void)::signal(SIGINT, SIG_DFL);
                  (void)::signal(SIGQUIT, [](int) {});
                  findings.expect(interruptsNotIgnored() == kBoth, "default and handled");
                  (void)::signal(SIGINT, SIG_IGN);
                  findings.expect(interruptsNotIgnored() == interruptBit(SIGQUIT), "one ignored");
                  ignoreBoth();
                  findings.expect(interruptsNotIgnored() == 0, "both ignored");
                  return findings.text();
              }));
}

TEST(InterruptSignalsTest, WhileCommandsRunWhatTheFirstOneFoundCounts) {
    EXPECT_EQ("", inChild([] {
                  Findings findings;
                  (void)::signal(SIGINT, SIG_DFL);
                  (void)::signal(SIGQUIT, SIG_IGN);
                  std::optional<InterruptsBorrowed> first(std::in_place);
                  ignoreBoth();
                  findings.expect(interruptsNotIgnored() == interruptBit(SIGINT), "first");
                  {
                      const InterruptsBorrowed second;
                      findings.expect(interruptsNotIgnored() == interruptBit(SIGINT), "second");
                      first.reset();
                      findings.expect(interruptsNotIgnored() == interruptBit(SIGINT), "still");
                  }
                  findings.expect(interruptsNotIgnored() == 0, "none runs");
                  (void)::signal(SIGINT, SIG_DFL);
                  const InterruptsBorrowed again;
                  ignoreBoth();
                  findings.expect(interruptsNotIgnored() == interruptBit(SIGINT), "again");
                  return findings.text();
              }));
}

// However commands overlap, start and end, their change is never mistaken for the application's.
TEST(InterruptSignalsTest, NoMomentOfRealCommandsIsMistaken) {
    EXPECT_EQ(
        "", inChild([] {
            (void)::signal(SIGINT, SIG_DFL);
            (void)::signal(SIGQUIT, SIG_DFL);
            std::atomic<int> running{3};
            std::atomic<bool> seenIgnored{false};
            std::atomic<int> mistakes{0};
            std::vector<std::thread> threads;
            for (int i = 0; i < 3; ++i) {
                threads.emplace_back([&running] {
                    for (int round = 0; round < 30; ++round) {
                        (void)base::runShell(":");
                    }
                    --running;
                });
            }
            while (running > 0) {
                mistakes += interruptsNotIgnored() == kBoth ? 0 : 1;
                struct sigaction action = {};
                (void)::sigaction(SIGINT, nullptr, &action);
                seenIgnored = seenIgnored || action.sa_handler == SIG_IGN;
            }
            for (std::thread& thread : threads) {
                thread.join();
            }
            return std::string(mistakes > 0 ? "mistaken" : !seenIgnored ? "nothing borrowed" : "");
        }));
}

}  // namespace
