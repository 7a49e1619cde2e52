// SPDX-License-Identifier: MIT
//
// Every command line of the box's tools in the library, and how each tool is run.
#include "System/drivemanager/tools/toolcommands.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using base::ToolCommand;
using drivemanager::Standby;

using Words = std::vector<std::string>;

struct Case {
    ToolCommand mCommand;
    Words mArguments;
    int mNice;
    const char* mExecFailure;
    int mExecFailureStatus;
    std::size_t mPipeArgument;
};

TEST(ToolCommands, EachToolHasItsArgumentsAndItsWayToBeRun) {
    const Case cases[] = {
        {drivemanager::listPartitionTable("/dev/sda"),
         {"/sbin/sfdisk", "-d", "/dev/sda"},
         0,
         "Error spawning sfdisk",
         20,
         0},
        {drivemanager::writePartitionTable("/dev/sda"),
         {"/sbin/sfdisk", "-q", "-L", "-uM", "/dev/sda"},
         0,
         "Error spawning sfdisk",
         20,
         0},
        {drivemanager::makeExt3("/dev/sda1", "a label"),
         {"/sbin/mkfs.ext3", "-L", "a label", "-m", "0", "-i", "2097152", "/dev/sda1"},
         10,
         "Error spawning mkfs.ext3",
         255,
         0},
        {drivemanager::makeXfs("/dev/sda1", ""),
         {"/sbin/mkfs.xfs", "-L", "", "-f", "-l", "lazy-count=0", "/dev/sda1"},
         10,
         "Error spawning mkfs.xfs",
         255,
         0},
        {drivemanager::checkExt3("/dev/sda1"),
         {"/sbin/fsck.ext3", "-C", "", "-p", "/dev/sda1"},
         10,
         nullptr,
         255,
         2},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.mArguments[0]);
        EXPECT_EQ(each.mArguments, each.mCommand.mArguments);
        EXPECT_EQ(each.mNice, each.mCommand.mNice);
        EXPECT_STREQ(each.mExecFailure, each.mCommand.mExecFailure);
        EXPECT_EQ(each.mExecFailureStatus, each.mCommand.mExecFailureStatus);
        EXPECT_EQ(each.mPipeArgument, each.mCommand.mPipeArgument);
    }
}

TEST(ToolCommands, OnlyTheListingReportsAMissingStream) {
    EXPECT_STREQ("failed to open pipe to child\n",
                 drivemanager::listPartitionTable("/dev/sda").mStreamFailure);
    EXPECT_EQ(nullptr, drivemanager::writePartitionTable("/dev/sda").mStreamFailure);
    EXPECT_EQ(nullptr, drivemanager::makeXfs("/dev/sda1", "x").mStreamFailure);
}

TEST(ToolCommands, MountHasATypeAndOptionsOrNone) {
    EXPECT_EQ("/bin/mount -t xfs /dev/sda1 /dvr -o prjquota",
              drivemanager::mountCommand("/dev/sda1", "/dvr", "xfs", "prjquota"));
    EXPECT_EQ("/bin/mount -t ext3 /dev/sda1 /dvr",
              drivemanager::mountCommand("/dev/sda1", "/dvr", "ext3", ""));
    EXPECT_EQ("/bin/mount  /dev/sda1 /dvr",
              drivemanager::mountCommand("/dev/sda1", "/dvr", nullptr, nullptr));
}

TEST(ToolCommands, StandbyIsOneOption) {
    EXPECT_EQ("/sbin/hdparm -S24 /dev/sda",
              drivemanager::standbyCommand("/dev/sda", Standby::eAfterTwoMinutes));
    EXPECT_EQ("/sbin/hdparm -y /dev/sda", drivemanager::standbyCommand("/dev/sda", Standby::eNow));
    EXPECT_EQ("/sbin/hdparm -S0 /dev/sda",
              drivemanager::standbyCommand("/dev/sda", Standby::eNever));
}

TEST(ToolCommands, DaemonsOfTheMaintenance) {
    EXPECT_EQ((Words{"/sbin/getty", "-L", "/dev/ttyS0", "115200", "vt100"}),
              drivemanager::loginPrompt("/dev/ttyS0"));
    EXPECT_EQ("killall syslogd", drivemanager::stopLogDaemon());
    EXPECT_EQ("/sbin/syslogd -C", drivemanager::startLogDaemon(""));
    EXPECT_EQ("/sbin/syslogd -C -R 10.0.0.1", drivemanager::startLogDaemon("10.0.0.1"));
}

}  // namespace
