// SPDX-License-Identifier: MIT
/// @file
/// A lock between the processes of a box, for the recording drive and for the boot variables.
#ifndef KESTROVA_SYSTEM_SYSRESOURCELOCK_H
#define KESTROVA_SYSTEM_SYSRESOURCELOCK_H

#include <string>

#include "base/export.h"

/// A lock on one of the box's shared resources, for a scope.
///
/// The lock is a convention: the library's own operations do not take it. An application takes it
/// around the calls that use the resource, as the command kestrova does, and so excludes other
/// processes and its own other threads. See docs/threads.md for the calls that need it.
///
/// The lock is a flock(2) on a file below "/run/lock/kestrova/", "drive.lock" or "vars.lock", which
/// a script can lock with flock(1) as well. The kernel releases it when the process dies, in
/// whatever way. Directory and file are created with owner root and modes 0700 and 0600. Symbolic
/// links below "/run/lock" are not followed. A directory or file is refused if it has another
/// owner, permissions for other users, a second name, another type or more than 4096 bytes. So only
/// root can take or read a lock.
///
/// The file records who holds the lock, since when, and what the holder is doing. holder() reads
/// that without taking any lock, so that it never makes another process's attempt fail.
///
/// Threads: one thread at a time uses an object. Two objects exclude each other, in one process as
/// well as in two. Nothing is logged, and the only exception is std::bad_alloc. A process that
/// calls fork() without exec shares its locks with the child: the parent's unlock() or destructor
/// releases them for both, the child's only closes the child's descriptor. If the parent dies
/// first, the lock stays held until the child exits. The file is close-on-exec.
class KESTROVA_EXPORT sysResourceLock {
public:
    /// The resource that is locked.
    enum Resource {
        eResRecordingDrive = 0,  ///< the recording drive; "drive.lock"
        eResBootVariables = 1,   ///< the boot variables; "vars.lock"
    };

    /// The holders that the lock excludes.
    enum Mode {
        eMoExclusive = 0,  ///< all others: for changes
        eMoShared = 1,     ///< exclusive holders only: for reading
    };

    /// The holder of a resource, and what it is doing.
    struct Holder {
        bool mHeld = false;  ///< true if it is held; otherwise the other fields have their defaults
        Mode mMode = eMoExclusive;  ///< if shared, there may be more holders than this one
        int mPid = 0;               ///< pid in the holder's own namespace; 0 if unknown
        long long mSince = 0;       ///< when it was locked, in seconds since 1970 in UTC
        std::string mCommand;       ///< name that the holder passed to its constructor, at most 128
                                    ///< bytes
        std::string mState;         ///< text of its last publish(), at most 64 bytes; may be empty
        int mPercent = 0;           ///< progress of its last publish(), 0 to 100
        std::string mReason;        ///< if holder() fails: what failed, on which path, and why
    };

    /// Takes no lock yet and touches no file.
    /// @param resource the resource to lock
    /// @param command name of the holder for messages of other processes, such as "kestrova shell";
    /// truncated to 128 bytes, with '?' for control characters; null selects the name of the
    /// program
    explicit sysResourceLock(Resource resource, const char* command = nullptr);
    /// Calls unlock().
    ~sysResourceLock();
    sysResourceLock(const sysResourceLock&) = delete;
    sysResourceLock& operator=(const sysResourceLock&) = delete;

    /// Tries to take the lock. Does not wait for the holder to release it, but may block for up to
    /// 20 ms to find out who holds it.
    /// @param mode whom to exclude
    /// @return true if the lock is now held; false if another object holds it (busy() is then
    /// true), the lock file cannot be used, or this object already holds a lock: see error() and
    /// reason()
    bool tryLock(Mode mode = eMoExclusive);

    /// Takes the lock, and if necessary waits until it is free. Waiting threads are not served in
    /// any order: each tries again every 10 ms. A waiting thread can be cancelled with
    /// pthread_cancel() and then holds nothing. Signals do not end the wait. Fails at once if the
    /// lock file cannot be used.
    /// @param mode whom to exclude
    /// @param milliseconds longest time to wait, by the monotonic clock; 0 is tryLock()
    /// @return the results of tryLock(); false with busy() after the time has passed
    bool lock(Mode mode, unsigned milliseconds);

    /// Releases the lock; does nothing if none is held. Preserves errno.
    void unlock();

    /// @return true from a successful tryLock() or lock() to unlock()
    bool held() const;

    /// @return true if the last tryLock() or lock() failed because another object holds the lock
    bool busy() const;

    /// @return the errno of the last tryLock(), lock() or publish() that failed: EWOULDBLOCK if
    /// busy(), EALREADY if this object already held a lock, ENOLCK for a publish() without a lock;
    /// ELOOP (symbolic link), ENOTDIR, EINVAL (not a regular file), EPERM (owner or permissions),
    /// EMLINK (second name) and EFBIG (too large) for a directory or file that is refused; 0 if
    /// none has failed
    int error() const;

    /// @return one line for people about that failure, such as "the boot variables are in use by
    /// process 812 (kestrova shell)" or "the boot variables can't be locked: /run/lock/kestrova:
    /// Read-only file system"; empty if none has failed. It can contain any bytes above 127
    std::string reason() const;

    /// @return the holder that the last failed attempt found; its pid is 0 if it is not known,
    /// because the holder does not use this class
    Holder blocker() const;

    /// Publishes what the holder is doing. Does not block.
    /// @param state a word such as "formatting"; truncated to 64 bytes, with '?' for control
    /// characters; null is an empty text
    /// @param percent progress, clamped to 0 to 100
    /// @return false if no lock is held or the file cannot be written: see error(). The lock is
    /// kept
    bool publish(const char* state, int percent);

    /// Queries who holds a resource at the moment. Takes no lock, changes nothing, creates no file,
    /// and reads at most 4096 bytes. Finds holders that use this class, not those that use
    /// flock(1). Of several shared holders it returns one; only the first eight at a time are
    /// visible. May block for up to 20 ms. Any thread may call it.
    /// @param resource the resource to query
    /// @param[out] holder who holds it; mHeld is false if it is free
    /// @return true if the answer is known; false if the lock file cannot be read or is refused:
    /// holder.mReason has the reason, and errno is as for error()
    static bool holder(Resource resource, Holder& holder);

private:
    struct KESTROVA_LOCAL State;

    State* mpState;  // owned
};

#endif
