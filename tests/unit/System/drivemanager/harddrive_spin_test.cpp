// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cerrno>

#include "tests/support/failingcalls.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/drivemanager/fakedrive.h"
#include "tests/unit/System/drivemanager/partitionrun.h"

using failingcalls::Call;
using tests::inSandbox;
using tests::OpenDrive;
using tests::Outcome;
using tests::outcomeOf;
using tests::Role;
using tests::Sandbox;

namespace {

Role hdparm(const std::string& option) {
    return Role({"/sbin/hdparm", option, "/dev/sda"});
}

Outcome spinDown(OpenDrive& drive) {
    return outcomeOf([&] { return drive.spinDown(); });
}

Outcome spinDownDelayed(OpenDrive& drive) {
    return outcomeOf([&] { return drive.spinDownDelayed(); });
}

void makeDrive(OpenDrive& drive) {
    drive.mDevice = "/dev/sda";
    tests::writeFile("/dev/sda", "x");
}

}  // namespace

TEST(SpinDown, SyncsThenSetsTheTimerThenSendsToStandby) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        const failingcalls::Scope scope;
        std::size_t runsAtSync = 99;
        failingcalls::before(Call::eSync, [&] { runsAtSync = box.runs().size(); });
        box.expect(hdparm("-S24"));
        box.expect(hdparm("-y"));
        const Outcome outcome = spinDown(drive);
        EXPECT_TRUE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput, "Spinning down drive\n");
        EXPECT_EQ(outcome.mErrors, "");
        EXPECT_EQ(failingcalls::count(Call::eSync), 1);
        EXPECT_EQ(runsAtSync, 0U);
    });
}

TEST(SpinDown, SendsNoStandbyWithoutTheTimer) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        box.expect(hdparm("-S24").exit(1));
        EXPECT_FALSE(spinDown(drive).mDone);
        EXPECT_EQ(box.runs().size(), 1U);
    });
}

TEST(SpinDown, NeedsBothCommands) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        box.expect(hdparm("-S24"));
        box.expect(hdparm("-y").exit(5));
        EXPECT_FALSE(spinDown(drive).mDone);
        box.removeTool("/sbin/hdparm");
        EXPECT_FALSE(spinDown(drive).mDone);
        const failingcalls::Scope scope;
        failingcalls::fail(Call::eSystem, EAGAIN);
        EXPECT_FALSE(spinDown(drive).mDone);
        EXPECT_EQ(failingcalls::count(Call::eSystem), 1);
    });
}

TEST(SpinDownDelayed, SyncsAndSetsTheTimerOnly) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        const failingcalls::Scope scope;
        std::size_t runsAtSync = 99;
        failingcalls::before(Call::eSync, [&] { runsAtSync = box.runs().size(); });
        box.expect(hdparm("-S24"));
        const Outcome outcome = spinDownDelayed(drive);
        EXPECT_TRUE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput, "Setting delayed spin down\n");
        EXPECT_EQ(runsAtSync, 0U);
        box.expect(hdparm("-S24").exit(1));
        EXPECT_FALSE(spinDownDelayed(drive).mDone);
    });
}

TEST(SpinUp, WakesTheDriveThenStopsTheTimer) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        const failingcalls::Scope scope;
        std::size_t runsAtRead = 99;
        failingcalls::before(Call::eRead, [&] { runsAtRead = box.runs().size(); });
        box.expect(hdparm("-S0"));
        const int next = tests::nextDescriptor();
        bool done = false;
        EXPECT_EQ(outcomeOf([&] { return done = drive.spinUp(); }).mOutput, "");
        EXPECT_TRUE(done);
        EXPECT_EQ(runsAtRead, 0U);
        EXPECT_EQ(failingcalls::count(Call::eSync), 0);
        EXPECT_EQ(tests::nextDescriptor(), next);
    });
}

TEST(SpinUp, OpensForReadingOnlyAndReadsOneByte) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        // Bytes that are in the pipe beforehand show how much was read.
        int ends[2];
        ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        ASSERT_EQ(::write(ends[1], "abc", 3), 3);
        drive.mDevice = "/proc/self/fd/" + std::to_string(ends[0]);
        const failingcalls::Scope scope;
        failingcalls::before(Call::eRead,
                             [&] { EXPECT_EQ(tests::descriptorText(ends[1] + 1).back(), 'r'); });
        box.expect(Role({"/sbin/hdparm", "-S0", drive.mDevice}));
        EXPECT_TRUE(drive.spinUp());
        failingcalls::reset();
        char rest[4] = {};
        EXPECT_EQ(::read(ends[0], rest, sizeof(rest)), 2);
        EXPECT_STREQ(rest, "bc");
        (void)::close(ends[0]);
        (void)::close(ends[1]);
    });
}

TEST(SpinUp, DoesNotMindTheCommandOrTheByte) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        tests::writeFile("/dev/sda", "");
        box.expect(hdparm("-S0").exit(1));
        EXPECT_TRUE(drive.spinUp());
        const failingcalls::Scope scope;
        failingcalls::fail(Call::eRead, EIO);
        box.expect(hdparm("-S0"));
        EXPECT_TRUE(drive.spinUp());
        failingcalls::fail(Call::eSystem, EAGAIN);
        EXPECT_TRUE(drive.spinUp());
    });
}

TEST(SpinUp, ADriveThatCannotBeOpenedIsNotCommanded) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        drive.mDevice = "/dev/sda";
        EXPECT_FALSE(drive.spinUp());
        makeDrive(drive);
        const failingcalls::Scope scope;
        failingcalls::fail(Call::eOpen, ENOMEDIUM);
        EXPECT_FALSE(drive.spinUp());
        EXPECT_TRUE(box.runs().empty());
    });
}

TEST(SpinCommands, AreExactTextsForTheShell) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        box.removeTool("/bin/sh");
        ASSERT_EQ(::link("/stub/tool", "/bin/sh"), 0);
        for (const char* const option : {"-S24", "-y", "-S24", "-S0"}) {
            box.expect(Role({"sh", "-c", std::string("/sbin/hdparm ") + option + " /dev/sda"}));
        }
        EXPECT_TRUE(spinDown(drive).mDone);
        EXPECT_TRUE(spinDownDelayed(drive).mDone);
        EXPECT_TRUE(drive.spinUp());
    });
}
