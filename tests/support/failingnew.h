// SPDX-License-Identifier: MIT
//
// Not in the library of what tests share: only a program that has this source gets its allocation.
#ifndef KESTROVA_TESTS_SUPPORT_FAILINGNEW_H
#define KESTROVA_TESTS_SUPPORT_FAILINGNEW_H

namespace tests {

/// The program's own operator new, told to have no memory for one allocation of this thread.
class FailingNew {
public:
    /// The nth allocation from now fails; 0 for none, to count only.
    explicit FailingNew(int nth);
    ~FailingNew();
    FailingNew(const FailingNew&) = delete;
    FailingNew& operator=(const FailingNew&) = delete;

    /// No allocation fails from here on.
    void stop();

    /// Allocations since the construction.
    int count() const;
    /// Pieces of memory taken since the construction and not given back.
    int alive() const;

    /// What a test's own function needs meanwhile neither fails nor counts.
    class Pause {
    public:
        Pause();
        ~Pause();
        Pause(const Pause&) = delete;
        Pause& operator=(const Pause&) = delete;
    };
};

}  // namespace tests

#endif
