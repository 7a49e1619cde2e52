// SPDX-License-Identifier: MIT
//
// Not part of the shared support library, so that only a program with this source gets this
// allocator.
#ifndef KESTROVA_TESTS_SUPPORT_FAILINGNEW_H
#define KESTROVA_TESTS_SUPPORT_FAILINGNEW_H

namespace tests {

/// Replaces operator new, and makes one allocation of this thread fail.
class FailingNew {
public:
    /// Makes the nth allocation from now fail; 0 only counts.
    explicit FailingNew(int nth);
    ~FailingNew();
    FailingNew(const FailingNew&) = delete;
    FailingNew& operator=(const FailingNew&) = delete;

    /// Lets all further allocations succeed.
    void stop();

    /// Returns the number of allocations since the construction.
    int count() const;
    /// Returns the number of blocks allocated since the construction and not freed.
    int alive() const;

    /// Allocations of a test's own function in this scope neither fail nor count.
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
