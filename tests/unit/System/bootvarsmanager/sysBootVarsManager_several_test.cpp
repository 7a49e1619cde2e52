// SPDX-License-Identifier: MIT
//
// Several boot variables in one rewrite of the file.
#include <gtest/gtest.h>
#include <unistd.h>

#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "tests/support/capture.h"
#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"
#include "tests/unit/System/bootvarsmanager/bootbox.h"

using failingcalls::Call;
using tests::BootBox;
using tests::imageOf;
using tests::inSandbox;
using tests::kBackupFile;
using tests::kPrimaryFile;
using tests::listed;
using tests::readFile;
using tests::Sandbox;
using tests::Variables;
using tests::writeFile;

namespace {

using Texts = KestrovaVector<std::string>;

const Variables kOld = {{"a", "1"}, {"b", "2"}, {"c", "3"}};

bool setQuietly(const Texts& names, const Texts& values) {
    const tests::OutputLevel quiet(0);
    return sysBootVarsManager().setVars(names, values);
}

void inBootBox(const char* options, const std::function<void(BootBox&)>& body) {
    inSandbox([&](Sandbox& sandbox) {
        const failingcalls::Scope scope;
        BootBox box(sandbox, options);
        writeFile(kPrimaryFile, imageOf(kOld));
        body(box);
    });
}

}  // namespace

TEST(BootVarsSeveral, AreSetAndRemovedInOneRewrite) {
    inBootBox("rw", [](BootBox& /*box*/) {
        const int renames = failingcalls::count(Call::eRename);
        EXPECT_TRUE(setQuietly({"d", "a", "b", "absent"}, {"4", "one", "", ""}));
        EXPECT_EQ(failingcalls::count(Call::eRename) - renames, 2);
        EXPECT_EQ(readFile(kPrimaryFile), imageOf(Variables{{"a", "one"}, {"c", "3"}, {"d", "4"}}));
        EXPECT_EQ(readFile(kBackupFile), imageOf(kOld));
    });
}

TEST(BootVarsSeveral, TheLaterOfTwoCounts) {
    inBootBox("rw", [](BootBox& /*box*/) {
        EXPECT_TRUE(setQuietly({"x", "a", "x", "a"}, {"1", "", "2", "new"}));
        EXPECT_EQ(listed(), "a=new;b=2;c=3;x=2;");
        EXPECT_TRUE(setQuietly({"x", "x"}, {"3", ""}));
        EXPECT_EQ(listed(), "a=new;b=2;c=3;");
    });
}

TEST(BootVarsSeveral, MountsAsASingleOneDoes) {
    for (const char* const options : {"rw", "ro", static_cast<const char*>(nullptr)}) {
        std::vector<std::string> several;
        inBootBox(options, [options](BootBox& box) {
            box.simulateMounts();
            EXPECT_TRUE(setQuietly({"a", "d"}, {"x", "y"}));
            const std::vector<std::string> calls = box.mountCalls();
            EXPECT_EQ(box.state(), options != nullptr ? options : "");
            const tests::OutputLevel quiet(0);
            EXPECT_TRUE(sysBootVarsManager().setVarS("a", "z"));
            const std::vector<std::string> all = box.mountCalls();
            EXPECT_EQ(
                std::vector<std::string>(all.begin() + static_cast<long>(calls.size()), all.end()),
                calls);
        });
    }
}

TEST(BootVarsSeveral, LogsEachSetting) {
    inBootBox("rw", [](BootBox& /*box*/) {
        const tests::Capture capture;
        EXPECT_TRUE(sysBootVarsManager().setVars({"d", "a"}, {"4", ""}));
        EXPECT_EQ(tests::withoutContext(capture.output()),
                  "Load env already stored\nMouting HDD mode:1\nis mouted 2 1 \n"
                  "Path: /boot-sw//boot_env\nSetting key d 4\nSetting key a \n"
                  "Saving Environment\nMouting HDD mode:2\nis mouted 2 2 \n"
                  "Created environment buffer of size 27\nPath: /boot-sw//boot_env.tmp\n"
                  "Moving /boot-sw//boot_env -> /boot-sw//boot_env.bkp\n"
                  "Moving /boot-sw//boot_env.tmp -> /boot-sw//boot_env\n");
        EXPECT_EQ(capture.errors(), "");
    });
}

TEST(BootVarsSeveral, ARefusedSettingChangesNothing) {
    const std::string nul("x\0y", 3);
    const std::pair<Texts, Texts> refused[] = {
        {{"d", ""}, {"4", "5"}},  {{"d", "e=f"}, {"4", "5"}}, {{"d", "e\nf"}, {"4", "5"}},
        {{"d", "e"}, {"4", nul}}, {{"d", nul}, {"4", "5"}},   {{"d", "e"}, {"4"}},
    };
    inBootBox("rw", [&](BootBox& /*box*/) {
        for (const auto& [names, values] : refused) {
            const int opened = failingcalls::count(Call::eOpen);
            const tests::Capture capture;
            EXPECT_FALSE(sysBootVarsManager().setVars(names, values));
            EXPECT_EQ(failingcalls::count(Call::eOpen), opened);
            EXPECT_EQ(tests::withoutContext(capture.output()).rfind("Settings refused: ", 0), 0U)
                << capture.output();
        }
        EXPECT_EQ(readFile(kPrimaryFile), imageOf(kOld));
    });
}

TEST(BootVarsSeveral, TheRoomIsCountedAtTheEnd) {
    inBootBox("rw", [](BootBox& /*box*/) {
        // Another 21 bytes of a, b and c would not fit as well, nor would z with the last one.
        const std::string most(65524 - 3 - 1 - 5, 'm');
        EXPECT_TRUE(setQuietly({"m", "a", "b", "c", "n"}, {most, "", "", "", "o"}));
        EXPECT_EQ(readFile(kPrimaryFile).size(), 65536U);
        EXPECT_FALSE(setQuietly({"n", "o"}, {"", "123"}));
        EXPECT_TRUE(setQuietly({"o", "n"}, {"1", ""}));
        EXPECT_TRUE(setQuietly({"z", "m"}, {most, ""}));
        EXPECT_EQ(listed(), "o=1;z=" + most + ";");
    });
}

TEST(BootVarsSeveral, WhatDoesNotFitChangesNothing) {
    inBootBox("rw", [](BootBox& /*box*/) {
        const tests::OutputLevel quiet(0);
        const tests::Capture capture;
        EXPECT_FALSE(sysBootVarsManager().setVars({"d", "e"}, {"4", std::string(65536, 'v')}));
        EXPECT_EQ(capture.errors(), "Environment too big for flash\n");
        EXPECT_EQ(readFile(kPrimaryFile), imageOf(kOld));
    });
}

TEST(BootVarsSeveral, WithoutAnEnvironmentTheyAreTheOnlyOnes) {
    inBootBox("rw", [](BootBox& /*box*/) {
        writeFile(kPrimaryFile, "damaged");
        EXPECT_TRUE(setQuietly({"d", "e"}, {"4", "5"}));
        EXPECT_EQ(listed(), "d=4;e=5;");
    });
}

TEST(BootVarsSeveral, EveryFailingCallLeavesAllOrNone) {
    inBootBox("rw", [](BootBox& /*box*/) {
        const std::string after = "a=x;c=3;d=4;";
        for (const Call call : {Call::eOpen, Call::eFsync, Call::eRename, Call::eClose}) {
            bool failed = true;
            for (int nth = 1; failed && nth < 10; ++nth) {
                writeFile(kPrimaryFile, imageOf(kOld));
                (void)::unlink(kBackupFile);
                const int before = failingcalls::count(call);
                failingcalls::fail(call, EIO, nth);
                const bool saved = setQuietly({"a", "b", "d"}, {"x", "", "4"});
                failed = failingcalls::count(call) - before >= nth;
                failingcalls::reset();
                const std::string now = listed();
                // Variables of a file that could not be read are missing from the next file.
                EXPECT_TRUE(now == after || (!saved && now == "a=1;b=2;c=3;") ||
                            (saved && now == "a=x;d=4;"))
                    << static_cast<int>(call) << " " << nth << ": " << now;
            }
        }
    });
}
