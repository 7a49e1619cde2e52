// SPDX-License-Identifier: MIT
//
// Reads progress out of what the ext tools print while they work. All figures are in thousandths of
// a per cent and in 32-bit arithmetic that wraps around, whatever the machine.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_TOOLS_TOOLPROGRESS_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_TOOLS_TOOLPROGRESS_H

#include <cstddef>
#include <cstdint>

namespace drivemanager {

/// The stations of a format, as a screen sees them.
constexpr std::int32_t kFormatOpened = 10000;
constexpr std::int32_t kFormatInodeTables = 20000;
constexpr std::int32_t kFormatTablesWritten = 70000;
constexpr std::int32_t kFormatOutputEnded = 90000;
constexpr std::int32_t kProgressDone = 100000;

/// Follows the output of mkfs.ext3. The tool redraws its counter in place with backspaces, so a
/// backspace ends a piece as a line end does.
class FormatOutput {
public:
    /// Takes one character. True when it ended a piece that tells a new progress, left in
    /// `progress`.
    bool take(char character, std::int32_t& progress);

private:
    enum class Phase { eBeforeTables, eInTables, eAfterTables };

    bool takePiece(std::int32_t& progress);

    char mPiece[255] = {};  // what is longer is cut; only the beginning of a piece is looked at
    std::size_t mLength = 0;
    Phase mPhase = Phase::eBeforeTables;
};

/// Reads a progress line of fsck.ext3, "pass current maximum". False, with `progress` untouched,
/// for other lines and for a maximum of 0.
bool checkProgress(const char* line, std::int32_t& progress);

}  // namespace drivemanager

#endif
