// SPDX-License-Identifier: MIT
//
// The functions that the torture program interposes. The shared library calls them; planned calls
// fail, all others call the original.
#include "tests/torture/interposed.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>

#include "tests/support/failingcalls.h"
#include "tests/torture/memory.h"
#include "tests/torture/plan.h"

#ifdef KESTROVA_TORTURE_ASAN
extern "C" void __asan_handle_no_return();
#endif

namespace torture {

namespace {

/// A thread that is cancelled in a call does not leave the frames above it normally. Unpoison their
/// stack first.
class Unwinding {
public:
    Unwinding() = default;
    ~Unwinding() {
#ifdef KESTROVA_TORTURE_ASAN
        if (!mReturned) {
            __asan_handle_no_return();
        }
#endif
    }
    Unwinding(const Unwinding&) = delete;
    Unwinding& operator=(const Unwinding&) = delete;

    void end() {
        mReturned = true;
    }

private:
    bool mReturned = false;
};

/// The function that an interposed function calls: the C library's, or the sanitizer's wrapper of
/// it.
template <class Type>
class Behind {
public:
    constexpr explicit Behind(const char* name) : mName(name) {}

    Type* get() {
        Type* function = mFunction.load(std::memory_order_relaxed);
        if (function == nullptr) {
            function = reinterpret_cast<Type*>(::dlsym(RTLD_NEXT, mName));
            if (function == nullptr) {
                std::abort();
            }
            mFunction.store(function, std::memory_order_relaxed);
        }
        return function;
    }

    template <class... Arguments>
    auto operator()(Arguments... arguments) {
        Unwinding unwinding;
        const auto result = get()(arguments...);
        unwinding.end();
        return result;
    }

private:
    const char* mName;
    std::atomic<Type*> mFunction{nullptr};
};

// With 64-bit offsets and times the headers rename some calls in the object file.
#ifdef __USE_TIME_BITS64
constexpr char kFcntl[] = "__fcntl_time64";
constexpr char kIoctl[] = "__ioctl_time64";
constexpr char kSetsockopt[] = "__setsockopt64";
constexpr char kNanosleep[] = "__nanosleep64";
constexpr char kStat[] = "__stat64_time64";
constexpr char kSigtimedwait[] = "__sigtimedwait64";
constexpr char kClockNanosleep[] = "__clock_nanosleep_time64";
constexpr char kFstat[] = "__fstat64_time64";
constexpr char kFstatat[] = "__fstatat64_time64";
constexpr char kLstat[] = "__lstat64_time64";
#else
constexpr char kFcntl[] = "fcntl64";
constexpr char kIoctl[] = "ioctl";
constexpr char kSetsockopt[] = "setsockopt";
constexpr char kNanosleep[] = "nanosleep";
constexpr char kStat[] = "stat64";
constexpr char kSigtimedwait[] = "sigtimedwait";
constexpr char kClockNanosleep[] = "clock_nanosleep";
constexpr char kFstat[] = "fstat64";
constexpr char kFstatat[] = "fstatat64";
constexpr char kLstat[] = "lstat64";
#endif

using SpawnType = int(pid_t*, const char*, const posix_spawn_file_actions_t*,
                      const posix_spawnattr_t*, char* const*, char* const*);
using CreateType = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
using LookupType = int(const char*, hostent*, char*, size_t, hostent**, int*);
using AtForkType = int(void (*)(), void (*)(), void (*)(), void*);
using MountType = int(const char*, const char*, const char*, unsigned long, const void*);

Behind<pid_t()> behind_Fork("_Fork");
Behind<int(const char*)> behindChdir("chdir");
Behind<int(clockid_t, int, const timespec*, timespec*)> behindClockNanosleep(kClockNanosleep);
Behind<int(int (*)(void*), void*, int, void*, ...)> behindClone("clone");
Behind<int(int)> behindClose("close");
Behind<int(unsigned, unsigned, int)> behindCloseRange("close_range");
Behind<int(int, const sockaddr*, socklen_t)> behindConnect("connect");
Behind<int(int, int)> behindDup2("dup2");
Behind<int(const char*, char* const*, char* const*)> behindExecve("execve");
Behind<int(std::FILE*)> behindFclose("fclose");
Behind<int(int, int, ...)> behindFcntl(kFcntl);
Behind<std::FILE*(int, const char*)> behindFdopen("fdopen");
Behind<int(std::FILE*)> behindFflush("fflush");
Behind<pid_t()> behindFork("fork");
Behind<int(int, int)> behindFlock("flock");
Behind<int(const char*, std::FILE*)> behindFputs("fputs");
Behind<int(int, struct stat*)> behindFstat(kFstat);
Behind<int(int, const char*, struct stat*, int)> behindFstatat(kFstatat);
Behind<int(int)> behindFsync("fsync");
Behind<size_t(const void*, size_t, size_t, std::FILE*)> behindFwrite("fwrite");
Behind<LookupType> behindGethostbyname("gethostbyname_r");
Behind<int(int, unsigned long, ...)> behindIoctl(kIoctl);
Behind<int(pid_t, int)> behindKill("kill");
Behind<off_t(int, off_t, int)> behindLseek("lseek64");
Behind<int(const char*, struct stat*)> behindLstat(kLstat);
Behind<int(const char*, mode_t)> behindMkdir("mkdir");
Behind<int(int, const char*, mode_t)> behindMkdirat("mkdirat");
Behind<void*(void*, size_t, int, int, int, off_t)> behindMmap("mmap64");
Behind<MountType> behindMount("mount");
Behind<int(const timespec*, timespec*)> behindNanosleep(kNanosleep);
Behind<int(int)> behindNice("nice");
Behind<int(const char*, int, ...)> behindOpen("open64");
Behind<int(int, const char*, int, ...)> behindOpenat("openat64");
Behind<void(const char*)> behindPerror("perror");
Behind<int(int*, int)> behindPipe2("pipe2");
Behind<int(pollfd*, nfds_t, int)> behindPoll("poll");
Behind<SpawnType> behindPosixSpawn("posix_spawn");
Behind<int(posix_spawn_file_actions_t*, int, int)> behindAddDup2(
    "posix_spawn_file_actions_adddup2");
Behind<ssize_t(int, void*, size_t, off_t)> behindPread("pread64");
Behind<int(const char*, va_list)> behindVprintf("vprintf");
Behind<CreateType> behindPthreadCreate("pthread_create");
Behind<int(pthread_t, void**)> behindPthreadJoin("pthread_join");
Behind<int(const char*)> behindPuts("puts");
Behind<ssize_t(int, const void*, size_t, off_t)> behindPwrite("pwrite64");
Behind<ssize_t(int, void*, size_t)> behindRead("read");
Behind<ssize_t(int, void*, size_t, int)> behindRecv("recv");
Behind<AtForkType> behindRegisterAtFork("__register_atfork");
Behind<int(const char*, const char*)> behindRename("rename");
Behind<int(sem_t*)> behindSemWait("sem_wait");
Behind<ssize_t(int, const void*, size_t, int)> behindSend("send");
Behind<pid_t()> behindSetsid("setsid");
Behind<int(int, int, int, const void*, socklen_t)> behindSetsockopt(kSetsockopt);
Behind<int(int, int)> behindShutdown("shutdown");
Behind<int(const sigset_t*, siginfo_t*, const timespec*)> behindSigtimedwait(kSigtimedwait);
Behind<int(int, int, int)> behindSocket("socket");
Behind<int(const char*, struct stat*)> behindStat(kStat);
Behind<int(const char*, struct statfs*)> behindStatfs("statfs64");
Behind<void()> behindSync("sync");
Behind<long(long, ...)> behindSyscall("syscall");
Behind<int(const char*)> behindSystem("system");
Behind<int(std::FILE*)> behindUflow("__uflow");
Behind<int(const char*)> behindUmount("umount");
Behind<int(const char*)> behindUnlink("unlink");
Behind<int(char*, size_t, const char*, va_list)> behindVsnprintf("vsnprintf");
Behind<pid_t(pid_t, int*, int)> behindWaitpid("waitpid");
Behind<ssize_t(int, const void*, size_t)> behindWrite("write");
Behind<ssize_t(int, const iovec*, int)> behindWritev("writev");

// All at program start, because the child of a fork must not call the dynamic linker.
__attribute__((constructor)) void findAll() {
    const auto find = [](auto&... each) { ((void)each.get(), ...); };
    find(behind_Fork, behindChdir, behindClose, behindCloseRange, behindConnect, behindDup2,
         behindExecve, behindFclose, behindFcntl, behindFdopen, behindFflush, behindFork,
         behindFputs, behindFsync, behindFwrite, behindGethostbyname, behindIoctl, behindKill,
         behindMkdir, behindMount, behindNanosleep, behindNice, behindOpen, behindPerror,
         behindPipe2, behindPoll, behindPosixSpawn, behindAddDup2, behindPread, behindVprintf,
         behindPthreadCreate, behindPthreadJoin, behindPuts, behindRead, behindRecv, behindRename,
         behindSemWait, behindSend, behindSetsid, behindSetsockopt, behindShutdown,
         behindSigtimedwait, behindSocket, behindStat, behindStatfs, behindSync, behindSyscall,
         behindClockNanosleep, behindClone, behindFlock, behindFstat, behindFstatat, behindLseek,
         behindLstat, behindMkdirat, behindMmap, behindOpenat, behindPwrite, behindRegisterAtFork,
         behindWritev, behindSystem, behindUflow, behindUmount, behindUnlink, behindVsnprintf,
         behindWaitpid, behindWrite);
}

std::map<unsigned long, std::function<int(void*)>>& ioctlAnswers() {
    static std::map<unsigned long, std::function<int(void*)>> answers;
    return answers;
}

MountAnswer& mountAnswer() {
    static MountAnswer answer;
    return answer;
}

/// The usual wrapper: fails with -1 and errno, or calls the original.
template <class Result, class Type, class... Arguments>
Result pass(Function function, Result failed, Behind<Type>& behind, Arguments... arguments) {
    const int failure = decide(function);
    if (failure > 0) {
        errno = failure;
        return failed;
    }
    return behind(arguments...);
}

/// A wrapper of a function that returns the error number.
template <class Type, class... Arguments>
int passNumber(Function function, Behind<Type>& behind, Arguments... arguments) {
    const int failure = decide(function);
    return failure > 0 ? failure : behind(arguments...);
}

/// A wrapper of a transfer, which can also be short or reach the end.
template <class Type, class Buffer, class... Arguments>
ssize_t transfer(Function function, Behind<Type>& behind, int descriptor, Buffer buffer,
                 std::size_t length, Arguments... arguments) {
    const int failure = decide(function);
    if (failure > 0) {
        errno = failure;
        return -1;
    }
    if (failure == kEnd) {
        return 0;
    }
    if (failure == kShort && length > 1) {
        length /= 2;
    }
    return behind(descriptor, buffer, length, arguments...);
}

/// A child in the caller's memory, which shares the caller's variables while the caller waits.
struct CloneStart {
    int (*mEntry)(void*);
    void* mArgument;
    int mActor;
};

int runClone(void* argument) {
    const auto* const start = static_cast<const CloneStart*>(argument);
    becomeActor(start->mActor);
    return start->mEntry(start->mArgument);
}

/// A thread that the library creates is a separate actor.
struct ThreadStart {
    void* (*mEntry)(void*);
    void* mArgument;
    int mActor;
    std::atomic<bool> mTaken;
};

// Static, because allocations of the library are counted.
ThreadStart starts[kMostActors * 4];

ThreadStart* takeStart() {
    for (ThreadStart& start : starts) {
        if (!start.mTaken.exchange(true)) {
            return &start;
        }
    }
    std::abort();
}

void* runActor(void* argument) {
    auto* const start = static_cast<ThreadStart*>(argument);
    const ThreadStart copy = {start->mEntry, start->mArgument, start->mActor, {false}};
    start->mTaken = false;
    const Inside inside(copy.mActor);
    return copy.mEntry(copy.mArgument);
}

}  // namespace

void answerMount(MountAnswer answer) {
    mountAnswer() = std::move(answer);
}

void resetAnswers() {
    ioctlAnswers().clear();
    mountAnswer() = nullptr;
}

}  // namespace torture

void failingcalls::answerIoctl(unsigned long request, std::function<int(void*)> answer) {
    torture::ioctlAnswers()[request] = std::move(answer);
}

namespace {

using namespace torture;
using torture::Function;

pid_t forkAs(Function function, Behind<pid_t()>& behind) {
    const int failure = decide(function);
    if (failure > 0) {
        errno = failure;
        return -1;
    }
    const int actor = isInside() ? newActor() : -1;
    const pid_t child = behind();
    if (child == 0 && actor >= 0) {
        becomeActor(actor);
    }
    return child;
}

}  // namespace

extern "C" {

pid_t _Fork() noexcept {
    return forkAs(Function::_Fork, behind_Fork);
}

int chdir(const char* path) noexcept {
    return pass(Function::chdir, -1, behindChdir, path);
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* left) {
    return passNumber(Function::clock_nanosleep, behindClockNanosleep, clock, flags, time, left);
}

int clone(int (*entry)(void*), void* stack, int flags, void* argument, ...) noexcept {
    const int failure = decide(Function::clone);
    if (failure > 0) {
        errno = failure;
        return -1;
    }
    if (!isInside()) {
        return behindClone(entry, stack, flags, argument);
    }
    const int actor = currentActor();
    CloneStart start = {entry, argument, newActor()};
    const int child = behindClone(runClone, stack, flags, static_cast<void*>(&start));
    becomeActor(actor);
    return child;
}

int close(int descriptor) {
    // The kernel releases the number even if it reports an error.
    const int failure = decide(Function::close);
    const int result = behindClose(descriptor);
    if (failure > 0) {
        errno = failure;
        return -1;
    }
    return result;
}

int close_range(unsigned first, unsigned last, int flags) noexcept {
    return pass(Function::close_range, -1, behindCloseRange, first, last, flags);
}

int connect(int socket, const sockaddr* address, socklen_t size) {
    return pass(Function::connect, -1, behindConnect, socket, address, size);
}

int dup2(int from, int to) noexcept {
    return pass(Function::dup2, -1, behindDup2, from, to);
}

int execve(const char* path, char* const* arguments, char* const* environment) noexcept {
    return pass(Function::execve, -1, behindExecve, path, arguments, environment);
}

int fclose(std::FILE* stream) {
    const int failure = decide(Function::fclose);
    const int result = behindFclose(stream);
    if (failure > 0) {
        errno = failure;
        return EOF;
    }
    return result;
}

int fcntl(int descriptor, int command, ...) {
    va_list list;
    va_start(list, command);
    void* const argument = va_arg(list, void*);
    va_end(list);
    const bool duplicates = command == F_DUPFD || command == F_DUPFD_CLOEXEC;
    const bool locks = command == F_OFD_SETLK || command == F_SETLK;
    const Function function = duplicates ? Function::fcntl_dup
                              : locks    ? Function::fcntl_lock
                                         : Function::fcntl;
    return pass(function, -1, behindFcntl, descriptor, command, argument);
}

std::FILE* fdopen(int descriptor, const char* mode) noexcept {
    return pass(Function::fdopen, static_cast<std::FILE*>(nullptr), behindFdopen, descriptor, mode);
}

int fflush(std::FILE* stream) {
    return pass(Function::fflush, EOF, behindFflush, stream);
}

pid_t fork() noexcept {
    return forkAs(Function::fork, behindFork);
}

int flock(int descriptor, int operation) noexcept {
    return pass(Function::flock, -1, behindFlock, descriptor, operation);
}

int fputs(const char* text, std::FILE* stream) {
    return pass(Function::fputs, EOF, behindFputs, text, stream);
}

int fstat(int descriptor, struct stat* status) noexcept {
    return pass(Function::fstat, -1, behindFstat, descriptor, status);
}

int fstatat(int folder, const char* path, struct stat* status, int flags) noexcept {
    return pass(Function::fstatat, -1, behindFstatat, folder, path, status, flags);
}

int fsync(int descriptor) {
    return pass(Function::fsync, -1, behindFsync, descriptor);
}

size_t fwrite(const void* items, size_t size, size_t count, std::FILE* stream) {
    return pass(Function::fwrite, size_t{0}, behindFwrite, items, size, count, stream);
}

int gethostbyname_r(const char* name, hostent* entry, char* buffer, size_t size, hostent** found,
                    int* error) {
    const int failure = decide(Function::gethostbyname_r);
    if (failure > 0) {
        *found = nullptr;
        *error = failure == EAGAIN ? TRY_AGAIN : NETDB_INTERNAL;
        return failure;
    }
    // Allocations of the resolver and its modules are not the library's.
    const failingcalls::Exempt exempt;
    return behindGethostbyname(name, entry, buffer, size, found, error);
}

int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list list;
    va_start(list, request);
    void* const argument = va_arg(list, void*);
    va_end(list);
    const int failure = decide(Function::ioctl);
    if (failure > 0) {
        errno = failure;
        return -1;
    }
    const auto answer = ioctlAnswers().find(request);
    if (answer != ioctlAnswers().end()) {
        const failingcalls::Exempt exempt;
        return answer->second(argument);
    }
    return behindIoctl(descriptor, request, argument);
}

int kill(pid_t process, int signal) noexcept {
    return pass(Function::kill, -1, behindKill, process, signal);
}

off_t lseek(int descriptor, off_t offset, int from) noexcept {
    return pass(Function::lseek, off_t{-1}, behindLseek, descriptor, offset, from);
}

int lstat(const char* path, struct stat* status) noexcept {
    return pass(Function::lstat, -1, behindLstat, path, status);
}

int mkdirat(int folder, const char* path, mode_t mode) noexcept {
    return pass(Function::mkdirat, -1, behindMkdirat, folder, path, mode);
}

void* mmap(void* address, size_t length, int protection, int flags, int descriptor,
           off_t offset) noexcept {
    return pass(Function::mmap, MAP_FAILED, behindMmap, address, length, protection, flags,
                descriptor, offset);
}

int mkdir(const char* path, mode_t mode) noexcept {
    return pass(Function::mkdir, -1, behindMkdir, path, mode);
}

int mount(const char* device, const char* directory, const char* type, unsigned long flags,
          const void* data) noexcept {
    const int failure = decide(Function::mount);
    if (failure > 0) {
        errno = failure;
        return -1;
    }
    // A new mount of the software partition; the kernel handles the others.
    if (mountAnswer() && type != nullptr && std::strcmp(type, "ext3") == 0) {
        const failingcalls::Exempt exempt;
        return mountAnswer()(device, directory, flags);
    }
    return behindMount(device, directory, type, flags, data);
}

int nanosleep(const timespec* time, timespec* left) {
    const int failure = decide(Function::nanosleep);
    if (failure > 0) {
        if (left != nullptr) {
            *left = *time;
        }
        errno = failure;
        return -1;
    }
    // Skip the library's pauses, which are for other processes.
    const timespec none = {0, 0};
    return behindNanosleep(isInside() ? &none : time, left);
}

int nice(int more) noexcept {
    return pass(Function::nice, -1, behindNice, more);
}

int open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
        va_list list;
        va_start(list, flags);
        mode = va_arg(list, mode_t);
        va_end(list);
    }
    const bool writes = (flags & O_ACCMODE) != O_RDONLY;
    return pass(writes ? Function::open_write : Function::open, -1, behindOpen, path, flags, mode);
}

int openat(int folder, const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
        va_list list;
        va_start(list, flags);
        mode = va_arg(list, mode_t);
        va_end(list);
    }
    const bool writes = (flags & O_ACCMODE) != O_RDONLY;
    return pass(writes ? Function::openat_write : Function::openat, -1, behindOpenat, folder, path,
                flags, mode);
}

void perror(const char* text) {
    (void)decide(Function::perror);
    Unwinding unwinding;
    behindPerror.get()(text);
    unwinding.end();
}

int pipe2(int ends[2], int flags) noexcept {
    return pass(Function::pipe2, -1, behindPipe2, ends, flags);
}

int poll(pollfd* entries, nfds_t count, int timeout) {
    return pass(Function::poll, -1, behindPoll, entries, count, timeout);
}

int posix_spawn(pid_t* child, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const* arguments,
                char* const* environment) {
    return passNumber(Function::posix_spawn, behindPosixSpawn, child, path, actions, attributes,
                      arguments, environment);
}

int posix_spawn_file_actions_adddup2(posix_spawn_file_actions_t* actions, int from,
                                     int to) noexcept {
    return passNumber(Function::posix_spawn_adddup2, behindAddDup2, actions, from, to);
}

ssize_t pread(int descriptor, void* buffer, size_t length, off_t offset) {
    return transfer(Function::pread, behindPread, descriptor, buffer, length, offset);
}

int printf(const char* format, ...) {
    const int failure = decide(Function::printf);
    if (failure > 0) {
        errno = failure;
        return -1;
    }
    va_list list;
    va_start(list, format);
    const int result = behindVprintf(format, list);
    va_end(list);
    return result;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                   void* argument) noexcept {
    const int failure = decide(Function::pthread_create);
    if (failure > 0) {
        return failure;
    }
    if (!isInside()) {
        return behindPthreadCreate(thread, attributes, entry, argument);
    }
    ThreadStart* const start = takeStart();
    start->mEntry = entry;
    start->mArgument = argument;
    start->mActor = newActor();
    // The C library caches a thread's stack for the next thread.
    const failingcalls::Exempt exempt;
    const int result = behindPthreadCreate(thread, attributes, runActor, static_cast<void*>(start));
    if (result != 0) {
        start->mTaken = false;
    }
    return result;
}

int pthread_join(pthread_t thread, void** result) {
    return passNumber(Function::pthread_join, behindPthreadJoin, thread, result);
}

int puts(const char* text) {
    return pass(Function::puts, EOF, behindPuts, text);
}

ssize_t pwrite(int descriptor, const void* bytes, size_t length, off_t offset) {
    return transfer(Function::pwrite, behindPwrite, descriptor, bytes, length, offset);
}

ssize_t read(int descriptor, void* buffer, size_t length) {
    return transfer(Function::read, behindRead, descriptor, buffer, length);
}

ssize_t recv(int socket, void* buffer, size_t length, int flags) {
    return transfer(Function::recv, behindRecv, socket, buffer, length, flags);
}

int __register_atfork(void (*before)(), void (*parent)(), void (*child)(), void* object) noexcept {
    return passNumber(Function::register_atfork, behindRegisterAtFork, before, parent, child,
                      object);
}

int rename(const char* from, const char* to) noexcept {
    return pass(Function::rename, -1, behindRename, from, to);
}

int sem_wait(sem_t* semaphore) {
    return pass(Function::sem_wait, -1, behindSemWait, semaphore);
}

ssize_t send(int socket, const void* bytes, size_t length, int flags) {
    return transfer(Function::send, behindSend, socket, bytes, length, flags);
}

pid_t setsid() noexcept {
    return pass(Function::setsid, -1, behindSetsid);
}

int setsockopt(int socket, int level, int option, const void* value, socklen_t size) noexcept {
    // A receive without an answer must end soon, not after the library's half a minute.
    const timeval soon = {0, 300000};
    const bool isTimeOut = isInside() && option == SO_RCVTIMEO && size == sizeof(soon);
    return pass(Function::setsockopt, -1, behindSetsockopt, socket, level, option,
                isTimeOut ? static_cast<const void*>(&soon) : value, size);
}

int shutdown(int socket, int how) noexcept {
    return pass(Function::shutdown, -1, behindShutdown, socket, how);
}

int sigtimedwait(const sigset_t* set, siginfo_t* info, const timespec* time) {
    return pass(Function::sigtimedwait, -1, behindSigtimedwait, set, info, time);
}

int socket(int family, int type, int protocol) noexcept {
    return pass(Function::socket, -1, behindSocket, family, type, protocol);
}

int stat(const char* path, struct stat* status) noexcept {
    return pass(Function::stat, -1, behindStat, path, status);
}

int statfs(const char* path, struct statfs* status) noexcept {
    return pass(Function::statfs, -1, behindStatfs, path, status);
}

void sync() noexcept {
    // The library syncs the box's disks. Do not wait for the machine's disks.
    if (!isInside()) {
        behindSync.get()();
    }
}

#ifndef KESTROVA_TORTURE_ASAN  // the sanitizer's start calls it before anything can be looked up
long syscall(long number, ...) noexcept {
    va_list list;
    va_start(list, number);
    long words[6];
    for (long& word : words) {
        word = va_arg(list, long);
    }
    va_end(list);
    return pass(Function::syscall, -1L, behindSyscall, number, words[0], words[1], words[2],
                words[3], words[4], words[5]);
}
#endif

int system(const char* command) {
    return pass(Function::system, -1, behindSystem, command);
}

int __uflow(std::FILE* stream) {
    const int failure = decide(Function::uflow);
    if (failure > 0) {
        constexpr int errorSeen = 0x20;
        stream->_flags |= errorSeen;
        errno = failure;
        return EOF;
    }
    return behindUflow(stream);
}

int umount(const char* directory) noexcept {
    return pass(Function::umount, -1, behindUmount, directory);
}

int unlink(const char* path) noexcept {
    return pass(Function::unlink, -1, behindUnlink, path);
}

int vsnprintf(char* buffer, size_t size, const char* format, va_list list) noexcept {
    return pass(Function::vsnprintf, -1, behindVsnprintf, buffer, size, format, list);
}

pid_t waitpid(pid_t child, int* status, int options) {
    const int failure = decide(Function::waitpid);
    if (failure == ECHILD) {
        // As if the application ignored SIGCHLD: the kernel has already reaped the child.
        int ignored = 0;
        (void)behindWaitpid(child, &ignored, options);
    }
    if (failure > 0) {
        errno = failure;
        return -1;
    }
    return behindWaitpid(child, status, options);
}

ssize_t write(int descriptor, const void* bytes, size_t length) {
    const bool stream = descriptor == STDOUT_FILENO || descriptor == STDERR_FILENO;
    return transfer(stream ? Function::write_stream : Function::write, behindWrite, descriptor,
                    bytes, length);
}

ssize_t writev(int descriptor, const iovec* pieces, int count) {
    const bool stream = descriptor == STDOUT_FILENO || descriptor == STDERR_FILENO;
    const int failure = decide(stream ? Function::writev_stream : Function::writev);
    if (failure > 0) {
        errno = failure;
        return -1;
    }
    // A short write takes the first piece.
    return behindWritev(descriptor, pieces, failure == kShort ? 1 : count);
}

}  // extern "C"
