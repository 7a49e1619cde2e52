// SPDX-License-Identifier: MIT
//
// Testing for files and reading them completely.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "base/io/file.h"
#include "tests/support/capture.h"
#include "tests/support/failingcalls.h"
#include "tests/support/inchild.h"
#include "tests/support/tempdir.h"

namespace {

using failingcalls::Call;
using tests::Capture;
using tests::TempDir;

std::string textOf(const KestrovaStringShared& string) {
    return {string.data(), string.length()};
}

std::string textOfLength(std::size_t length) {
    std::string text(length, ' ');
    for (std::size_t i = 0; i < length; ++i) {
        text[i] = static_cast<char>(i % 251);
    }
    return text;
}

TEST(FileExistsTest, EveryKind) {
    const TempDir directory;
    const std::string file = directory.write("file", "x");
    const std::string link = directory.path("link");
    const std::string dangling = directory.path("dangling");
    const std::string fifo = directory.path("fifo");
    ASSERT_EQ(0, ::symlink(file.c_str(), link.c_str()));
    ASSERT_EQ(0, ::symlink(directory.path("nowhere").c_str(), dangling.c_str()));
    ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
    struct Case {
        std::string mPath;
        bool mRegular;
        bool mDirectory;
        bool mAny;
    };
    const Case cases[] = {
        {file, true, false, true},
        {link, true, false, true},
        {directory.path(""), false, true, true},
        {fifo, false, false, true},
        {"/dev/null", false, false, true},
        {dangling, false, false, false},
        {directory.path("nowhere"), false, false, false},
        {file + "/below", false, false, false},
        {"", false, false, false},
    };
    for (const Case& each : cases) {
        const char* const path = each.mPath.c_str();
        EXPECT_EQ(each.mRegular, kestrova_file_exists(path, eFileExistsRegular)) << path;
        EXPECT_EQ(each.mDirectory, kestrova_file_exists(path, eFileExistsDirectory)) << path;
        EXPECT_EQ(each.mAny, kestrova_file_exists(path, eFileExistsAny)) << path;
    }
}

TEST(FileExistsTest, UnknownKindIsNothing) {
    EXPECT_FALSE(kestrova_file_exists("/", static_cast<KestrovaFileExistsType>(3)));
}

TEST(FileReadTest, FilesOfEverySize) {
    const TempDir directory;
    for (const std::size_t size : {0U, 1U, 4095U, 4096U, 4097U, 8191U, 8192U, 8193U, 1000003U}) {
        const std::string text = textOfLength(size);
        const std::string path = directory.write("file", text);
        KestrovaStringShared string("before", 6);
        ASSERT_EQ(0, kestrova_file_read(path.c_str(), string, true)) << size;
        ASSERT_EQ(text, textOf(string)) << size;
    }
}

TEST(FileReadTest, EmptyFileMakesTheStringEmpty) {
    const TempDir directory;
    KestrovaStringShared string("before", 6);
    ASSERT_EQ(0, kestrova_file_read(directory.write("empty", "").c_str(), string, true));
    EXPECT_EQ(KestrovaStringShared::smEmpty.mpBytes, string.data());
}

// The kernel reports no size for these, and returns them in pieces.
TEST(FileReadTest, FilesOfTheProcFileSystem) {
    KestrovaStringShared string;
    ASSERT_EQ(0, kestrova_file_read("/proc/self/comm", string, true));
    EXPECT_FALSE(textOf(string).empty());
    ASSERT_EQ(0, kestrova_file_read("/proc/self/smaps", string, true));
    EXPECT_GT(string.length(), 4096U);
    EXPECT_NE(std::string::npos, textOf(string).find("[stack]"));
}

struct FailureCase {
    const char* mName;
    const char* mPath;
    int mError;
};

class FileReadFailureTest : public testing::TestWithParam<FailureCase> {};

TEST_P(FileReadFailureTest, LeavesTheStringAndTellsWhy) {
    const FailureCase& failure = GetParam();
    KestrovaStringShared string("before", 6);
    const Capture capture;
    errno = 0;
    EXPECT_GT(0, kestrova_file_read(failure.mPath, string, false));
    EXPECT_EQ(failure.mError, errno);
    EXPECT_EQ("", capture.errors());
    errno = 0;
    EXPECT_GT(0, kestrova_file_read(failure.mPath, string, true));
    EXPECT_EQ(failure.mError, errno);
    EXPECT_EQ(std::string(failure.mPath) + ": " + std::strerror(failure.mError) + "\n",
              capture.errors());
    EXPECT_EQ("", capture.output());
    EXPECT_EQ("before", textOf(string));
}

INSTANTIATE_TEST_SUITE_P(Paths, FileReadFailureTest,
                         testing::Values(FailureCase{"Absent", "/nowhere/at/all", ENOENT},
                                         FailureCase{"Directory", "/proc", EISDIR},
                                         FailureCase{"BelowAFile", "/dev/null/x", ENOTDIR},
                                         // There is no memory at address 0.
                                         FailureCase{"ReadError", "/proc/self/mem", EIO}),
                         [](const auto& failure) { return failure.param.mName; });

TEST(FileReadTest, AFileThatIsTooLargeIsNotRead) {
    const TempDir directory;
    const std::string path = directory.write("file", "x");
    const failingcalls::Scope calls;
    for (const long long size : {2147483647LL, 2147483648LL, 8LL << 30, (8LL << 30) + 5}) {
        ASSERT_EQ(0, ::truncate(path.c_str(), size));
        KestrovaStringShared string("before", 6);
        errno = 0;
        EXPECT_GT(0, kestrova_file_read(path.c_str(), string, false)) << size;
        EXPECT_EQ(EFBIG, errno) << size;
        EXPECT_EQ("before", textOf(string));
    }
    EXPECT_EQ(0, failingcalls::count(Call::eRead));
}

TEST(FileReadTest, AFileThatGrowsMeanwhileIsReadToItsEnd) {
    const TempDir directory;
    const std::string path = directory.write("file", textOfLength(10000));
    const failingcalls::Scope calls;
    int reads = 0;
    failingcalls::before(Call::eRead, [&] {
        if (++reads == 2) {
            (void)directory.write("file", textOfLength(50000));
        }
    });
    KestrovaStringShared string;
    ASSERT_EQ(0, kestrova_file_read(path.c_str(), string, true));
    EXPECT_EQ(textOfLength(50000), textOf(string));
}

TEST(FileReadTest, TheStartOfAFile) {
    const TempDir directory;
    const std::string text = textOfLength(10000);
    const std::string path = directory.write("file", text);
    for (const std::size_t most : {1U, 12U, 4095U, 4096U, 4097U, 9999U, 10000U, 10001U, 65536U}) {
        std::vector<char> bytes(3, 'x');
        ASSERT_TRUE(base::readFileStart(path.c_str(), most, bytes));
        EXPECT_EQ(text.substr(0, most), std::string(bytes.begin(), bytes.end())) << most;
    }
    std::vector<char> bytes;
    errno = 0;
    EXPECT_FALSE(base::readFileStart("/nowhere/at/all", 12, bytes));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_FALSE(base::readFileStart("/proc", 12, bytes));
    EXPECT_EQ(EISDIR, errno);
}

TEST(FileReadTest, FileThatMayNotBeRead) {
    if (::geteuid() == 0) {
        // Root can read everything, so another user reads it.
        EXPECT_EQ("", tests::inChild([] {
                      const TempDir directory;
                      const std::string path = directory.write("secret", "x");
                      if (::chmod(path.c_str(), 0) != 0 || ::setegid(65534) != 0 ||
                          ::seteuid(65534) != 0) {
                          return "cannot become another user";
                      }
                      KestrovaStringShared string("before", 6);
                      const bool refused =
                          kestrova_file_read(path.c_str(), string, false) < 0 && errno == EACCES;
                      (void)::seteuid(0);
                      return refused && textOf(string) == "before" ? "" : "was read";
                  }));
        return;
    }
    const TempDir directory;
    const std::string path = directory.write("secret", "x");
    ASSERT_EQ(0, ::chmod(path.c_str(), 0));
    KestrovaStringShared string;
    EXPECT_GT(0, kestrova_file_read(path.c_str(), string, false));
    EXPECT_EQ(EACCES, errno);
}

TEST(FileReadTest, GoesOnAfterInterruptions) {
    const TempDir directory;
    const std::string text = textOfLength(10000);
    const std::string path = directory.write("file", text);
    const failingcalls::Scope calls;
    failingcalls::fail(Call::eOpen, EINTR);
    failingcalls::fail(Call::eRead, EINTR, 2);
    failingcalls::limitTransfers(4096);
    KestrovaStringShared string;
    ASSERT_EQ(0, kestrova_file_read(path.c_str(), string, true));
    EXPECT_EQ(text, textOf(string));
    EXPECT_GT(failingcalls::count(Call::eRead), 3);
}

TEST(FileReadTest, ErrorInTheMiddleIsAFailure) {
    const TempDir directory;
    const std::string path = directory.write("file", textOfLength(10000));
    const failingcalls::Scope calls;
    failingcalls::fail(Call::eRead, EIO, 2);
    KestrovaStringShared string("before", 6);
    EXPECT_GT(0, kestrova_file_read(path.c_str(), string, false));
    EXPECT_EQ(EIO, errno);
    EXPECT_EQ("before", textOf(string));
}

TEST(FileReadTest, ReportKeepsErrnoWhenItCannotBeWritten) {
    EXPECT_EQ("", tests::inChild([] {
                  (void)::close(STDERR_FILENO);
                  KestrovaStringShared string;
                  const int result = kestrova_file_read("/nowhere/at/all", string, true);
                  return result < 0 && errno == ENOENT ? "" : "errno";
              }));
}

TEST(FileReadTest, LeavesNoDescriptorOpen) {
    const TempDir directory;
    const std::string path = directory.write("file", "x");
    const int before = ::dup(STDIN_FILENO);
    (void)::close(before);
    KestrovaStringShared string;
    EXPECT_EQ(0, kestrova_file_read(path.c_str(), string, false));
    EXPECT_GT(0, kestrova_file_read("/proc", string, false));
    const int after = ::dup(STDIN_FILENO);
    (void)::close(after);
    EXPECT_EQ(before, after);
}

}  // namespace
