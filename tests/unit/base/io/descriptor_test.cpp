// SPDX-License-Identifier: MIT
#include "base/io/descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "tests/support/failingcalls.h"
#include "tests/support/inchild.h"
#include "tests/support/tempdir.h"

namespace {

using base::Descriptor;
using failingcalls::Call;
using tests::Findings;
using tests::inChild;
using tests::TempDir;

bool isOpen(int descriptor) {
    return ::fcntl(descriptor, F_GETFD) >= 0;
}

Descriptor openNull() {
    return base::openDescriptor("/dev/null", O_RDWR);
}

TEST(DescriptorTest, ClosesAtTheEndOfTheScope) {
    int number = -1;
    {
        const Descriptor descriptor = openNull();
        ASSERT_TRUE(descriptor.valid());
        number = descriptor.get();
        EXPECT_TRUE(isOpen(number));
    }
    EXPECT_FALSE(isOpen(number));
}

TEST(DescriptorTest, NoneIsNotValidAndClosesWell) {
    Descriptor none;
    EXPECT_FALSE(none.valid());
    EXPECT_TRUE(none.close());
    none.reset();
    EXPECT_EQ(-1, none.release());
}

TEST(DescriptorTest, MovesTheDuty) {
    Descriptor first = openNull();
    const int number = first.get();
    Descriptor second(std::move(first));
    EXPECT_EQ(number, second.get());
    Descriptor third = openNull();
    const int replaced = third.get();
    third = std::move(second);
    EXPECT_EQ(number, third.get());
    EXPECT_TRUE(isOpen(number));
    EXPECT_FALSE(isOpen(replaced));
    EXPECT_EQ(number, third.release());
    EXPECT_FALSE(third.valid());
    EXPECT_TRUE(isOpen(number));
    EXPECT_EQ(0, ::close(number));
}

TEST(DescriptorTest, CloseTellsAFailureAndGivesTheNumberUp) {
    const failingcalls::Scope calls;
    Descriptor descriptor = openNull();
    const int number = descriptor.get();
    failingcalls::fail(Call::eClose, EIO);
    EXPECT_FALSE(descriptor.close());
    EXPECT_EQ(EIO, errno);
    EXPECT_FALSE(descriptor.valid());
    EXPECT_EQ(0, ::close(number));
}

/// Runs a body in a thread with a pending cancellation. Returns false if the body was cancelled.
template <class Body>
bool survivesCancellation(Body body) {
    bool survived = false;
    std::function<void()> whole = [&] {
        (void)pthread_cancel(pthread_self());
        body();
        survived = true;
        pthread_testcancel();
    };
    pthread_t thread = {};
    void* result = nullptr;
    const auto run = [](void* work) -> void* {
        (*static_cast<std::function<void()>*>(work))();
        return nullptr;
    };
    EXPECT_EQ(0, pthread_create(&thread, nullptr, run, &whole));
    EXPECT_EQ(0, pthread_join(thread, &result));
    EXPECT_EQ(PTHREAD_CANCELED, result);
    return survived;
}

TEST(DescriptorTest, ClosingIsNoCancellationPoint) {
    base::Descriptor closed(::dup(STDIN_FILENO));
    base::Descriptor reset(::dup(STDIN_FILENO));
    const int numbers[] = {closed.get(), reset.get()};
    EXPECT_TRUE(survivesCancellation([&] {
        EXPECT_TRUE(closed.close());
        reset.reset();
    }));
    for (const int number : numbers) {
        EXPECT_EQ(-1, ::fcntl(number, F_GETFD));
    }
}

TEST(OpenTest, OpeningIsNoCancellationPoint) {
    base::Descriptor file;
    base::Descriptor socket;
    base::Pipe pipe;
    EXPECT_TRUE(survivesCancellation([&] {
        file = base::openDescriptor("/dev/null", O_RDONLY);
        socket = base::openSocket(AF_INET, SOCK_STREAM);
        EXPECT_TRUE(pipe.open());
    }));
    EXPECT_TRUE(file.valid() && socket.valid());
}

TEST(DescriptorTest, ResetKeepsErrno) {
    const failingcalls::Scope calls;
    Descriptor descriptor = openNull();
    const int number = descriptor.get();
    failingcalls::fail(Call::eClose, EIO);
    errno = ENOTTY;
    descriptor.reset();
    EXPECT_EQ(ENOTTY, errno);
    EXPECT_EQ(0, ::close(number));
}

TEST(OpenTest, IsCloseOnExecAndCreatesWithItsMode) {
    const TempDir directory;
    const std::string path = directory.path("file");
    const Descriptor file = base::openDescriptor(path.c_str(), O_WRONLY | O_CREAT, 0600);
    ASSERT_TRUE(file.valid());
    EXPECT_EQ(FD_CLOEXEC, ::fcntl(file.get(), F_GETFD));
    EXPECT_EQ(O_WRONLY, ::fcntl(file.get(), F_GETFL) & O_ACCMODE);
}

TEST(OpenTest, TellsWhyNot) {
    EXPECT_FALSE(base::openDescriptor("/nowhere/at/all", O_RDONLY).valid());
    EXPECT_EQ(ENOENT, errno);
}

TEST(OpenTest, GoesOnAfterAnInterruption) {
    const failingcalls::Scope calls;
    failingcalls::fail(Call::eOpen, EINTR);
    EXPECT_TRUE(openNull().valid());
}

TEST(PipeTest, BothEndsAreCloseOnExec) {
    base::Pipe pipe;
    ASSERT_TRUE(pipe.open());
    EXPECT_EQ(FD_CLOEXEC, ::fcntl(pipe.mRead.get(), F_GETFD));
    EXPECT_EQ(FD_CLOEXEC, ::fcntl(pipe.mWrite.get(), F_GETFD));
    EXPECT_EQ(3, ::write(pipe.mWrite.get(), "abc", 3));
    char bytes[4] = "";
    EXPECT_EQ(3, ::read(pipe.mRead.get(), bytes, 3));
    EXPECT_STREQ("abc", bytes);
}

TEST(PipeTest, FailureLeavesBothInvalid) {
    const failingcalls::Scope calls;
    failingcalls::fail(Call::ePipe2, EMFILE);
    base::Pipe pipe;
    EXPECT_FALSE(pipe.open());
    EXPECT_EQ(EMFILE, errno);
    EXPECT_FALSE(pipe.mRead.valid());
    EXPECT_FALSE(pipe.mWrite.valid());
}

class ClosedStreamsTest : public testing::TestWithParam<int> {};

TEST_P(ClosedStreamsTest, NewDescriptorsStayAboveTwo) {
    EXPECT_EQ("", inChild([] {
                  Findings findings;
                  for (int number = 0; number < 3; ++number) {
                      if ((GetParam() & 1 << number) != 0) {
                          (void)::close(number);
                      }
                  }
                  const Descriptor file = openNull();
                  base::Pipe pipe;
                  findings.expect(pipe.open(), "pipe");
                  for (const int each : {file.get(), pipe.mRead.get(), pipe.mWrite.get()}) {
                      findings.expect(each > 2, "above 2");
                      findings.expect(::fcntl(each, F_GETFD) == FD_CLOEXEC, "close-on-exec");
                  }
                  findings.expect(::write(pipe.mWrite.get(), "x", 1) == 1, "connected");
                  for (int number = 0; number < 3; ++number) {
                      findings.expect(isOpen(number) == ((GetParam() & 1 << number) == 0),
                                      "streams as before");
                  }
                  return findings.text();
              }));
}

TEST_P(ClosedStreamsTest, FailingOpenLeavesThemAsTheyWere) {
    EXPECT_EQ("", inChild([] {
                  Findings findings;
                  for (int number = 0; number < 3; ++number) {
                      if ((GetParam() & 1 << number) != 0) {
                          (void)::close(number);
                      }
                  }
                  findings.expect(!base::openDescriptor("/nowhere/at/all", O_RDONLY).valid(),
                                  "must fail");
                  findings.expect(errno == ENOENT, "errno");
                  failingcalls::fail(Call::ePipe2, ENFILE);
                  base::Pipe pipe;
                  findings.expect(!pipe.open() && errno == ENFILE, "pipe");
                  for (int number = 0; number < 3; ++number) {
                      findings.expect(isOpen(number) == ((GetParam() & 1 << number) == 0),
                                      "streams as before");
                  }
                  return findings.text();
              }));
}

INSTANTIATE_TEST_SUITE_P(Combinations, ClosedStreamsTest, testing::Range(0, 8));

TEST(OpenTest, WithoutAnyNumberLeftItFails) {
    EXPECT_EQ("", inChild([] {
                  Findings findings;
                  (void)::close(STDOUT_FILENO);
                  const rlimit three = {3, 3};
                  (void)::setrlimit(RLIMIT_NOFILE, &three);
                  findings.expect(!openNull().valid() && errno == EMFILE, "open");
                  base::Pipe pipe;
                  findings.expect(!pipe.open() && errno == EMFILE, "pipe");
                  findings.expect(!isOpen(STDOUT_FILENO), "nothing left behind");
                  return findings.text();
              }));
}

#if defined(__SANITIZE_THREAD__)
constexpr bool kDescriptorRacesAreReported = true;
#else
constexpr bool kDescriptorRacesAreReported = false;
#endif

// Another thread prints continuously, to an output that is closed.
TEST(OpenTest, NothingPrintedMeanwhileGetsIntoAFile) {
    if (kDescriptorRacesAreReported) {
        GTEST_SKIP() << "the sanitizer takes offence at the printer, which is the point of it";
    }
    const TempDir directory;
    const std::string path = directory.path("file");
    EXPECT_EQ("", inChild([&path] {
                  (void)::close(STDOUT_FILENO);
                  std::atomic<bool> stop{false};
                  std::thread printer([&stop] {
                      while (!stop) {
                          (void)!::write(STDOUT_FILENO, "printed", 7);
                      }
                  });
                  for (int round = 0; round < 3000; ++round) {
                      const Descriptor file =
                          base::openDescriptor(path.c_str(), O_WRONLY | O_CREAT, 0600);
                  }
                  stop = true;
                  printer.join();
                  return "";
              }));
    EXPECT_EQ("", TempDir::read(path));
}

}  // namespace
