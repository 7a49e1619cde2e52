// SPDX-License-Identifier: MIT
//
// A drive may answer an inquiry with less data than requested.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "System/drivemanager/harddrive.h"
#include "tests/support/failingcalls.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/drivemanager/fakedrive.h"

namespace {

bool zero(const void* bytes, std::size_t size) {
    const auto* const first = static_cast<const unsigned char*>(bytes);
    return std::all_of(first, first + size, [](unsigned char byte) { return byte == 0; });
}

}  // namespace

TEST(DriveInquiry, ShortAnswersAreFilledWithNothing) {
    const failingcalls::Scope scope;
    // Stack contents of the first request must not be visible in the second.
    failingcalls::answerIoctl(HDIO_GET_IDENTITY, [](void* argument) {
        std::memset(argument, 'x', 512);
        errno = ENOTTY;
        return -1;
    });
    bool clean = false;
    failingcalls::answerIoctl(SG_IO, [&clean](void* argument) {
        const auto& request = *static_cast<sg_io_hdr_t*>(argument);
        clean = zero(request.dxferp, request.dxfer_len) && zero(request.sbp, request.mx_sb_len);
        std::memcpy(static_cast<char*>(request.dxferp) + 8, "VENDOR  SHORT", 13);
        return 0;
    });
    char model[64] = "untouched";
    char serial[64] = "untouched";
    EXPECT_EQ(0, get_drive_model(STDIN_FILENO, model, sizeof(model), serial, sizeof(serial)));
    EXPECT_TRUE(clean);
    EXPECT_STREQ("SHORT", model);
    EXPECT_STREQ("", serial);
}
