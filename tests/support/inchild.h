// SPDX-License-Identifier: MIT
#ifndef KESTROVA_TESTS_SUPPORT_INCHILD_H
#define KESTROVA_TESTS_SUPPORT_INCHILD_H

#include <functional>
#include <string>

namespace tests {

/// Runs a function in a child process, which may close, redirect and limit what it likes. Returns
/// the text that the function returned, or "exit status N" or "signal N" when the child ended
/// before it could say so. Usual form: EXPECT_EQ("", inChild([] { ...; return problem; })).
std::string inChild(const std::function<std::string()>& function);

/// Collects what a child finds wrong, where the test framework's own checks do not reach.
class Findings {
public:
    void expect(bool held, const char* what) {
        if (!held) {
            mText += std::string(what) + "; ";
        }
    }
    const std::string& text() const { return mText; }

private:
    std::string mText;
};

}  // namespace tests

#endif
