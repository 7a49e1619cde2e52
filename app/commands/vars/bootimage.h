// SPDX-License-Identifier: MIT
//
// The command's own reader of boot environment files. It shares nothing with the library on
// purpose: it is the second opinion when the library cannot, or should not, be asked.
#ifndef KESTROVA_APP_COMMANDS_VARS_BOOTIMAGE_H
#define KESTROVA_APP_COMMANDS_VARS_BOOTIMAGE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "app/cli/result.h"

namespace app {

class Interrupts;

/// Something at a place of a file.
struct BootImageRemark {
    std::size_t mOffset;
    std::string mText;
};

/// What is to say about an image.
struct BootImage {
    std::size_t mVariables = 0;              ///< whole records
    std::vector<BootImageRemark> mProblems;  ///< because of these variables are or may be lost
    std::vector<BootImageRemark> mNotes;     ///< unusual, without harm
};

/// The largest file that is an environment.
constexpr std::size_t kLargestBootImage = 65536;

/// Checks an image from its first to its last byte; goes on behind a problem where that makes
/// sense.
BootImage checkBootImage(std::string_view image);

/// Reads at most `limit` bytes of a file, also of a pipe, for which it blocks. With `interrupts` a
/// signal ends that with eCancelled. A file that does not exist is eAbsent. The message names no
/// file.
Result readContent(const std::string& path, std::size_t limit, const Interrupts* interrupts,
                   std::string& content);

}  // namespace app

#endif
