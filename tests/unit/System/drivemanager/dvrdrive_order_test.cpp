// SPDX-License-Identifier: MIT
//
// The order of log, sync, hdparm and the status, and what a worker leaves behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <string>
#include <vector>

#include "tests/support/capture.h"
#include "tests/unit/System/drivemanager/fakedvr.h"

using namespace tests;
using failingcalls::Call;

namespace {

/// Records the status at every command that runs.
std::vector<sysDVRDrive::Status> statusAtCommands(sysDVRDrive& drive,
                                                  const std::function<void()>& operation) {
    std::vector<sysDVRDrive::Status> found;
    failingcalls::before(Call::eSystem, [&] { found.push_back(statusOf(drive)); });
    operation();
    failingcalls::before(Call::eSystem, [] {});
    return found;
}

void ignoreSignal(int /*signal*/) {}

long mappings() {
    const std::string maps = readFile("/proc/self/maps");
    return std::count(maps.begin(), maps.end(), '\n');
}

}  // namespace

TEST(DvrOrder, ASpinDownIsLoggedBeforeTheSync) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        drive.mDevice = "/dev/sda";
        writeFile("/dev/sda", "x");
        box.allow(hdparm("-S24"));
        box.allow(hdparm("-y"));
        const failingcalls::Scope scope;
        const Capture capture;
        std::vector<std::string> logged;
        failingcalls::before(Call::eSync, [&] { logged.push_back(capture.output()); });
        EXPECT_TRUE(drive.spinDown());
        EXPECT_TRUE(drive.spinDownDelayed());
        const std::vector<std::string> expected = {
            "Spinning down drive\n", "Spinning down drive\nSetting delayed spin down\n"};
        EXPECT_EQ(expected, logged);
    });
}

TEST(DvrOrder, ReadyIsSetAfterTheStandbyIsArmed) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table(false);
        makeDvrDisk(box);
        allowMounting(box);
        box.allow(dataMaker());
        box.allow(storageMaker());
        box.allow(hdparm("-S24"));
        using Statuses = std::vector<sysDVRDrive::Status>;
        sysDVRDrive drive;
        EXPECT_EQ(Statuses{sysDVRDrive::eStNone},
                  statusAtCommands(drive, [&] { EXPECT_TRUE(drive.init()); }));
        EXPECT_EQ(Statuses{sysDVRDrive::eStFormatting}, statusAtCommands(drive, [&] {
                      EXPECT_TRUE(drive.initialize());
                      awaitStatus(drive, sysDVRDrive::eStReady);
                  }));
        EXPECT_TRUE(drive.start());
        awaitStatus(drive, sysDVRDrive::eStStarted);
        EXPECT_EQ(Statuses{sysDVRDrive::eStStarted},
                  statusAtCommands(drive, [&] { EXPECT_TRUE(drive.stop()); }));
        EXPECT_EQ(sysDVRDrive::eStReady, statusOf(drive));
    });
}

TEST(DvrOrder, ASignalDoesNotLetASecondOperationIn) {
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDvrDisk(box);
        box.expect(dataMaker().hold());
        box.expect(storageMaker());
        struct sigaction action = {};
        action.sa_handler = ignoreSignal;
        struct sigaction before = {};
        ASSERT_EQ(0, ::sigaction(SIGUSR1, &action, &before));
        sysDVRDrive drive;
        ASSERT_TRUE(drive.init());
        ASSERT_TRUE(drive.initialize());
        box.awaitHeld();
        std::atomic<bool> done{false};
        {
            Background shut([&] {
                const bool result = drive.shut();
                done = true;
                return result;
            });
            for (int i = 0; i < 50; ++i) {
                EXPECT_TRUE(eventually([&] { return done || shut.sleeps(); }));
                (void)pthread_kill(shut.handle(), SIGUSR1);
            }
            EXPECT_FALSE(done);
            EXPECT_EQ(sysDVRDrive::eStFormatting, statusOf(drive));
            box.release();
            EXPECT_TRUE(shut.result());
        }
        EXPECT_EQ(sysDVRDrive::eStNone, statusOf(drive));
        (void)::sigaction(SIGUSR1, &before, nullptr);
    });
}

// The C library reuses the stack of a detached thread, and keeps that of any other.
TEST(DvrOrder, WorkersLeaveNoStackBehind) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer keeps mappings of its own for each thread";
#endif
    inSandbox([](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table;
        makeDvrDisk(box);
        box.allow(dataMaker());
        box.allow(storageMaker());
        sysDVRDrive drive;
        ASSERT_TRUE(drive.init());
        constexpr int rounds = 10;
        long before = 0;
        for (int round = 0; round <= rounds; ++round) {
            ASSERT_TRUE(drive.initialize());
            awaitStatus(drive, sysDVRDrive::eStReady);
            before = round == 0 ? mappings() : before;
        }
        EXPECT_LT(mappings(), before + rounds);
    });
}
