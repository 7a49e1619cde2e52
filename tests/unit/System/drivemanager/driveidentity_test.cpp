// SPDX-License-Identifier: MIT
//
// The identity of a drive, and the requests for it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "System/drivemanager/harddrive.h"
#include "tests/support/capture.h"
#include "tests/support/failingcalls.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/drivemanager/fakedrive.h"
#include "tests/unit/System/drivemanager/partitionrun.h"

using failingcalls::Call;
using tests::answerAta;
using tests::inSandbox;
using tests::refuse;
using tests::Sandbox;

namespace {

const std::string kModel = "Model of forty characters with blanks   ";
const std::string kSerial = "   serial with 20   ";

struct Identity {
    int mResult = 1;
    std::string mModel;
    std::string mSerial;
};

Identity identify(std::size_t modelSize = 256, std::size_t serialSize = 256) {
    char model[257] = "untouched";
    char serial[257] = "untouched";
    Identity identity;
    identity.mResult = get_drive_model(STDIN_FILENO, model, modelSize, serial, serialSize);
    identity.mModel = model;
    identity.mSerial = serial;
    return identity;
}

/// Answers INQUIRY, and lets the test change the result.
void answerScsi(const std::function<void(sg_io_hdr_t&)>& change) {
    failingcalls::answerIoctl(SG_IO, [change](void* argument) {
        auto& request = *static_cast<sg_io_hdr_t*>(argument);
        std::memcpy(static_cast<char*>(request.dxferp) + 8, "VENDOR  PRODUCT 16 chars1.00", 28);
        change(request);
        return 0;
    });
}

}  // namespace

TEST(DriveModel, AtaTextsAreTakenWholeAndAsTheyAre) {
    const failingcalls::Scope scope;
    answerAta(kModel + "behind", kSerial + "behind");
    const Identity identity = identify();
    EXPECT_EQ(identity.mResult, 0);
    EXPECT_EQ(identity.mModel, kModel);
    EXPECT_EQ(identity.mSerial, kSerial);
    EXPECT_EQ(failingcalls::count(Call::eIoctl), 1);
}

TEST(DriveModel, AtaTextsMayBeShortOrEmpty) {
    const failingcalls::Scope scope;
    answerAta("M", "");
    EXPECT_EQ(identify().mModel, "M");
    EXPECT_EQ(identify().mSerial, "");
    EXPECT_EQ(identify().mResult, 0);
}

TEST(DriveModel, IsCutToTheCallersBuffers) {
    const failingcalls::Scope scope;
    answerAta(kModel, kSerial);
    EXPECT_EQ(identify(6, 4).mModel, "Model");
    EXPECT_EQ(identify(6, 4).mSerial, "   ");
    EXPECT_EQ(identify(41, 21).mModel, kModel);
    EXPECT_EQ(identify(41, 21).mSerial, kSerial);
    EXPECT_EQ(identify(40, 20).mModel, kModel.substr(0, 39));
    EXPECT_EQ(identify(1, 1).mModel, "");
    EXPECT_EQ(identify(0, 0).mModel, "untouched");
    EXPECT_EQ(identify(0, 0).mResult, 0);
}

TEST(DriveModel, ScsiIsAskedWhenAtaDoesNotAnswer) {
    const failingcalls::Scope scope;
    refuse(HDIO_GET_IDENTITY);
    answerScsi([](sg_io_hdr_t& request) {
        EXPECT_EQ(request.interface_id, 'S');
        EXPECT_EQ(request.dxfer_direction, SG_DXFER_FROM_DEV);
        ASSERT_EQ(request.cmd_len, 6);
        const unsigned char inquiry[] = {0x12, 0, 0, 0, 255, 0};
        EXPECT_EQ(std::memcmp(request.cmdp, inquiry, sizeof(inquiry)), 0);
        EXPECT_EQ(request.dxfer_len, 255U);
        EXPECT_EQ(request.mx_sb_len, 32);
        EXPECT_NE(request.sbp, nullptr);
        EXPECT_EQ(request.timeout, 3000U);
    });
    const Identity identity = identify();
    EXPECT_EQ(identity.mResult, 0);
    EXPECT_EQ(identity.mModel, "PRODUCT 16 chars");
    EXPECT_EQ(identity.mSerial, "");
}

TEST(DriveModel, AnAnswerOfZeroIsWhatCountsForBothRequests) {
    const failingcalls::Scope scope;
    // A result above zero is not a success either.
    failingcalls::answerIoctl(HDIO_GET_IDENTITY, [](void*) { return 1; });
    answerScsi([](sg_io_hdr_t&) {});
    EXPECT_EQ(identify().mModel, "PRODUCT 16 chars");
    failingcalls::answerIoctl(SG_IO, [](void*) { return 1; });
    EXPECT_EQ(identify().mResult, -1);
}

TEST(DriveModel, EachScsiStatusRefuses) {
    const failingcalls::Scope scope;
    refuse(HDIO_GET_IDENTITY);
    const std::function<void(sg_io_hdr_t&)> failures[] = {
        [](sg_io_hdr_t& request) { request.status = 2; },
        [](sg_io_hdr_t& request) { request.msg_status = 1; },
        [](sg_io_hdr_t& request) { request.host_status = 1; },
        [](sg_io_hdr_t& request) { request.driver_status = 8; },
    };
    for (const auto& failure : failures) {
        answerScsi(failure);
        const Identity identity = identify();
        EXPECT_EQ(identity.mResult, -1);
        EXPECT_EQ(identity.mModel, "untouched");
        EXPECT_EQ(identity.mSerial, "untouched");
    }
}

TEST(DriveModel, MaskedStatusAndSenseAreNotLookedAt) {
    const failingcalls::Scope scope;
    refuse(HDIO_GET_IDENTITY);
    answerScsi([](sg_io_hdr_t& request) {
        request.masked_status = 1;
        request.sb_len_wr = 18;
        request.resid = 100;
        request.info = 1;
    });
    EXPECT_EQ(identify().mResult, 0);
}

TEST(DriveModel, NoAnswerToEither) {
    const failingcalls::Scope scope;
    failingcalls::failAll(Call::eIoctl, ENOTTY);
    EXPECT_EQ(identify().mResult, -1);
    EXPECT_EQ(failingcalls::count(Call::eIoctl), 2);
}

TEST(DriveCapacity, IsInBytesAndLeavesNothingOpen) {
    inSandbox([](Sandbox&) {
        const failingcalls::Scope scope;
        tests::answerAsDrive();
        const int next = tests::nextDescriptor();
        for (const unsigned long long size : {1ULL, 4294967296ULL, 80026361856ULL, 1ULL << 62}) {
            tests::answerCapacity(size);
            EXPECT_EQ(get_blk_capacity("/dev/sda"), static_cast<long long>(size));
        }
        EXPECT_EQ(tests::nextDescriptor(), next);
    });
}

TEST(DriveCapacity, OfANodeThatCannotBeOpened) {
    inSandbox([](Sandbox&) {
        const failingcalls::Scope scope;
        std::string errors;
        long long size = -1;
        {
            const tests::Capture capture;
            size = get_blk_capacity("/dev/sda");
            failingcalls::fail(Call::eOpen, EACCES);
            size += get_blk_capacity("/dev/null");
            errors = capture.errors() + capture.output();
        }
        EXPECT_EQ(size, 0);
        EXPECT_EQ(errors,
                  "Error opening: No such file or directory\nError opening: Permission denied\n");
    });
}

TEST(DriveCapacity, OfADeviceThatDoesNotTellKeepsTheDescriptor) {
    inSandbox([](Sandbox&) {
        const failingcalls::Scope scope;
        tests::writeFile("/dev/sda", "");
        refuse(BLKGETSIZE64);
        const int next = tests::nextDescriptor();
        const tests::Outcome outcome =
            tests::outcomeOf([] { return get_blk_capacity("/dev/sda") == 0; });
        EXPECT_TRUE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput, "GetSize");
        EXPECT_EQ(outcome.mErrors, "");
        EXPECT_EQ(tests::descriptorText(next), "/dev/sda rw");
        EXPECT_EQ(::fcntl(next, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    });
}
