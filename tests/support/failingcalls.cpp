// SPDX-License-Identifier: MIT
#include "tests/support/failingcalls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>

#ifdef __SANITIZE_THREAD__
extern "C" void __tsan_acquire(void* address);
/// The sanitizer cannot see the lock of the C library's resolver around its list.
extern "C" const char* __tsan_default_suppressions() {
    return "race:__libc_dynarray_emplace_enlarge\n";
}
#endif

namespace failingcalls {

namespace {

constexpr int kCalls = static_cast<int>(Call::eWrite) + 1;
constexpr int kEach = -1;

/// A test's settings for one call. Set while no thread makes that call, read by any thread.
struct Plan {
    std::atomic<int> mCount{0};
    std::atomic<int> mFailingCount{0};  ///< the count at which the call fails, kEach for all, 0 for
                                        ///< none
    std::atomic<int> mError{0};
    std::atomic<bool> mHasAction{false};
    std::function<void()> mAction;
};

// No destructor, because the process makes calls until it exits.
struct Plans {
    Plan mPlan[kCalls];
    std::map<unsigned long, std::function<int(void*)>> mIoctl;
    std::function<int(const char*, struct statfs*)> mStatfs;
    std::function<void(const MountRequest&)> mMountWatcher;
    std::function<int(const MountRequest&)> mMount;
    std::function<int(const char*)> mUmount;
    std::function<int(const Lookup&)> mLookup;
    std::function<int(const SocketOption&)> mSetsockopt;
    std::function<ssize_t(int, void*, std::size_t, int)> mReceive;
    std::function<ssize_t(int, const void*, std::size_t, int)> mSend;
    std::atomic<std::size_t> mMostBytes{0};
};

// Calls are made before any constructor has run and in the child of a fork. Until a test configures
// something there is no table, and no lookup.
std::atomic<Plans*> plans{nullptr};

Plans& everyPlan() {
    if (plans.load() == nullptr) {
        plans = new Plans;
    }
    return *plans.load();
}

Plan& planOf(Call call) {
    return everyPlan().mPlan[static_cast<int>(call)];
}

/// True while a function of the test runs inside a call.
thread_local bool inTest = false;

/// Runs a function of the test.
template <class Function, class... Arguments>
auto askTest(const Function& function, Arguments... arguments) {
    const Exempt scope;
    return function(arguments...);
}

/// Counts a call. Returns true, with errno set, if it must fail.
bool fails(Call call) {
    Plans* const all = plans.load();
    if (all == nullptr || inTest) {
        return false;
    }
    Plan& plan = all->mPlan[static_cast<int>(call)];
    const int count = ++plan.mCount;
    if (plan.mHasAction) {
        askTest(plan.mAction);
    }
    const int failing = plan.mFailingCount;
    if (failing != kEach && failing != count) {
        return false;
    }
    errno = plan.mError;
    return true;
}

/// Returns how many bytes of a transfer are allowed.
std::size_t limited(std::size_t length) {
    const Plans* const all = plans.load();
    const std::size_t most = all != nullptr && !inTest ? all->mMostBytes.load() : 0;
    return most != 0 && most < length ? most : length;
}

#ifdef __SANITIZE_ADDRESS__
extern "C" void __asan_handle_no_return();
#endif

/// A thread that is cancelled in a call does not leave the frames above it normally. Unpoison their
/// stack first: the address sanitizer does this for exceptions, but not for a cancellation.
class Unwinding {
public:
    Unwinding() = default;
    ~Unwinding() {
#ifdef __SANITIZE_ADDRESS__
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
template <class Function>
class Behind {
public:
    constexpr explicit Behind(const char* name) : mName(name) {}

    Function* get() {
        Function* function = mFunction.load(std::memory_order_relaxed);
        if (function == nullptr) {
            function = reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, mName));
            if (function == nullptr) {
                std::abort();
            }
            mFunction.store(function, std::memory_order_relaxed);
        }
        return function;
    }

    /// Makes a call in which the thread may be cancelled.
    template <class... Arguments>
    auto call(Arguments... arguments) {
        Unwinding unwinding;
        const auto result = get()(arguments...);
        unwinding.end();
        return result;
    }

private:
    const char* mName;
    std::atomic<Function*> mFunction{nullptr};
};

}  // namespace

void fail(Call call, int error, int nth) {
    Plan& plan = planOf(call);
    plan.mError = error;
    plan.mFailingCount = plan.mCount + nth;
}

void failAll(Call call, int error) {
    Plan& plan = planOf(call);
    plan.mError = error;
    plan.mFailingCount = kEach;
}

void before(Call call, std::function<void()> action) {
    Plan& plan = planOf(call);
    plan.mAction = std::move(action);
    plan.mHasAction = true;
}

int count(Call call) {
    return planOf(call).mCount;
}

void answerIoctl(unsigned long request, std::function<int(void*)> answer) {
    everyPlan().mIoctl[request] = std::move(answer);
}

void answerStatfs(std::function<int(const char*, struct statfs*)> answer) {
    everyPlan().mStatfs = std::move(answer);
}

void watchMounts(std::function<void(const MountRequest&)> watcher) {
    everyPlan().mMountWatcher = std::move(watcher);
}

void answerMount(std::function<int(const MountRequest&)> answer) {
    everyPlan().mMount = std::move(answer);
}

void answerUmount(std::function<int(const char*)> answer) {
    everyPlan().mUmount = std::move(answer);
}

void answerLookup(std::function<int(const Lookup&)> answer) {
    everyPlan().mLookup = std::move(answer);
}

void answerSetsockopt(std::function<int(const SocketOption&)> answer) {
    everyPlan().mSetsockopt = std::move(answer);
}

void answerReceive(std::function<ssize_t(int, void*, std::size_t, int)> answer) {
    everyPlan().mReceive = std::move(answer);
}

void answerSend(std::function<ssize_t(int, const void*, std::size_t, int)> answer) {
    everyPlan().mSend = std::move(answer);
}

void limitTransfers(std::size_t most) {
    everyPlan().mMostBytes = most;
}

Exempt::Exempt() : mBefore(inTest) {
    inTest = true;
}

Exempt::~Exempt() {
    inTest = mBefore;
}

void reset() {
    Plans& all = everyPlan();
    for (Plan& plan : all.mPlan) {
        plan.mFailingCount = 0;
        plan.mHasAction = false;
        plan.mAction = nullptr;
        plan.mCount = 0;
    }
    all.mIoctl.clear();
    all.mStatfs = nullptr;
    all.mMountWatcher = nullptr;
    all.mMount = nullptr;
    all.mUmount = nullptr;
    all.mLookup = nullptr;
    all.mSetsockopt = nullptr;
    all.mReceive = nullptr;
    all.mSend = nullptr;
    all.mMostBytes = 0;
}

}  // namespace failingcalls

namespace {

using failingcalls::askTest;
using failingcalls::Behind;
using failingcalls::Call;
using failingcalls::fails;
using failingcalls::inTest;
using failingcalls::limited;
using failingcalls::plans;

// With 64-bit offsets and times the headers rename some calls in the object file. The functions
// here are compiled with the same headers, so their names match. Only the names that are looked up
// at run time must be written out.
#ifdef __USE_TIME_BITS64
constexpr char kFcntl[] = "__fcntl_time64";
constexpr char kIoctl[] = "__ioctl_time64";
constexpr char kSetsockopt[] = "__setsockopt64";
constexpr char kClockNanosleep[] = "__clock_nanosleep_time64";
constexpr char kNanosleep[] = "__nanosleep64";
constexpr char kStat[] = "__stat64_time64";
#else
constexpr char kFcntl[] = "fcntl64";
constexpr char kIoctl[] = "ioctl";
constexpr char kSetsockopt[] = "setsockopt";
constexpr char kClockNanosleep[] = "clock_nanosleep";
constexpr char kNanosleep[] = "nanosleep";
constexpr char kStat[] = "stat64";
#endif

using CreateFunction = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
using LookupFunction = int(const char*, hostent*, char*, size_t, hostent**, int*);

// Uses the second name, because the thread sanitizer's clone() assumes that the child has its own
// memory.
Behind<int(int (*)(void*), void*, int, void*, ...)> behindClone("__clone");
Behind<int(clockid_t, int, const timespec*, timespec*)> behindClockNanosleep(kClockNanosleep);
Behind<int(int)> behindClose("close");
Behind<int(int, const sockaddr*, socklen_t)> behindConnect("connect");
Behind<int(int, int, ...)> behindFcntl(kFcntl);
Behind<std::FILE*(int, const char*)> behindFdopen("fdopen");
Behind<std::FILE*(const char*, const char*)> behindFopen("fopen64");
Behind<pid_t()> behindFork("fork");
Behind<int(unsigned, unsigned, int)> behindCloseRange("close_range");
Behind<int(int, int)> behindDup2("dup2");
Behind<int(int)> behindFsync("fsync");
Behind<LookupFunction> behindGethostbyname("gethostbyname_r");
Behind<int(int, unsigned long, ...)> behindIoctl(kIoctl);
Behind<int(const char*, mode_t)> behindMkdir("mkdir");
Behind<int(const char*, const char*, const char*, unsigned long, const void*)> behindMount("mount");
Behind<int(const timespec*, timespec*)> behindNanosleep(kNanosleep);
Behind<int(const char*, int, ...)> behindOpen("open64");
Behind<int(int*, int)> behindPipe2("pipe2");
Behind<ssize_t(int, void*, size_t, off_t)> behindPread("pread64");
Behind<CreateFunction> behindPthreadCreate("pthread_create");
Behind<ssize_t(int, void*, size_t)> behindRead("read");
Behind<ssize_t(int, void*, size_t, int)> behindRecv("recv");
Behind<int(const char*, const char*)> behindRename("rename");
Behind<int(sem_t*)> behindSemWait("sem_wait");
Behind<ssize_t(int, const void*, size_t, int)> behindSend("send");
Behind<int(int, int, int, const void*, socklen_t)> behindSetsockopt(kSetsockopt);
Behind<int(int, int)> behindShutdown("shutdown");
Behind<int(int, int, int)> behindSocket("socket");
Behind<int(const char*, struct stat*)> behindStat(kStat);
Behind<int(const char*, struct statfs*)> behindStatfs("statfs64");
Behind<void()> behindSync("sync");
Behind<int(const char*)> behindSystem("system");
Behind<int(const char*)> behindUmount("umount");
Behind<pid_t(pid_t, int*, int)> behindWaitpid("waitpid");
Behind<ssize_t(int, const void*, size_t)> behindWrite("write");

// All at program start, because the child of a fork must not call the dynamic linker.
__attribute__((constructor)) void findAll() {
    const auto find = [](auto&... each) { ((void)each.get(), ...); };
    find(behindClone, behindClose, behindConnect, behindFcntl, behindFdopen, behindFopen,
         behindFork, behindFsync, behindGethostbyname, behindIoctl, behindMkdir, behindMount,
         behindNanosleep, behindOpen, behindPipe2, behindPread, behindPthreadCreate, behindRead,
         behindRecv, behindRename, behindSemWait, behindSend, behindSetsockopt, behindShutdown,
         behindSocket, behindStat, behindStatfs, behindSync, behindSystem, behindUmount,
         behindWaitpid, behindWrite);
}

}  // namespace

extern "C" {

int close(int descriptor) {
    return fails(Call::eClose) ? -1 : behindClose.get()(descriptor);
}

int connect(int socket, const sockaddr* address, socklen_t size) {
    return fails(Call::eConnect) ? -1 : behindConnect.call(socket, address, size);
}

int fcntl(int descriptor, int command, ...) {
    va_list list;
    va_start(list, command);
    void* const argument = va_arg(list, void*);
    va_end(list);
    return fails(Call::eFcntl) ? -1 : behindFcntl.get()(descriptor, command, argument);
}

std::FILE* fdopen(int descriptor, const char* mode) noexcept {
    return fails(Call::eFdopen) ? nullptr : behindFdopen.get()(descriptor, mode);
}

std::FILE* fopen(const char* path, const char* mode) {
    return fails(Call::eFopen) ? nullptr : behindFopen.get()(path, mode);
}

pid_t fork() noexcept {
    return fails(Call::eFork) ? -1 : behindFork.get()();
}

int clone(int (*entry)(void*), void* stack, int flags, void* argument, ...) noexcept {
    return fails(Call::eClone) ? -1 : behindClone.get()(entry, stack, flags, argument);
}

int close_range(unsigned first, unsigned last, int flags) noexcept {
    return fails(Call::eCloseRange) ? -1 : behindCloseRange.get()(first, last, flags);
}

int dup2(int from, int to) noexcept {
    return fails(Call::eDup2) ? -1 : behindDup2.get()(from, to);
}

int fsync(int descriptor) {
    return fails(Call::eFsync) ? -1 : behindFsync.get()(descriptor);
}

int gethostbyname_r(const char* name, hostent* entry, char* buffer, size_t size, hostent** found,
                    int* error) {
    *found = nullptr;
    if (fails(Call::eGethostbyname)) {
        *error = NETDB_INTERNAL;
        return errno;
    }
    if (plans.load() != nullptr && !inTest && plans.load()->mLookup) {
        const failingcalls::Lookup lookup = {name, entry, buffer, size, found, error};
        return askTest(plans.load()->mLookup, lookup);
    }
    return behindGethostbyname.get()(name, entry, buffer, size, found, error);
}

int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list list;
    va_start(list, request);
    void* const argument = va_arg(list, void*);
    va_end(list);
    if (fails(Call::eIoctl)) {
        return -1;
    }
    if (plans.load() != nullptr) {
        const auto answer = plans.load()->mIoctl.find(request);
        if (answer != plans.load()->mIoctl.end()) {
            return askTest(answer->second, argument);
        }
    }
    return behindIoctl.get()(descriptor, request, argument);
}

int mkdir(const char* path, mode_t mode) noexcept {
    return fails(Call::eMkdir) ? -1 : behindMkdir.get()(path, mode);
}

int mount(const char* device, const char* directory, const char* type, unsigned long flags,
          const void* data) noexcept {
    if (fails(Call::eMount)) {
        return -1;
    }
    if (plans.load() == nullptr || inTest) {
        return behindMount.get()(device, directory, type, flags, data);
    }
    const auto text = [](const char* argument) { return argument != nullptr ? argument : ""; };
    const failingcalls::MountRequest request = {text(device), text(directory), text(type), flags,
                                                data};
    if (plans.load()->mMountWatcher) {
        askTest(plans.load()->mMountWatcher, request);
    }
    if (plans.load()->mMount) {
        return askTest(plans.load()->mMount, request);
    }
    return behindMount.get()(device, directory, type, flags, data);
}

/// Never fails: tests cancel threads that sleep in it.
int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* left) {
    return behindClockNanosleep.call(clock, flags, time, left);
}

int nanosleep(const timespec* time, timespec* left) {
    return fails(Call::eNanosleep) ? -1 : behindNanosleep.call(time, left);
}

int open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
        va_list list;
        va_start(list, flags);
        mode = va_arg(list, mode_t);
        va_end(list);
    }
    return fails(Call::eOpen) ? -1 : behindOpen.get()(path, flags, mode);
}

int pipe2(int ends[2], int flags) noexcept {
    return fails(Call::ePipe2) ? -1 : behindPipe2.get()(ends, flags);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                   void* argument) noexcept {
    return fails(Call::ePthreadCreate)
               ? errno
               : behindPthreadCreate.get()(thread, attributes, entry, argument);
}

ssize_t pread(int descriptor, void* buffer, size_t length, off_t offset) {
    return fails(Call::ePread) ? -1 : behindPread.get()(descriptor, buffer, length, offset);
}

ssize_t read(int descriptor, void* buffer, size_t length) {
    return fails(Call::eRead) ? -1 : behindRead.get()(descriptor, buffer, limited(length));
}

ssize_t recv(int socket, void* buffer, size_t length, int flags) {
    if (fails(Call::eRecv)) {
        return -1;
    }
    if (plans.load() != nullptr && !inTest && plans.load()->mReceive) {
        return askTest(plans.load()->mReceive, socket, buffer, length, flags);
    }
    return behindRecv.call(socket, buffer, limited(length), flags);
}

int rename(const char* from, const char* to) noexcept {
    return fails(Call::eRename) ? -1 : behindRename.get()(from, to);
}

int sem_wait(sem_t* semaphore) {
#ifdef __SANITIZE_THREAD__
    // Bypasses the sanitizer: it would ignore all actions of a thread that was cancelled in this
    // call, and then report races with it.
    static auto* const bare = reinterpret_cast<int (*)(sem_t*)>(
        ::dlsym(::dlopen("libc.so.6", RTLD_LAZY | RTLD_NOLOAD), "sem_wait"));
    const int result = bare(semaphore);
    if (result == 0) {
        __tsan_acquire(semaphore);
    }
    return result;
#else
    return behindSemWait.call(semaphore);
#endif
}

ssize_t send(int socket, const void* bytes, size_t length, int flags) {
    if (fails(Call::eSend)) {
        return -1;
    }
    if (plans.load() != nullptr && !inTest && plans.load()->mSend) {
        return askTest(plans.load()->mSend, socket, bytes, length, flags);
    }
    return behindSend.call(socket, bytes, limited(length), flags);
}

int setsockopt(int socket, int level, int option, const void* value, socklen_t size) noexcept {
    if (fails(Call::eSetsockopt)) {
        return -1;
    }
    if (plans.load() != nullptr && !inTest && plans.load()->mSetsockopt) {
        const failingcalls::SocketOption asked = {socket, level, option, value, size};
        return askTest(plans.load()->mSetsockopt, asked);
    }
    return behindSetsockopt.get()(socket, level, option, value, size);
}

int shutdown(int socket, int how) noexcept {
    return fails(Call::eShutdown) ? -1 : behindShutdown.get()(socket, how);
}

int socket(int family, int type, int protocol) noexcept {
    return fails(Call::eSocket) ? -1 : behindSocket.get()(family, type, protocol);
}

int stat(const char* path, struct stat* status) noexcept {
    return fails(Call::eStat) ? -1 : behindStat.get()(path, status);
}

int statfs(const char* path, struct statfs* status) noexcept {
    if (fails(Call::eStatfs)) {
        return -1;
    }
    if (plans.load() != nullptr && plans.load()->mStatfs) {
        return askTest(plans.load()->mStatfs, path, status);
    }
    return behindStatfs.get()(path, status);
}

void sync() noexcept {
    (void)fails(Call::eSync);
    behindSync.get()();
}

int system(const char* command) {
    return fails(Call::eSystem) ? -1 : behindSystem.get()(command);
}

int umount(const char* directory) noexcept {
    if (fails(Call::eUmount)) {
        return -1;
    }
    if (plans.load() != nullptr && plans.load()->mUmount) {
        return askTest(plans.load()->mUmount, directory);
    }
    return behindUmount.get()(directory);
}

pid_t waitpid(pid_t child, int* status, int options) {
    return fails(Call::eWaitpid) ? -1 : behindWaitpid.get()(child, status, options);
}

ssize_t write(int descriptor, const void* bytes, size_t length) {
    return fails(Call::eWrite) ? -1 : behindWrite.get()(descriptor, bytes, limited(length));
}

}  // extern "C"
