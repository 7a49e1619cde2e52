// SPDX-License-Identifier: MIT
#include "System/drivemanager/tools/toolprogress.h"

#include <cstring>

#include "base/text/scanner.h"

namespace drivemanager {

namespace {

constexpr char kTablesText[] = "Writing inode tables:";

/// The progress within the inode tables. The product wraps as on a 32-bit machine.
std::int32_t tablesProgress(std::int32_t done, std::int32_t total) {
    constexpr std::uint32_t width = kFormatTablesWritten - kFormatInodeTables;
    const auto product = static_cast<std::int32_t>(static_cast<std::uint32_t>(done) * width);
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(product / total) +
                                     static_cast<std::uint32_t>(kFormatInodeTables));
}

}  // namespace

bool FormatOutput::take(char character, std::int32_t& progress) {
    if (character != '\b' && character != '\n' && character != '\r') {
        if (mLength + 1 < sizeof(mPiece)) {
            mPiece[mLength++] = character;
        }
        return false;
    }
    if (mLength == 0) {
        return false;
    }
    mPiece[mLength] = '\0';
    mLength = 0;
    return takePiece(progress);
}

bool FormatOutput::takePiece(std::int32_t& progress) {
    switch (mPhase) {
        case Phase::eBeforeTables:
            if (std::strncmp(mPiece, kTablesText, sizeof(kTablesText) - 1) != 0) {
                return false;
            }
            mPhase = Phase::eInTables;
            progress = kFormatInodeTables;
            return true;
        case Phase::eInTables: {
            base::Scanner counter(mPiece);
            std::int32_t done = 0;
            std::int32_t total = 0;
            if (!counter.signedNumber(done) || !counter.literal("/") ||
                !counter.signedNumber(total)) {
                mPhase = Phase::eAfterTables;
                progress = kFormatTablesWritten;
                return true;
            }
            if (total <= 0) {
                return false;
            }
            progress = tablesProgress(done, total);
            return true;
        }
        case Phase::eAfterTables:
            break;
    }
    return false;
}

bool checkProgress(const char* line, std::int32_t& progress) {
    constexpr std::uint32_t whole = kProgressDone;
    constexpr std::uint32_t passes = 5;

    base::Scanner numbers(line);
    std::uint32_t pass = 0;
    std::uint32_t current = 0;
    std::uint32_t maximum = 0;
    if (!numbers.unsignedNumber(pass) || !numbers.unsignedNumber(current) ||
        !numbers.unsignedNumber(maximum) || maximum == 0) {
        return false;
    }
    progress = static_cast<std::int32_t>((pass * whole - whole) / passes +
                                         current * whole / passes / maximum);
    return true;
}

}  // namespace drivemanager
