// SPDX-License-Identifier: MIT
//
// One partition: recognising, mounting, measuring, formatting and checking it.
#include <sys/mount.h>

#include "System/drivemanager/partition.h"
#include "tests/torture/scenario.h"
#include "tests/unit/System/drivemanager/fakedvr.h"

namespace torture {

namespace {

using tests::Role;

enum class Step {
    eInitXfs,
    eInitExt,
    eInitUnknown,
    eInitOtherName,
    eInitMissing,
    eIsMounted,
    eMount,
    eMountThere,
    eMountElsewhere,
    eUnmount,
    eUnmountNothing,
    eUnmountAll,
    eListMounts,
    eSizes,
    eDeviceSize,
    eSignature,
    eExtFormat,
    eXfsFormat,
    eCheck,
};

class PartitionCase : public Case {
public:
    explicit PartitionCase(Step step) : mStep(step) {}

    void prepare(World& world) override {
        tests::writeFile("/dev/sda1", tests::xfsHeader("DVRStorage"));
        tests::writeFile("/dev/sda2", tests::extHeader("name"));
        tests::writeFile("/dev/sda3", std::string(512, '\0'));
        tests::writeFile("/dev/disk/by-path/x-part1", tests::xfsHeader("other"));
        allowTools(world.box());
        if (mStep > Step::eInitMissing) {
            (void)mPartition.init("/dev/sda1", 1000, 0x83);
        }
        if (mStep == Step::eIsMounted || mStep == Step::eMountThere || mStep == Step::eUnmount ||
            mStep == Step::eSizes || mStep == Step::eMountElsewhere || mStep == Step::eUnmountAll ||
            mStep == Step::eListMounts) {
            (void)mPartition.xfs_mount(
                mStep == Step::eMountElsewhere ? "/tmp/a-longer-directory" : "/dvr", "");
        }
    }

    void act() override {
        switch (mStep) {
            case Step::eInitXfs:
                mResult = mPartition.init("/dev/sda1", 1000, 0x83);
                break;
            case Step::eInitExt:
                mResult = mPartition.init("/dev/sda2", 1000, 0x83);
                break;
            case Step::eInitUnknown:
                mResult = mPartition.init("/dev/sda3", 1000, 0x83);
                break;
            case Step::eInitOtherName:
                mResult = mPartition.init("/dev/disk/by-path/xp1", 1000, 0x83);
                break;
            case Step::eInitMissing:
                mResult = !mPartition.init("/dev/disk/by-path/yp1", 1000, 0x83);
                break;
            case Step::eIsMounted:
                mResult = mPartition.isMounted();
                break;
            case Step::eMount:
            case Step::eMountThere:
            case Step::eMountElsewhere:
                mResult = mPartition.xfs_mount("/dvr", "");
                break;
            case Step::eUnmount:
                mResult = mPartition.unmount();
                break;
            case Step::eUnmountNothing:
                mResult = !mPartition.unmount();
                break;
            case Step::eUnmountAll:
                mResult = mPartition.unmountAll();
                break;
            case Step::eListMounts: {
                KestrovaVector<std::string> directories;
                mResult =
                    sysPartition::listMounts("/dev/sda1", &directories) && directories.size() == 1;
                break;
            }
            case Step::eDeviceSize:
                mResult = mPartition.fileSystemSize() == 0;  // half a superblock has no size
                break;
            case Step::eSignature: {
                sysPartition::Signature signature;
                mResult = sysPartition::readSignature("/dev/sda1", &signature);
                break;
            }
            case Step::eSizes:
                mResult = mPartition.fsCapacity() > 0 && mPartition.fsFree() > 0 &&
                          mPartition.fsBlockSize() > 0;
                break;
            case Step::eExtFormat:
                mResult = mPartition.ext3_format("name");
                break;
            case Step::eXfsFormat:
                mResult = mPartition.xfs_format("name");
                break;
            case Step::eCheck:
                mResult = mPartition.ext3_fscheck();
                break;
        }
        mHasFailure = sysPartition::lastFailure(&mFailure);
    }

    void check(Verdict& verdict) override {
        const bool mounted = World::mounts().find("/dev/sda1 ") != std::string::npos;
        verdict.expect(!verdict.mustSucceed() || mResult, "the operation failed without a reason");
        if (verdict.returned()) {
            checkResult(verdict, mounted);
        }
        if (mStep >= Step::eIsMounted && mStep <= Step::eUnmountNothing && verdict.mFired) {
            checkKnown(verdict, mounted);
        }
        checkNext(verdict);
    }

private:
    static void allowTools(tests::Sandbox& box) {
        const auto mounts = [](const std::string& directory) {
            return Role({"/bin/mount", "-t", "xfs", "/dev/sda1", directory})
                .mount("/dev/sda1", directory);
        };
        (void)::mkdir("/tmp/a-longer-directory", 0755);
        box.allow(mounts("/dvr"));
        box.allow(mounts("/tmp/a-longer-directory"));
        box.allow(Role({"/sbin/mkfs.ext3", "-L", "name", "-m", "0", "-i", "2097152", "/dev/sda1"})
                      .print("Writing inode tables: 1/4\b\b\b2/4\b\b\b3/4\b\b\bdone\n")
                      .print("Creating journal (8192 blocks): done\n"));
        box.allow(Role({"/sbin/mkfs.xfs", "-L", "name", "-f", "-l", "lazy-count=0", "/dev/sda1"})
                      .print("meta-data=/dev/sda1 isize=256\nlog =internal log\n"));
        // The descriptor is the lowest free number.
        for (int number = 3; number < 16; ++number) {
            box.allow(Role({"/sbin/fsck.ext3", "-C", std::to_string(number), "-p", "/dev/sda1"})
                          .report("1 50 100\n3 50 100\n5 100 100\n"));
        }
    }

    void checkResult(Verdict& verdict, bool mounted) {
        switch (mStep) {
            case Step::eInitXfs:
            case Step::eInitExt:
            case Step::eInitUnknown:
            case Step::eInitOtherName:
                if (!mResult) {
                    verdict.expectSaid({" iDev=", " newdev=", " mPath="});
                }
                break;
            case Step::eInitMissing:
                verdict.expectSaid({" newdev=", " iDev="});
                break;
            case Step::eMount:
            case Step::eMountThere:
            case Step::eMountElsewhere:
                verdict.expect(
                    !mResult || verdict.toolLied() || World::isMounted("/dev/sda1", "/dvr"),
                    "success and not mounted");
                if (!mResult) {
                    verdict.expectSaid(
                        {"Mount failed with code", "Umount failure", "File system is not mounted"});
                }
                break;
            case Step::eUnmount:
                verdict.expect(mResult == !mounted, "a wrong result of unmount");
                if (!mResult) {
                    verdict.expectSaid({"Umount failure", "File system is not mounted"});
                }
                break;
            case Step::eUnmountAll:
                verdict.expect(!mResult || !mounted, "a wrong result of unmount");
                break;
            case Step::eUnmountNothing:
                verdict.expectSaid({"File system is not mounted"});
                break;
            case Step::eExtFormat:
            case Step::eXfsFormat:
            case Step::eCheck:
                checkTool(verdict);
                break;
            case Step::eListMounts:
            case Step::eDeviceSize:
            case Step::eSignature:
            case Step::eIsMounted:
            case Step::eSizes:
                break;
        }
        const bool notes = mStep == Step::eMount || mStep == Step::eMountThere ||
                           mStep == Step::eMountElsewhere || mStep == Step::eUnmount ||
                           mStep == Step::eExtFormat || mStep == Step::eXfsFormat ||
                           mStep == Step::eCheck || mStep <= Step::eInitOtherName;
        verdict.expect(
            mResult || !notes || (mHasFailure && mFailure.mStep != sysPartition::eFailNone),
            "a failure without a reason");
    }

    void checkTool(Verdict& verdict) {
        verdict.expect(!mResult || !verdict.isTool() || !verdict.toolFault().mFails,
                       "success although the tool failed");
        verdict.expect(!mResult || verdict.mWorld.box().runs().size() == 1,
                       "success without the tool");
        if (mStep == Step::eExtFormat && mResult) {
            verdict.expect(mPartition.ext3_format_progress() == 100000, "no progress");
        }
        if (mStep == Step::eCheck && mResult) {
            verdict.expect(mPartition.ext3_fscheck_progress() == 100000, "no progress");
        }
    }

    /// Checks that the mount point is known: otherwise the partition could no longer be unmounted
    /// or measured.
    void checkKnown(Verdict& verdict, bool mounted) {
        // The mount point is unknown if the table cannot be read.
        if (verdict.isTool()) {
            return;
        }
        const bool known = mPartition.mountpoint() != nullptr;
        verdict.expect(!mounted || known || mStep == Step::eIsMounted,
                       "mounted, and the partition does not know");
    }

    void checkNext(Verdict& verdict) {
        if (mStep <= Step::eInitMissing) {
            verdict.expect(mPartition.init("/dev/sda1", 1000, 0x83), "the next init fails");
            verdict.expect(mPartition.fileSystemType() == sysPartition::eFsXfs &&
                               mPartition.label() != nullptr &&
                               std::string(mPartition.label()) == "DVRStorage",
                           "the next init recognises nothing");
        }
        // If the mount was not detected, the partition has been mounted a second time.
        for (int times = 0; times < 2 && mPartition.isMounted(); ++times) {
            verdict.expect(mPartition.unmount(), "the next unmount fails");
        }
        verdict.expect(World::mounts().empty(), "mounted after the next unmount");
        verdict.expect(mPartition.xfs_mount("/dvr", ""), "the next mount fails");
        verdict.expect(mPartition.mountpoint() != nullptr && mPartition.fsCapacity() > 0,
                       "mounted next and not measured");
        verdict.expect(mPartition.unmount(), "the unmount after that fails");
        verdict.expect(mPartition.mountpoint() == nullptr, "unmounted with a mount point");
        verdict.expect(mPartition.xfs_format("name"), "the next format fails");
        verdict.expect(mPartition.ext3_fscheck(), "the next check fails");
    }

    Step mStep;
    sysPartition mPartition;
    bool mResult = false;
    bool mHasFailure = false;
    sysPartition::Failure mFailure;
};

}  // namespace

void addPartitionScenarios(Scenarios& scenarios) {
    const struct {
        const char* mName;
        Step mStep;
    } steps[] = {{"partition-init.xfs", Step::eInitXfs},
                 {"partition-init.ext3", Step::eInitExt},
                 {"partition-init.unknown", Step::eInitUnknown},
                 {"partition-init.other-name", Step::eInitOtherName},
                 {"partition-init.missing", Step::eInitMissing},
                 {"partition-is-mounted", Step::eIsMounted},
                 {"partition-mount", Step::eMount},
                 {"partition-mount.there", Step::eMountThere},
                 {"partition-mount.elsewhere", Step::eMountElsewhere},
                 {"partition-unmount", Step::eUnmount},
                 {"partition-unmount.nothing", Step::eUnmountNothing},
                 {"partition-unmount-all", Step::eUnmountAll},
                 {"partition-list-mounts", Step::eListMounts},
                 {"partition-device-size", Step::eDeviceSize},
                 {"partition-signature", Step::eSignature},
                 {"partition-sizes", Step::eSizes},
                 {"partition-ext3-format", Step::eExtFormat},
                 {"partition-xfs-format", Step::eXfsFormat},
                 {"partition-check", Step::eCheck}};
    for (const auto& each : steps) {
        scenarios.push_back(scenario<PartitionCase>(each.mName, each.mStep));
    }
}

}  // namespace torture
