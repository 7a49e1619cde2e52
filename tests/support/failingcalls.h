// SPDX-License-Identifier: MIT
//
// Makes calls of the code under test fail, as the operating system would. failingcalls.cpp
// interposes functions of the C library in every program that uses this header; they call the
// originals unless a test has configured something else. Only calls of the program itself are
// intercepted, not the C library's internal ones. Calls that a test's action, answer or watcher
// makes itself are neither intercepted nor counted.
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
    eGethostbyname,  ///< the re-entrant one, which returns the errno on failure
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
    eSync,  ///< cannot fail; counted and watched only
    eSystem,
    eUmount,
    eWaitpid,
    eWrite,
};

/// Makes the nth call from now (1 is the next) fail once with an errno.
void fail(Call call, int error, int nth = 1);
/// Makes every further call fail with an errno.
void failAll(Call call, int error);
/// Runs an action before every further call, on the calling thread.
void before(Call call, std::function<void()> action);
/// Returns the number of calls since the last reset(), including failed ones.
int count(Call call);

/// Replaces an ioctl request. The result of `answer` is that of ioctl(), and it sets errno itself.
void answerIoctl(unsigned long request, std::function<int(void* argument)> answer);
/// Replaces statfs().
void answerStatfs(std::function<int(const char* path, struct statfs* status)> answer);

/// The arguments of mount().
struct MountRequest {
    const char* mDevice;  ///< "" for null, like the next two
    const char* mDirectory;
    const char* mType;
    unsigned long mFlags;
    const void* mData;
};
/// Calls `watcher` before every mount().
void watchMounts(std::function<void(const MountRequest& request)> watcher);
/// Replaces mount().
void answerMount(std::function<int(const MountRequest& request)> answer);
/// Replaces umount().
void answerUmount(std::function<int(const char* directory)> answer);

/// The arguments of gethostbyname_r(), including its output parameters.
struct Lookup {
    const char* mName;
    hostent* mEntry;
    char* mBuffer;
    std::size_t mSize;
    hostent** mFound;  ///< null unless the answer sets it
    int* mError;
};
/// Replaces gethostbyname_r().
void answerLookup(std::function<int(const Lookup& lookup)> answer);

/// The arguments of setsockopt().
struct SocketOption {
    int mSocket;
    int mLevel;
    int mOption;
    const void* mValue;
    socklen_t mSize;
};
/// Replaces setsockopt(). The result of `answer` is that of setsockopt(), and it sets errno itself.
void answerSetsockopt(std::function<int(const SocketOption& option)> answer);

/// Replaces recv().
void answerReceive(
    std::function<ssize_t(int socket, void* buffer, std::size_t length, int flags)> answer);
/// Replaces send().
void answerSend(
    std::function<ssize_t(int socket, const void* bytes, std::size_t length, int flags)> answer);

/// Limits each read, write, recv and send to this many bytes; 0 for no limit.
void limitTransfers(std::size_t most);

/// Removes all settings and sets the counts to 0. No other thread may make calls meanwhile.
void reset();

/// Excludes the calling thread's calls during a scope: they are neither intercepted nor counted.
/// For the test's own components, such as a server for the code under test. Can be nested.
class Exempt {
public:
    Exempt();
    ~Exempt();
    Exempt(const Exempt&) = delete;
    Exempt& operator=(const Exempt&) = delete;

private:
    bool mBefore;
};

/// Calls reset() at the start and at the end of a test, even if it failed.
class Scope {
public:
    Scope() { reset(); }
    ~Scope() { reset(); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
};

}  // namespace failingcalls

#endif
