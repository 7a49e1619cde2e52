// SPDX-License-Identifier: MIT
//
// The functions of the C library that the torture program interposes, and how each can fail. A test
// compares them with the imports of the shared library.
#ifndef KESTROVA_TESTS_TORTURE_FUNCTIONS_H
#define KESTROVA_TESTS_TORTURE_FUNCTIONS_H

#include <string>
#include <vector>

namespace torture {

/// Ways to fail other than with an errno.
enum : int {
    kShort = -1,  ///< transfers half of the requested bytes
    kEnd = -2,    ///< reports the end of the file or the stream
};

/// X(name, whether it is a cancellation point, ways to fail). A function whose failures depend on
/// its arguments appears more than once.
#define KESTROVA_TORTURE_FUNCTIONS(X)                                                     \
    X(_Fork, false, EAGAIN, ENOMEM)                                                       \
    X(chdir, false, EACCES, ENOENT, EIO, ENOMEM)                                          \
    X(clock_nanosleep, true, EINTR)                                                       \
    X(clone, false, EAGAIN, ENOMEM)                                                       \
    X(flock, false, EINTR, ENOLCK, EWOULDBLOCK)                                           \
    X(fstat, false, EIO, ENOMEM)                                                          \
    X(fstatat, false, EACCES, ENOENT, ENOMEM, EIO)                                        \
    X(lseek, false, ENXIO, EOVERFLOW)                                                     \
    X(lstat, false, EACCES, ENOENT, ENOMEM, EIO)                                          \
    X(mkdirat, false, EACCES, ENOSPC, EROFS, EIO, ENOENT, ENOMEM)                         \
    X(mmap, false, ENOMEM, EACCES)                                                        \
    X(openat, true, EINTR, EMFILE, ENOMEM, EIO, EACCES, ENOENT, EBUSY)                    \
    X(openat_write, true, EINTR, EMFILE, ENOMEM, EIO, EACCES, ENOENT, EROFS, ENOSPC)      \
    X(pwrite, true, EINTR, EIO, ENOSPC, kShort)                                           \
    X(register_atfork, false, ENOMEM)                                                     \
    X(writev, true, EINTR, EIO, ENOSPC, kShort)                                           \
    X(writev_stream, true, EINTR, EAGAIN, EIO, ENOSPC, kShort)                            \
    X(close, true, EIO, EINTR, ENOSPC)                                                    \
    X(close_range, false, ENOSYS, ENOMEM)                                                 \
    X(connect, true, EINTR, ECONNREFUSED, ETIMEDOUT, EAGAIN, ENOMEM, EACCES)              \
    X(dup2, false, EBUSY, EINTR, EMFILE)                                                  \
    X(execve, false, ENOENT, EACCES, ENOMEM, EIO, EMFILE)                                 \
    X(fclose, true, EIO, ENOSPC)                                                          \
    X(fcntl, false)                                                                       \
    X(fcntl_lock, false, EAGAIN, EACCES, ENOLCK, EINTR)                                   \
    X(fcntl_dup, false, EMFILE)                                                           \
    X(fdopen, false, ENOMEM)                                                              \
    X(fflush, true, EIO, ENOSPC)                                                          \
    X(fork, false, EAGAIN, ENOMEM)                                                        \
    X(fputs, true, EIO, ENOSPC)                                                           \
    X(fsync, true, EIO, ENOSPC, EROFS, EINTR)                                             \
    X(fwrite, true, EIO, ENOSPC)                                                          \
    X(gethostbyname_r, true, EAGAIN, ENOMEM, EMFILE, ERANGE)                              \
    X(ioctl, false, EIO, ENOTTY, EACCES, ENOMEM, EBUSY, EINTR)                            \
    X(kill, false, EPERM, ESRCH)                                                          \
    X(mkdir, false, EACCES, ENOSPC, EROFS, EIO, ENOENT, ENOMEM)                           \
    X(mount, false, EBUSY, EACCES, EIO, ENOMEM, EROFS, ENOENT)                            \
    X(nanosleep, true, EINTR)                                                             \
    X(nice, false, EPERM)                                                                 \
    X(open, true, EINTR, EMFILE, ENOMEM, EIO, EACCES, ENOENT, EBUSY)                      \
    X(open_write, true, EINTR, EMFILE, ENOMEM, EIO, EACCES, ENOENT, EBUSY, EROFS, ENOSPC) \
    X(perror, true)                                                                       \
    X(pipe2, false, EMFILE, ENFILE)                                                       \
    X(poll, true, EINTR, ENOMEM)                                                          \
    X(posix_spawn, false, EAGAIN, ENOMEM, ENOENT, EACCES)                                 \
    X(posix_spawn_adddup2, false, ENOMEM)                                                 \
    X(pread, true, EINTR, EIO, kShort)                                                    \
    X(printf, true, EIO, ENOSPC)                                                          \
    X(pthread_create, false, EAGAIN)                                                      \
    X(pthread_join, true)                                                                 \
    X(puts, true, EIO, ENOSPC)                                                            \
    X(read, true, EINTR, EIO, ENOMEM, kShort)                                             \
    X(recv, true, EINTR, EAGAIN, ECONNRESET, ENOMEM, kShort, kEnd)                        \
    X(rename, false, EACCES, EBUSY, ENOSPC, EROFS, EIO, ENOMEM, ENOENT)                   \
    X(sem_wait, true, EINTR)                                                              \
    X(send, true, EINTR, EAGAIN, ECONNRESET, EPIPE, ENOMEM, kShort)                       \
    X(setsid, false, EPERM)                                                               \
    X(setsockopt, false, ENOMEM)                                                          \
    X(shutdown, false, ENOTCONN)                                                          \
    X(sigtimedwait, true, EINTR, EAGAIN)                                                  \
    X(socket, false, EMFILE, ENFILE, ENOMEM, EACCES)                                      \
    X(stat, false, EACCES, ENOENT, ENOMEM, EIO)                                           \
    X(statfs, false, EIO, EACCES, ENOENT, EINTR, ENOMEM)                                  \
    X(syscall, false, EPERM)                                                              \
    X(system, true, EAGAIN, ENOMEM)                                                       \
    X(uflow, true, EINTR, EIO)                                                            \
    X(umount, false, EBUSY, EACCES, ENOMEM)                                               \
    X(unlink, false, EACCES, EBUSY, EIO, ENOENT, EROFS, ENOMEM)                           \
    X(vsnprintf, false, ENOMEM)                                                           \
    X(waitpid, true, EINTR, ECHILD)                                                       \
    X(write, true, EINTR, EIO, ENOSPC, kShort)                                            \
    X(write_stream, true, EINTR, EAGAIN, EIO, ENOSPC, kShort)

enum class Function : int {
#define KESTROVA_TORTURE_NAME(name, ...) name,
    KESTROVA_TORTURE_FUNCTIONS(KESTROVA_TORTURE_NAME)
#undef KESTROVA_TORTURE_NAME
};

const char* nameOf(Function function);
bool isCancellationPoint(Function function);
/// Returns errno values and the ways to fail above.
const std::vector<int>& failuresOf(Function function);

/// Returns "EIO", "short" or "end".
std::string failureName(int failure);
/// The inverse of failureName(). Returns 0 for an unknown name.
int failureFrom(const std::string& name);

/// Returns whether the caller must retry or complete the call, so that the operation succeeds.
bool isTransient(Function function, int failure);
/// Returns whether the function writes the log or other output of the library.
bool isOutput(Function function);

}  // namespace torture

#endif
