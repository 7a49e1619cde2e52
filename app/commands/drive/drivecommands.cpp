// SPDX-License-Identifier: MIT
//
// The drive commands that have completed when they return.
#include "app/cli/command.h"
#include "app/commands/commands.h"
#include "app/commands/drive/drivedescription.h"
#include "app/session.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

Result wrongStatus(const char* needed, sysDVRDrive::Status status) {
    return Result::failed(std::string(needed) + " (status " + statusName(status) + ")");
}

bool isMounted(const DriveLook& look) {
    return (look.storage() != nullptr && !look.storage()->mMountPoints.empty()) ||
           (look.data() != nullptr && !look.data()->mMountPoints.empty());
}

Result spun(bool done, const char* text, const char* error) {
    if (!done) {
        return Result::failed(error);
    }
    Result result;
    result.mText = text;
    return result;
}

/// Adds the failure to read the partition table; the other data is still shown.
Result withTableFailure(const DriveLook& look, Result result) {
    if (!look.mTableFailure.empty()) {
        result.mStatus = eFailed;
        result.mError = look.mTableFailure;
    }
    return result;
}

/// The drive without its partitions, so that mounted file systems stay mounted.
class DriveNode : public sysHardDrive {
public:
    DriveNode() { mDevice = kDriveDevice; }
};

Result spin(Session& session, const Invocation& invocation, Result (*operate)(sysHardDrive&)) {
    Result result = session.claimDrive(invocation);
    DriveIdentity identity;
    if (result.good()) {
        result = identifyDrive(identity);
    }
    if (!result.good()) {
        return result;
    }
    DriveNode drive;
    return operate(drive);
}

Result runDriveInfo(Session& session, const Invocation& /*invocation*/) {
    const DriveState state = stateOfDrive(session);
    const DriveLook& look = state.mLook;
    if (!state.mFound.good()) {
        return state.mFound;
    }
    const DriveIdentity& identity = look.mIdentity;
    const std::string capacity = std::to_string(identity.mCapacity);
    Result result;
    result.mText = std::string("Device:    ") + kDriveDevice + "\n";
    result.mText += "Model:     " + printable(identity.mModel) + "\n";
    result.mText += "Serial:    " + printable(identity.mSerial) + "\n";
    result.mText += "Capacity:  " + sizeText(identity.mCapacity) + " (" + capacity + " bytes)\n";
    result.mText += statusText(state) + partitionsText(look);
    result.mData.add("device", kDriveDevice).add("model", identity.mModel);
    result.mData.add("serial", identity.mSerial).add("capacity", identity.mCapacity);
    result.mData.add(statusData(state)).add("partitions", partitionsData(look));
    return withTableFailure(look, result);
}

Result runDriveStatus(Session& session, const Invocation& /*invocation*/) {
    const DriveState state = stateOfDrive(session);
    if (!state.mFound.good()) {
        return state.mFound;
    }
    Result result;
    result.mText = statusText(state);
    result.mData = statusData(state);
    return withTableFailure(state.mLook, result);
}

Result runDriveStop(Session& session, const Invocation& invocation) {
    Result result = session.claimDrive(invocation);
    const bool startedHere = session.drive() != nullptr;
    if (result.good() && !startedHere) {
        DriveLook look;
        result = lookAtDrive(look);
        if (result.good() && !isMounted(look)) {
            result = Result::failed("the drive is not started");
        }
    }
    sysDVRDrive* drive = nullptr;
    if (result.good()) {
        result = session.useDrive(invocation, drive);  // also unmounts file systems that it finds
                                                       // mounted
    }
    if (!result.good()) {
        return result;
    }
    session.publish({"stopping", 0});
    if (startedHere && statusOf(*drive) != sysDVRDrive::eStStarted) {
        return wrongStatus("the drive is not started", statusOf(*drive));
    }
    if (startedHere && !drive->stop()) {
        return Result::failed("the drive could not be stopped: " + failureReason(*drive) +
                              "; end what uses it and stop again");
    }
    result.mText = "The drive is stopped.\n";
    result.mData = statusData(stateOfDrive(session));
    return result;
}

Result runDriveSpinDown(Session& session, const Invocation& invocation) {
    return spin(session, invocation, [](sysHardDrive& drive) {
        return spun(drive.spinDown(), "The drive is in standby.\n",
                    "the drive did not take the standby commands; -v shows more");
    });
}

Result runDriveSpinUp(Session& session, const Invocation& invocation) {
    return spin(session, invocation, [](sysHardDrive& drive) {
        return spun(drive.spinUp(), "The drive is awake.\n",
                    "the drive can't be opened; -v shows more");
    });
}

}  // namespace

constexpr char kDriveInfoHelp[] = R"(Show the recording drive and its partitions.

Device, model, serial number, capacity, status and partitions. Changes nothing;
the drive is opened for reading only, and what is mounted stays mounted.

Exit status:
  1  there is no recording drive, or it can't be read

Example:
  kestrova drive info
  kestrova --json drive info
)";
const Command kDriveInfoCommand = {
    "drive info", "", kDriveInfoHelp, 0, eNeedsDrive | eRunsBesideWork, runDriveInfo};

constexpr char kDriveStatusHelp[] = R"(Show the drive's status, and its space.

The status is none, error, not-formatted, formatting, ready, starting or
started. Size and free space are shown of both file systems; recordings belong
into the data partition, or without one into the storage partition. Changes
nothing, as 'drive info'.

Exit status:
  1  there is no recording drive, or it can't be read

Example:
  kestrova drive status
  kestrova shell -e 'drive start; drive status; drive stop'
)";
const Command kDriveStatusCommand = {
    "drive status", "", kDriveStatusHelp, 0, eNeedsDrive | eRunsBesideWork, runDriveStatus};

constexpr char kDriveStopHelp[] = R"(Unmount what 'drive start' has mounted.

Unmounts both file systems of the recording drive, also after a 'drive start' of
another process that has ended.

Exit status:
  1  not started, or a file system is in use

Example:
  kestrova shell -e 'drive start; drive status; drive stop'
)";
const Command kDriveStopCommand = {"drive stop", "",          kDriveStopHelp,
                                   eOptionWait,  eNeedsDrive, runDriveStop};

constexpr char kDriveSpinDownHelp[] = R"(Standby now, and whenever idle for 120 s.

Any access wakes the drive.

Exit status:
  1  the drive did not take the commands

Example:
  kestrova drive spin-down
)";
const Command kDriveSpinDownCommand = {"drive spin-down", "",          kDriveSpinDownHelp,
                                       eOptionWait,       eNeedsDrive, runDriveSpinDown};

constexpr char kDriveSpinUpHelp[] = R"(Wake the drive, and switch its timer off.

It does not fall asleep again until 'drive spin-down'.

Exit status:
  1  the drive can't be opened

Example:
  kestrova drive spin-up
)";
const Command kDriveSpinUpCommand = {"drive spin-up", "",          kDriveSpinUpHelp,
                                     eOptionWait,     eNeedsDrive, runDriveSpinUp};

}  // namespace app
