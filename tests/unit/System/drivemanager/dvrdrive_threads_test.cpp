// SPDX-License-Identifier: MIT
//
// Many threads use one drive. The thread sanitizer detects most errors here.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "tests/unit/System/drivemanager/fakedvr.h"

using namespace tests;

namespace {

constexpr int kRounds = 4;

/// Threads that make every call that is allowed at any time, until the scope ends.
class Pollers {
public:
    explicit Pollers(sysDVRDrive& drive) {
        for (int i = 0; i < 3; ++i) {
            mThreads.emplace_back([this, &drive] { poll(drive); });
        }
        // No operation starts before all of them run.
        EXPECT_TRUE(eventually([&] { return mPolling == static_cast<int>(mThreads.size()); }));
    }
    ~Pollers() {
        mStop = true;
        for (std::thread& thread : mThreads) {
            thread.join();
        }
        EXPECT_FALSE(mWrong);
    }

private:
    void poll(sysDVRDrive& drive) {
        bool counted = false;
        while (!mStop) {
            auto status = sysDVRDrive::eStNone;
            int progress = -1;
            drive.getStatus(&status, &progress);
            // During an unmount the values of the root file system may be returned.
            (void)drive.totalMB();
            (void)drive.freeMB();
            if (status > sysDVRDrive::eStStarted || progress < 0 || progress > 100 ||
                drive.blockSize() > 65536) {
                mWrong = true;
            }
            if (!counted) {
                counted = true;
                ++mPolling;
            }
            std::this_thread::yield();
        }
    }

    std::atomic<bool> mStop{false};
    std::atomic<bool> mWrong{false};
    std::atomic<int> mPolling{0};
    std::vector<std::thread> mThreads;
};

/// Allows all tools of the operations, any number of times.
void allowAll(Sandbox& box) {
    makeDvrDisk(box);
    allowMounting(box);
    box.allow(dataMaker().print("meta-data=/dev/sda2\n"));
    box.allow(storageMaker());
    box.allow(hdparm("-S24"));
}

void inThreadBox(const std::function<void(Sandbox&)>& body) {
    inSandbox([&](Sandbox& box) {
        const failingcalls::Scope scope;
        const OutputLevel level(0);
        const DeviceTable table(false);
        allowAll(box);
        body(box);
    });
}

}  // namespace

TEST(DvrThreads, PollersSeeEveryOperation) {
    inThreadBox([](Sandbox&) {
        sysDVRDrive drive;
        const Pollers pollers(drive);
        for (int round = 0; round < kRounds; ++round) {
            ASSERT_TRUE(drive.init());
            EXPECT_TRUE(drive.start());
            EXPECT_TRUE(drive.stop());
            EXPECT_TRUE(drive.initialize());
            EXPECT_TRUE(drive.start());
            EXPECT_TRUE(drive.stop());
            EXPECT_TRUE(drive.initialize());
            EXPECT_TRUE(drive.shut());
            EXPECT_EQ(statusOf(drive), sysDVRDrive::eStNone);
        }
    });
}

TEST(DvrThreads, ShutAndInitWhileStartedFreeNothingThatIsMeasured) {
    inThreadBox([](Sandbox&) {
        sysDVRDrive drive;
        const Pollers pollers(drive);
        for (int round = 0; round < kRounds; ++round) {
            ASSERT_TRUE(drive.init());
            EXPECT_TRUE(drive.start());
            awaitStatus(drive, sysDVRDrive::eStStarted);
            if (round % 2 == 0) {
                EXPECT_TRUE(drive.shut());
            }
        }
    });
}

TEST(DvrThreads, OperationsOfSeveralThreadsTakeTurns) {
    inThreadBox([](Sandbox&) {
        sysDVRDrive drive;
        const Pollers pollers(drive);
        std::vector<std::thread> threads;
        for (int first = 0; first < 3; ++first) {
            threads.emplace_back([&drive, first] {
                for (int i = 0; i < 3 * kRounds; ++i) {
                    switch ((first + i) % 5) {
                        case 0:
                            (void)drive.init();
                            break;
                        case 1:
                            (void)drive.start();
                            break;
                        case 2:
                            (void)drive.stop();
                            break;
                        case 3:
                            (void)drive.initialize();
                            break;
                        default:
                            (void)drive.shut();
                            break;
                    }
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_TRUE(drive.shut());
        ASSERT_TRUE(drive.init());
        EXPECT_EQ(statusOf(drive), sysDVRDrive::eStReady);
    });
}

TEST(DvrThreads, DeletionFollowsAnOperationAtOnce) {
    inThreadBox([](Sandbox& box) {
        for (int round = 0; round < 2 * kRounds; ++round) {
            auto drive = std::make_unique<sysDVRDrive>();
            ASSERT_TRUE(drive->init());
            {
                const Pollers pollers(*drive);
                EXPECT_TRUE(round % 2 == 0 ? drive->start() : drive->initialize());
                if (round % 4 >= 2) {
                    EXPECT_TRUE(drive->shut());
                }
            }
            drive.reset();
        }
        EXPECT_EQ(runsOf(box, "/sbin/mkfs.xfs"), 2 * kRounds);
    });
}

TEST(PartitionThreads, MeasuringBesideMounting) {
    inSandbox([](Sandbox& box) {
        const OutputLevel level(0);
        box.allow(
            Role({"/bin/mount", "-t", "xfs", "/dev/sda1", "/dvr"}).mount("/dev/sda1", "/dvr"));
        sysPartition partition;
        makePartition(partition);
        std::atomic<bool> stop{false};
        std::atomic<bool> wrong{false};
        std::thread poller([&] {
            while (!stop) {
                // During an unmount the values of the root file system may be returned.
                (void)partition.fsFree();
                (void)partition.fsCapacity();
                wrong = wrong || partition.fsBlockSize() > 65536;
            }
        });
        for (int round = 0; round < kRounds; ++round) {
            EXPECT_TRUE(partition.xfs_mount("/dvr", nullptr));
            EXPECT_TRUE(partition.unmount());
        }
        stop = true;
        poller.join();
        EXPECT_FALSE(wrong);
    });
}
