// SPDX-License-Identifier: MIT
//
// The recording drive, its manager, and a hard drive.
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

#include "System/drivemanager/drivemanager.h"
#include "tests/torture/scenario.h"
#include "tests/unit/System/drivemanager/fakedvr.h"

namespace torture {

namespace {

using tests::Role;
using tests::statusOf;

/// Provides the disk, and allows every tool for it any number of times.
void provideDrive(World& world) {
    tests::Sandbox& box = world.box();
    tests::makeDvrDisk(box);
    tests::allowMounting(box);
    box.allow(tests::hdparm("-S24"));
    box.allow(tests::hdparm("-y"));
    box.allow(tests::storageMaker().print("meta-data=/dev/sda1 isize=256\nlog =internal log\n"));
    box.allow(tests::dataMaker().print("meta-data=/dev/sda2 isize=256\n"));
}

void await(sysDVRDrive& drive) {
    (void)tests::eventually([&] {
        const sysDVRDrive::Status status = statusOf(drive);
        return status != sysDVRDrive::eStStarting && status != sysDVRDrive::eStFormatting;
    });
}

enum class DvrStep { eInit, eInitMounted, eStart, eStop, eInitialize, eShut, eQueries };

class DvrCase : public Case {
public:
    DvrCase(DvrStep step, bool hasSettings) : mStep(step), mHasSettings(hasSettings) {}

    void prepare(World& world) override {
        mpTable = std::make_unique<tests::DeviceTable>(mHasSettings);
        provideDrive(world);
        mpDrive = std::make_unique<sysDVRDrive>();
        if (mStep == DvrStep::eInit) {
            return;
        }
        (void)mpDrive->init();
        if (mStep == DvrStep::eInitMounted || mStep == DvrStep::eStop ||
            mStep == DvrStep::eQueries) {
            (void)mpDrive->start();
            await(*mpDrive);
        }
    }

    void act() override {
        switch (mStep) {
            case DvrStep::eInit:
            case DvrStep::eInitMounted:
                mResult = mpDrive->init();
                break;
            case DvrStep::eStart:
                mResult = mpDrive->start();
                break;
            case DvrStep::eStop:
                mResult = mpDrive->stop();
                break;
            case DvrStep::eInitialize:
                mResult = mpDrive->initialize();
                break;
            case DvrStep::eShut:
                mResult = mpDrive->shut();
                break;
            case DvrStep::eQueries:
                query();
                break;
        }
    }

    int descriptorsKept(const Verdict& verdict) const override {
        // The descriptor of a device without a size stays open on purpose.
        return verdict.failedIn(Function::ioctl) ? 1 : 0;
    }

    void check(Verdict& verdict) override {
        const bool storage = World::isMounted("/dev/sda1", "/dvr");
        const bool data = World::isMounted("/dev/sda2", "/dvr/data");
        const sysDVRDrive::Status status = statusOf(*mpDrive);
        if (verdict.mustSucceed()) {
            verdict.expect(mResult, "the operation failed without a reason");
        }
        if (verdict.returned()) {
            checkStatus(verdict, status, storage, data);
        }
        checkNext(verdict);
    }

private:
    void query() {
        int progress = -1;
        sysDVRDrive::Status status = sysDVRDrive::eStNone;
        mpDrive->getStatus(&status, &progress);
        mpDrive->setStatus(status);
        unsigned long long size = 0;
        unsigned long long free2 = 0;
        const bool space = mpDrive->partitionSpace(sysDVRDrive::ePartStorage, &size, &free2);
        const bool directory = *mpDrive->recordingDirectory() == '/';
        const unsigned block = mpDrive->blockSize();
        const unsigned total = mpDrive->totalMB();
        const unsigned free = mpDrive->freeMB();
        // A value that cannot be measured is 0.
        mResult =
            status == sysDVRDrive::eStStarted && progress == 100 && mpDrive->model() != nullptr;
        mResult = mResult && directory;
        mMeasured = space && size > 0 && block > 0 && total > 0 && free > 0 && free <= total;
    }

    void checkStatus(Verdict& verdict, sysDVRDrive::Status status, bool storage, bool data) {
        const bool sure = verdict.mustSucceed();
        switch (mStep) {
            case DvrStep::eInit:
            case DvrStep::eInitMounted:
                verdict.expect(mResult ? status == sysDVRDrive::eStReady ||
                                             (!sure && status == sysDVRDrive::eStNotFormatted)
                                       : status == sysDVRDrive::eStError,
                               "a wrong status after init");
                // If the partitions could not be listed, none is unmounted.
                verdict.expect(status != sysDVRDrive::eStReady || (!storage && !data) || !sure,
                               "ready and mounted");
                break;
            case DvrStep::eStart:
                verdict.expect(status == sysDVRDrive::eStStarted ||
                                   status == sysDVRDrive::eStError ||
                                   (!mResult && status == sysDVRDrive::eStStarting),
                               "a wrong status after start");
                verdict.expect(!sure || status == sysDVRDrive::eStStarted,
                               "the start failed without a reason");
                expectReason(verdict, status);
                verdict.expect(
                    status != sysDVRDrive::eStStarted || verdict.toolLied() || (storage && data),
                    "started and not mounted");
                if (!mResult) {
                    verdict.expectSaid({"sysDVRDrive pthread_create"});
                } else if (status == sysDVRDrive::eStError &&
                           verdict.mPlan.mKind != Kind::eAllocation) {
                    verdict.expectSaid({"FSMount", "Error: Dvr Data mount point"});
                }
                break;
            case DvrStep::eStop:
                verdict.expect(status == (mResult ? sysDVRDrive::eStReady : sysDVRDrive::eStError),
                               "a wrong status after stop");
                verdict.expect(!mResult || (!storage && !data), "stopped and mounted");
                expectReason(verdict, status);
                if (!mResult) {
                    verdict.expectSaid({"Umount failure", "File system is not mounted"});
                }
                break;
            case DvrStep::eInitialize:
                checkFormat(verdict, status);
                break;
            case DvrStep::eShut:
                verdict.expect(mResult && status == sysDVRDrive::eStNone, "shut failed");
                break;
            case DvrStep::eQueries:
                verdict.expect(mResult && (mMeasured || !sure), "wrong figures");
                break;
        }
    }

    void checkFormat(Verdict& verdict, sysDVRDrive::Status status) {
        verdict.expect(status == sysDVRDrive::eStReady || status == sysDVRDrive::eStError ||
                           (!mResult && status == sysDVRDrive::eStFormatting),
                       "a wrong status after a format");
        const std::vector<tests::ToolRun> runs = verdict.mWorld.box().runs();
        const bool formatted = std::any_of(runs.begin(), runs.end(), [](const tests::ToolRun& run) {
            return run.mArguments.at(0) == "/sbin/mkfs.xfs" && run.mArguments.at(2) == "DVRStorage";
        });
        verdict.expect(status != sysDVRDrive::eStReady || formatted, "ready and not formatted");
        expectReason(verdict, status);
        verdict.expect(!verdict.mustSucceed() || status == sysDVRDrive::eStReady,
                       "the format failed without a reason");
    }

    /// Expects that an error has a reason.
    void expectReason(Verdict& verdict, sysDVRDrive::Status status) const {
        sysPartition::Failure failure;
        verdict.expect(
            status != sysDVRDrive::eStError ||
                (mpDrive->lastFailure(&failure) && failure.mStep != sysPartition::eFailNone),
            "an error without a reason");
    }

    /// Checks that the drive can be used again.
    void checkNext(Verdict& verdict) {
        verdict.expect(mpDrive->shut(), "it cannot be shut");
        verdict.expect(statusOf(*mpDrive) == sysDVRDrive::eStNone, "shut and not forgotten");
        verdict.expect(mpDrive->init(), "the next init fails");
        verdict.expect(statusOf(*mpDrive) == sysDVRDrive::eStReady, "the next init is not ready");
        verdict.expect(World::mounts().empty(), "mounted after the next init: " + World::mounts());
        verdict.expect(mpDrive->start(), "the next start fails");
        await(*mpDrive);
        verdict.expect(statusOf(*mpDrive) == sysDVRDrive::eStStarted, "the next start ends badly");
        verdict.expect(mpDrive->stop(), "the next stop fails");
        verdict.expect(World::mounts().empty(), "mounted after the next stop: " + World::mounts());
    }

    DvrStep mStep;
    bool mHasSettings;
    std::unique_ptr<tests::DeviceTable> mpTable;
    std::unique_ptr<sysDVRDrive> mpDrive;
    bool mResult = false;
    bool mMeasured = false;
};

/// A drive that is created, detected and freed by its manager.
class ManagerCase : public Case {
public:
    explicit ManagerCase(bool hasDrive) : mHasDrive(hasDrive) {}

    void prepare(World& world) override {
        mpTable = std::make_unique<tests::DeviceTable>(true);
        provideDrive(world);
        if (!mHasDrive) {
            (void)::unlink("/dev/sda");
        }
        mpManager = std::make_unique<sysDriveManager>();
    }

    void act() override {
        mpManager->start();
        mFound = mpManager->hasDVRDrive();
        mpManager->stop();
        mStopped = true;
    }

    int descriptorsKept(const Verdict& verdict) const override {
        return verdict.failedIn(Function::ioctl) ? 1 : 0;
    }

    void check(Verdict& verdict) override {
        verdict.expect(!verdict.mustSucceed() || mFound == mHasDrive, "the drive is not found");
        if (mStopped && !mFound) {
            verdict.expectSaid({"No DVR Drive Detected"});
        }
        verdict.expect(!mStopped || mpManager->getDVRDrive() == nullptr, "stopped with a drive");
        mpManager->start();
        verdict.expect(mpManager->hasDVRDrive() == mHasDrive || !mStopped,
                       "the drive is not found the next time");
        mpManager->detectDrives();
        verdict.expect(mpManager->hasDVRDrive() == mHasDrive, "the drive is not detected again");
        mpManager->stop();
    }

private:
    bool mHasDrive;
    std::unique_ptr<tests::DeviceTable> mpTable;
    std::unique_ptr<sysDriveManager> mpManager;
    bool mFound = false;
    bool mStopped = false;
};

enum class DiskStep {
    eInit,
    eScan,
    eAdd,
    eCustom,
    eOneBig,
    eSpinDown,
    eSpinDownDelayed,
    eSpinUp,
    eCapacity,
    eModel,
    eScsiModel
};

class DiskCase : public Case {
public:
    explicit DiskCase(DiskStep step) : mStep(step) {}

    void prepare(World& world) override {
        provideDrive(world);
        world.box().allow(Role({"/sbin/sfdisk", "-q", "-L", "-uM", "/dev/sda"}).readInput());
        if (mStep == DiskStep::eScsiModel) {
            tests::refuse(HDIO_GET_IDENTITY);
            failingcalls::answerIoctl(SG_IO, [](void* argument) {
                auto* const request = static_cast<sg_io_hdr_t*>(argument);
                std::memcpy(static_cast<char*>(request->dxferp) + 16, "SCSI MODEL      ", 16);
                return 0;
            });
        }
        if (mStep != DiskStep::eInit) {
            (void)mDrive.init("/dev/sda");
        }
        mDevice = ::open("/dev/sda", O_RDWR | O_CLOEXEC);
        // Listings before this point do not belong to the operation.
        mRunsBefore = world.box().runs().size();
    }

    void act() override {
        switch (mStep) {
            case DiskStep::eInit:
                mResult = mDrive.init("/dev/sda");
                break;
            case DiskStep::eScan:
                mDrive.scanPartitions();
                mResult = mDrive.numPartitions() == 2;
                break;
            case DiskStep::eAdd:
                mDrive.addPartition("/dev/sda1", 1000, 0x83);
                mResult = mDrive.numPartitions() == 3;
                mDrive.delPartitions();
                break;
            case DiskStep::eCustom: {
                int sizes[] = {100, 200, -1, 0};
                mResult = mDrive.partitionCustom(sizes);
                break;
            }
            case DiskStep::eOneBig:
                mResult = mDrive.partitionOneBig();
                break;
            case DiskStep::eSpinDown:
                mResult = mDrive.spinDown();
                break;
            case DiskStep::eSpinDownDelayed:
                mResult = mDrive.spinDownDelayed();
                break;
            case DiskStep::eSpinUp:
                mResult = mDrive.spinUp();
                break;
            case DiskStep::eCapacity:
                mResult = get_blk_capacity("/dev/sda") == 80026361856LL;
                break;
            case DiskStep::eModel:
            case DiskStep::eScsiModel:
                mResult =
                    get_drive_model(mDevice, mModel, sizeof(mModel), mSerial, sizeof(mSerial)) == 0;
                break;
        }
    }

    int descriptorsKept(const Verdict& verdict) const override {
        return verdict.failedIn(Function::ioctl) && mStep != DiskStep::eModel ? 1 : 0;
    }

    void check(Verdict& verdict) override {
        if (verdict.mustSucceed()) {
            verdict.expect(mResult, "the operation failed without a reason");
        }
        if (mResult && verdict.isTool() && verdict.toolFault().mFails && mStep != DiskStep::eInit &&
            mStep != DiskStep::eSpinUp && mStep != DiskStep::eAdd) {
            // A failed listing after a successful partitioning is not a failure.
            const bool onlyListing = (mStep == DiskStep::eCustom || mStep == DiskStep::eOneBig) &&
                                     isWholeScript(verdict);
            verdict.expect(onlyListing, "success although the tool failed");
        }
        if (mStep == DiskStep::eCapacity && verdict.returned() && !mResult) {
            verdict.expectSaid({"Error opening", "GetSize"});
        }
        if (mStep == DiskStep::eScan && verdict.returned() && !mResult) {
            verdict.expect(mDrive.numPartitions() < 2 || verdict.isTool(), "half a list");
        }
        checkStates(verdict);
        checkScripts(verdict);
        checkNext(verdict);
        (void)::close(mDevice);
    }

private:
    /// Checks that the tool states agree with the results.
    void checkStates(Verdict& verdict) const {
        const bool partitions = mStep == DiskStep::eCustom || mStep == DiskStep::eOneBig;
        if (!verdict.returned()) {
            return;
        }
        if (partitions) {
            verdict.expect(mResult == (mDrive.partitionToolStatus() == 0),
                           "a result against the tool's status");
            verdict.expect(
                mResult || mDrive.partitionToolStatus() != 0 || mDrive.partitionToolError() != 0,
                "a failure without a reason");
        }
        if (mStep == DiskStep::eScan && mDrive.tableState() == sysHardDrive::eTableRead) {
            verdict.expect(mDrive.tableToolStatus() == 0 && mDrive.tableToolError() == 0,
                           "a table against the tool's status");
        }
    }

    const char* script() const { return mStep == DiskStep::eOneBig ? ";\n" : ",100\n,200\n;\n"; }

    static std::string record(std::size_t run) {
        return tests::readFile("/stub/runs/" + std::to_string(run));
    }

    bool isWholeScript(Verdict& verdict) const {
        const std::size_t runs = verdict.mWorld.box().runs().size();
        for (std::size_t run = mRunsBefore; run < runs; ++run) {
            const std::string text = record(run);
            if (text.find(std::string("\0input\0", 7) + script()) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

    /// Checks that a partition tool that saw the end of its input has seen the whole script.
    void checkScripts(Verdict& verdict) const {
        const std::size_t runs = verdict.mWorld.box().runs().size();
        for (std::size_t run = mRunsBefore; run < runs; ++run) {
            const std::string text = record(run);
            const std::size_t at = text.find(std::string("\0input\0", 7));
            if (at != std::string::npos) {
                verdict.expect(text.c_str() + at + 7 == std::string(script()),
                               "the partition tool has run with a part of its script");
            }
        }
        if (mResult && (mStep == DiskStep::eCustom || mStep == DiskStep::eOneBig)) {
            verdict.expect(isWholeScript(verdict) || verdict.toolLied(),
                           "success without a script");
        }
    }

    void checkNext(Verdict& verdict) {
        verdict.expect(mDrive.shut(), "it cannot be shut");
        verdict.expect(mDrive.init("/dev/sda"), "the next init fails");
        verdict.expect(mDrive.numPartitions() == 2 && mDrive.getPartition(1) != nullptr,
                       "the next init has no partitions");
        int sizes[] = {100, 200, -1, 0};
        verdict.expect(mDrive.partitionCustom(sizes), "the next partitioning fails");
        verdict.expect(mDrive.spinDown() && mDrive.spinUp(), "the next standby fails");
    }

    DiskStep mStep;
    sysHardDrive mDrive;
    int mDevice = -1;
    std::size_t mRunsBefore = 0;
    char mModel[64] = {};
    char mSerial[64] = {};
    bool mResult = false;
};

}  // namespace

void addDriveScenarios(Scenarios& scenarios) {
    const struct {
        const char* mName;
        DvrStep mStep;
    } steps[] = {{"dvr-init", DvrStep::eInit},         {"dvr-init-mounted", DvrStep::eInitMounted},
                 {"dvr-start", DvrStep::eStart},       {"dvr-stop", DvrStep::eStop},
                 {"dvr-format", DvrStep::eInitialize}, {"dvr-shut", DvrStep::eShut},
                 {"dvr-queries", DvrStep::eQueries}};
    for (const auto& each : steps) {
        scenarios.push_back(scenario<DvrCase>(each.mName, each.mStep, true));
    }
    scenarios.push_back(scenario<DvrCase>("dvr-init.standby", DvrStep::eInit, false));
    scenarios.push_back(scenario<DvrCase>("dvr-stop.standby", DvrStep::eStop, false));
    scenarios.push_back(scenario<DvrCase>("dvr-format.standby", DvrStep::eInitialize, false));
    scenarios.push_back(scenario<ManagerCase>("manager", true));
    scenarios.push_back(scenario<ManagerCase>("manager.no-drive", false));
    const struct {
        const char* mName;
        DiskStep mStep;
    } disks[] = {{"disk-init", DiskStep::eInit},
                 {"disk-scan", DiskStep::eScan},
                 {"disk-add", DiskStep::eAdd},
                 {"disk-partition-custom", DiskStep::eCustom},
                 {"disk-partition-one-big", DiskStep::eOneBig},
                 {"disk-spin-down", DiskStep::eSpinDown},
                 {"disk-spin-down-delayed", DiskStep::eSpinDownDelayed},
                 {"disk-spin-up", DiskStep::eSpinUp},
                 {"disk-capacity", DiskStep::eCapacity},
                 {"disk-model", DiskStep::eModel},
                 {"disk-model.scsi", DiskStep::eScsiModel}};
    for (const auto& each : disks) {
        scenarios.push_back(scenario<DiskCase>(each.mName, each.mStep));
    }
}

}  // namespace torture
