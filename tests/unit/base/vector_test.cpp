// SPDX-License-Identifier: MIT
#include "base/vector.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(VectorTest, GrowsAndKeepsItsElements) {
    KestrovaVector<int*> vector;
    EXPECT_EQ(vector.begin(), vector.end());
    int values[1000] = {};
    for (int& value : values) {
        vector.push_back(&value);
        ASSERT_GE(vector.capacity(), vector.size());
    }
    ASSERT_EQ(1000U, vector.size());
    int* const* element = &*vector.begin();
    for (int& value : values) {
        EXPECT_EQ(&value, *element++);
    }
}

TEST(VectorTest, HoldsStringsByValue) {
    KestrovaVector<std::string> vector;
    std::string text = "first";
    vector.push_back(text);
    text = "changed";
    EXPECT_EQ("first", vector.front());
}

}  // namespace
