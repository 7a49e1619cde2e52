// SPDX-License-Identifier: MIT
#ifndef KESTROVA_TESTS_SUPPORT_CAPTURE_H
#define KESTROVA_TESTS_SUPPORT_CAPTURE_H

#include <string>

namespace tests {

/// Collects what is written to descriptors 1 and 2 during a scope, by whatever thread or child,
/// in memory. The streams are back at the end of the scope; when the test has failed by then, what
/// was collected follows there. Not to be nested.
class Capture {
public:
    Capture();
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    /// All that has been written to standard output so far.
    std::string output() const;
    /// All that has been written to standard error so far.
    std::string errors() const;

private:
    /// One standard stream that is led into memory.
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
