// SPDX-License-Identifier: MIT
//
// What the interposed functions answer in place of the kernel. An ioctl is answered by
// failingcalls::answerIoctl(), which the fake drives of the unit tests use.
#ifndef KESTROVA_TESTS_TORTURE_INTERPOSED_H
#define KESTROVA_TESTS_TORTURE_INTERPOSED_H

#include <functional>

namespace torture {

using MountAnswer =
    std::function<int(const char* device, const char* directory, unsigned long flags)>;

/// Answers the library's mount().
void answerMount(MountAnswer answer);
/// Removes every answer.
void resetAnswers();

}  // namespace torture

#endif
