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
#include <memory>
#include <utility>

namespace app {

namespace {

constexpr mode_t kMode = 0666;

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

/// The file that a link leads to, so that it is replaced and not the link.
std::string resolved(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr),
                                                           &std::free);
    return real != nullptr ? real.get() : path;
}

/// Waits until bytes can be written; false when stopped.
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

int OutputFile::open(const std::string& path) {
    mOwned = true;
    struct stat status = {};
    const bool exists = ::stat(path.c_str(), &status) == 0;
    if (exists && S_ISDIR(status.st_mode)) {
        return EISDIR;
    }
    mRegular = !exists || S_ISREG(status.st_mode);
    if (mRegular) {
        mPath = resolved(path);
        return openTemporary();
    }
    // Opening a pipe without a reader would block forever.
    mDescriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    return mDescriptor >= 0 ? 0 : errno;
}

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

int OutputFile::write(std::string_view bytes) {
    while (!bytes.empty()) {
        // To a stream no more than a pipe takes at once when it takes anything: a write must not
        // get stuck.
        const std::size_t length =
            mRegular ? bytes.size() : std::min<std::size_t>(bytes.size(), PIPE_BUF);
        if (!mRegular && !waitWritable(mDescriptor, mStop.descriptor())) {
            return ECANCELED;
        }
        const ssize_t written = ::write(mDescriptor, bytes.data(), length);
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR && errno != EAGAIN) {
            return errno;
        }
    }
    return 0;
}

int OutputFile::commit() {
    if (mTemporary.empty()) {
        return 0;
    }
    // First the bytes, then the name: a power cut in between leaves no empty file under it.
    if (::fsync(mDescriptor) != 0 || ::rename(mTemporary.c_str(), mPath.c_str()) != 0) {
        return errno;
    }
    mTemporary.clear();
    return 0;
}

}  // namespace app
