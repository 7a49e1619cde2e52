// SPDX-License-Identifier: MIT
#include "tests/torture/functions.h"

#include <cerrno>
#include <cstring>
#include <initializer_list>

namespace torture {

namespace {

struct Description {
    template <class... Failures>
    explicit Description(const char* name, bool isPoint, Failures... failures)
        : mName(name), mIsPoint(isPoint), mFailures{failures...} {}

    const char* mName;
    bool mIsPoint;
    std::vector<int> mFailures;
};

const Description& describe(Function function) {
    static const Description descriptions[] = {
#define KESTROVA_TORTURE_ROW(name, ...) Description(#name, __VA_ARGS__),
        KESTROVA_TORTURE_FUNCTIONS(KESTROVA_TORTURE_ROW)
#undef KESTROVA_TORTURE_ROW
    };
    return descriptions[static_cast<int>(function)];
}

bool isOneOf(Function function, std::initializer_list<Function> functions) {
    for (const Function each : functions) {
        if (each == function) {
            return true;
        }
    }
    return false;
}

}  // namespace

const char* nameOf(Function function) {
    return describe(function).mName;
}

bool isCancellationPoint(Function function) {
    return describe(function).mIsPoint;
}

const std::vector<int>& failuresOf(Function function) {
    return describe(function).mFailures;
}

std::string failureName(int failure) {
    if (failure < 0) {
        return failure == kShort ? "short" : "end";
    }
    const char* const name = ::strerrorname_np(failure);
    return name != nullptr ? name : std::to_string(failure);
}

int failureFrom(const std::string& name) {
    constexpr int highest = 133;
    for (int failure = kEnd; failure <= highest; ++failure) {
        if (failure != 0 && failureName(failure) == name) {
            return failure;
        }
    }
    return 0;
}

bool isTransient(Function function, int failure) {
    if (failure == kShort) {
        return isOneOf(function,
                       {Function::read, Function::pread, Function::write, Function::write_stream,
                        Function::recv, Function::writev, Function::writev_stream});
    }
    if (failure == EAGAIN) {
        return isOneOf(function, {Function::write_stream, Function::writev_stream});
    }
    return failure == EINTR &&
           isOneOf(function, {Function::open, Function::open_write, Function::read, Function::pread,
                              Function::write, Function::write_stream, Function::waitpid,
                              Function::poll, Function::nanosleep, Function::sem_wait,
                              Function::sigtimedwait, Function::uflow, Function::openat,
                              Function::openat_write, Function::pwrite, Function::writev,
                              Function::writev_stream, Function::clock_nanosleep, Function::flock});
}

bool isOutput(Function function) {
    return isOneOf(function, {Function::write_stream, Function::writev_stream, Function::perror,
                              Function::printf, Function::puts, Function::fputs, Function::fwrite,
                              Function::fflush, Function::vsnprintf, Function::poll});
}

}  // namespace torture
