// SPDX-License-Identifier: MIT
#include "tests/crash/memorydisk.h"

#include <fcntl.h>
#include <sys/mount.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace crash {

const char kDevice[] = "/dev/disk/by-path/pci-0000:01:0e.0-scsi-0:0:0:0-part1";
const char kDirectory[] = "/boot-sw";

namespace {

[[noreturn]] void refuse(const std::string& what) {
    (void)std::fprintf(stderr, "not expected: %s\n", what.c_str());
    std::abort();
}

/// Returns the name in the directory; the library's paths have two slashes before it.
std::string nameOf(const std::string& path) {
    const std::string start = std::string(kDirectory) + "//";
    if (path.rfind(start, 0) != 0) {
        refuse(path);
    }
    return path.substr(start.size());
}

int failure(int error) {
    errno = error;
    return -1;
}

}  // namespace

MemoryDisk& memoryDisk() {
    static MemoryDisk disk;
    return disk;
}

void MemoryDisk::start(const Disk& disk, Mounted mounted) {
    mNames.clear();
    mContents.clear();
    for (const auto& [name, content] : disk) {
        mNames[name] = mContents.size();
        mContents.push_back(content);
    }
    mHistory.mNames = mNames;
    mHistory.mContents = mContents;
    mHistory.mEvents.clear();
    mMounted = mounted;
    failAt(0);
}

void MemoryDisk::failAt(int nth) {
    mFailing = nth;
    mChangingCalls = 0;
}

bool MemoryDisk::failsNow() {
    if (++mChangingCalls != mFailing) {
        return false;
    }
    errno = EIO;
    return true;
}

void MemoryDisk::add(Event event) {
    mHistory.mEvents.push_back(std::move(event));
}

int MemoryDisk::take(Kind kind, bool writes, File file) {
    for (int i = 0; i < kEnd - kFirst; ++i) {
        if (mOpen[i].mKind == Kind::eFree) {
            mOpen[i] = {kind, writes, file, 0};
            ++mOpenDescriptors;
            return kFirst + i;
        }
    }
    return failure(EMFILE);
}

MemoryDisk::Open& MemoryDisk::at(int descriptor) {
    Open& open = mOpen[descriptor - kFirst];
    if (open.mKind == Kind::eFree) {
        refuse("a closed descriptor");
    }
    return open;
}

int MemoryDisk::open(const std::string& path, int flags) {
    if (path == "/proc/mounts") {
        return take(Kind::eMountTable, false, 0);
    }
    const bool writes = (flags & O_ACCMODE) != O_RDONLY;
    const bool ofDirectory =
        (flags & O_DIRECTORY) != 0 && (path == kDirectory || path == std::string(kDirectory) + "/");
    if ((writes || ofDirectory) && failsNow()) {
        return -1;
    }
    if (mMounted == Mounted::eNot) {
        return failure(ENOENT);
    }
    if (ofDirectory) {
        return take(Kind::eDirectory, false, 0);
    }
    if (writes && mMounted == Mounted::eReadOnly) {
        return failure(EROFS);
    }
    const std::string name = nameOf(path);
    const auto found = mNames.find(name);
    if (found == mNames.end()) {
        if ((flags & O_CREAT) == 0) {
            return failure(ENOENT);
        }
        const File file = mContents.size();
        mContents.emplace_back();
        mNames[name] = file;
        add({Event::eCreate, file, "", name, 0, ""});
        return take(Kind::eFile, writes, file);
    }
    if ((flags & O_TRUNC) != 0) {
        mContents[found->second].clear();
        add({Event::eTruncate, found->second, "", "", 0, ""});
    }
    return take(Kind::eFile, writes, found->second);
}

int MemoryDisk::close(int descriptor) {
    Open& open = at(descriptor);
    const bool failed = open.mWrites && failsNow();
    open.mKind = Kind::eFree;
    --mOpenDescriptors;
    return failed ? -1 : 0;
}

long MemoryDisk::read(int descriptor, void* buffer, std::size_t length) {
    Open& open = at(descriptor);
    const std::string& content = mContents[open.mFile];
    const std::size_t count =
        open.mOffset < content.size() ? std::min(length, content.size() - open.mOffset) : 0;
    std::memcpy(buffer, content.data() + open.mOffset, count);
    open.mOffset += count;
    return static_cast<long>(count);
}

long MemoryDisk::write(int descriptor, const void* bytes, std::size_t length) {
    if (failsNow()) {
        return -1;
    }
    Open& open = at(descriptor);
    std::string& content = mContents[open.mFile];
    content.resize(std::max(content.size(), open.mOffset + length));
    content.replace(open.mOffset, length, static_cast<const char*>(bytes), length);
    add({Event::eWrite, open.mFile, "", "", open.mOffset,
         std::string(static_cast<const char*>(bytes), length)});
    open.mOffset += length;
    return static_cast<long>(length);
}

int MemoryDisk::sync(int descriptor) {
    if (failsNow()) {
        return -1;
    }
    const Open& open = at(descriptor);
    if (open.mKind == Kind::eDirectory) {
        if (!mIgnoresDirectorySync) {
            add({Event::eSyncDirectory, 0, "", "", 0, ""});
        }
    } else if (!mIgnoresFileSync) {
        add({Event::eSyncFile, open.mFile, "", "", 0, ""});
    }
    return 0;
}

int MemoryDisk::rename(const std::string& from, const std::string& to) {
    if (failsNow()) {
        return -1;
    }
    const auto found = mNames.find(nameOf(from));
    if (found == mNames.end()) {
        return failure(ENOENT);
    }
    const File file = found->second;
    mNames.erase(found);
    mNames[nameOf(to)] = file;
    add({Event::eRename, file, nameOf(from), nameOf(to), 0, ""});
    return 0;
}

int MemoryDisk::unlink(const std::string& path) {
    if (failsNow()) {
        return -1;
    }
    const auto found = mNames.find(nameOf(path));
    if (found == mNames.end()) {
        return failure(ENOENT);
    }
    add({Event::eUnlink, found->second, found->first, "", 0, ""});
    mNames.erase(found);
    return 0;
}

bool MemoryDisk::isFile(const std::string& path) const {
    return mMounted != Mounted::eNot && mNames.count(nameOf(path)) != 0;
}

int MemoryDisk::mount(unsigned long flags) {
    const bool remounts = (flags & MS_REMOUNT) != 0;
    if (remounts == (mMounted == Mounted::eNot)) {
        return failure(EINVAL);
    }
    mMounted = (flags & MS_RDONLY) != 0 ? Mounted::eReadOnly : Mounted::eReadWrite;
    if (mMounted == Mounted::eReadOnly) {
        syncAll();
    }
    return 0;
}

int MemoryDisk::unmount() {
    if (mMounted == Mounted::eNot) {
        return failure(EINVAL);
    }
    mMounted = Mounted::eNot;
    syncAll();
    return 0;
}

void MemoryDisk::syncAll() {
    add({Event::eSyncAll, 0, "", "", 0, ""});
}

std::string MemoryDisk::mountTable() const {
    const std::string other = "tmpfs /tmp tmpfs rw,relatime 0 0\n";
    if (mMounted == Mounted::eNot) {
        return other;
    }
    return other + kDevice + " " + kDirectory + " ext3 " +
           (mMounted == Mounted::eReadOnly ? "ro" : "rw") + ",noexec 0 0\n";
}

bool MemoryDisk::isMountTable(int descriptor) const {
    return mOpen[descriptor - kFirst].mKind == Kind::eMountTable;
}

}  // namespace crash
