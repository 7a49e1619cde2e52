// SPDX-License-Identifier: MIT
//
// The commands of the drive that are done when they return.
#include <climits>

#include "app/commands.h"
#include "app/drivedescription.h"
#include "app/options.h"
#include "app/session.h"
#include "app/text.h"

namespace app {

namespace {

constexpr int kRest = -1;  // as the library has it

constexpr char kDeclined[] = "not confirmed, nothing was changed";

Result wrongStatus(const char* needed, sysDVRDrive::Status status) {
    return Result::failed(std::string(needed) + " (status " + statusName(status) + ")");
}

/// In units of the partition tool: 1048576 bytes.
unsigned long long totalSize(const int (&sizes)[4]) {
    unsigned long long total = 0;
    for (const int size : sizes) {
        total += size > 0 ? static_cast<unsigned long long>(size) : 0;
    }
    return total << 20U;
}

std::string sizesText(const Words& arguments) {
    std::string text;
    for (const std::string& argument : arguments) {
        text += text.empty() ? "" : ", ";
        text += argument == "rest" ? "the rest" : argument + " MB";
    }
    return text;
}

Result partitioned(sysDVRDrive& drive, bool written, bool found) {
    if (!written) {
        return Result::failed(
            "the partition table could not be written; 'drive info' shows what "
            "is there now");
    }
    if (!found) {
        return Result::failed(
            "the drive can't be read after its partition table was written; -v tells more");
    }
    Result result;
    result.mText = partitionsText(drive) + statusText(drive);
    result.mData.add(statusData(drive)).add("partitions", partitionsData(drive));
    return result;
}

Result spun(bool done, const char* text, const char* error) {
    if (!done) {
        return Result::failed(error);
    }
    Result result;
    result.mText = text;
    return result;
}

}  // namespace

bool parseSizes(const Words& arguments, int (&sizes)[4], std::string& error) {
    if (arguments.size() > 4) {
        error = "more than four sizes: " + quoted(arguments[4]);
        return false;
    }
    int* next = sizes;
    for (const std::string& argument : arguments) {
        unsigned long size = 0;
        if (argument == "rest" && &argument == &arguments.back()) {
            *next++ = kRest;
        } else if (argument == "rest") {
            error = "'rest' can be the last size only";
            return false;
        } else if (parseNumber(argument, INT_MAX, size) && size > 0) {
            *next++ = static_cast<int>(size);
        } else {
            error = "bad size " + quoted(argument) + ": a number of MB from 1, or 'rest'";
            return false;
        }
    }
    while (next != sizes + 4) {
        *next++ = 0;
    }
    return true;
}

bool checkSizes(const Words& arguments, std::string& error) {
    int sizes[4];
    return parseSizes(arguments, sizes, error);
}

Result runDriveInfo(Session& session, const Invocation& /*invocation*/) {
    sysDVRDrive& drive = *session.drive();
    const DriveIdentity identity = driveIdentity(drive);
    const std::string capacity = std::to_string(identity.mCapacity);
    Result result;
    result.mText = std::string("Device:    ") + kDriveDevice + "\n";
    result.mText += "Model:     " + printable(identity.mModel) + "\n";
    result.mText += "Serial:    " + printable(identity.mSerial) + "\n";
    result.mText += "Capacity:  " + sizeText(identity.mCapacity) + " (" + capacity + " bytes)\n";
    result.mText += statusText(drive) + partitionsText(drive);
    result.mData.add("device", kDriveDevice).add("model", identity.mModel);
    result.mData.add("serial", identity.mSerial).add("capacity", identity.mCapacity);
    result.mData.add(statusData(drive)).add("partitions", partitionsData(drive));
    return result;
}

Result runDriveStatus(Session& session, const Invocation& /*invocation*/) {
    Result result;
    result.mText = statusText(*session.drive());
    result.mData = statusData(*session.drive());
    return result;
}

Result runDrivePartition(Session& session, const Invocation& invocation) {
    sysDVRDrive& drive = *session.drive();
    if (statusOf(drive) == sysDVRDrive::eStStarted) {
        return wrongStatus("the drive is mounted: 'drive stop' comes first", statusOf(drive));
    }
    int sizes[4];
    std::string error;
    (void)parseSizes(invocation.mArguments, sizes, error);  // checked before
    const unsigned long long capacity = driveIdentity(drive).mCapacity;
    if (totalSize(sizes) > capacity) {
        return Result::failed("the drive has " + std::to_string(capacity >> 20U) +
                              " MB, fewer than the sizes need; 'rest' is what is left");
    }
    if (!invocation.mOptions.mYes &&
        !session.confirm("ALL DATA on " + driveName(drive) + " will be lost.\nPartition it as " +
                         sizesText(invocation.mArguments) + "?")) {
        return Result::failed(kDeclined);
    }
    // The drive must not hold on to partitions that go away under it.
    (void)drive.shut();
    const bool written = drive.partitionCustom(sizes);
    const bool found = drive.init();
    return partitioned(drive, written, found);
}

Result runDriveStop(Session& session, const Invocation& /*invocation*/) {
    sysDVRDrive& drive = *session.drive();
    if (statusOf(drive) != sysDVRDrive::eStStarted) {
        Result result = wrongStatus("the drive is not started", statusOf(drive));
        result.mError += "; a start and its stop belong to one 'kestrova shell'";
        return result;
    }
    if (!drive.stop()) {
        return wrongStatus("a file system could not be unmounted: end what uses it and stop again",
                           statusOf(drive));
    }
    Result result;
    result.mText = "The drive is stopped.\n";
    result.mData = statusData(drive);
    return result;
}

Result runDriveSpinDown(Session& session, const Invocation& /*invocation*/) {
    return spun(session.drive()->spinDown(), "The drive is in standby.\n",
                "the drive did not take the standby commands; -v tells more");
}

Result runDriveSpinUp(Session& session, const Invocation& /*invocation*/) {
    return spun(session.drive()->spinUp(), "The drive is awake.\n",
                "the drive can't be opened; -v tells more");
}

}  // namespace app
