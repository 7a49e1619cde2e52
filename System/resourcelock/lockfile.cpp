// SPDX-License-Identifier: MIT
#include "System/resourcelock/lockfile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace resourcelock {

namespace {

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;
// Other processes may create and remove the files between two calls; more rounds than this can only
// be an attack.
constexpr int kRounds = 100;

// Each slot has two bytes to lock; the bytes need not exist in the file. The first one belongs to
// the slot's owner, the second one means that the slot's record is complete.
constexpr off_t kOwnerBytes = kLargestFile;
constexpr off_t kShownBytes = kOwnerBytes + kSlots;

bool fail(Failure& failure, int error, const std::string& path, const char* why) {
    failure.mError = error;
    failure.mText.assign(path).append(": ").append(why);
    return false;
}

bool fail(Failure& failure, int error, const std::string& path) {
    return fail(failure, error, path, std::strerror(error));
}

bool checkOwner(const struct stat& status, mode_t foreign, const std::string& path,
                Failure& failure) {
    char why[64];
    if (status.st_uid != 0) {
        (void)std::snprintf(why, sizeof(why), "belongs to user %u, not to root", status.st_uid);
        return fail(failure, EPERM, path, why);
    }
    if ((status.st_mode & foreign) != 0) {
        (void)std::snprintf(why, sizeof(why), "its mode %04o gives rights to other users",
                            status.st_mode & 07777U);
        return fail(failure, EPERM, path, why);
    }
    return true;
}

bool checkType(const struct stat& status, mode_t type, const std::string& path, Failure& failure) {
    if (S_ISLNK(status.st_mode)) {
        return fail(failure, ELOOP, path, "is a symbolic link");
    }
    if ((status.st_mode & S_IFMT) == type) {
        return true;
    }
    return type == S_IFDIR ? fail(failure, ENOTDIR, path, "is not a directory")
                           : fail(failure, EINVAL, path, "is not a regular file");
}

bool checkBase(const struct stat& status, Failure& failure) {
    // With the sticky bit other users can add names, but cannot remove or rename ours.
    const mode_t foreign = (status.st_mode & S_ISVTX) != 0 ? 0 : S_IWGRP | S_IWOTH;
    return checkOwner(status, foreign, kBaseFolder, failure);
}

bool checkFolder(const struct stat& status, Failure& failure) {
    return checkType(status, S_IFDIR, kFolder, failure) &&
           checkOwner(status, S_IWGRP | S_IWOTH, kFolder, failure);
}

bool checkFile(const struct stat& status, const std::string& path, Failure& failure) {
    if (!checkType(status, S_IFREG, path, failure) ||
        !checkOwner(status, S_IRWXG | S_IRWXO, path, failure)) {
        return false;
    }
    if (status.st_nlink > 1) {
        return fail(failure, EMLINK, path, "has another name, too (hard link)");
    }
    if (status.st_size > static_cast<off_t>(kLargestFile)) {
        char why[64];
        (void)std::snprintf(why, sizeof(why), "is too large (%lld bytes)",
                            static_cast<long long>(status.st_size));
        return fail(failure, EFBIG, path, why);
    }
    return true;
}

/// Opens a name in a directory. `check` examines it before it is opened, because opening a fifo or
/// a device could have side effects, and again afterwards, because it could have been replaced.
template <typename Check, typename Make>
base::Descriptor openChecked(int folder, const char* name, int flags, const std::string& path,
                             Failure& failure, Check check, Make make) {
    for (int round = 0; round < kRounds; ++round) {
        struct stat status = {};
        if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno != ENOENT || !make()) {
                (void)fail(failure, errno, path);
                return base::Descriptor();
            }
            continue;
        }
        if (!check(status)) {
            return base::Descriptor();
        }
        base::Descriptor opened =
            base::openDescriptorAt(folder, name, flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
        if (opened.valid() && ::fstat(opened.get(), &status) == 0) {
            return check(status) ? std::move(opened) : base::Descriptor();
        }
        if (errno != ENOENT) {
            (void)fail(failure, errno, path);
            return base::Descriptor();
        }
    }
    (void)fail(failure, EAGAIN, path, "is removed again and again");
    return base::Descriptor();
}

/// Only root creates anything: a directory that another user creates would be refused for root.
bool mayMake(bool make) {
    if (make && ::geteuid() != 0) {
        errno = EACCES;
        return false;
    }
    return make;
}

base::Descriptor openBase(bool make, Failure& failure) {
    constexpr int flags = O_RDONLY | O_DIRECTORY;
    base::Descriptor folder = base::openDescriptor(kBaseFolder, flags);
    if (!folder.valid() && errno == ENOENT && mayMake(make) &&
        (::mkdir(kBaseFolder, 0755) == 0 || errno == EEXIST)) {
        folder = base::openDescriptor(kBaseFolder, flags);
    }
    struct stat status = {};
    if (!folder.valid() || ::fstat(folder.get(), &status) != 0) {
        (void)fail(failure, errno, kBaseFolder);
        return base::Descriptor();
    }
    return checkBase(status, failure) ? std::move(folder) : base::Descriptor();
}

base::Descriptor openFolder(bool make, Failure& failure) {
    const base::Descriptor base = openBase(make, failure);
    if (!base.valid()) {
        return base::Descriptor();
    }
    const char* const name = kFolder + sizeof(kBaseFolder);
    return openChecked(
        base.get(), name, O_RDONLY | O_DIRECTORY, kFolder, failure,
        [&](const struct stat& status) { return checkFolder(status, failure); },
        [&] {
            return mayMake(make) &&
                   (::mkdirat(base.get(), name, kFolderMode) == 0 || errno == EEXIST);
        });
}

base::Descriptor openFile(const std::string& name, bool make, Failure& failure) {
    const base::Descriptor folder = openFolder(make, failure);
    if (!folder.valid()) {
        return base::Descriptor();
    }
    const std::string path = std::string(kFolder) + "/" + name;
    return openChecked(
        folder.get(), name.c_str(), make ? O_RDWR : O_RDONLY, path, failure,
        [&](const struct stat& status) { return checkFile(status, path, failure); },
        [&] {
            return mayMake(make) &&
                   (base::openDescriptorAt(folder.get(), name.c_str(),
                                           O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, kFileMode)
                        .valid() ||
                    errno == EEXIST);
        });
}

struct flock byteLock(short type, off_t byte) {
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return lock;
}

// Locks of the open file description, like the flock, and not of the process: both are released
// together.
bool lockByte(const base::Descriptor& file, off_t byte) {
    struct flock lock = byteLock(F_WRLCK, byte);
    return ::fcntl(file.get(), F_OFD_SETLK, &lock) == 0;
}

/// Queries whether another open file holds the lock of a byte. Returns false, with errno set, on
/// failure.
bool isLocked(const base::Descriptor& file, off_t byte, bool& locked) {
    struct flock lock = byteLock(F_WRLCK, byte);
    if (::fcntl(file.get(), F_OFD_GETLK, &lock) != 0) {
        return false;
    }
    locked = lock.l_type != F_UNLCK;
    return true;
}

bool readSlot(const base::Descriptor& file, int slot, Record& record) {
    char bytes[kRecordSize];
    const off_t offset = static_cast<off_t>(slot) * static_cast<off_t>(kRecordSize);
    return base::readAt(file.get(), offset, bytes, sizeof(bytes)) &&
           parseRecord(std::string_view(bytes, sizeof(bytes)), record);
}

}  // namespace

base::Descriptor openForLocking(const std::string& name, Failure& failure) {
    return openFile(name, true, failure);
}

base::Descriptor openForLooking(const std::string& name, Failure& failure) {
    return openFile(name, false, failure);
}

bool isCurrent(const base::Descriptor& file, const std::string& name) {
    struct stat mine = {};
    struct stat named = {};
    const std::string path = std::string(kFolder) + "/" + name;
    return ::fstat(file.get(), &mine) == 0 && ::lstat(path.c_str(), &named) == 0 &&
           mine.st_dev == named.st_dev && mine.st_ino == named.st_ino;
}

int claimSlot(const base::Descriptor& file) {
    for (int slot = 0; slot < kSlots; ++slot) {
        if (lockByte(file, kOwnerBytes + slot)) {
            return slot;
        }
        if (errno != EAGAIN && errno != EACCES) {
            return -1;
        }
    }
    errno = EAGAIN;
    return -1;
}

bool writeSlot(const base::Descriptor& file, int slot, const Record& record) {
    const std::string bytes = formatRecord(record);
    const off_t offset = static_cast<off_t>(slot) * static_cast<off_t>(kRecordSize);
    ssize_t count = -1;
    do {
        count = ::pwrite(file.get(), bytes.data(), bytes.size(), offset);
    } while (count < 0 && errno == EINTR);
    if (count >= 0 && static_cast<std::size_t>(count) < bytes.size()) {
        errno = ENOSPC;
        return false;
    }
    return count > 0;
}

bool showSlot(const base::Descriptor& file, int slot) {
    return lockByte(file, kShownBytes + slot);
}

void releaseAll(const base::Descriptor& file) {
    struct flock all = byteLock(F_UNLCK, 0);
    all.l_len = 0;  // to the end of the file
    (void)::fcntl(file.get(), F_OFD_SETLK, &all);
    (void)::flock(file.get(), LOCK_UN);
}

Look findHolder(const base::Descriptor& file, Record& record) {
    bool unreadable = false;
    for (int slot = 0; slot < kSlots; ++slot) {
        bool shown = false;
        if (!isLocked(file, kShownBytes + slot, shown)) {
            return Look::eFailed;
        }
        if (shown && readSlot(file, slot, record)) {
            return Look::eFound;
        }
        unreadable = unreadable || shown;
    }
    return unreadable ? Look::eUnreadable : Look::eNobody;
}

}  // namespace resourcelock
