// SPDX-License-Identifier: MIT
#ifndef KESTROVA_TESTS_SUPPORT_CAPTURE_H
#define KESTROVA_TESTS_SUPPORT_CAPTURE_H

#include <string>

namespace tests {

/// Captures everything that any thread or child writes to descriptors 1 and 2 during a scope, in
/// memory. Restores the streams at the end of the scope, and prints the captured text there if the
/// test has failed by then. Cannot be nested.
class Capture {
public:
    Capture();
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    /// Returns everything written to standard output so far.
    std::string output() const;
    /// Returns everything written to standard error so far.
    std::string errors() const;

private:
    /// One standard stream that is redirected to memory.
    class Stream {
    public:
        Stream(int descriptor, const char* name);
        ~Stream();
        Stream(const Stream&) = delete;
        Stream& operator=(const Stream&) = delete;
        std::string text() const;
        void showAtEnd() { mShowAtEnd = true; }

    private:
        int mDescriptor;
        int mSaved;
        int mMemory;
        bool mShowAtEnd = false;
    };

    Stream mOutput;
    Stream mErrors;
};

}  // namespace tests

#endif
