// SPDX-License-Identifier: MIT
//
// A file system in memory that remembers what has been done to it and what of that was synced.
#ifndef KESTROVA_TESTS_CRASH_MEMORYDISK_H
#define KESTROVA_TESTS_CRASH_MEMORYDISK_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace crash {

/// What is on a disk: the files of the one directory by name.
using Disk = std::map<std::string, std::string>;

/// Number of a file; names come and go, it stays.
using File = std::size_t;

/// One change, or one step that makes changes last.
struct Event {
    enum Kind {
        eCreate,         ///< a new file gets a name
        eRename,         ///< a file gets another name, which may replace a file
        eUnlink,         ///< a file loses its name
        eTruncate,       ///< a file becomes empty
        eWrite,          ///< bytes at an offset
        eSyncFile,       ///< the contents of a file last
        eSyncDirectory,  ///< all names last
        eSyncAll,        ///< everything lasts
    };
    Kind mKind;
    File mFile = 0;
    std::string mFrom;
    std::string mTo;
    std::size_t mOffset = 0;
    std::string mBytes;
};

/// What happened since a disk was taken into use.
struct History {
    std::map<std::string, File> mNames;  ///< at the beginning
    std::vector<std::string> mContents;  ///< of each file at the beginning; new ones are empty
    std::vector<Event> mEvents;
};

enum class Mounted { eNot, eReadOnly, eReadWrite };

/// The disk that the calls in memorycalls.cpp work on.
class MemoryDisk {
public:
    /// Takes a disk into use, as after a boot.
    void start(const Disk& disk, Mounted mounted);

    const History& history() const { return mHistory; }
    bool faithful() const { return mOpenDescriptors == 0; }

    /// A sync that is left out: it succeeds and does nothing.
    bool mIgnoresFileSync = false;
    bool mIgnoresDirectorySync = false;

    /// The nth changing call from now fails; 0 for none.
    void failAt(int nth);
    /// Changing calls since failAt().
    int changingCalls() const { return mChangingCalls; }

    // The calls; errno tells why one fails.
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
    /// The mount table as a text.
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

/// The one in use.
MemoryDisk& memoryDisk();

extern const char kDevice[];
extern const char kDirectory[];

}  // namespace crash

#endif
