// SPDX-License-Identifier: MIT
//
// A file system in memory that records all changes and syncs.
#ifndef KESTROVA_TESTS_CRASH_MEMORYDISK_H
#define KESTROVA_TESTS_CRASH_MEMORYDISK_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace crash {

/// The contents of a disk: the files of its only directory by name.
using Disk = std::map<std::string, std::string>;

/// Number of a file, which does not change with its names.
using File = std::size_t;

/// One change, or one step that makes changes persist.
struct Event {
    enum Kind {
        eCreate,         ///< a new file gets a name
        eRename,         ///< a file gets another name, which may replace a file
        eUnlink,         ///< a file loses its name
        eTruncate,       ///< a file becomes empty
        eWrite,          ///< bytes at an offset
        eSyncFile,       ///< the contents of a file persist
        eSyncDirectory,  ///< all names persist
        eSyncAll,        ///< everything persists
    };
    Kind mKind;
    File mFile = 0;
    std::string mFrom;
    std::string mTo;
    std::size_t mOffset = 0;
    std::string mBytes;
};

/// Events since a disk was mounted.
struct History {
    std::map<std::string, File> mNames;  ///< at the start
    std::vector<std::string> mContents;  ///< of each file at the start; new files are empty
    std::vector<Event> mEvents;
};

enum class Mounted { eNot, eReadOnly, eReadWrite };

/// The disk that the calls in memorycalls.cpp use.
class MemoryDisk {
public:
    /// Starts to use a disk, as after a boot.
    void start(const Disk& disk, Mounted mounted);

    const History& history() const { return mHistory; }
    bool faithful() const { return mOpenDescriptors == 0; }

    /// Syncs that are ignored: they succeed and have no effect.
    bool mIgnoresFileSync = false;
    bool mIgnoresDirectorySync = false;

    /// Makes the nth changing call from now fail; 0 for none.
    void failAt(int nth);
    /// Returns the number of changing calls since failAt().
    int changingCalls() const { return mChangingCalls; }

    // The calls; errno is set on failure.
    int open(const std::string& path, int flags);
    int close(int descriptor);
    long read(int descriptor, void* buffer, std::size_t length);
    long write(int descriptor, const void* bytes, std::size_t length);
    int sync(int descriptor);
    int rename(const std::string& from, const std::string& to);
    int unlink(const std::string& path);
    bool isFile(const std::string& path) const;
    int mount(unsigned long flags);
    int unmount();
    void syncAll();
    /// Returns the mount table as a text.
    std::string mountTable() const;
    bool isMountTable(int descriptor) const;
    bool owns(int descriptor) const { return descriptor >= kFirst && descriptor < kEnd; }

private:
    static constexpr int kFirst = 100;
    static constexpr int kEnd = 108;
    enum class Kind { eFree, eFile, eDirectory, eMountTable };
    struct Open {
        Kind mKind = Kind::eFree;
        bool mWrites = false;
        File mFile = 0;
        std::size_t mOffset = 0;
    };

    int take(Kind kind, bool writes, File file);
    Open& at(int descriptor);
    bool failsNow();
    void add(Event event);

    History mHistory;
    std::map<std::string, File> mNames;
    std::vector<std::string> mContents;
    Mounted mMounted = Mounted::eNot;
    Open mOpen[kEnd - kFirst];
    int mOpenDescriptors = 0;
    int mFailing = 0;
    int mChangingCalls = 0;
};

/// Returns the disk in use.
MemoryDisk& memoryDisk();

extern const char kDevice[];
extern const char kDirectory[];

}  // namespace crash

#endif
