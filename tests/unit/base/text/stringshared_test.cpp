// SPDX-License-Identifier: MIT
#include "base/text/stringshared.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

std::string textOf(const KestrovaConstStringInterface& string) {
    return {string.data(), string.length()};
}

TEST(StringSharedTest, NewOnesShareTheEmptyRepresentation) {
    const KestrovaStringShared one;
    const KestrovaStringShared two("", 0);
    const KestrovaStringShared three(nullptr, 0);
    EXPECT_EQ(0U, one.length());
    EXPECT_STREQ("", one.data());
    EXPECT_EQ(KestrovaStringShared::smEmpty.mpBytes, one.data());
    EXPECT_EQ(one.data(), two.data());
    EXPECT_EQ(one.data(), three.data());
}

TEST(StringSharedTest, HoldsAnyBytesAndTerminatesThem) {
    const std::string bytes("a\0b\xff", 4);
    const KestrovaStringShared string(bytes.data(), bytes.size());
    EXPECT_EQ(4U, string.length());
    EXPECT_EQ(bytes, textOf(string));
    EXPECT_NE(bytes.data(), string.data());
    EXPECT_EQ('\0', string.data()[4]);
}

TEST(StringSharedTest, CopiesShareTheirBytes) {
    const KestrovaStringShared first("shared", 6);
    const KestrovaStringShared second(first);
    KestrovaStringShared third;
    third = second;
    EXPECT_EQ(first.data(), second.data());
    EXPECT_EQ(first.data(), third.data());
    EXPECT_EQ("shared", textOf(third));
}

TEST(StringSharedTest, LastCopyKeepsTheBytes) {
    KestrovaStringShared last;
    {
        const KestrovaStringShared first("kept", 4);
        last = first;
    }
    EXPECT_EQ("kept", textOf(last));
}

TEST(StringSharedTest, ClearingOneLeavesTheOthers) {
    KestrovaStringShared first("bytes", 5);
    const KestrovaStringShared second(first);
    first.clear();
    EXPECT_EQ(0U, first.length());
    EXPECT_EQ(KestrovaStringShared::smEmpty.mpBytes, first.data());
    EXPECT_EQ("bytes", textOf(second));
    first.clear();
    EXPECT_EQ(0U, first.length());
}

TEST(StringSharedTest, AssignmentReplacesAlsoItself) {
    KestrovaStringShared string("old", 3);
    const KestrovaStringShared other("new", 3);
    KestrovaStringShared& alias = string;
    string = alias;
    EXPECT_EQ("old", textOf(string));
    string = other;
    EXPECT_EQ("new", textOf(string));
    string = KestrovaStringShared();
    EXPECT_EQ(0U, string.length());
}

TEST(StringSharedTest, EmptyRepresentationIsNeverCounted) {
    const unsigned before = KestrovaStringShared::smEmpty.mReferences;
    {
        const KestrovaStringShared empty;
        KestrovaStringShared copy(empty);
        copy.clear();
        EXPECT_EQ(before, KestrovaStringShared::smEmpty.mReferences);
    }
    EXPECT_EQ(before, KestrovaStringShared::smEmpty.mReferences);
}

TEST(StringSharedTest, CopyingNeverThrows) {
    EXPECT_TRUE(std::has_virtual_destructor_v<KestrovaConstStringInterface>);
    EXPECT_TRUE(std::is_abstract_v<KestrovaConstStringInterface>);
    const KestrovaStringShared large(std::string(1000000, 'x').data(), 1000000);
    const KestrovaStringShared copy(large);
    EXPECT_EQ(large.data(), copy.data());
}

// The thread sanitizer and the address sanitizer check the reference count.
TEST(StringSharedTest, CopiesLiveInManyThreads) {
    std::vector<std::thread> threads;
    {
        const KestrovaStringShared original("many threads", 12);
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back([mine = original]() mutable {
                for (int round = 0; round < 2000; ++round) {
                    const KestrovaStringShared inner(mine);
                    KestrovaStringShared assigned;
                    assigned = inner;
                    ASSERT_EQ("many threads", textOf(assigned));
                }
                mine.clear();
            });
        }
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
