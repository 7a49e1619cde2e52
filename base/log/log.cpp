// SPDX-License-Identifier: MIT
#include "base/log/log.h"

#include <pthread.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

#include "base/errnokeeper.h"
#include "base/log/console.h"
#include "base/text/boundedtext.h"
#include "base/threadsafety.h"

std::uint32_t kestrova_debug_output_level = 1;

// A plain pthread mutex needs neither a constructor nor a destructor.
base::PrintLock base::printLock = PTHREAD_MUTEX_INITIALIZER;

using base::printLock;

namespace {

struct PrintHolder {
    bool mHolds;
    int mCancelState;
};
thread_local PrintHolder printHolder = {false, PTHREAD_CANCEL_ENABLE};

/// Collects one message so that it is written with one write(). A short message stays on the stack;
/// if no memory is available for a longer one, its beginning is printed.
class MessageText {
public:
    MessageText() = default;
    ~MessageText() {
        if (mpText != mShort) {
            delete[] mpText;
        }
    }
    MessageText(const MessageText&) = delete;
    MessageText& operator=(const MessageText&) = delete;

    void append(const char* text) {
        const std::size_t wanted = std::strlen(text);
        if (wanted >= mCapacity - mLength) {
            (void)grow(mLength + wanted + 1);
        }
        const std::size_t length = std::min(wanted, mCapacity - mLength - 1);
        std::memcpy(mpText + mLength, text, length);
        mLength += length;
    }

    void appendList(const char* format, va_list arguments) __attribute__((format(printf, 2, 0))) {
        va_list again;
        va_copy(again, arguments);
        const int needed =
            kestrova_vsnprintf(mpText + mLength, mCapacity - mLength, format, arguments);
        if (needed > 0) {
            const auto wanted = static_cast<std::size_t>(needed);
            if (wanted >= mCapacity - mLength && grow(mLength + wanted + 1)) {
                (void)kestrova_vsnprintf(mpText + mLength, mCapacity - mLength, format, again);
            }
            mLength += std::min(wanted, mCapacity - mLength - 1);
        }
        va_end(again);
    }

    void print() const { base::writeConsole(mpText, mLength); }

private:
    bool grow(std::size_t capacity) {
        char* const larger = new (std::nothrow) char[capacity];
        if (larger == nullptr) {
            return false;
        }
        std::memcpy(larger, mpText, mLength);
        if (mpText != mShort) {
            delete[] mpText;
        }
        mpText = larger;
        mCapacity = capacity;
        return true;
    }

    char mShort[512];
    char* mpText = mShort;
    std::size_t mCapacity = sizeof(mShort);
    std::size_t mLength = 0;
};

/// Prints a message whose level has already been checked. A message of several parts checks it
/// once, so that a level that another thread lowers meanwhile does not truncate the message.
__attribute__((format(printf, 4, 0))) void printList(const char* prefix1, const char* prefix2,
                                                     const char* prefix3, const char* format,
                                                     va_list arguments)
    KESTROVA_REQUIRES(printLock) {
    const base::ErrnoKeeper keeper;
    MessageText message;
    for (const char* const prefix : {prefix1, prefix2, prefix3}) {
        message.append(prefix);
    }
    message.appendList(format, arguments);
    message.print();
}

__attribute__((format(printf, 4, 5))) void print(const char* prefix1, const char* prefix2,
                                                 const char* prefix3, const char* format, ...)
    KESTROVA_REQUIRES(printLock) {
    va_list arguments;
    va_start(arguments, format);
    printList(prefix1, prefix2, prefix3, format, arguments);
    va_end(arguments);
}

constexpr char kContext[] = "%s:%d (level %u):\n";

}  // namespace

int getprintaccess() {
    if (printHolder.mHolds) {
        return 0;
    }
    const base::ErrnoKeeper keeper;
    int cancelState = PTHREAD_CANCEL_ENABLE;
    (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState);
    if (pthread_mutex_lock(&printLock) != 0) {
        (void)pthread_setcancelstate(cancelState, nullptr);
        return 0;
    }
    printHolder = {true, cancelState};
    return 1;
}

void releaseprintaccess() {
    const base::ErrnoKeeper keeper;
    const int cancelState = printHolder.mCancelState;
    printHolder.mHolds = false;
    (void)pthread_mutex_unlock(&printLock);
    (void)pthread_setcancelstate(cancelState, nullptr);
}

void kestrova_print_context_file_line(const char* file, int line, unsigned level, int /*reserved*/,
                                      const char* prefix1, const char* prefix2,
                                      const char* prefix3) {
    if (base::levelEnabled(level)) {
        print(prefix1, prefix2, prefix3, kContext, file, line, level);
    }
}

void kestrova_print_with_level(unsigned level, const char* prefix1, const char* prefix2,
                               const char* prefix3, const char* format, ...) {
    if (!base::levelEnabled(level)) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    printList(prefix1, prefix2, prefix3, format, arguments);
    va_end(arguments);
}

const char* KestrovaThreadThisName() {
    thread_local char name[16];  // the kernel's limit, including the terminator
    if (pthread_getname_np(pthread_self(), name, sizeof(name)) != 0) {
        return "unknown";
    }
    return name;
}

namespace base {

bool levelEnabled(unsigned level) {
    return __atomic_load_n(&kestrova_debug_output_level, __ATOMIC_RELAXED) >= level;
}

bool beginMessageAt(const char* source, int line, unsigned level) {
    if (!levelEnabled(level)) {
        return false;
    }
    print("", "", "", kContext, source, line, level);
    return true;
}

void logMessage(unsigned level, const char* format, ...) {
    const PrintAccess access;
    if (!levelEnabled(level)) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    printList("", "", "", format, arguments);
    va_end(arguments);
}

void logBytes(unsigned level, const char* bytes, std::size_t length) {
    const PrintAccess access;
    if (levelEnabled(level)) {
        writeConsole(bytes, length);
    }
}

void logMessageAt(const char* source, int line, unsigned level, const char* format, ...) {
    const PrintAccess access;
    if (!beginMessageAt(source, line, level)) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    printList("", "", "", format, arguments);
    va_end(arguments);
}

void logNameAt(const char* source, int line, unsigned level, const char* introduction,
               const std::string& name) {
    const PrintAccess access;
    if (beginMessageAt(source, line, level)) {
        *pCoutKestrovaOstream << introduction << name << "\n";
    }
}

void reportFailedAssertion(const char* source, int line, const char* condition) {
    {
        const PrintAccess access;
        kestrova_print_with_level(1, "", "", "",
                                  "%s:%d Assertion `%s' failed (calling task: %s).\n", source, line,
                                  condition, KestrovaThreadThisName());
    }
    fassert_point_fired();
}

void reportFailedAttention(const char* source, int line, const char* condition) {
    {
        const PrintAccess access;
        kestrova_print_with_level(2, "", "", "",
                                  "%s:%d Attention `%s' failed (calling task: %s).\n", source, line,
                                  condition, KestrovaThreadThisName());
    }
    fcheck_point_fired(source, line, 2, "", "", "");
}

void beginAssertionWithValues(const char* source, int line, const char* condition) {
    pCoutKestrovaOstream->setBase(10);
    *pCoutKestrovaOstream << source << ":" << line << " Assertion `" << condition
                          << "' failed (calling task: " << KestrovaThreadThisName() << ").\n";
}

}  // namespace base
