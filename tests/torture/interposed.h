// SPDX-License-Identifier: MIT
//
// Answers of the interposed functions in place of the kernel. failingcalls::answerIoctl(), which
// the fake drives of the unit tests use, answers an ioctl.
#ifndef KESTROVA_TESTS_TORTURE_INTERPOSED_H
#define KESTROVA_TESTS_TORTURE_INTERPOSED_H

#include <functional>

namespace torture {

using MountAnswer =
    std::function<int(const char* device, const char* directory, unsigned long flags)>;

/// Replaces the library's mount().
void answerMount(MountAnswer answer);
/// Removes every answer.
void resetAnswers();

}  // namespace torture

#endif
