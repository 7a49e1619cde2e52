// SPDX-License-Identifier: MIT
#include "base/io/linereader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <deque>
#include <future>
#include <string>
#include <vector>

#include "base/io/descriptor.h"
#include "tests/support/failingcalls.h"
#include "tests/support/inchild.h"
#include "tests/support/tempdir.h"

namespace {

using base::Stream;
using tests::TempDir;
using Lines = std::vector<std::string>;

/// A source that returns one piece per read; an empty one is an interruption, "!" an error.
using Pieces = std::deque<std::string>;

ssize_t readPiece(void* source, char* buffer, size_t size) {
    Pieces& pieces = *static_cast<Pieces*>(source);
    if (pieces.empty()) {
        return 0;
    }
    const std::string piece = pieces.front();
    pieces.pop_front();
    if (piece.empty() || piece == "!") {
        errno = piece.empty() ? EINTR : EIO;
        return -1;
    }
    EXPECT_LE(piece.size(), size);
    piece.copy(buffer, size);
    return static_cast<ssize_t>(piece.size());
}

Stream streamOf(Pieces& pieces) {
    cookie_io_functions_t functions = {};
    functions.read = readPiece;
    return Stream(::fopencookie(&pieces, "r", functions));
}

/// Returns all lines that are read with a buffer of this size.
Lines linesOf(Pieces pieces, std::size_t size = 256) {
    const Stream stream = streamOf(pieces);
    Lines lines;
    std::vector<char> buffer(size + 1, '#');
    while (base::readLine(stream.get(), buffer.data(), size)) {
        EXPECT_EQ('#', buffer[size]);
        lines.emplace_back(buffer.data());
    }
    EXPECT_STREQ("", buffer.data());
    return lines;
}

TEST(ReadLineTest, LinesKeepTheirLineFeed) {
    EXPECT_EQ((Lines{"one\n", "\n", "three\n"}), linesOf({"one\n\nthree\n"}));
}

TEST(ReadLineTest, LastLineMayLackIt) {
    EXPECT_EQ((Lines{"one\n", "two"}), linesOf({"one\ntwo"}));
    EXPECT_EQ((Lines{"x"}), linesOf({"x"}));
    EXPECT_EQ(Lines{}, linesOf({}));
}

TEST(ReadLineTest, LongLinesComeInPieces) {
    EXPECT_EQ((Lines{"123", "456", "7\n", "8\n"}), linesOf({"1234567\n8\n"}, 4));
    EXPECT_EQ((Lines{"123", "\n", "4"}), linesOf({"123\n4"}, 4));
    EXPECT_EQ((Lines{"1", "2", "\n"}), linesOf({"12\n"}, 2));
    const std::string text(1000, 'x');
    EXPECT_EQ((Lines{std::string(255, 'x'), std::string(255, 'x'), std::string(255, 'x'),
                     std::string(235, 'x') + "\n"}),
              linesOf({text + "\n"}));
}

TEST(ReadLineTest, BufferForTheTerminatorAloneReadsNothing) {
    Pieces pieces = {"abc"};
    const Stream stream = streamOf(pieces);
    char buffer[2] = "x";
    EXPECT_FALSE(base::readLine(stream.get(), buffer, 1));
    EXPECT_STREQ("", buffer);
    EXPECT_EQ(1U, pieces.size());
}

TEST(ReadLineTest, NulBytesDoNotEndALine) {
    Pieces pieces = {std::string("a\0b\nc\n", 6)};
    const Stream stream = streamOf(pieces);
    char buffer[16] = "";
    EXPECT_TRUE(base::readLine(stream.get(), buffer, sizeof(buffer)));
    EXPECT_EQ(std::string("a\0b\n", 4), std::string(buffer, 4));
    EXPECT_TRUE(base::readLine(stream.get(), buffer, sizeof(buffer)));
    EXPECT_STREQ("c\n", buffer);
}

TEST(ReadLineTest, GoesOnAfterInterruptionsAnywhere) {
    EXPECT_EQ((Lines{"onetwo\n", "three"}), linesOf({"", "one", "", "", "two\nth", "", "ree"}));
}

TEST(ReadLineTest, ErrorEndsTheReading) {
    EXPECT_EQ((Lines{"one\n", "tw"}), linesOf({"one\ntw", "!"}));
    EXPECT_EQ(Lines{}, linesOf({"!"}));
}

TEST(ReadCharacterTest, GivesEveryByteAndThenTheEnd) {
    Pieces pieces = {"", std::string("a\0\xff", 3), ""};
    const Stream stream = streamOf(pieces);
    EXPECT_EQ('a', base::readCharacter(stream.get()));
    EXPECT_EQ(0, base::readCharacter(stream.get()));
    EXPECT_EQ(0xff, base::readCharacter(stream.get()));
    EXPECT_EQ(EOF, base::readCharacter(stream.get()));
    EXPECT_EQ(EOF, base::readCharacter(stream.get()));
}

void ignoreSignal(int /*signal*/) {}

// Real signals, whose handlers do not restart the read, while it waits for more.
TEST(ReadLineTest, SignalsDoNotTearALine) {
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = ignoreSignal;
    ASSERT_EQ(0, ::sigaction(SIGUSR1, &action, &before));
    base::Pipe pipe;
    ASSERT_TRUE(pipe.open());
    const Stream stream(::fdopen(pipe.mRead.release(), "r"));
    std::promise<pthread_t> thread;
    auto line = std::async(std::launch::async, [&] {
        thread.set_value(pthread_self());
        char buffer[64] = "";
        (void)base::readLine(stream.get(), buffer, sizeof(buffer));
        return std::string(buffer);
    });
    const pthread_t reader = thread.get_future().get();
    for (const char byte : std::string("whole line\n")) {
        for (int i = 0; i < 20; ++i) {
            ASSERT_EQ(0, pthread_kill(reader, SIGUSR1));
            (void)::sched_yield();
        }
        ASSERT_EQ(1, ::write(pipe.mWrite.get(), &byte, 1));
    }
    EXPECT_EQ("whole line\n", line.get());
    EXPECT_EQ(0, ::sigaction(SIGUSR1, &before, nullptr));
}

// An application may flush all streams while a worker waits for a tool that prints nothing.
TEST(ReadCharacterTest, WaitingReaderDoesNotHoldUpAFlushOfAllStreams) {
    base::Pipe pipe;
    ASSERT_TRUE(pipe.open());
    const Stream stream(::fdopen(pipe.mRead.release(), "r"));
    std::promise<void> reading;
    auto reader = std::async(std::launch::async, [&] {
        EXPECT_EQ('a', base::readCharacter(stream.get()));
        reading.set_value();
        return base::readCharacter(stream.get());
    });
    ASSERT_EQ(1, ::write(pipe.mWrite.get(), "a", 1));
    reading.get_future().wait();
    auto flusher = std::async(std::launch::async, [] {
        for (int i = 0; i < 2000; ++i) {  // the reader waits during at least one of them
            (void)std::fflush(nullptr);
            (void)::sched_yield();
        }
    });
    const bool flushed = flusher.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
    EXPECT_TRUE(flushed);
    ASSERT_EQ(1, ::write(pipe.mWrite.get(), "b", 1));
    EXPECT_EQ('b', reader.get());
    flusher.get();
}

TEST(OpenForReadingTest, IsCloseOnExecAndClosesItself) {
    const TempDir directory;
    const std::string path = directory.write("file", "text\n");
    int number = -1;
    {
        const Stream stream = base::openForReading(path.c_str());
        ASSERT_NE(nullptr, stream);
        number = ::fileno(stream.get());
        EXPECT_EQ(FD_CLOEXEC, ::fcntl(number, F_GETFD));
        char buffer[16] = "";
        EXPECT_TRUE(base::readLine(stream.get(), buffer, sizeof(buffer)));
        EXPECT_STREQ("text\n", buffer);
    }
    EXPECT_GT(0, ::fcntl(number, F_GETFD));
}

TEST(OpenForReadingTest, FailureIsNullAndLeavesNothingOpen) {
    EXPECT_EQ(nullptr, base::openForReading("/nowhere/at/all"));
    EXPECT_EQ(ENOENT, errno);
    const int before = ::dup(STDIN_FILENO);
    (void)::close(before);
    const failingcalls::Scope calls;
    failingcalls::fail(failingcalls::Call::eFdopen, ENOMEM);
    EXPECT_EQ(nullptr, base::openForReading("/dev/null"));
    EXPECT_EQ(ENOMEM, errno);
    const int after = ::dup(STDIN_FILENO);
    (void)::close(after);
    EXPECT_EQ(before, after);
}

TEST(OpenForReadingTest, StaysAboveTheStandardStreams) {
    EXPECT_EQ("", tests::inChild([] {
                  (void)::close(STDIN_FILENO);
                  (void)::close(STDERR_FILENO);
                  const Stream stream = base::openForReading("/dev/null");
                  return stream != nullptr && ::fileno(stream.get()) > 2 ? "" : "below";
              }));
}

}  // namespace
