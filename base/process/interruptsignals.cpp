// SPDX-License-Identifier: MIT
#include "base/process/interruptsignals.h"

#include <atomic>
#include <cstdint>
#include <initializer_list>

namespace base {

namespace {

// One word, replaced atomically: which of the two signals were not ignored when the first running
// command started, the number of running commands, and the number of changes. A thread that reads
// the same value before and after it queries the signals knows that no command started or ended
// meanwhile.
constexpr std::uint32_t kBits = 0x3;
constexpr std::uint32_t kOneCommand = 0x4;
constexpr std::uint32_t kCommands = 0xfffc;
constexpr std::uint32_t kOneChange = 0x10000;

std::atomic<std::uint32_t> commands{0};

unsigned notIgnoredNow() {
    unsigned bits = 0;
    for (const int number : {SIGINT, SIGQUIT}) {
        struct sigaction action = {};
        if (::sigaction(number, nullptr, &action) != 0 || action.sa_handler != SIG_IGN) {
            bits |= interruptBit(number);
        }
    }
    return bits;
}

}  // namespace

unsigned interruptsNotIgnored() {
    std::uint32_t before = commands;
    for (;;) {
        const unsigned now = notIgnoredNow();
        const std::uint32_t after = commands;
        if (before == after) {
            return (before & kCommands) != 0 ? now | (before & kBits) : now;
        }
        before = after;
    }
}

InterruptsBorrowed::InterruptsBorrowed() {
    std::uint32_t present = commands;
    std::uint32_t next = 0;
    do {
        const std::uint32_t counted = present + kOneCommand + kOneChange;
        next = (present & kCommands) != 0 ? counted : (counted & ~kBits) | notIgnoredNow();
    } while (!commands.compare_exchange_weak(present, next));
}

InterruptsBorrowed::~InterruptsBorrowed() {
    commands += kOneChange - kOneCommand;
}

}  // namespace base
