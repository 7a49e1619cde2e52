// SPDX-License-Identifier: MIT
//
// The record that a holder writes to its lock file: lines of text, padded to a fixed size.
#ifndef KESTROVA_SYSTEM_RESOURCELOCK_LOCKRECORD_H
#define KESTROVA_SYSTEM_RESOURCELOCK_LOCKRECORD_H

#include <cstddef>
#include <string>
#include <string_view>

namespace resourcelock {

constexpr std::size_t kRecordSize = 512;
constexpr std::size_t kLongestCommand = 128;
constexpr std::size_t kLongestState = 64;

struct Record {
    int mPid = 0;
    long long mSince = 0;  ///< seconds since 1970
    bool mShared = false;
    std::string mCommand;
    std::string mState;
    int mPercent = 0;
};

/// Returns the text, truncated to `longest` bytes at a UTF-8 character boundary, with '?' for
/// control characters.
std::string fieldText(std::string_view text, std::size_t longest);

/// Returns the kRecordSize bytes of a record, whose texts come from fieldText().
std::string formatRecord(const Record& record);

/// Parses a record. Returns false if any byte differs from the result of formatRecord(). The
/// checksum detects a record that was read while its holder wrote the next one.
bool parseRecord(std::string_view bytes, Record& record);

}  // namespace resourcelock

#endif
