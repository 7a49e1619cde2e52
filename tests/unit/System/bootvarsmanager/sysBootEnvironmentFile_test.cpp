// SPDX-License-Identifier: MIT
//
// A boot environment in a plain file: every operation, what it leaves on the disk, and what it says
// when it fails.
#include "System/bootvarsmanager/sysBootEnvironmentFile.h"

#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <thread>

#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "tests/support/capture.h"
#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"
#include "tests/support/tempdir.h"
#include "tests/unit/System/bootvarsmanager/bootbox.h"

using tests::imageOf;
using tests::TempDir;
using tests::Variables;

namespace {

using File = sysBootEnvironmentFile;
using Texts = KestrovaVector<std::string>;

const Variables kOld = {{"a", "1"}, {"b", "AAEC"}};
const Variables kOlder = {{"a", "0"}};

/// A directory with an environment file and its backup.
class EnvironmentFile : public testing::Test {
protected:
    void fill(const std::string& primary, const std::string& backup) const {
        for (const auto& [name, bytes] : {std::pair{"env", primary}, {"env.bkp", backup}}) {
            (void)::unlink(mFolder.path(name).c_str());
            if (!bytes.empty()) {
                (void)mFolder.write(name, bytes);
            }
        }
    }
    std::string now() const { return TempDir::read(mPath); }
    std::string backup() const { return TempDir::read(mFolder.path("env.bkp")); }
    bool leftTemporary() const { return ::access(mFolder.path("env.tmp").c_str(), F_OK) == 0; }

    /// The object reports this failure, of the last operation.
    void expectFailed(const File& file, int error, const std::string& reason) const {
        EXPECT_EQ(file.error(), error);
        EXPECT_EQ(file.reason(), reason);
        EXPECT_EQ(errno, error);
        EXPECT_FALSE(leftTemporary());
    }
    static void expectDone(const File& file) {
        EXPECT_EQ(file.error(), 0);
        EXPECT_EQ(file.reason(), "");
        EXPECT_EQ(file.state(), File::eStGood);
    }

    const tests::OutputLevel mQuiet{0};
    const failingcalls::Scope mScope;
    const TempDir mFolder;
    const std::string mPath = mFolder.path("env");
};

std::string listOf(File& file) {
    Texts names = {"kept"};
    Texts values = {"too"};
    if (!file.getVarList(names, values)) {
        EXPECT_EQ(names.size() + values.size(), 2U);
        return "failed";
    }
    EXPECT_EQ(names.size(), values.size());
    std::string text;
    for (std::size_t i = 1; i < names.size(); ++i) {
        text.append(names[i]).append("=").append(values[i]).append(";");
    }
    return text;
}

}  // namespace

TEST_F(EnvironmentFile, IsCreatedEmpty) {
    File file(mPath.c_str());
    EXPECT_EQ(file.state(), File::eStMissing);
    EXPECT_TRUE(file.create());
    expectDone(file);
    EXPECT_EQ(now(), imageOf(""));
    EXPECT_EQ(listOf(file), "");
    EXPECT_EQ(backup(), "");
    EXPECT_FALSE(leftTemporary());
}

TEST_F(EnvironmentFile, IsCreatedWhereNothingIsOnly) {
    File file(mPath.c_str());
    for (const std::string& damaged : {imageOf(kOld), std::string("damaged")}) {
        fill(damaged, imageOf(kOlder));
        EXPECT_FALSE(file.create());
        expectFailed(file, EEXIST, mPath + ": File exists");
        fill("", damaged);
        EXPECT_FALSE(file.create());
        expectFailed(file, EEXIST, mPath + ".bkp: File exists");
        EXPECT_EQ(now(), "");
    }
    fill("damaged", imageOf(kOlder));
    EXPECT_TRUE(file.create(true));
    expectDone(file);
    EXPECT_EQ(now(), imageOf(""));
    EXPECT_EQ(backup(), "");
}

TEST_F(EnvironmentFile, SetsGetsAndRemoves) {
    File file(mPath.c_str());
    EXPECT_TRUE(file.create());
    EXPECT_TRUE(file.setVarS("b", "two"));
    expectDone(file);
    EXPECT_TRUE(file.setVarS("a", "1"));
    EXPECT_EQ(now(), imageOf(Variables{{"a", "1"}, {"b", "two"}}));
    EXPECT_EQ(backup(), imageOf(Variables{{"b", "two"}}));
    EXPECT_EQ(listOf(file), "a=1;b=two;");
    std::string value = "unchanged";
    EXPECT_TRUE(file.getVarS("b", value));
    EXPECT_EQ(value, "two");
    EXPECT_TRUE(file.clearVar("b"));
    EXPECT_TRUE(file.clearVar("never"));
    EXPECT_FALSE(file.getVarS("b", value));
    expectFailed(file, ENODATA, "there is no variable \"b\"");
    EXPECT_EQ(value, "two");
    EXPECT_TRUE(file.setVarS("a", ""));
    EXPECT_EQ(now(), imageOf(""));
    EXPECT_TRUE(file.setVarS("a", nullptr));
    expectDone(file);
}

TEST_F(EnvironmentFile, HoldsBytes) {
    File file(mPath.c_str());
    EXPECT_TRUE(file.create());
    const unsigned char bytes[] = {0, 1, 255};
    EXPECT_TRUE(file.setVarB("k", bytes, sizeof(bytes)));
    EXPECT_EQ(listOf(file), "k=AAH/;");
    KestrovaVector<unsigned char> data = {7};
    EXPECT_TRUE(file.getVarB("k", data));
    EXPECT_EQ(data, KestrovaVector<unsigned char>(bytes, bytes + 3));
    EXPECT_TRUE(file.setVarS("t", "not base64"));
    EXPECT_FALSE(file.getVarB("t", data));
    expectFailed(file, EILSEQ, "variable \"t\": no base64 text");
    EXPECT_FALSE(file.getVarB("absent", data));
    expectFailed(file, ENODATA, "there is no variable \"absent\"");
    EXPECT_EQ(data.size(), 3U);
    for (const unsigned length : {65537U, INT_MAX + 1U, UINT_MAX}) {
        EXPECT_FALSE(file.setVarB("k", bytes, length));
        expectFailed(file, EFBIG, std::to_string(length) + " bytes are more than a file holds");
    }
    EXPECT_TRUE(file.setVarB("k", bytes, 0));
    EXPECT_EQ(listOf(file), "t=not base64;");
}

TEST_F(EnvironmentFile, SetsSeveralInOneRewrite) {
    fill(imageOf(kOld), "");
    File file(mPath.c_str());
    const int renames = failingcalls::count(failingcalls::Call::eRename);
    EXPECT_TRUE(file.setVars({"c", "a", "b"}, {"3", "one", ""}));
    EXPECT_EQ(failingcalls::count(failingcalls::Call::eRename) - renames, 2);
    EXPECT_EQ(now(), imageOf(Variables{{"a", "one"}, {"c", "3"}}));
    EXPECT_EQ(backup(), imageOf(kOld));
    EXPECT_TRUE(file.setVars({}, {}));
    EXPECT_EQ(backup(), now());
}

TEST_F(EnvironmentFile, RefusesBadSettingsAsAWhole) {
    const std::string nul("x\0y", 3);
    const struct {
        Texts mNames;
        Texts mValues;
        const char* mReason;
    } refused[] = {
        {{"c", ""}, {"3", "4"}, "variable \"\": the name is empty"},
        {{"c", "d=e"}, {"3", "4"}, "variable \"d=e\": the name holds '='"},
        {{"c", "d\ne"}, {"3", "4"}, "variable \"d?e\": the name holds a line end"},
        {{"c", "d"}, {"3", nul}, "variable \"d\": the value holds a NUL byte"},
        {{"c", "d"}, {"3"}, "there are 2 names and 1 values"},
    };
    fill(imageOf(kOld), imageOf(kOlder));
    File file(mPath.c_str());
    for (const auto& [names, values, reason] : refused) {
        EXPECT_FALSE(file.setVars(names, values));
        expectFailed(file, EINVAL, reason);
    }
    EXPECT_FALSE(file.setVarS(nullptr, "1"));
    expectFailed(file, EINVAL, "there is no name");
    EXPECT_FALSE(file.setVarB(nullptr, nullptr, 0));
    EXPECT_FALSE(file.clearVar(nullptr));
    std::string value;
    EXPECT_FALSE(file.getVarS(nullptr, value));
    expectFailed(file, EINVAL, "there is no name");
    EXPECT_EQ(now(), imageOf(kOld));
    EXPECT_EQ(backup(), imageOf(kOlder));
}

TEST_F(EnvironmentFile, RemovesWhatCouldNotBeSet) {
    fill(imageOf(Variables{{"", "1"}, {"a=b", "2"}, {"c\nd", "3"}, {"e", "4"}}), "");
    File file(mPath.c_str());
    EXPECT_TRUE(file.clearVar(""));
    EXPECT_TRUE(file.setVars({"a=b", "c\nd"}, {"", ""}));
    EXPECT_EQ(listOf(file), "e=4;");
}

TEST_F(EnvironmentFile, SaysWhatTheFilesHold) {
    const std::string good = imageOf(kOld);
    std::string flags = good;
    flags[3] = 1;
    std::string size = good;
    size[8] = 1;
    std::string checksum = good;
    checksum.back() = 'x';
    const struct {
        std::string mBytes;
        const char* mReason;
    } damages[] = {
        {"short", ": shorter than its header of 12 bytes"},
        {flags, ": bad flags"},
        {size, ": the variables do not end within the file"},
        {good.substr(0, good.size() - 1), ": the variables do not end within the file"},
        {checksum, ": bad checksum"},
        {"", ": No such file or directory"},
    };
    File file(mPath.c_str());
    for (const auto& [bytes, reason] : damages) {
        SCOPED_TRACE(reason);
        fill(bytes, imageOf(kOlder));
        EXPECT_EQ(file.verify(), File::eStBackup);
        EXPECT_EQ(file.state(), File::eStBackup);
        EXPECT_EQ(file.error(), 0);
        EXPECT_EQ(file.reason(), mPath + reason);
        EXPECT_EQ(listOf(file), "a=0;");
        EXPECT_EQ(file.state(), File::eStBackup);

        fill(bytes, "damaged, too");
        EXPECT_EQ(file.verify(), File::eStDamaged);
        expectFailed(file, EBADMSG, mPath + reason + "; " + mPath + ".bkp: bad flags");
        EXPECT_EQ(listOf(file), "failed");

        fill(bytes, "");
        EXPECT_EQ(file.verify(), bytes.empty() ? File::eStMissing : File::eStDamaged);
        expectFailed(file, bytes.empty() ? ENOENT : EBADMSG,
                     mPath + reason + (bytes.empty() ? "" : "; there is no backup"));

        fill(good, bytes);
        EXPECT_EQ(file.verify(), File::eStGood);
        expectDone(file);
    }
}

TEST_F(EnvironmentFile, ChangesNothingWithoutAValidEnvironment) {
    File file(mPath.c_str());
    for (const char* const bytes : {"damaged", ""}) {
        fill(bytes, bytes);
        EXPECT_FALSE(file.setVarS("c", "3"));
        EXPECT_EQ(file.error(), bytes[0] != '\0' ? EBADMSG : ENOENT);
        EXPECT_FALSE(file.importText("c=3"));
        EXPECT_EQ(now(), bytes);
        EXPECT_EQ(backup(), bytes);
        EXPECT_FALSE(leftTemporary());
    }
}

TEST_F(EnvironmentFile, AnInvalidFileDoesNotReplaceItsBackup) {
    fill("damaged", imageOf(kOlder));
    File file(mPath.c_str());
    EXPECT_TRUE(file.setVarS("c", "3"));
    expectDone(file);
    EXPECT_EQ(now(), imageOf(Variables{{"a", "0"}, {"c", "3"}}));
    EXPECT_EQ(backup(), imageOf(kOlder));
}

TEST_F(EnvironmentFile, IsNeverLargerThanItsSize) {
    // The largest value of a variable with a name of one byte.
    for (const unsigned size : {100U, 4096U, 65536U}) {
        SCOPED_TRACE(size);
        File file(mPath.c_str(), size);
        EXPECT_TRUE(file.create(true));
        const std::string most(size - 12 - 3 - 1, 'v');
        EXPECT_FALSE(file.setVarS("a", (most + "v").c_str()));
        expectFailed(file, EFBIG,
                     mPath + ": the variables need more than " + std::to_string(size) + " bytes");
        EXPECT_EQ(now(), imageOf(""));
        EXPECT_TRUE(file.setVarS("a", most.c_str()));
        EXPECT_EQ(now().size(), size);
        EXPECT_FALSE(file.setVarS("b", "1"));
        EXPECT_TRUE(file.setVars({"b", "a"}, {most, ""}));
        EXPECT_EQ(listOf(file), "b=" + most + ";");
    }
    File empty(mPath.c_str(), 12);
    EXPECT_TRUE(empty.create(true));
    EXPECT_FALSE(empty.setVarS("a", "1"));
    EXPECT_TRUE(empty.clearVar("a"));
}

TEST_F(EnvironmentFile, ALargerFileIsDamaged) {
    const std::string image = imageOf(kOld);
    fill(image, "");
    File fits(mPath.c_str(), static_cast<unsigned>(image.size()));
    EXPECT_EQ(fits.verify(), File::eStGood);
    File file(mPath.c_str(), static_cast<unsigned>(image.size()) - 1);
    EXPECT_EQ(file.verify(), File::eStDamaged);
    expectFailed(
        file, EBADMSG,
        mPath + ": larger than " + std::to_string(image.size() - 1) + " bytes; there is no backup");
    EXPECT_FALSE(file.setVarS("a", ""));
    // Bytes behind the variables do not count.
    fill(image + std::string(70000, 'x'), "");
    EXPECT_EQ(fits.verify(), File::eStGood);
}

TEST_F(EnvironmentFile, RefusesAnUnusableSizeOrPath) {
    for (const unsigned size : {0U, 11U, 65537U, UINT_MAX}) {
        File file(mPath.c_str(), size);
        EXPECT_FALSE(file.create());
        expectFailed(
            file, EINVAL,
            "the size is " + std::to_string(size) + " bytes, and must be from 12 to 65536");
        EXPECT_EQ(file.verify(), File::eStUnreadable);
        EXPECT_FALSE(file.setVarS("a", "1"));
        EXPECT_EQ(listOf(file), "failed");
    }
    for (const char* const path : {static_cast<const char*>(nullptr), "", "/", "env/"}) {
        File file(path);
        EXPECT_FALSE(file.create());
        EXPECT_EQ(file.error(), EINVAL);
        EXPECT_NE(file.reason().find("does not name a file"), std::string::npos);
    }
    EXPECT_EQ(now(), "");
}

TEST_F(EnvironmentFile, RefusesWhatIsNoFile) {
    File file(mPath.c_str());
    for (const std::string name : {"", ".bkp", ".tmp"}) {
        const std::string path = mPath + name;
        ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
        EXPECT_EQ(file.verify(), File::eStUnreadable);
        EXPECT_EQ(file.reason(), path + ": is not a regular file");
        EXPECT_FALSE(file.create(true));
        EXPECT_EQ(file.error(), EINVAL);
        ASSERT_EQ(::unlink(path.c_str()), 0);
        ASSERT_EQ(::mkdir(path.c_str(), 0700), 0);
        EXPECT_FALSE(file.setVarS("a", "1"));
        EXPECT_EQ(file.error(), EISDIR);
        EXPECT_EQ(file.reason(), path + ": is a directory");
        ASSERT_EQ(::rmdir(path.c_str()), 0);
    }
}

TEST_F(EnvironmentFile, ReplacesASymbolicLink) {
    (void)mFolder.write("target", imageOf(kOld));
    ASSERT_EQ(::symlink("target", mPath.c_str()), 0);
    File file(mPath.c_str());
    EXPECT_EQ(listOf(file), "a=1;b=AAEC;");
    EXPECT_TRUE(file.clearVar("a"));
    struct stat status = {};
    ASSERT_EQ(::lstat(mPath.c_str(), &status), 0);
    EXPECT_TRUE(S_ISREG(status.st_mode));
    EXPECT_EQ(TempDir::read(mFolder.path("target")), imageOf(kOld));
}

TEST_F(EnvironmentFile, ADirectoryIsTakenFromThePath) {
    char before[PATH_MAX];
    ASSERT_NE(::getcwd(before, sizeof(before)), nullptr);
    ASSERT_EQ(::chdir(mFolder.path("").c_str()), 0);
    File file("env");
    EXPECT_TRUE(file.create());
    ASSERT_EQ(::chdir(before), 0);
    EXPECT_EQ(now(), imageOf(""));
    File missing(mFolder.path("no/env").c_str());
    EXPECT_FALSE(missing.create());
    expectFailed(missing, ENOENT, mFolder.path("no") + ": No such file or directory");
    EXPECT_EQ(missing.verify(), File::eStMissing);
}

TEST_F(EnvironmentFile, ImportsAndExportsText) {
    fill(imageOf(kOld), "");
    File file(mPath.c_str());
    EXPECT_TRUE(file.importText("# comment\nc=x y\n\na=\nd=1\\\n2\n"));
    expectDone(file);
    EXPECT_EQ(now(), imageOf(Variables{{"b", "AAEC"}, {"c", "x y"}, {"d", "1\n2"}}));
    std::string text = "replaced";
    EXPECT_TRUE(file.exportText(text));
    EXPECT_EQ(text, "b=AAEC\nc=x y\nd=1\\\n2\n");
    const std::string image = now();
    EXPECT_TRUE(file.create(true));
    EXPECT_TRUE(file.importText(text));
    EXPECT_EQ(now(), image);
}

TEST_F(EnvironmentFile, AMalformedTextChangesNothing) {
    fill(imageOf(kOld), "");
    File file(mPath.c_str());
    EXPECT_FALSE(file.importText("a=new\nb\n"));
    expectFailed(file, EINVAL, "line 2: there is no '=' between name and value");
    EXPECT_FALSE(file.importText("a=new\nb=" + std::string(65536, 'v')));
    EXPECT_EQ(file.error(), EFBIG);
    EXPECT_EQ(now(), imageOf(kOld));
    Texts names;
    Texts values;
    std::string reason = "unchanged";
    EXPECT_TRUE(File::parseText("a=1\nb=2", names, values, reason));
    EXPECT_EQ(reason, "unchanged");
    EXPECT_EQ(names, (Texts{"a", "b"}));
    EXPECT_EQ(values, (Texts{"1", "2"}));
    EXPECT_FALSE(File::parseText("=", names, values, reason));
    EXPECT_EQ(reason, "line 1: the name is empty");
}

TEST_F(EnvironmentFile, SaysWhatATextCannotHold) {
    fill(imageOf(Variables{{"a", "1"}, {"b=c", "2"}}), "");
    File file(mPath.c_str());
    std::string text = "unchanged";
    EXPECT_FALSE(file.exportText(text));
    expectFailed(file, EILSEQ, "variable \"b=c\": the name holds '='");
    fill("", "");
    EXPECT_FALSE(file.exportText(text));
    expectFailed(file, ENOENT, mPath + ": No such file or directory");
    EXPECT_EQ(text, "unchanged");
}

TEST_F(EnvironmentFile, LogsFilesWithoutVariables) {
    const tests::OutputLevel level(1);
    fill("damaged", imageOf(kOlder));
    File file(mPath.c_str());
    const tests::Capture capture;
    EXPECT_TRUE(file.setVarS("secret", "value"));
    EXPECT_EQ(capture.errors(), "");
    const std::string log = tests::withoutContext(capture.output());
    EXPECT_EQ(log, "Path: " + mPath +
                       "\nFailed to read primary environment - trying backup\nPath: " + mPath +
                       ".bkp\nPath: " + mPath + ".tmp\nMoving " + mPath + ".tmp -> " + mPath +
                       "\n");
}

TEST_F(EnvironmentFile, HasTheBytesThatTheBoxWrites) {
    const Variables vars = {{"a", std::string(300, 'x')}, {"b", "2"}, {"\xff", "y"}};
    File file(mPath.c_str());
    EXPECT_TRUE(file.create());
    EXPECT_TRUE(file.setVars({"\xff", "b", "a"}, {"y", "2", std::string(300, 'x')}));
    const std::string made = now();
    EXPECT_EQ(made, imageOf(vars));
    tests::inSandbox([&](tests::Sandbox& sandbox) {
        const tests::BootBox box(sandbox);
        tests::writeFile(tests::kPrimaryFile, made);
        EXPECT_EQ(tests::listed(), tests::toText(vars));
        EXPECT_TRUE(sysBootVarsManager().setVarS("b", "2"));
        EXPECT_EQ(tests::readFile(tests::kPrimaryFile), made);
        File boxed(tests::kPrimaryFile);
        EXPECT_EQ(listOf(boxed), tests::toText(vars));
    });
}

TEST_F(EnvironmentFile, WritersTakeTurns) {
    File file(mPath.c_str());
    EXPECT_TRUE(file.create());
    constexpr int each = 50;
    std::thread threads[4];
    for (std::thread& thread : threads) {
        const std::string name(1, static_cast<char>('a' + (&thread - threads)));
        thread = std::thread([this, name] {
            File mine(mPath.c_str());
            for (int i = 1; i <= each; ++i) {
                EXPECT_TRUE(mine.setVarS((name + std::to_string(i)).c_str(), "1")) << mine.reason();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    Texts names;
    Texts values;
    EXPECT_TRUE(file.getVarList(names, values));
    EXPECT_EQ(names.size(), 4U * each);
}
