// SPDX-License-Identifier: MIT
#include "app/commands/fetch/outputfile.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "app/ui/humantext.h"

namespace app {

namespace {

constexpr mode_t kMode = 0666;

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

/// Returns the target of a symbolic link, so that the target is replaced and not the link.
std::string resolved(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr),
                                                           &std::free);
    return real != nullptr ? real.get() : path;
}

/// Waits until the descriptor is writable. Returns false after stop().
bool waitWritable(int descriptor, int stop) {
    pollfd sources[] = {{descriptor, POLLOUT, 0}, {stop, POLLIN, 0}};
    while (::poll(sources, 2, -1) < 0 && errno == EINTR) {
    }
    return sources[1].revents == 0;
}

}  // namespace

OutputFile::~OutputFile() {
    if (mOwned && mDescriptor >= 0) {
        (void)::close(mDescriptor);
    }
    if (!mTemporary.empty()) {
        (void)::unlink(mTemporary.c_str());
    }
}

Result OutputFile::failure(int error) const {
    if (mName.empty() && error == EPIPE) {
        return Result::failed("");
    }
    return Result::failed((mName.empty() ? "standard output" : quoted(mName)) + ": " +
                          std::strerror(error));
}

Result OutputFile::open(const std::string& path) {
    mName = path;
    mOwned = true;
    struct stat status = {};
    const bool exists = ::stat(path.c_str(), &status) == 0;
    if (exists && S_ISDIR(status.st_mode)) {
        return failure(EISDIR);
    }
    mRegular = !exists || S_ISREG(status.st_mode);
    if (mRegular) {
        mPath = resolved(path);
        const int error = openTemporary();
        return error == 0 ? Result() : failure(error);
    }
    // Non-blocking, because opening a pipe without a reader would block forever.
    mDescriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    return mDescriptor >= 0 ? Result() : failure(errno);
}

/// Returns 0, or errno.
int OutputFile::openTemporary() {
    const std::string begin = folderOf(mPath) + ".kestrova-" + std::to_string(::getpid()) + "-";
    for (int number = 0; number < INT_MAX; ++number) {
        std::string name = begin + std::to_string(number);
        mDescriptor = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kMode);
        if (mDescriptor >= 0) {
            mTemporary = std::move(name);
            return 0;
        }
        if (errno != EEXIST) {
            return errno;
        }
    }
    return EEXIST;
}

void OutputFile::borrow(int descriptor) {
    mDescriptor = descriptor;
    struct stat status = {};
    mRegular = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

Result OutputFile::write(std::string_view bytes) {
    while (!bytes.empty()) {
        // Write to a stream at most PIPE_BUF bytes at once, which a pipe accepts completely when it
        // is writable, so that a write cannot block.
        const std::size_t length =
            mRegular ? bytes.size() : std::min<std::size_t>(bytes.size(), PIPE_BUF);
        if (!mRegular && !waitWritable(mDescriptor, mStop.descriptor())) {
            return Result::failed("cancelled", eCancelled);
        }
        const ssize_t written = ::write(mDescriptor, bytes.data(), length);
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR && errno != EAGAIN) {
            return failure(errno);
        }
    }
    return {};
}

Result OutputFile::commit() {
    if (mTemporary.empty()) {
        return {};
    }
    // Sync the bytes before the rename, so that a power cut between the two leaves no empty file.
    if (::fsync(mDescriptor) != 0 || ::rename(mTemporary.c_str(), mPath.c_str()) != 0) {
        return failure(errno);
    }
    mTemporary.clear();
    return {};
}

}  // namespace app
