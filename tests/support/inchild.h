// SPDX-License-Identifier: MIT
#ifndef KESTROVA_TESTS_SUPPORT_INCHILD_H
#define KESTROVA_TESTS_SUPPORT_INCHILD_H

#include <functional>
#include <string>

namespace tests {

/// Runs a function in a child process, which may close, redirect and limit anything. Returns the
/// text that the function returned, or "exit status N" or "signal N" if the child ended before it
/// could report. Typical use: EXPECT_EQ("", inChild([] { ...; return problem; })).
std::string inChild(const std::function<std::string()>& function);

/// Collects failed checks in a child, where the test framework's checks do not work.
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
