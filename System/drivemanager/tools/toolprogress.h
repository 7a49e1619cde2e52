// SPDX-License-Identifier: MIT
//
// Derives progress from the output of the ext tools. All values are in thousandths of a per cent,
// in 32-bit arithmetic that wraps around on every machine.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_TOOLS_TOOLPROGRESS_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_TOOLS_TOOLPROGRESS_H

#include <cstddef>
#include <cstdint>

namespace drivemanager {

/// The milestones of a format.
constexpr std::int32_t kFormatOpened = 10000;
constexpr std::int32_t kFormatInodeTables = 20000;
constexpr std::int32_t kFormatTablesWritten = 70000;
constexpr std::int32_t kFormatOutputEnded = 90000;
constexpr std::int32_t kProgressDone = 100000;

/// Parses the output of mkfs.ext3. The tool redraws its counter in place with backspaces, so a
/// backspace ends a piece like a line end.
class FormatOutput {
public:
    /// Consumes one character. Returns true if it ended a piece with a new progress value, which is
    /// stored in `progress`.
    bool take(char character, std::int32_t& progress);

private:
    enum class Phase { eBeforeTables, eInTables, eAfterTables };

    bool takePiece(std::int32_t& progress);

    char mPiece[255] = {};  // longer pieces are truncated; only the beginning of a piece is
                            // examined
    std::size_t mLength = 0;
    Phase mPhase = Phase::eBeforeTables;
};

/// Parses a progress line of fsck.ext3, "pass current maximum". Returns false, with `progress`
/// unchanged, for other lines and for a maximum of 0.
bool checkProgress(const char* line, std::int32_t& progress);

}  // namespace drivemanager

#endif
