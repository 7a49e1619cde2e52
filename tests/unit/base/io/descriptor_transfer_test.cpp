// SPDX-License-Identifier: MIT
//
// Reading and writing whole pieces.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <future>
#include <string>

#include "base/io/descriptor.h"
#include "tests/support/failingcalls.h"
#include "tests/support/tempdir.h"

namespace {

using base::Descriptor;
using failingcalls::Call;
using tests::TempDir;

TEST(ReadAtTest, ReadsFromItsOffset) {
    const TempDir directory;
    const Descriptor file =
        base::openDescriptor(directory.write("file", "0123456789").c_str(), O_RDONLY);
    char bytes[5] = "";
    EXPECT_TRUE(base::readAt(file.get(), 3, bytes, 4));
    EXPECT_STREQ("3456", bytes);
    EXPECT_TRUE(base::readAt(file.get(), 6, bytes, 4));
    EXPECT_STREQ("6789", bytes);
    EXPECT_TRUE(base::readAt(file.get(), 10, bytes, 0));
    EXPECT_FALSE(base::readAt(file.get(), 7, bytes, 4));
    EXPECT_FALSE(base::readAt(file.get(), 100, bytes, 1));
}

// Drives are larger than 32 bits can address.
TEST(ReadAtTest, ReadsBeyondFourGibibytes) {
    const TempDir directory;
    const std::string path = directory.path("file");
    const Descriptor file = base::openDescriptor(path.c_str(), O_RDWR | O_CREAT, 0600);
    constexpr off_t far = 5000000000;
    ASSERT_EQ(3, ::pwrite(file.get(), "far", 3, far));
    char bytes[4] = "";
    EXPECT_TRUE(base::readAt(file.get(), far, bytes, 3));
    EXPECT_STREQ("far", bytes);
}

TEST(ReadAtTest, GoesOnAfterAnInterruptionAndFailsOnAnError) {
    const TempDir directory;
    const Descriptor file = base::openDescriptor(directory.write("file", "abc").c_str(), O_RDONLY);
    const failingcalls::Scope calls;
    char bytes[4] = "";
    failingcalls::fail(Call::ePread, EINTR);
    EXPECT_TRUE(base::readAt(file.get(), 0, bytes, 3));
    EXPECT_STREQ("abc", bytes);
    failingcalls::fail(Call::ePread, EIO);
    EXPECT_FALSE(base::readAt(file.get(), 0, bytes, 3));
    EXPECT_EQ(EIO, errno);
    EXPECT_FALSE(base::readAt(-1, 0, bytes, 3));
}

TEST(ReadSomeTest, IsReadThatGoesOn) {
    base::Pipe pipe;
    ASSERT_TRUE(pipe.open());
    ASSERT_EQ(3, ::write(pipe.mWrite.get(), "abc", 3));
    const failingcalls::Scope calls;
    failingcalls::fail(Call::eRead, EINTR);
    char bytes[8] = "";
    EXPECT_EQ(3, base::readSome(pipe.mRead.get(), bytes, 7));
    EXPECT_STREQ("abc", bytes);
    pipe.mWrite.reset();
    EXPECT_EQ(0, base::readSome(pipe.mRead.get(), bytes, 7));
    failingcalls::fail(Call::eRead, EIO);
    EXPECT_EQ(-1, base::readSome(pipe.mRead.get(), bytes, 7));
    EXPECT_EQ(EIO, errno);
}

void ignoreSignal(int /*signal*/) {}

// A signal truncates a long write to a pipe: the written part is not written again.
TEST(WriteAllTest, GoesOnWhereAWriteWasCutShort) {
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = ignoreSignal;
    ASSERT_EQ(0, ::sigaction(SIGUSR1, &action, &before));
    base::Pipe pipe;
    ASSERT_TRUE(pipe.open());
    const pthread_t writer = pthread_self();
    auto reader = std::async(std::launch::async, [&pipe, writer] {
        std::string text;
        char buffer[70000];
        ssize_t count = 0;
        while ((count = ::read(pipe.mRead.get(), buffer, sizeof(buffer))) > 0) {
            text.append(buffer, static_cast<std::size_t>(count));
            (void)pthread_kill(writer, SIGUSR1);
        }
        return text;
    });
    std::string text(1048576, ' ');
    for (std::size_t i = 0; i < text.size(); ++i) {
        text[i] = static_cast<char>(i % 251);
    }
    EXPECT_TRUE(base::writeAll(pipe.mWrite.get(), text.data(), text.size()));
    pipe.mWrite.reset();
    EXPECT_TRUE(text == reader.get());
    EXPECT_EQ(0, ::sigaction(SIGUSR1, &before, nullptr));
}

TEST(WriteAllTest, FailsOnAnErrorAndTellsWhich) {
    const failingcalls::Scope calls;
    const Descriptor null = base::openDescriptor("/dev/null", O_WRONLY);
    failingcalls::fail(Call::eWrite, EINTR);
    EXPECT_TRUE(base::writeAll(null.get(), "abc", 3));
    failingcalls::fail(Call::eWrite, EIO);
    EXPECT_FALSE(base::writeAll(null.get(), "abc", 3));
    EXPECT_EQ(EIO, errno);
    EXPECT_TRUE(base::writeAll(-1, "abc", 0));
    EXPECT_FALSE(base::writeAll(-1, "abc", 3));
    EXPECT_EQ(EBADF, errno);
}

TEST(WriteAllTest, FullDeviceFails) {
    const Descriptor full = base::openDescriptor("/dev/full", O_WRONLY);
    EXPECT_FALSE(base::writeAll(full.get(), "abc", 3));
    EXPECT_EQ(ENOSPC, errno);
}

}  // namespace
