// SPDX-License-Identifier: MIT
//
// The command's own parser of boot environment files. It shares no code with the library on
// purpose, so that it can verify the library's files independently.
#ifndef KESTROVA_APP_COMMANDS_VARS_BOOTIMAGE_H
#define KESTROVA_APP_COMMANDS_VARS_BOOTIMAGE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "app/cli/result.h"

namespace app {

class Interrupts;

/// A remark about a position in a file.
struct BootImageRemark {
    std::size_t mOffset;
    std::string mText;
};

/// Result of a check.
struct BootImage {
    std::size_t mVariables = 0;              ///< complete records
    std::vector<BootImageRemark> mProblems;  ///< errors that lose variables, or may lose them
    std::vector<BootImageRemark> mNotes;     ///< unusual, but harmless
};

/// Size of the largest file that can be an environment.
constexpr std::size_t kLargestBootImage = 65536;

/// Checks an image from its first to its last byte; continues after a problem if that is possible.
BootImage checkBootImage(std::string_view image);

/// Reads at most `limit` bytes of a file or a pipe; blocks for a pipe. With `interrupts` a signal
/// ends the read with eCancelled. A missing file is eAbsent. The message does not name the file.
Result readContent(const std::string& path, std::size_t limit, const Interrupts* interrupts,
                   std::string& content);

}  // namespace app

#endif
