// SPDX-License-Identifier: MIT
//
// The one pattern by which the system reports: under the print lock, at a level, to standard
// output, unbuffered. Every function here leaves errno as it found it, because a perror often
// follows; none of them fails or throws. They block while other threads write their messages, and
// while standard output takes nothing more; one whose reader is gone raises SIGPIPE as any write
// does. Nothing of it is destroyed at exit: detached workers may still write then. A process that
// was forked without exec while another thread logged must not log.
#ifndef KESTROVA_BASE_LOG_LOG_H
#define KESTROVA_BASE_LOG_LOG_H

#include <pthread.h>

#include <string>

#include "base/outputlevel.h"
#include "base/stream.h"
#include "base/threadsafety.h"

namespace base {

using PrintLock KESTROVA_CAPABILITY("print lock") = pthread_mutex_t;

/// The print lock, for the thread-safety analysis. It is taken by getprintaccess() only.
extern PrintLock printLock;

}  // namespace base

/// Takes the print lock, which serialises all console output of the process. Returns non-zero when
/// this call took the lock, and 0 when it did not: the calling thread already holds it, or it could
/// not be taken. Only a non-zero token obliges to call releaseprintaccess(), on the same thread.
/// While the lock is held the thread cannot be cancelled, so a worker that is cancelled in the
/// middle of a message does not keep it. Blocks while another thread writes its message.
int getprintaccess();

/// Gives the print lock back and restores the cancellation state that getprintaccess() found.
void releaseprintaccess();

/// Prints the context line "<file>:<line> (level <level>):" that precedes a message. The three
/// texts are printed in front of it ("" for none); `reserved` is 0. Prints nothing when the
/// verbosity is below `level`. The caller holds the print lock.
void kestrova_print_context_file_line(const char* file, int line, unsigned level, int reserved,
                                      const char* prefix1, const char* prefix2, const char* prefix3)
    KESTROVA_REQUIRES(base::printLock);

/// Prints the three texts ("" for none) and the formatted message in one write, when the verbosity
/// is at least `level`. The caller holds the print lock.
void kestrova_print_with_level(unsigned level, const char* prefix1, const char* prefix2,
                               const char* prefix3, const char* format, ...)
    KESTROVA_REQUIRES(base::printLock) __attribute__((format(printf, 5, 6)));

/// Name of the calling thread, as the kernel knows it; "unknown" when it cannot be told. The text
/// belongs to the thread and is valid until its next call.
const char* KestrovaThreadThisName();

/// Called after every failed assertion has been printed, outside the print lock, at any verbosity.
/// Does nothing: it is the place for a debugger's breakpoint.
void fassert_point_fired();

/// Called after every failed attention check has been printed, as fassert_point_fired().
void fcheck_point_fired(const char* file, int line, unsigned level, const char* prefix1,
                        const char* prefix2, const char* prefix3);

namespace base {

/// True when a message of this level is to be printed.
bool levelEnabled(unsigned level);

/// Holds the print lock for a scope; nests.
class KESTROVA_SCOPED_LOCK PrintAccess {
public:
    // Both unchecked, because the lock may already be held, or not be available at all.
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

/// Starts a message of several pieces at a level: tests the level, the only time for the whole
/// message, and prints the context line. Returns false if the message is not to be printed. The
/// caller holds the print lock.
bool beginMessageAt(const char* source, int line, unsigned level) KESTROVA_REQUIRES(printLock);

/// Logs a message at a level.
void logMessage(unsigned level, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// Logs bytes at a level as they are, as one message.
void logBytes(unsigned level, const char* bytes, std::size_t length);

/// Logs a message at a level with its context line. `source` is the module's path below the source
/// root without the file's ending, `line` is __LINE__ of the call.
void logMessageAt(const char* source, int line, unsigned level, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

/// Logs with its context line the text `introduction`, the name and a line end, through the
/// console stream.
void logNameAt(const char* source, int line, unsigned level, const char* introduction,
               const std::string& name);

/// Reports a condition that must hold and does not; `condition` is its text. The caller goes on.
void reportFailedAssertion(const char* source, int line, const char* condition);

/// Reports a condition that ought to hold and does not; the caller returns its failure value.
void reportFailedAttention(const char* source, int line, const char* condition);

/// The first piece of an assertion with values; see reportFailedAssertionWithValues().
void beginAssertionWithValues(const char* source, int line, const char* condition)
    KESTROVA_REQUIRES(printLock);

/// Reports a failed assertion with the caller's own pieces behind it, such as " opt=", option.
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
