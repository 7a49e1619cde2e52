// SPDX-License-Identifier: MIT
//
// Writing files completely and to disk.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include "base/io/file.h"
#include "tests/support/failingcalls.h"
#include "tests/support/inchild.h"
#include "tests/support/tempdir.h"

namespace {

using failingcalls::Call;
using tests::inChild;
using tests::TempDir;

int create(const std::string& path, const std::string& text, unsigned mode = 0644) {
    return kestrova_file_create_with_data(path.c_str(), mode, text.data(),
                                          static_cast<unsigned>(text.size()));
}

mode_t modeOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(0, ::stat(path.c_str(), &status));
    return status.st_mode & 07777U;
}

TEST(FileCreateTest, WritesFilesOfEverySize) {
    const TempDir directory;
    const std::string path = directory.path("file");
    for (const std::size_t size : {0U, 1U, 4096U, 1000003U, 2U}) {
        std::string text(size, '\0');
        for (std::size_t i = 0; i < size; ++i) {
            text[i] = static_cast<char>(i * 7);
        }
        ASSERT_EQ(0, create(path, text)) << size;
        ASSERT_EQ(text, TempDir::read(path)) << size;
    }
    EXPECT_EQ(0, kestrova_file_create_with_data(path.c_str(), 0644, nullptr, 0));
    EXPECT_EQ("", TempDir::read(path));
}

TEST(FileCreateTest, ModeCountsForANewFileLessTheUmask) {
    const TempDir directory;
    const mode_t before = ::umask(0027);
    EXPECT_EQ(0, create(directory.path("new"), "x", 0666));
    EXPECT_EQ(0640U, modeOf(directory.path("new")));
    EXPECT_EQ(0, create(directory.path("new"), "y", 0600));
    EXPECT_EQ(0640U, modeOf(directory.path("new")));
    (void)::umask(before);
}

// Success is returned only after the data is on the disk: in this order, each result checked.
TEST(FileCreateTest, SyncsAfterTheLastWriteAndBeforeTheClose) {
    const TempDir directory;
    const failingcalls::Scope calls;
    std::string order;
    failingcalls::before(Call::eWrite, [&order] { order += "write "; });
    failingcalls::before(Call::eFsync, [&order] { order += "fsync "; });
    failingcalls::before(Call::eClose, [&order] { order += "close "; });
    ASSERT_EQ(0, create(directory.path("file"), "text"));
    EXPECT_EQ("write fsync close ", order);
}

TEST(FileCreateTest, GoesOnAfterInterruptions) {
    const TempDir directory;
    const failingcalls::Scope calls;
    failingcalls::fail(Call::eOpen, EINTR);
    failingcalls::fail(Call::eWrite, EINTR);
    ASSERT_EQ(0, create(directory.path("file"), "text"));
    EXPECT_EQ("text", TempDir::read(directory.path("file")));
}

struct FailingCall {
    const char* mName;
    Call mCall;
    int mError;
};

class FileCreateFailureTest : public testing::TestWithParam<FailingCall> {};

TEST_P(FileCreateFailureTest, IsToldWithItsReason) {
    const TempDir directory;
    const failingcalls::Scope calls;
    failingcalls::fail(GetParam().mCall, GetParam().mError);
    errno = 0;
    EXPECT_GT(0, create(directory.path("file"), "text"));
    EXPECT_EQ(GetParam().mError, errno);
}

INSTANTIATE_TEST_SUITE_P(Calls, FileCreateFailureTest,
                         testing::Values(FailingCall{"Open", Call::eOpen, EROFS},
                                         FailingCall{"Write", Call::eWrite, EIO},
                                         FailingCall{"Fsync", Call::eFsync, EIO},
                                         FailingCall{"Close", Call::eClose, EDQUOT},
                                         // The number is free although the call fails.
                                         FailingCall{"InterruptedClose", Call::eClose, EINTR}),
                         [](const auto& failing) { return failing.param.mName; });

TEST(FileCreateTest, CloseIsNeverTriedTwice) {
    const TempDir directory;
    const failingcalls::Scope calls;
    failingcalls::fail(Call::eClose, EINTR);
    EXPECT_GT(0, create(directory.path("file"), "text"));
    EXPECT_EQ(1, failingcalls::count(Call::eClose));
}

TEST(FileCreateTest, PlacesThatTakeNoFile) {
    const TempDir directory;
    EXPECT_GT(0, create(directory.path("absent/file"), "x"));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_GT(0, create(directory.path(""), "x"));
    EXPECT_EQ(EISDIR, errno);
    EXPECT_GT(0, create("", "x"));
    EXPECT_EQ(ENOENT, errno);
}

TEST(FileCreateTest, FullDevice) {
    EXPECT_GT(0, create("/dev/full", "x"));
    EXPECT_EQ(ENOSPC, errno);
}

// It accepts the data, but does not store it.
TEST(FileCreateTest, DeviceThatCannotBeSynced) {
    EXPECT_GT(0, create("/dev/null", "x"));
    EXPECT_EQ(EINVAL, errno);
}

// The limit truncates the first write and refuses the second, like a disk that fills up.
TEST(FileCreateTest, DiskThatFillsUpInTheMiddle) {
    const TempDir directory;
    const std::string path = directory.path("file");
    EXPECT_EQ("", inChild([&path] {
                  const rlimit small = {5000, 5000};
                  (void)::signal(SIGXFSZ, SIG_IGN);
                  if (::setrlimit(RLIMIT_FSIZE, &small) != 0) {
                      return "no limit";
                  }
                  const int result = create(path, std::string(9000, 'x'));
                  return result < 0 && errno == EFBIG ? "" : "was taken for written";
              }));
    EXPECT_EQ(std::string(5000, 'x'), TempDir::read(path));
}

TEST(FileCreateTest, LeavesNoDescriptorOpen) {
    const TempDir directory;
    const int before = ::dup(STDIN_FILENO);
    (void)::close(before);
    EXPECT_EQ(0, create(directory.path("file"), "x"));
    EXPECT_GT(0, create("/dev/full", "x"));
    EXPECT_GT(0, create("/dev/null", "x"));
    const int after = ::dup(STDIN_FILENO);
    (void)::close(after);
    EXPECT_EQ(before, after);
}

// Text that is printed meanwhile must not be written to the file.
TEST(FileCreateTest, NeverTakesThePlaceOfAStandardStream) {
    const TempDir directory;
    const std::string path = directory.path("file");
    EXPECT_EQ("", inChild([&path] {
                  (void)::close(STDIN_FILENO);
                  (void)::close(STDOUT_FILENO);
                  (void)::close(STDERR_FILENO);
                  failingcalls::before(Call::eFsync,
                                       [] { (void)!::write(STDOUT_FILENO, "printed", 7); });
                  return create(path, "text") == 0 ? "" : "failed";
              }));
    EXPECT_EQ("text", TempDir::read(path));
}

}  // namespace
