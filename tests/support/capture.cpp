// SPDX-License-Identifier: MIT
#include "tests/support/capture.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace tests {

namespace {

/// Well above the numbers that a test examines.
constexpr int kOutOfTheWay = 500;

int moved(int descriptor) {
    const int high = ::fcntl(descriptor, F_DUPFD_CLOEXEC, kOutOfTheWay);
    if (high < 0) {
        std::perror("capture");
        std::abort();
    }
    return high;
}

}  // namespace

Capture::Stream::Stream(int descriptor, const char* name)
    : mDescriptor(descriptor), mSaved(moved(descriptor)), mMemory(-1) {
    // Flush first: text that the test framework has buffered does not belong to this scope.
    (void)std::fflush(nullptr);
    const int memory = ::memfd_create(name, MFD_CLOEXEC);
    mMemory = moved(memory);
    (void)::close(memory);
    // Append, because several writers with separate positions must not overwrite each other.
    (void)::fcntl(mMemory, F_SETFL, O_APPEND);
    if (::dup2(mMemory, mDescriptor) != mDescriptor) {
        std::abort();
    }
}

Capture::Stream::~Stream() {
    (void)std::fflush(nullptr);
    const std::string last = mShowAtEnd ? text() : "";
    (void)::dup2(mSaved, mDescriptor);
    (void)::close(mSaved);
    (void)!::write(mDescriptor, last.data(), last.size());
    (void)::close(mMemory);
}

std::string Capture::Stream::text() const {
    (void)std::fflush(nullptr);
    struct stat status = {};
    if (::fstat(mMemory, &status) != 0) {
        std::abort();
    }
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    std::size_t length = 0;
    while (length < text.size()) {
        const ssize_t count = ::pread(mMemory, text.data() + length, text.size() - length,
                                      static_cast<off_t>(length));
        if (count <= 0) {
            std::abort();
        }
        length += static_cast<std::size_t>(count);
    }
    return text;
}

Capture::Capture() : mOutput(STDOUT_FILENO, "output"), mErrors(STDERR_FILENO, "errors") {}

Capture::~Capture() {
    // A failed check, or a sanitizer, has written its message here.
    if (testing::Test::HasFailure() || errors().find("Sanitizer") != std::string::npos) {
        mOutput.showAtEnd();
        mErrors.showAtEnd();
    }
}

std::string Capture::output() const {
    return mOutput.text();
}

std::string Capture::errors() const {
    return mErrors.text();
}

}  // namespace tests
