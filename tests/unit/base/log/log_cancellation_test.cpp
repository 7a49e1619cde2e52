// SPDX-License-Identifier: MIT
//
// A worker that is cancelled during a message must not keep the print lock.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <string>
#include <utility>

#include "base/log/log.h"
#include "tests/support/capture.h"

namespace {

using tests::Capture;

/// A thread that can be cancelled, which std::thread does not support.
class Worker {
public:
    explicit Worker(std::function<void()> work) : mWork(std::move(work)) {
        if (pthread_create(&mThread, nullptr, run, this) != 0) {
            std::abort();
        }
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void cancel() { ASSERT_EQ(0, pthread_cancel(mThread)); }
    /// Joins it. Returns whether it was cancelled.
    bool endedByCancellation() {
        void* result = nullptr;
        EXPECT_EQ(0, pthread_join(mThread, &result));
        return result == PTHREAD_CANCELED;
    }

private:
    static void* run(void* self) {
        static_cast<Worker*>(self)->mWork();
        return nullptr;
    }

    std::function<void()> mWork;
    pthread_t mThread{};
};

bool lockIsFree() {
    auto token = std::async(std::launch::async, [] {
        const int taken = getprintaccess();
        if (taken != 0) {
            releaseprintaccess();
        }
        return taken;
    });
    return token.get() != 0;
}

int cancelState() {
    int state = 0;
    (void)pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &state);
    (void)pthread_setcancelstate(state, nullptr);
    return state;
}

TEST(LogCancellationTest, HolderFinishesItsMessageAndLeavesTheLockFree) {
    const Capture capture;
    std::promise<void> holds;
    std::promise<void> cancelled;
    Worker worker([&] {
        const int token = getprintaccess();
        holds.set_value();
        cancelled.get_future().wait();
        pthread_testcancel();
        kestrova_print_context_file_line("s", 1, 1, 0, "", "", "");
        *pCoutKestrovaOstream << "piece " << 2 << " of the dump\n";
        pthread_testcancel();
        if (token != 0) {
            releaseprintaccess();
        }
        pthread_testcancel();
        *pCoutKestrovaOstream << "not reached\n";
    });
    holds.get_future().wait();
    worker.cancel();
    cancelled.set_value();
    EXPECT_TRUE(worker.endedByCancellation());
    EXPECT_EQ("s:1 (level 1):\npiece 2 of the dump\n", capture.output());
    EXPECT_TRUE(lockIsFree());
}

/// Standard output is a pipe during the scope.
class OutputPipe {
public:
    OutputPipe() {
        (void)std::fflush(stdout);
        mSaved = ::dup(STDOUT_FILENO);
        if (::pipe2(mEnds, O_CLOEXEC) != 0 || ::dup2(mEnds[1], STDOUT_FILENO) < 0) {
            std::abort();
        }
        (void)::close(mEnds[1]);
    }
    ~OutputPipe() {
        restore();
        (void)::close(mEnds[0]);
    }
    OutputPipe(const OutputPipe&) = delete;
    OutputPipe& operator=(const OutputPipe&) = delete;

    std::string readSome() const {
        char buffer[4096];
        const ssize_t count = ::read(mEnds[0], buffer, sizeof(buffer));
        return {buffer, static_cast<std::size_t>(count > 0 ? count : 0)};
    }
    std::string readToEnd() {
        restore();
        std::string text;
        for (std::string piece = readSome(); !piece.empty(); piece = readSome()) {
            text += piece;
        }
        return text;
    }
    /// Restores standard output; the pipe ends after its writers' last output.
    void restore() {
        if (mSaved >= 0) {
            (void)::dup2(mSaved, STDOUT_FILENO);
            (void)::close(mSaved);
            mSaved = -1;
        }
    }

private:
    int mSaved = -1;
    int mEnds[2] = {-1, -1};
};

// In practice workers are cancelled in the write to a full pipe.
TEST(LogCancellationTest, WriterStoppedByAFullPipeFinishesItsMessage) {
    const std::string text(1024 * 1024, 'x');
    OutputPipe output;
    Worker worker([&text] {
        base::logMessage(1, "%s\n", text.c_str());
        pthread_testcancel();
    });
    std::string received = output.readSome();  // from now on it is inside its write
    worker.cancel();
    while (received.size() <= text.size()) {
        const std::string piece = output.readSome();
        ASSERT_FALSE(piece.empty());
        received += piece;
    }
    EXPECT_TRUE(worker.endedByCancellation());
    EXPECT_EQ(text + "\n", received);
    EXPECT_EQ("", output.readToEnd());
    EXPECT_TRUE(lockIsFree());
}

// Such a thread may be cancelled at any instruction, except those of a message.
TEST(LogCancellationTest, AsynchronousCancellationWaitsForTheReleaseToo) {
    const Capture capture;
    bool reachedEnd = false;
    std::promise<void> holds;
    std::promise<void> cancelled;
    Worker worker([&] {
        const int token = getprintaccess();
        (void)pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr);
        holds.set_value();
        cancelled.get_future().wait();
        *pCoutKestrovaOstream << "whole\n";
        if (token != 0) {
            releaseprintaccess();
        }
        reachedEnd = true;
    });
    holds.get_future().wait();
    worker.cancel();
    cancelled.set_value();
    (void)worker.endedByCancellation();  // not every C library sets the result for such a thread
    EXPECT_FALSE(reachedEnd);
    EXPECT_EQ("whole\n", capture.output());
    EXPECT_TRUE(lockIsFree());
}

TEST(LogCancellationTest, StateIsDisabledWhileHeldAndAsFoundAfterwards) {
    const Capture capture;
    for (const int found : {PTHREAD_CANCEL_ENABLE, PTHREAD_CANCEL_DISABLE}) {
        (void)pthread_setcancelstate(found, nullptr);
        ASSERT_NE(0, getprintaccess());
        EXPECT_EQ(PTHREAD_CANCEL_DISABLE, cancelState());
        base::logMessage(1, "nested\n");
        EXPECT_EQ(PTHREAD_CANCEL_DISABLE, cancelState());
        releaseprintaccess();
        EXPECT_EQ(found, cancelState());
        base::logMessage(2, "suppressed\n");
        EXPECT_EQ(found, cancelState());
    }
    (void)pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
}

TEST(LogCancellationTest, ThreadIsCancellableAgainAfterARelease) {
    const Capture capture;
    std::promise<void> logged;
    Worker worker([&] {
        base::logMessage(1, "first\n");
        logged.set_value();
        for (;;) {
            (void)::pause();  // a cancellation point
        }
    });
    logged.get_future().wait();
    worker.cancel();
    EXPECT_TRUE(worker.endedByCancellation());
    EXPECT_EQ("first\n", capture.output());
    EXPECT_TRUE(lockIsFree());
}

}  // namespace
