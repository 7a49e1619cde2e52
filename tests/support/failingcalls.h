// SPDX-License-Identifier: MIT
//
// Makes calls of the code under test fail, as the operating system would. The functions that
// failingcalls.cpp defines stand in front of the C library's in every program that uses this header
// and pass on to them, unless a test asked for something else. Only what the program itself calls
// comes by here, not what the C library calls for its own needs. What an action, an answer or a
// watcher of the test calls itself passes on and does not count.
#ifndef KESTROVA_TESTS_SUPPORT_FAILINGCALLS_H
#define KESTROVA_TESTS_SUPPORT_FAILINGCALLS_H

#include <netdb.h>
#include <sys/socket.h>
#include <sys/statfs.h>

#include <cstddef>
#include <functional>

namespace failingcalls {

enum class Call {
    eClone,
    eClose,
    eCloseRange,
    eConnect,
    eDup2,
    eFcntl,
    eFdopen,
    eFopen,
    eFork,
    eFsync,
    eGethostbyname,  ///< the re-entrant one, which fails by returning the errno
    eIoctl,
    eMkdir,
    eMount,
    eNanosleep,
    eOpen,
    ePipe2,
    ePread,
    ePthreadCreate,
    eRead,
    eRecv,
    eRename,
    eSend,
    eSetsockopt,
    eShutdown,
    eSocket,
    eStat,
    eStatfs,
    eSync,  ///< cannot fail; to be counted and watched
    eSystem,
    eUmount,
    eWaitpid,
    eWrite,
};

/// The nth call from now (1 is the next) fails with an errno, once.
void fail(Call call, int error, int nth = 1);
/// Every call from now on fails with an errno.
void failAll(Call call, int error);
/// Runs an action ahead of every call from now on, on the thread that calls.
void before(Call call, std::function<void()> action);
/// How often it was called since the last reset(), failed ones included.
int count(Call call);

/// Answers an ioctl request; the answer's result is that of ioctl, and it sets errno itself.
void answerIoctl(unsigned long request, std::function<int(void* argument)> answer);
/// Answers statfs.
void answerStatfs(std::function<int(const char* path, struct statfs* status)> answer);

/// What mount() was asked for.
struct MountRequest {
    const char* mDevice;  ///< "" for null, as the other two
    const char* mDirectory;
    const char* mType;
    unsigned long mFlags;
    const void* mData;
};
/// Sees every mount ahead of its answer.
void watchMounts(std::function<void(const MountRequest& request)> watcher);
/// Answers mount.
void answerMount(std::function<int(const MountRequest& request)> answer);
/// Answers umount.
void answerUmount(std::function<int(const char* directory)> answer);

/// What gethostbyname_r() was asked for, and where its answer goes.
struct Lookup {
    const char* mName;
    hostent* mEntry;
    char* mBuffer;
    std::size_t mSize;
    hostent** mFound;  ///< null as long as the answer does not say otherwise
    int* mError;
};
/// Answers gethostbyname_r.
void answerLookup(std::function<int(const Lookup& lookup)> answer);

/// What setsockopt() was asked for.
struct SocketOption {
    int mSocket;
    int mLevel;
    int mOption;
    const void* mValue;
    socklen_t mSize;
};
/// Answers setsockopt; the answer's result is that of setsockopt, and it sets errno itself.
void answerSetsockopt(std::function<int(const SocketOption& option)> answer);

/// Answers recv.
void answerReceive(
    std::function<ssize_t(int socket, void* buffer, std::size_t length, int flags)> answer);
/// Answers send.
void answerSend(
    std::function<ssize_t(int socket, const void* bytes, std::size_t length, int flags)> answer);

/// No read, write, receipt or sending takes more than so many bytes at once, 0 for no
/// limit.
void limitTransfers(std::size_t most);

/// Everything passes on again, the counts are 0. While no other thread makes calls.
void reset();

/// What the calling thread calls during a scope passes on and does not count: for what belongs to
/// the test itself, such as a server that the code under test talks to. Nests.
class Exempt {
public:
    Exempt();
    ~Exempt();
    Exempt(const Exempt&) = delete;
    Exempt& operator=(const Exempt&) = delete;

private:
    bool mBefore;
};

/// Leaves nothing behind at the end of a test, also when it failed.
class Scope {
public:
    Scope() { reset(); }
    ~Scope() { reset(); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
};

}  // namespace failingcalls

#endif
