// SPDX-License-Identifier: MIT
//
// Logging: under the print lock, at a level, to standard output, unbuffered. Every function
// preserves errno, because a perror() often follows; none fails or throws. They block while other
// threads write their messages and while standard output accepts no data, and raise SIGPIPE if
// standard output is a pipe without a reader. The state is not destroyed at exit, because detached
// workers may still log then. After fork() in a process whose other threads log, the child must not
// log before exec.
#ifndef KESTROVA_BASE_LOG_LOG_H
#define KESTROVA_BASE_LOG_LOG_H

#include <pthread.h>

#include <string>

#include "base/outputlevel.h"
#include "base/stream.h"
#include "base/threadsafety.h"

namespace base {

using PrintLock KESTROVA_CAPABILITY("print lock") = pthread_mutex_t;

/// The print lock, for the thread-safety analysis. Only getprintaccess() takes it.
extern PrintLock printLock;

}  // namespace base

/// Takes the print lock, which serialises all console output of the process. Returns non-zero if
/// this call took the lock, and 0 if the calling thread already holds it or locking failed. After a
/// non-zero result the same thread must call releaseprintaccess(). The thread cannot be cancelled
/// while it holds the lock, so that a cancelled worker does not keep it. Blocks while another
/// thread writes its message.
int getprintaccess();

/// Releases the print lock and restores the cancellation state saved by getprintaccess().
void releaseprintaccess();

/// Prints the context line "<file>:<line> (level <level>):" that precedes a message. The three
/// texts are printed before it ("" for none); `reserved` is 0. Prints nothing if the verbosity is
/// below `level`. The caller holds the print lock.
void kestrova_print_context_file_line(const char* file, int line, unsigned level, int reserved,
                                      const char* prefix1, const char* prefix2, const char* prefix3)
    KESTROVA_REQUIRES(base::printLock);

/// Prints the three texts ("" for none) and the formatted message in one write, if the verbosity is
/// at least `level`. The caller holds the print lock.
void kestrova_print_with_level(unsigned level, const char* prefix1, const char* prefix2,
                               const char* prefix3, const char* format, ...)
    KESTROVA_REQUIRES(base::printLock) __attribute__((format(printf, 5, 6)));

/// Returns the kernel's name of the calling thread, or "unknown" on failure. The text belongs to
/// the thread and is valid until its next call.
const char* KestrovaThreadThisName();

/// Called after every failed assertion has been printed, outside the print lock, at any verbosity.
/// Does nothing: it is a place for a debugger's breakpoint.
void fassert_point_fired();

/// Called after every failed attention check has been printed. See fassert_point_fired().
void fcheck_point_fired(const char* file, int line, unsigned level, const char* prefix1,
                        const char* prefix2, const char* prefix3);

namespace base {

/// Returns whether messages of this level are printed.
bool levelEnabled(unsigned level);

/// Holds the print lock for a scope. Can be nested.
class KESTROVA_SCOPED_LOCK PrintAccess {
public:
    // Both unchecked, because the lock may already be held, or locking may fail.
    PrintAccess() KESTROVA_ACQUIRE(printLock) KESTROVA_UNCHECKED_LOCKING
        : mToken(getprintaccess()) {}
    ~PrintAccess() KESTROVA_RELEASE() KESTROVA_UNCHECKED_LOCKING {
        if (mToken != 0) {
            releaseprintaccess();
        }
    }
    PrintAccess(const PrintAccess&) = delete;
    PrintAccess& operator=(const PrintAccess&) = delete;

private:
    int mToken;
};

/// Starts a message of several pieces: checks the level once for the whole message, and prints the
/// context line. Returns false if the message must not be printed. The caller holds the print lock.
bool beginMessageAt(const char* source, int line, unsigned level) KESTROVA_REQUIRES(printLock);

/// Logs a message at a level.
void logMessage(unsigned level, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// Logs bytes unchanged at a level, as one message.
void logBytes(unsigned level, const char* bytes, std::size_t length);

/// Logs a message at a level with its context line. `source` is the module's path below the source
/// root without its extension, `line` is __LINE__ of the call.
void logMessageAt(const char* source, int line, unsigned level, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

/// Logs the context line, `introduction`, the name and a newline through the console stream.
void logNameAt(const char* source, int line, unsigned level, const char* introduction,
               const std::string& name);

/// Reports a condition that must hold and does not; `condition` is its text. The caller continues.
void reportFailedAssertion(const char* source, int line, const char* condition);

/// Reports a condition that should hold and does not; the caller returns its failure value.
void reportFailedAttention(const char* source, int line, const char* condition);

/// Prints the first piece of an assertion with values. See reportFailedAssertionWithValues().
void beginAssertionWithValues(const char* source, int line, const char* condition)
    KESTROVA_REQUIRES(printLock);

/// Reports a failed assertion, followed by the caller's own pieces, such as " opt=", option.
template <class... Pieces>
void reportFailedAssertionWithValues(const char* source, int line, const char* condition,
                                     const Pieces&... pieces) {
    {
        const PrintAccess access;
        if (levelEnabled(1)) {
            beginAssertionWithValues(source, line, condition);
            (void)(*pCoutKestrovaOstream << ... << pieces);
            *pCoutKestrovaOstream << "\n";
        }
    }
    fassert_point_fired();
}

}  // namespace base

#endif
