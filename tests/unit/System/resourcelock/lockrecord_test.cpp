// SPDX-License-Identifier: MIT
#include "System/resourcelock/lockrecord.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace {

using resourcelock::fieldText;
using resourcelock::formatRecord;
using resourcelock::kLongestCommand;
using resourcelock::kLongestState;
using resourcelock::kRecordSize;
using resourcelock::parseRecord;
using resourcelock::Record;

Record sample() {
    Record record;
    record.mPid = 812;
    record.mSince = 1795313731;
    record.mCommand = "kestrova shell";
    record.mState = "formatting";
    record.mPercent = 60;
    return record;
}

TEST(LockRecord, IsTextThatPeopleCanRead) {
    const std::string bytes = formatRecord(sample());
    ASSERT_EQ(kRecordSize, bytes.size());
    const std::string expected =
        "kestrova-lock 1\npid 812\nsince 1795313731\nmode exclusive\ncommand kestrova shell\n"
        "state formatting\npercent 60\ncheck ";
    EXPECT_EQ(expected, bytes.substr(0, expected.size()));
    const std::size_t end = expected.size() + 9;
    EXPECT_EQ(std::string(kRecordSize - end + 1, '\n'), bytes.substr(end - 1));
}

TEST(LockRecord, GivesBackWhatWasWritten) {
    Record record = sample();
    record.mPid = INT_MAX;
    record.mSince = LLONG_MAX;
    record.mShared = true;
    record.mCommand.assign(kLongestCommand, 'c');
    record.mState.assign(kLongestState, 's');
    record.mPercent = 100;
    const std::string bytes = formatRecord(record);
    ASSERT_EQ(kRecordSize, bytes.size());
    Record found;
    ASSERT_TRUE(parseRecord(bytes, found));
    EXPECT_EQ(bytes, formatRecord(found));
    EXPECT_TRUE(found.mShared);
    EXPECT_EQ(INT_MAX, found.mPid);
    EXPECT_EQ(LLONG_MAX, found.mSince);
}

TEST(LockRecord, EveryChangedBitAndEveryCutIsFound) {
    const std::string good = formatRecord(sample());
    Record found;
    ASSERT_TRUE(parseRecord(good, found));
    for (std::size_t i = 0; i < good.size(); ++i) {
        EXPECT_FALSE(parseRecord(good.substr(0, i), found)) << i;
        for (int bit = 0; bit < 8; ++bit) {
            std::string bad = good;
            bad[i] = static_cast<char>(static_cast<unsigned char>(bad[i]) ^ (1U << bit));
            EXPECT_FALSE(parseRecord(bad, found)) << i;
        }
    }
    EXPECT_FALSE(parseRecord(good + "\n", found));
    EXPECT_EQ(812, found.mPid);
}

TEST(LockRecord, FieldsThatNobodyWritesAreRefusedInSpiteOfTheirChecksum) {
    const auto refused = [](void (*change)(Record&)) {
        Record record = sample();
        change(record);
        return !parseRecord(formatRecord(record), record);
    };
    EXPECT_TRUE(refused([](Record& record) { record.mPid = 0; }));
    EXPECT_TRUE(refused([](Record& record) { record.mPid = -1; }));
    EXPECT_TRUE(refused([](Record& record) { record.mSince = -1; }));
    EXPECT_TRUE(refused([](Record& record) { record.mPercent = 101; }));
    EXPECT_TRUE(refused([](Record& record) { record.mPercent = -1; }));
    EXPECT_TRUE(refused([](Record& record) { record.mCommand.assign(kLongestCommand + 1, 'c'); }));
    EXPECT_TRUE(refused([](Record& record) { record.mState.assign(kLongestState + 1, 's'); }));
    EXPECT_TRUE(refused([](Record& record) { record.mState = "\x1b[2J"; }));
    EXPECT_TRUE(refused([](Record& record) { record.mCommand = "a\nstate b"; }));
    EXPECT_FALSE(refused([](Record& record) { record.mCommand.clear(); }));
}

TEST(LockRecord, TextIsCutBetweenCharactersAndHasNoControlCharacters) {
    EXPECT_EQ("a?b?c", fieldText("a\nb\x7f"
                                 "c",
                                 10));
    EXPECT_EQ("", fieldText("", 10));
    EXPECT_EQ("abcd", fieldText("abcdef", 4));
    EXPECT_EQ("abc", fieldText("abc\xc3\xa4", 4));
    EXPECT_EQ("abc\xc3\xa4", fieldText("abc\xc3\xa4", 5));
    EXPECT_EQ("", fieldText("\xe2\x82\xac", 2));
}

}  // namespace
