// SPDX-License-Identifier: MIT
//
// The text of NAME=VALUE lines: what is read, what is refused and where, and what is written.
#include "System/bootvarsmanager/environmenttext.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/unit/System/bootvarsmanager/bootbox.h"

namespace {

using Texts = KestrovaVector<std::string>;

/// Returns the settings of a text, "name=value;" each, or the problem.
std::string parsed(std::string_view text) {
    Texts names = {"kept"};
    Texts values = {"too"};
    std::string problem = "none";
    if (!parseSettings(text, names, values, problem)) {
        EXPECT_EQ(names, Texts{"kept"});
        EXPECT_EQ(values, Texts{"too"});
        return problem;
    }
    EXPECT_EQ(problem, "none");
    EXPECT_EQ(names.size(), values.size());
    std::string found;
    for (std::size_t i = 1; i < names.size(); ++i) {
        found.append(names[i]).append("=").append(values[i]).append(";");
    }
    return found;
}

/// Returns the line of a variable, or the problem.
std::string formatted(std::string_view name, std::string_view value) {
    std::string text = "kept\n";
    std::string problem;
    if (!appendSetting(name, value, text, problem)) {
        EXPECT_EQ(text, "kept\n");
        return problem;
    }
    return text.substr(5);
}

}  // namespace

TEST(EnvironmentText, ReadsALineForEachSetting) {
    EXPECT_EQ(parsed(""), "");
    EXPECT_EQ(parsed("\n\n"), "");
    EXPECT_EQ(parsed("a=1\nb=2\n"), "a=1;b=2;");
    EXPECT_EQ(parsed("a=1\nb=2"), "a=1;b=2;");
    EXPECT_EQ(parsed("a=1\n# a comment \\\n\n#\nb=2"), "a=1;b=2;");
    EXPECT_EQ(parsed("b=2\na=1\nb=3\n"), "b=2;a=1;b=3;");
    EXPECT_EQ(parsed("removed=\n"), "removed=;");
}

TEST(EnvironmentText, TheValueIsTakenAsItIs) {
    EXPECT_EQ(parsed("a= \"x\" # y \r\n"), "a= \"x\" # y \r;");
    EXPECT_EQ(parsed("a=b=c==\n"), "a=b=c==;");
    EXPECT_EQ(parsed(" a =1"), " a =1;");
    EXPECT_EQ(parsed("a=\\x\\\\y\n"), "a=\\x\\\\y;");
    EXPECT_EQ(parsed("a=\xff\x01\n"), "a=\xff\x01;");
}

TEST(EnvironmentText, ABackslashAtTheEndContinuesTheValue) {
    EXPECT_EQ(parsed("a=1\\\n2\nb=3"), "a=1\n2;b=3;");
    EXPECT_EQ(parsed("a=\\\n\\\n#x\nb=3"), "a=\n\n#x;b=3;");
    EXPECT_EQ(parsed("a=1\\\n\nb=3"), "a=1\n;b=3;");
    EXPECT_EQ(parsed("a=1\\\\\n2"), "a=1\\\n2;");
}

TEST(EnvironmentText, SaysWhichLineIsMalformed) {
    EXPECT_EQ(parsed("a=1\n\nb\n"), "line 3: there is no '=' between name and value");
    EXPECT_EQ(parsed("a=1\\\n2\n#\n b"), "line 4: there is no '=' between name and value");
    EXPECT_EQ(parsed("=1"), "line 1: the name is empty");
    EXPECT_EQ(parsed("="), "line 1: the name is empty");
    EXPECT_EQ(parsed("a\\\nb=1"), "line 1: the name holds a line end");
    EXPECT_EQ(parsed(std::string_view("a=1\nb=\0\n", 8)), "line 2: the value holds a NUL byte");
    EXPECT_EQ(parsed(std::string_view("\0=1\n", 4)), "line 1: the name holds a NUL byte");
    EXPECT_EQ(parsed("a=1\\"), "line 1: nothing follows the backslash at the end of the text");
    EXPECT_EQ(parsed("#\na=1\\\n2\\\n"),
              "line 2: nothing follows the backslash at the end of the text");
}

TEST(EnvironmentText, WritesALine) {
    EXPECT_EQ(formatted("a", "1"), "a=1\n");
    EXPECT_EQ(formatted(" a", " b=c "), " a= b=c \n");
    EXPECT_EQ(formatted("a", "1\n\n2\n"), "a=1\\\n\\\n2\\\n\n");
    EXPECT_EQ(formatted("a", "\\x"), "a=\\x\n");
}

TEST(EnvironmentText, RefusesWhatALineCannotHold) {
    EXPECT_EQ(formatted("", "1"), "the name is empty");
    EXPECT_EQ(formatted("a=b", "1"), "the name holds '='");
    EXPECT_EQ(formatted("a\nb", "1"), "the name holds a line end");
    EXPECT_EQ(formatted("#a", "1"), "the name starts with '#', as a comment does");
    EXPECT_EQ(formatted("a", "1\\"),
              "the value ends with a backslash, which would continue the line");
}

TEST(EnvironmentText, RefusesSettings) {
    EXPECT_EQ(settingsProblem({}, {}), "");
    EXPECT_EQ(settingsProblem({"a", "b"}, {"1", ""}), "");
    EXPECT_EQ(settingsProblem({"a", "b"}, {"1"}), "there are 2 names and 1 values");
    EXPECT_EQ(settingsProblem({"a", ""}, {"1", "2"}), "variable \"\": the name is empty");
    EXPECT_EQ(settingsProblem({"a=b"}, {"1"}), "variable \"a=b\": the name holds '='");
    EXPECT_EQ(settingsProblem({"a\nb"}, {"1"}), "variable \"a\nb\": the name holds a line end");
    const std::string nul(1, '\0');
    EXPECT_EQ(settingsProblem({"a"}, {nul}), "variable \"a\": the value holds a NUL byte");
    EXPECT_EQ(settingProblem(nul, ""), "the name holds a NUL byte");
    // Another writer may have set such a variable, so it can be removed.
    EXPECT_EQ(settingsProblem({"", "a=b", "a\nb"}, {"", "", ""}), "");
}

TEST(EnvironmentText, WritesSeveralOrNone) {
    std::string text = "before";
    std::string problem = "none";
    EXPECT_FALSE(formatSettings({"a", "#b"}, {"1", "2"}, text, problem));
    EXPECT_EQ(problem, "variable \"#b\": the name starts with '#', as a comment does");
    EXPECT_FALSE(formatSettings({"a"}, {}, text, problem));
    EXPECT_EQ(problem, "there are 1 names and 0 values");
    EXPECT_EQ(text, "before");
    EXPECT_TRUE(formatSettings({"a", "b"}, {"1", "2"}, text, problem));
    EXPECT_EQ(text, "a=1\nb=2\n");
}

TEST(EnvironmentText, WhatIsWrittenIsReadBack) {
    std::mt19937 random(7);
    const std::string bytes = "ab=#\\\n \r\xff";
    int written = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string name(1 + random() % 3, '\0');
        std::string value(1 + random() % 6, '\0');
        for (std::string* const text : {&name, &value}) {
            for (char& byte : *text) {
                byte = bytes[random() % bytes.size()];
            }
        }
        std::string line;
        std::string problem;
        if (appendSetting(name, value, line, problem)) {
            ++written;
            ASSERT_EQ(parsed("x=y\n" + line + "z=1"), "x=y;" + name + "=" + value + ";z=1;");
        }
    }
    EXPECT_GT(written, 5000);
}
