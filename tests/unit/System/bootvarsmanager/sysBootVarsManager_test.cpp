// SPDX-License-Identifier: MIT
//
// The public operations on files in a sandbox, where the software partition is a directory.
#include "System/bootvarsmanager/sysBootVarsManager.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "System/bootvarsmanager/bootenvironment.h"
#include "tests/support/capture.h"
#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/bootvarsmanager/bootbox.h"

using failingcalls::Call;
using tests::BootBox;
using tests::imageOf;
using tests::inSandbox;
using tests::kBackupFile;
using tests::kPrimaryFile;
using tests::kTemporaryFile;
using tests::listed;
using tests::readFile;
using tests::Sandbox;
using tests::toText;
using tests::Variables;
using tests::writeFile;

namespace {

const std::string kPlace = std::string(tests::kSoftwareDevice) + " /boot-sw ext3";
const std::string kIsMounted = "Mouting HDD mode:1\nis mouted 2 1 \n";
const std::string kSaving =
    "Saving Environment\nMouting HDD mode:2\nis mouted 2 2 \nCreated environment buffer of size ";
const std::string kPathPrimary = "Path: /boot-sw//boot_env\n";
const std::string kPathBackup = "Path: /boot-sw//boot_env.bkp\n";
const std::string kPathTemporary = "Path: /boot-sw//boot_env.tmp\n";
const std::string kRotate = "Moving /boot-sw//boot_env -> /boot-sw//boot_env.bkp\n";
const std::string kInstall = "Moving /boot-sw//boot_env.tmp -> /boot-sw//boot_env\n";
const std::string kTryBackup = "Failed to read primary environment - trying backup\n";

struct Outcome {
    bool mResult;
    std::string mLog;
    std::string mErrors;
};

Outcome run(const std::function<bool(sysBootVarsManager&)>& operation) {
    const tests::Capture capture;
    sysBootVarsManager manager;
    const bool result = operation(manager);
    return {result, tests::withoutContext(capture.output()), capture.errors()};
}

bool set(const char* name, const char* value) {
    const tests::OutputLevel quiet(0);
    return sysBootVarsManager().setVarS(name, value);
}

std::string get(const char* name) {
    const tests::OutputLevel quiet(0);
    char value[256] = "untouched";
    return sysBootVarsManager().getVarS(name, value, sizeof(value)) ? value
                                                                    : std::string("no: ") + value;
}

void inBootBox(const std::function<void()>& body) {
    inSandbox([&](Sandbox& sandbox) {
        const failingcalls::Scope scope;
        const BootBox box(sandbox);
        body();
    });
}

bool exists(const char* path) {
    return ::access(path, F_OK) == 0;
}

const Variables kAb = {{"a", "x"}, {"b", "y"}};

}  // namespace

TEST(BootVars, WithoutAnEnvironmentTheListIsEmptyAndTheVectorsStay) {
    inBootBox([] {
        KestrovaVector<std::string> names = {"kept"};
        KestrovaVector<std::string> values = {"too"};
        const Outcome outcome = run([&](auto& vars) { return vars.getVarList(names, values); });
        EXPECT_TRUE(outcome.mResult);
        EXPECT_EQ(names, KestrovaVector<std::string>{"kept"});
        EXPECT_EQ(values, KestrovaVector<std::string>{"too"});
        EXPECT_EQ(outcome.mLog, kIsMounted + kPathPrimary + kTryBackup + kPathBackup);
        EXPECT_EQ(outcome.mErrors, "");
        EXPECT_EQ(get("a"), "no: untouched");
    });
}

TEST(BootVars, ListsInTheOrderOfTheNames) {
    inBootBox([] {
        const std::string area(
            "b\0"
            "2\0\0"
            "a\0"
            "1\0\0"
            "ab\0"
            "3\0\0"
            "B\0"
            "4\0\0",
            21);
        writeFile(kPrimaryFile, imageOf(area));
        EXPECT_EQ(listed(), "B=4;a=1;ab=3;b=2;");
    });
}

TEST(BootVars, GetCopiesWithinItsBuffer) {
    inBootBox([] {
        writeFile(kPrimaryFile, imageOf(Variables{{"name", "value"}}));
        sysBootVarsManager vars;
        const tests::OutputLevel quiet(0);
        for (unsigned size = 1; size < 8; ++size) {
            char buffer[9];
            std::memset(buffer, '#', sizeof(buffer));
            EXPECT_TRUE(vars.getVarS("name", buffer, static_cast<int>(size)));
            EXPECT_EQ(std::string(buffer), std::string("value").substr(0, size - 1)) << size;
            EXPECT_EQ(buffer[size], '#') << size;
        }
        char untouched = '#';
        EXPECT_TRUE(vars.getVarS("name", &untouched, 0));
        EXPECT_TRUE(vars.getVarS("name", &untouched, -1));
        EXPECT_EQ(untouched, '#');
    });
}

TEST(BootVars, NamesAreExact) {
    inBootBox([] {
        writeFile(kPrimaryFile, imageOf(kAb));
        EXPECT_EQ(get("a"), "x");
        for (const char* const name : {"A", "aa", "", "c", "a "}) {
            EXPECT_EQ(get(name), "no: untouched") << name;
        }
    });
}

TEST(BootVars, FirstSaveWritesThePrimaryAlone) {
    inBootBox([] {
        const Outcome outcome = run([](auto& vars) { return vars.setVarS("a", "x"); });
        EXPECT_TRUE(outcome.mResult);
        EXPECT_EQ(outcome.mErrors, "");
        EXPECT_EQ(outcome.mLog, "Load env already stored\n" + kIsMounted + kPathPrimary +
                                    kTryBackup + kPathBackup + "Setting key a x\n" + kSaving +
                                    "17\n" + kPathTemporary + kInstall);
        EXPECT_EQ(readFile(kPrimaryFile), imageOf(Variables{{"a", "x"}}));
        EXPECT_FALSE(exists(kBackupFile));
        EXPECT_FALSE(exists(kTemporaryFile));
    });
}

TEST(BootVars, ASaveKeepsTheEarlierPrimaryAsTheBackup) {
    inBootBox([] {
        const std::string before = imageOf(Variables{{"a", "1"}});
        writeFile(kPrimaryFile, before);
        writeFile(kBackupFile, "anything");
        writeFile(kTemporaryFile, std::string(100000, 't'));
        const Outcome outcome = run([](auto& vars) { return vars.setVarS("b", "y"); });
        EXPECT_TRUE(outcome.mResult);
        EXPECT_EQ(outcome.mLog, "Load env already stored\n" + kIsMounted + kPathPrimary +
                                    "Setting key b y\n" + kSaving + "22\n" + kPathTemporary +
                                    kRotate + kInstall);
        EXPECT_EQ(readFile(kPrimaryFile), imageOf(Variables{{"a", "1"}, {"b", "y"}}));
        EXPECT_EQ(readFile(kBackupFile), before);
        EXPECT_FALSE(exists(kTemporaryFile));
    });
}

TEST(BootVars, AnInvalidPrimaryNeverReplacesTheBackup) {
    const std::string good = imageOf(kAb);
    for (const std::string& bad :
         {std::string(), std::string("\0", 1), good.substr(0, 11), good.substr(0, good.size() - 1),
          std::string(200, '\xff'), std::string(200, '\0'),
          good.substr(0, 12) + "c" + good.substr(13)}) {
        inBootBox([&] {
            writeFile(kPrimaryFile, bad);
            writeFile(kBackupFile, good);
            EXPECT_EQ(listed(), toText(kAb));
            EXPECT_TRUE(set("c", "z"));
            EXPECT_EQ(readFile(kBackupFile), good);
            EXPECT_EQ(listed(), "a=x;b=y;c=z;");
            // From now on the primary is valid.
            EXPECT_TRUE(set("a", nullptr));
            EXPECT_EQ(readFile(kBackupFile),
                      imageOf(Variables{{"a", "x"}, {"b", "y"}, {"c", "z"}}));
        });
    }
}

TEST(BootVars, AMissingPrimaryIsReadFromTheBackup) {
    inBootBox([] {
        writeFile(kBackupFile, imageOf(kAb));
        EXPECT_EQ(get("b"), "y");
        const Outcome outcome = run([](auto& vars) { return vars.setVarS("b", "2"); });
        EXPECT_TRUE(outcome.mResult);
        EXPECT_EQ(outcome.mLog.find(kRotate), std::string::npos);
        EXPECT_EQ(readFile(kBackupFile), imageOf(kAb));
        EXPECT_EQ(listed(), "a=x;b=2;");
    });
}

TEST(BootVars, BothInvalidIsReadAsNothingAndWrittenAnew) {
    inBootBox([] {
        std::string bad = imageOf(kAb);
        bad[12] = 'q';
        writeFile(kPrimaryFile, bad);
        writeFile(kBackupFile, imageOf(kAb).substr(0, 5));
        EXPECT_EQ(get("a"), "no: untouched");
        EXPECT_TRUE(set("n", "1"));
        EXPECT_EQ(listed(), "n=1;");
        EXPECT_EQ(readFile(kBackupFile), imageOf(kAb).substr(0, 5));
    });
}

TEST(BootVars, ThePrimaryIsReadAloneWhenItIsValid) {
    inBootBox([] {
        writeFile(kPrimaryFile, imageOf(Variables{}));
        writeFile(kBackupFile, imageOf(kAb));
        EXPECT_EQ(listed(), "");
    });
}

TEST(BootVars, AnEmptyOrNullValueRemovesTheVariable) {
    inBootBox([] {
        writeFile(kPrimaryFile, imageOf(Variables{{"a", "1"}, {"b", "2"}, {"c", "3"}, {"d", "4"}}));
        EXPECT_TRUE(set("a", ""));
        EXPECT_EQ(get("a"), "no: untouched");
        const Outcome outcome = run([](auto& vars) { return vars.setVarS("b", nullptr); });
        EXPECT_TRUE(outcome.mResult);
        EXPECT_NE(outcome.mLog.find("Setting key b \n"), std::string::npos);
        EXPECT_TRUE(run([](auto& vars) { return vars.clearVar("c"); }).mResult);
        EXPECT_EQ(listed(), "d=4;");
        EXPECT_TRUE(set("d", nullptr));
        EXPECT_EQ(readFile(kPrimaryFile), imageOf(""));
        EXPECT_EQ(readFile(kPrimaryFile).size(), 12U);
        EXPECT_TRUE(set("never", nullptr));
        EXPECT_EQ(readFile(kPrimaryFile), imageOf(""));
    });
}

TEST(BootVars, EmptyValuesInTheFileAreListedAndDroppedByTheNextSave) {
    inBootBox([] {
        writeFile(kPrimaryFile, imageOf(std::string("a\0\0\0b\0y\0\0", 9)));
        EXPECT_EQ(listed(), "a=;b=y;");
        EXPECT_EQ(get("a"), "");
        EXPECT_TRUE(set("c", "z"));
        EXPECT_EQ(listed(), "b=y;c=z;");
    });
}

TEST(BootVars, ANullNameTouchesNothing) {
    inBootBox([] {
        failingcalls::reset();
        char value[8] = "kept";
        unsigned length = 7;
        unsigned char bytes[8] = {};
        EXPECT_FALSE(run([&](auto& vars) { return vars.getVarS(nullptr, value, 8); }).mResult);
        EXPECT_FALSE(
            run([&](auto& vars) { return vars.getVarB(nullptr, length, bytes, 8); }).mResult);
        const Outcome outcome = run([](auto& vars) { return vars.setVarS(nullptr, "x"); });
        EXPECT_FALSE(outcome.mResult);
        EXPECT_EQ(outcome.mLog, "Load env already stored\n");
        EXPECT_FALSE(run([&](auto& vars) { return vars.setVarB(nullptr, bytes, 8); }).mResult);
        EXPECT_FALSE(run([](auto& vars) { return vars.clearVar(nullptr); }).mResult);
        EXPECT_STREQ(value, "kept");
        EXPECT_EQ(length, 7U);
        EXPECT_EQ(failingcalls::count(Call::eOpen), 0);
        EXPECT_EQ(failingcalls::count(Call::eStat), 0);
        EXPECT_FALSE(exists(kPrimaryFile));
    });
}

TEST(BootVars, ValuesOfFormatCharactersAreLoggedAsTheyAre) {
    inBootBox([] {
        const Outcome outcome = run([](auto& vars) { return vars.setVarS("%n%s", "%s%n%d"); });
        EXPECT_TRUE(outcome.mResult);
        EXPECT_NE(outcome.mLog.find("Setting key %n%s %s%n%d\n"), std::string::npos);
        EXPECT_EQ(listed(), "%n%s=%s%n%d;");
    });
}

TEST(BootVars, EveryByteButNulGoesThroughNamesAndValues) {
    inBootBox([] {
        std::string all;
        for (int byte = 1; byte < 256; ++byte) {
            all += static_cast<char>(byte);
        }
        EXPECT_TRUE(set(all.c_str(), all.c_str()));
        EXPECT_EQ(listed(), all + "=" + all + ";");
        EXPECT_EQ(readFile(kPrimaryFile), imageOf(Variables{{all, all}}));
    });
}

TEST(BootVars, TheLastByteOfTheFileCanBeUsedAndNotOneMore) {
    inBootBox([] {
        const std::string most(kBootEnvAreaSize - 4, 'v');
        EXPECT_TRUE(set("k", most.c_str()));
        EXPECT_EQ(readFile(kPrimaryFile).size(), 65536U);
        EXPECT_EQ(listed(), "k=" + most + ";");
        const std::string before = readFile(kPrimaryFile);

        const Outcome longer =
            run([&](auto& vars) { return vars.setVarS("k", (most + "v").c_str()); });
        EXPECT_FALSE(longer.mResult);
        EXPECT_EQ(longer.mErrors, "Environment too big for flash\n");
        EXPECT_EQ(longer.mLog.find("Environment too big"), std::string::npos);
        EXPECT_EQ(longer.mLog.find("Created"), std::string::npos);
        EXPECT_FALSE(run([](auto& vars) { return vars.setVarS("a", "1"); }).mResult);
        EXPECT_FALSE(run([](auto& vars) { return vars.setVarS("z", "1"); }).mResult);
        const std::string huge(200000, 'h');
        EXPECT_FALSE(run([&](auto& vars) { return vars.setVarS(huge.c_str(), "1"); }).mResult);
        EXPECT_FALSE(run([&](auto& vars) { return vars.setVarS("z", huge.c_str()); }).mResult);
        EXPECT_EQ(readFile(kPrimaryFile), before);
        EXPECT_FALSE(exists(kTemporaryFile));
        EXPECT_FALSE(exists(kBackupFile));
    });
}

TEST(BootVars, ManyRecordsFillTheFileToTheLastByte) {
    inBootBox([] {
        Variables vars;
        for (int i = 0; i < 5460; ++i) {
            char name[8];
            (void)std::snprintf(name, sizeof(name), "n%05d", i);
            vars[name] = "abc";  // 12 bytes per record: 65520
        }
        writeFile(kPrimaryFile, imageOf(vars));
        EXPECT_EQ(listed(), toText(vars));
        // Four bytes are left: one too few for a name and a value, enough for only a value.
        EXPECT_FALSE(set("+", "+"));
        EXPECT_TRUE(set("", "+"));
        EXPECT_EQ(readFile(kPrimaryFile).size(), 65536U);
        EXPECT_EQ(listed(), "=+;" + toText(vars));
    });
}

TEST(BootVars, TheWholeFileIsKeptOpenToOthersAsTheBootStageNeeds) {
    inBootBox([] {
        const mode_t before = ::umask(0022);
        EXPECT_TRUE(set("a", "x"));
        struct stat status = {};
        EXPECT_EQ(::stat(kPrimaryFile, &status), 0);
        EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFREG | 0755));
        (void)::umask(before);
    });
}

TEST(BootVars, APrimaryThatIsNoFileIsLeftWhereItIs) {
    inBootBox([] {
        ASSERT_EQ(::mkdir(kPrimaryFile, 0755), 0);
        writeFile(kBackupFile, imageOf(kAb));
        EXPECT_EQ(listed(), toText(kAb));
        const Outcome outcome = run([](auto& vars) { return vars.setVarS("c", "z"); });
        EXPECT_FALSE(outcome.mResult);
        EXPECT_NE(outcome.mLog.find(kInstall + "Error making environment current\n"),
                  std::string::npos);
        EXPECT_EQ(listed(), toText(kAb));
    });
}

TEST(BootVars, UnmountedItTakesTwoMountsToWriteAndOneToRead) {
    inSandbox([](Sandbox& sandbox) {
        using Calls = std::vector<std::string>;
        const failingcalls::Scope scope;
        BootBox box(sandbox, nullptr);
        box.simulateMounts();
        EXPECT_TRUE(set("a", "x"));
        EXPECT_EQ(box.mountCalls(), (Calls{"mount 9", "umount", "mount 8", "umount"}));
        EXPECT_EQ(get("a"), "x");
        EXPECT_EQ(box.mountCalls().size(), 6U);
        box.setMounted("ro");
        EXPECT_TRUE(set("a", "y"));
        EXPECT_EQ(Calls(box.mountCalls().begin() + 6, box.mountCalls().end()),
                  (Calls{"mount 40", "mount 41"}));
        EXPECT_EQ(get("a"), "y");
        EXPECT_EQ(box.mountCalls().size(), 8U);
    });
}

TEST(BootVars, APartitionThatCannotBeMountedFailsEveryOperation) {
    inSandbox([](Sandbox& sandbox) {
        const failingcalls::Scope scope;
        const BootBox box(sandbox, nullptr);
        writeFile(kPrimaryFile, imageOf(kAb));
        failingcalls::failAll(Call::eMount, ENXIO);
        EXPECT_EQ(get("a"), "no: untouched");
        EXPECT_EQ(listed(), "");
        const Outcome outcome = run([](auto& vars) { return vars.setVarS("a", "2"); });
        EXPECT_FALSE(outcome.mResult);
        EXPECT_EQ(outcome.mLog, "Load env already stored\nMouting HDD mode:1\nmount " + kPlace +
                                    "\nUnable to mount device\nSetting key a 2\n"
                                    "Saving Environment\nMouting HDD mode:2\nmount " +
                                    kPlace + "\nUnable to mount device\n");
        const std::string refused = "Error mounting update device: No such device or address\n";
        EXPECT_EQ(outcome.mErrors, refused + refused);
        EXPECT_EQ(readFile(kPrimaryFile), imageOf(kAb));
    });
}
