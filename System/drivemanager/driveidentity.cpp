// SPDX-License-Identifier: MIT
//
// The size, model and serial number that the kernel reports for a drive.
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <scsi/scsi.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>

#include <cstdio>
#include <cstring>

#include "System/drivemanager/harddrive.h"
#include "base/io/descriptor.h"

namespace {

constexpr std::size_t kTextSize = 128;

/// The texts of a drive, each terminated.
struct DriveTexts {
    char mModel[kTextSize] = {};
    char mVendor[kTextSize] = {};
    char mSerial[kTextSize] = {};
};

bool identifyAta(int descriptor, DriveTexts& texts) {
    // Words 27 to 46 hold the model and words 10 to 19 the serial number (ATA identify data).
    constexpr std::size_t modelAt = 54;
    constexpr std::size_t modelSize = 40;
    constexpr std::size_t serialAt = 20;
    constexpr std::size_t serialSize = 20;

    char identity[512] = {};
    if (::ioctl(descriptor, HDIO_GET_IDENTITY, identity) != 0) {
        return false;
    }
    std::memcpy(texts.mModel, identity + modelAt, modelSize);
    std::memcpy(texts.mSerial, identity + serialAt, serialSize);
    return true;
}

bool identifyScsi(int descriptor, DriveTexts& texts) {
    // Standard INQUIRY data (SPC): vendor identification at byte 8, product identification at 16.
    constexpr unsigned char allocation = 255;
    constexpr std::size_t vendorAt = 8;
    constexpr std::size_t vendorSize = 8;
    constexpr std::size_t productAt = 16;
    constexpr std::size_t productSize = 16;
    constexpr unsigned timeoutMilliseconds = 3000;

    unsigned char inquiry[] = {INQUIRY, 0, 0, 0, allocation, 0};
    unsigned char data[256] = {};
    unsigned char sense[32] = {};
    sg_io_hdr_t request = {};
    request.interface_id = 'S';
    request.dxfer_direction = SG_DXFER_FROM_DEV;
    request.cmdp = inquiry;
    request.cmd_len = sizeof(inquiry);
    request.dxferp = data;
    request.dxfer_len = allocation;
    request.sbp = sense;
    request.mx_sb_len = sizeof(sense);
    request.timeout = timeoutMilliseconds;
    if (::ioctl(descriptor, SG_IO, &request) != 0 || request.status != 0 ||
        request.msg_status != 0 || request.host_status != 0 || request.driver_status != 0) {
        return false;
    }
    std::memcpy(texts.mVendor, data + vendorAt, vendorSize);
    std::memcpy(texts.mModel, data + productAt, productSize);
    return true;
}

}  // namespace

long long get_blk_capacity(const char* device) {
    base::Descriptor drive = base::openDescriptor(device, O_RDWR);
    if (!drive.valid()) {
        std::perror("Error opening");
        return 0;
    }
    // The request number contains the size of size_t: 0x80041272 on the box.
    unsigned long long size = 0;
    if (::ioctl(drive.get(), BLKGETSIZE64, &size) != 0) {
        std::printf("GetSize");
        // Leaves the descriptor open on purpose: see the header.
        (void)drive.release();
        return 0;
    }
    return static_cast<long long>(size);
}

int get_drive_model(int fd, char* model, std::size_t modelSize, char* serial,
                    std::size_t serialSize) {
    DriveTexts texts;
    if (!identifyAta(fd, texts) && !identifyScsi(fd, texts)) {
        return -1;
    }
    (void)std::snprintf(model, modelSize, "%s", texts.mModel);
    (void)std::snprintf(serial, serialSize, "%s", texts.mSerial);
    return 0;
}
