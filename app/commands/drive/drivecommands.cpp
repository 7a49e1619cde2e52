// SPDX-License-Identifier: MIT
//
// The commands of the drive that are done when they return.
#include "app/cli/commands.h"
#include "app/cli/options.h"
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

/// What was seen is shown all the same.
Result withTableFailure(const DriveLook& look, Result result) {
    if (!look.mTableFailure.empty()) {
        result.mStatus = eFailed;
        result.mError = look.mTableFailure;
    }
    return result;
}

/// The drive without its partitions: what is mounted stays mounted.
class DriveNode : public sysHardDrive {
public:
    DriveNode() { mDevice = kDriveDevice; }
};

Result spin(Session& session, const Invocation& invocation, Result (*operate)(sysHardDrive&)) {
    Result claimed = session.claimDrive(invocation);
    if (claimed.mStatus != eDone) {
        return claimed;
    }
    DriveIdentity identity;
    std::string failure;
    if (!identifyDrive(identity, failure)) {
        return Result::failed(failure);
    }
    DriveNode drive;
    return operate(drive);
}

}  // namespace

Result runDriveInfo(Session& session, const Invocation& /*invocation*/) {
    const DriveState state = stateOfDrive(session);
    const DriveLook& look = state.mLook;
    if (!look.mFailure.empty()) {
        return Result::failed(look.mFailure);
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
    if (!state.mLook.mFailure.empty()) {
        return Result::failed(state.mLook.mFailure);
    }
    Result result;
    result.mText = statusText(state);
    result.mData = statusData(state);
    return withTableFailure(state.mLook, result);
}

Result runDriveStop(Session& session, const Invocation& invocation) {
    Result refusal = session.claimDrive(invocation);
    if (refusal.mStatus != eDone) {
        return refusal;
    }
    const bool startedHere = session.drive() != nullptr;
    if (!startedHere) {
        const DriveLook look = lookAtDrive();
        if (!look.mFailure.empty()) {
            return Result::failed(look.mFailure);
        }
        if (!isMounted(look)) {
            return Result::failed("the drive is not started");
        }
    }
    sysDVRDrive* const drive =
        session.useDrive(invocation, refusal);  // also unmounts what it finds mounted
    if (drive == nullptr) {
        return refusal;
    }
    session.publish({"stopping", 0});
    if (startedHere && statusOf(*drive) != sysDVRDrive::eStStarted) {
        return wrongStatus("the drive is not started", statusOf(*drive));
    }
    if (startedHere && !drive->stop()) {
        return Result::failed("the drive could not be stopped: " + failureReason(*drive) +
                              "; end what uses it and stop again");
    }
    Result result;
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

}  // namespace app
