// SPDX-License-Identifier: MIT
//
// What a holder writes into its lock file: lines of text in a record of fixed size.
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

/// The text cut to `longest` bytes between two UTF-8 characters, with '?' for control characters.
std::string fieldText(std::string_view text, std::size_t longest);

/// The record's kRecordSize bytes. Its texts are those of fieldText().
std::string formatRecord(const Record& record);

/// Reads a record. False when any byte is not as formatRecord() would have written it; a checksum
/// shows a record that was read while its holder wrote the next one.
bool parseRecord(std::string_view bytes, Record& record);

}  // namespace resourcelock

#endif
