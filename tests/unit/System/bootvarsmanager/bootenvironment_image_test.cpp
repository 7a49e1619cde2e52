// SPDX-License-Identifier: MIT
//
// The library's files parsed by an independent reader of the format, and the reverse.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <sstream>

#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/bootvarsmanager/bootbox.h"

using tests::BootBox;
using tests::inSandbox;
using tests::kPrimaryFile;
using tests::listed;
using tests::readFile;
using tests::Sandbox;
using tests::toText;
using tests::Variables;

namespace {

/// Runs a body in a sandbox that contains the script.
void withScript(const std::function<void()>& body) {
    const std::string script = readFile(KESTROVA_BOOT_IMAGE);
    ASSERT_NE(script, "");
    inSandbox([&](Sandbox& sandbox) {
        const tests::OutputLevel quiet(0);
        const BootBox box(sandbox);
        tests::writeFile("/tmp/bootimage.py", script);
        body();
    });
}

std::string hex(const std::string& bytes) {
    std::string text;
    for (const char byte : bytes) {
        char two[3];
        (void)std::snprintf(two, sizeof(two), "%02x", static_cast<unsigned char>(byte));
        text += two;
    }
    return text;
}

int script(const std::string& arguments) {
    return std::system(("/usr/bin/python3 /tmp/bootimage.py " + arguments + " >/tmp/said").c_str());
}

void writeByScript(const Variables& vars) {
    std::string words;
    for (const auto& [key, value] : vars) {
        words += " " + hex(key) + " " + hex(value);
    }
    EXPECT_EQ(script(std::string("write ") + kPrimaryFile + words), 0);
}

void expectScriptReads(const Variables& vars) {
    std::string lines;
    for (const auto& [key, value] : vars) {
        lines += hex(key) + " " + hex(value) + "\n";
    }
    EXPECT_EQ(script(std::string("read ") + kPrimaryFile), 0);
    EXPECT_EQ(readFile("/tmp/said"), lines);
}

std::string randomText(std::mt19937& random, std::size_t least, std::size_t most) {
    std::string text(least + random() % (most - least + 1), '\0');
    for (char& byte : text) {
        byte = static_cast<char>(1 + random() % 255);
    }
    return text;
}

Variables randomVariables(std::mt19937& random) {
    Variables vars;
    for (auto left = 1 + random() % 12; left > 0; --left) {
        vars[randomText(random, 1, 20)] = randomText(random, 1, 300);
    }
    return vars;
}

void expectWhole(const Variables& vars) {
    for (const auto& [key, value] : vars) {
        EXPECT_TRUE(sysBootVarsManager().setVarS(key.c_str(), value.c_str()));
    }
    EXPECT_EQ(listed(), toText(vars));
    expectScriptReads(vars);
}

}  // namespace

TEST(BootImageScript, ReadsWhatTheLibraryWrites) {
    for (const unsigned seed : {1U, 2U, 3U, 4U}) {
        withScript([seed] {
            std::mt19937 random(seed);
            expectWhole(randomVariables(random));
        });
    }
    withScript([] { expectWhole({{"largest", std::string(65514, 'v')}}); });
}

TEST(BootImageScript, TheLibraryReadsWhatItWrites) {
    withScript([] {
        std::mt19937 random(42);
        for (int round = 0; round < 8; ++round) {
            const Variables vars = randomVariables(random);
            writeByScript(vars);
            EXPECT_EQ(listed(), toText(vars));
            EXPECT_EQ(readFile(kPrimaryFile), tests::imageOf(vars));
        }
    });
}

TEST(BootImageScript, BothRewriteTheSameBytes) {
    withScript([] {
        writeByScript({{"a", "1"}, {"b", "2"}, {"c", ""}});
        const std::string written = readFile(kPrimaryFile);
        EXPECT_TRUE(sysBootVarsManager().setVarS("a", "1"));
        EXPECT_EQ(readFile(kPrimaryFile), written);
        EXPECT_TRUE(sysBootVarsManager().clearVar("a"));
        EXPECT_TRUE(sysBootVarsManager().clearVar("b"));
        writeByScript({});
        EXPECT_EQ(readFile(kPrimaryFile), tests::imageOf(""));
    });
}

TEST(BootImageScript, RefusesWhatTheLibraryRefuses) {
    withScript([] {
        const std::string good = tests::imageOf(Variables{{"name", "value"}});
        for (std::size_t byte = 0; byte < good.size(); ++byte) {
            std::string bad = good;
            bad[byte] = static_cast<char>(bad[byte] ^ 0x10);
            tests::writeFile(kPrimaryFile, bad);
            const bool accepted = script(std::string("check ") + kPrimaryFile) == 0;
            EXPECT_EQ(listed(), accepted ? "name=value;" : "") << byte;
            EXPECT_EQ(accepted, byte < 3) << byte;
        }
    });
}
