// SPDX-License-Identifier: MIT
/// @file
/// A lock for the recording drive and for the boot variables that the processes of a box share.
#ifndef KESTROVA_SYSTEM_SYSRESOURCELOCK_H
#define KESTROVA_SYSTEM_SYSRESOURCELOCK_H

#include <string>

#include "base/export.h"

/// A lock of one of the box's shared resources, for a scope.
///
/// The lock is a convention: the library's own operations do not take it. An application takes it
/// around the calls that use the resource, as the command kestrova does, and so keeps other
/// processes and its own other threads away. See docs/threads.md for the calls that need it.
///
/// The lock is a flock(2) on a file below "/run/lock/kestrova/", "drive.lock" or "vars.lock", which
/// a script can take with flock(1), too. The kernel releases it when the process dies, however that
/// happens. Folder and file are created with owner root and modes 0700 and 0600. No symbolic link
/// below "/run/lock" is followed, and a folder or file with another owner, with rights for other
/// users, with a second name, of another type or of more than 4096 bytes is refused. So only root
/// can take or look at a lock.
///
/// The file says who holds the lock, since when, and what the holder is doing. holder() reads that
/// without taking any lock: looking never makes another process's attempt fail.
///
/// Threads: one object is used by one thread at a time. Two objects exclude each other, in one
/// process as in two. Nothing is logged, and only allocation failure is thrown. A process that
/// calls fork() without exec shares its locks with the child: the parent's unlock() or destructor
/// releases them for both, the child's only closes the child's file. If the parent dies first, the
/// lock stays held until the child exits. The file is close-on-exec.
class KESTROVA_EXPORT sysResourceLock {
public:
    /// What is locked.
    enum Resource {
        eResRecordingDrive = 0,  ///< the recording drive; "drive.lock"
        eResBootVariables = 1,   ///< the boot variables; "vars.lock"
    };

    /// Whom the lock keeps away.
    enum Mode {
        eMoExclusive = 0,  ///< everybody: for changes
        eMoShared = 1,     ///< exclusive holders only: for reading
    };

    /// Who holds a resource, and what the holder is doing.
    struct Holder {
        bool mHeld = false;         ///< it is held; the other fields are defaults otherwise
        Mode mMode = eMoExclusive;  ///< shared: there may be more holders than this one
        int mPid = 0;               ///< as the holder sees itself; 0 when it is not known
        long long mSince = 0;       ///< time of the locking, in seconds since 1970 in UTC
        std::string mCommand;       ///< name that the holder gave itself, at most 128 bytes
        std::string mState;         ///< text of its last publish(), at most 64 bytes; may be empty
        int mPercent = 0;           ///< progress of its last publish(), 0 to 100
        std::string mReason;        ///< when holder() fails: what failed, on which path, and why
    };

    /// Takes no lock yet and touches no file.
    /// @param resource what is to be locked
    /// @param command name of the holder for messages of others, such as "kestrova shell"; cut to
    /// 128 bytes, with '?' for control characters; null stands for the name of the program
    explicit sysResourceLock(Resource resource, const char* command = nullptr);
    /// As unlock().
    ~sysResourceLock();
    sysResourceLock(const sysResourceLock&) = delete;
    sysResourceLock& operator=(const sysResourceLock&) = delete;

    /// Tries to take the lock. Does not wait for a holder, but may block for up to 20 ms to find
    /// out who it is.
    /// @param mode whom to keep away
    /// @return true when the lock is held now; false when another object holds it (busy() is true
    /// then), when the lock file cannot be used, or when this object holds a lock already: see
    /// error() and reason()
    bool tryLock(Mode mode = eMoExclusive);

    /// Takes the lock, and waits until it is free if need be. The lock is not handed over in any
    /// order: a waiting thread tries again every 10 ms. It can be cancelled (pthread_cancel()) and
    /// then holds nothing. Signals do not end the wait. Fails at once when the lock file cannot be
    /// used.
    /// @param mode whom to keep away
    /// @param milliseconds longest time to wait, by the monotonic clock; 0 is tryLock()
    /// @return as tryLock(); false with busy() when the time has passed
    bool lock(Mode mode, unsigned milliseconds);

    /// Releases the lock; does nothing when none is held. Keeps errno.
    void unlock();

    /// @return true from a successful tryLock() or lock() to unlock()
    bool held() const;

    /// @return true when the last tryLock() or lock() failed because another object holds the lock
    bool busy() const;

    /// @return errno of the last tryLock(), lock() or publish() that failed: EWOULDBLOCK when
    /// busy(), EALREADY when this object held a lock already, ENOLCK for a publish() without a
    /// lock; ELOOP (symbolic link), ENOTDIR, EINVAL (no regular file), EPERM (owner or rights),
    /// EMLINK (second name) and EFBIG (too large) for a folder or file that is refused; 0 when none
    /// has failed
    int error() const;

    /// @return one line for people about that failure, such as "the boot variables are in use by
    /// process 812 (kestrova shell)" or "the boot variables can't be locked: /run/lock/kestrova:
    /// Read-only file system"; empty when none has failed. It can hold any bytes above 127
    std::string reason() const;

    /// @return who held the lock when the last attempt found it taken; its pid is 0 when that is
    /// not known, because the holder does not use this class
    Holder blocker() const;

    /// Tells onlookers what the holder is doing. Does not block.
    /// @param state a word such as "formatting"; cut to 64 bytes, with '?' for control characters;
    /// null stands for an empty text
    /// @param percent progress, limited to 0 to 100
    /// @return false when no lock is held or the file cannot be written: see error(). The lock is
    /// kept
    bool publish(const char* state, int percent);

    /// Looks who holds a resource right now. Takes no lock, changes nothing, creates no file, and
    /// reads at most 4096 bytes. Knows holders that use this class, not those of flock(1). Of
    /// several shared holders it finds one; a ninth and further ones at a time are not seen. May
    /// block for up to 20 ms. Any thread may call it.
    /// @param resource what to look at
    /// @param[out] holder who holds it; mHeld is false when nobody does
    /// @return true when the answer is known; false when the lock file cannot be read or is
    /// refused: holder.mReason says why, and errno is as for error()
    static bool holder(Resource resource, Holder& holder);

private:
    struct KESTROVA_LOCAL State;

    State* mpState;  // owned
};

#endif
