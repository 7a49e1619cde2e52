// SPDX-License-Identifier: MIT
//
// The variables in the file's format behave like an ordered map.
#include "System/bootvarsmanager/bootvariables.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

#include "tests/unit/System/bootvarsmanager/bootbox.h"

using tests::areaOf;
using tests::toText;
using tests::Variables;

namespace {

constexpr std::size_t kHeader = 12;

std::vector<char> imageWith(const std::string& area) {
    std::vector<char> image(kHeader, 'h');
    image.insert(image.end(), area.begin(), area.end());
    return image;
}

std::string textOf(const BootVariables& vars) {
    Variables found;
    std::string previous;
    for (std::size_t place = 0; place < vars.count(); ++place) {
        const BootRecord record = vars.at(place);
        EXPECT_TRUE(place == 0 || previous < record.mKey);
        previous = record.mKey;
        found[previous] = record.mValue;
        BootRecord same;
        EXPECT_TRUE(vars.find(record.mKey, same));
        EXPECT_EQ(same.mValue.data(), record.mValue.data());
        EXPECT_EQ(record.mValue.data()[record.mValue.size()], '\0');
    }
    EXPECT_EQ(found.size(), vars.count());
    return toText(found);
}

std::string areaIn(BootVariables& vars) {
    const std::vector<char>& image = vars.image();
    return image.empty() ? "" : std::string(image.begin() + kHeader, image.end());
}

void assign(BootVariables& vars, const std::string& area) {
    vars.assign(imageWith(area), area.size());
}

/// Bytes of a few kinds, so that keys repeat and records are often malformed.
std::string randomText(std::mt19937& random, std::size_t most, const char* letters,
                       std::size_t count) {
    std::string text(random() % (most + 1), '\0');
    for (char& byte : text) {
        byte = letters[random() % count];
    }
    return text;
}

}  // namespace

TEST(BootVariables, AreEmptyAtFirst) {
    BootVariables vars(kHeader, 100);
    BootRecord record;
    EXPECT_EQ(vars.count(), 0U);
    EXPECT_FALSE(vars.find("", record));
    EXPECT_TRUE(vars.fits());
    vars.set("a", "");
    EXPECT_EQ(areaIn(vars), "");
    vars.set("a", "x");
    EXPECT_EQ(areaIn(vars), std::string("a\0x\0\0", 5));
}

TEST(BootVariables, RecordsInAnyOrderAreSortedAndTheLaterOneCounts) {
    BootVariables vars(kHeader, 100);
    assign(vars, std::string("b\0y\0\0a\0x\0\0b\0z\0\0a\0\0\0c\0v\0", 23));
    EXPECT_EQ(textOf(vars), "a=;b=z;");
    EXPECT_EQ(areaIn(vars), std::string("a\0\0\0b\0z\0\0", 9));
    vars.set("c", "w");
    EXPECT_EQ(areaIn(vars), areaOf({{"b", "z"}, {"c", "w"}}));
}

TEST(BootVariables, WhatIsMalformedIsNotKept) {
    BootVariables vars(kHeader, 100);
    assign(vars, areaOf({{"a", "x"}}) + std::string("b\0y\0z", 5));
    EXPECT_EQ(areaIn(vars), areaOf({{"a", "x"}}));
}

TEST(BootVariables, TheRoomCanBeUsedToItsEnd) {
    BootVariables vars(kHeader, 20);
    vars.set("a", "12345");    // 9 bytes
    vars.set("b", "1234567");  // 11
    EXPECT_TRUE(vars.fits());
    EXPECT_EQ(areaIn(vars).size(), 20U);
    vars.set("a", "123456");
    EXPECT_FALSE(vars.fits());
    EXPECT_EQ(textOf(vars), "a=12345;b=1234567;");
}

TEST(BootVariables, ARemovedVariableMakesRoom) {
    BootVariables vars(kHeader, 21);
    assign(vars, std::string("a\0\0\0b\0"
                             "123456789\0\0",
                             17));
    vars.set("c", "1234");  // fits if only the empty one is removed
    EXPECT_TRUE(vars.fits());
    EXPECT_EQ(textOf(vars), "b=123456789;c=1234;");
}

TEST(BootVariables, BehaveAsAMapInRandomUse) {
    std::mt19937 random(20090412);
    for (int round = 0; round < 3000; ++round) {
        const std::size_t room = 10 + random() % 60;
        BootVariables vars(kHeader, room);
        Variables model;
        if (random() % 4 != 0) {
            const std::string area = randomText(random, room, "\0\0ab", 4);
            assign(vars, area);
            std::string_view rest = area;
            for (BootRecord record; takeRecord(rest, record);) {
                model[std::string(record.mKey)] = record.mValue;
            }
            ASSERT_EQ(textOf(vars), toText(model)) << testing::PrintToString(area);
        }
        for (int change = 0; change < 12; ++change) {
            const std::string key = randomText(random, 2, "abc", 3);
            const std::string value =
                random() % 3 == 0 ? "" : randomText(random, room / 3, "xyz", 3);
            for (auto at = model.begin(); at != model.end();) {
                at = at->second.empty() ? model.erase(at) : std::next(at);
            }
            Variables changed = model;
            changed.erase(key);
            if (!value.empty()) {
                changed[key] = value;
            }
            const bool fits = vars.fits() && areaOf(changed).size() <= room;
            vars.set(key, value);
            model = areaOf(changed).size() <= room ? changed : model;
            ASSERT_EQ(vars.fits(), fits);
            ASSERT_EQ(textOf(vars), toText(model));
            ASSERT_EQ(areaIn(vars), areaOf(model));
        }
    }
}
