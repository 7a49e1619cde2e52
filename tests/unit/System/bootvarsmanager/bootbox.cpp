// SPDX-License-Identifier: MIT
#include "tests/unit/System/bootvarsmanager/bootbox.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>
#include <sstream>

#include "System/BlockdevCfg.fmp.h"
#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "base/cancelguard.h"
#include "tests/support/failingnew.h"
#include "tests/support/outputlevel.h"

namespace tests {

const char kSoftwareDevice[] = "/dev/disk/by-path/pci-0000:01:0e.0-scsi-0:0:0:0-part1";

namespace {

std::string bigEndian(std::uint32_t value) {
    std::string bytes;
    for (unsigned shift = 32; shift > 0; shift -= 8) {
        bytes += static_cast<char>(value >> (shift - 8U));
    }
    return bytes;
}

}  // namespace

std::uint32_t plainCrc(const std::string& bytes) {
    std::uint32_t crc = 0xffffffffU;
    for (const char byte : bytes) {
        crc ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1U) ^ ((crc & 1U) != 0 ? 0xedb88320U : 0U);
        }
    }
    return ~crc;
}

std::string areaOf(const Variables& vars) {
    std::string area;
    for (const auto& [key, value] : vars) {
        area += key + '\0' + value + '\0' + '\0';
    }
    return area;
}

std::string imageOf(const std::string& area) {
    return std::string("\xff\xff\xff\0", 4) + bigEndian(plainCrc(area)) +
           bigEndian(static_cast<std::uint32_t>(area.size())) + area;
}

std::string imageOf(const Variables& vars) {
    return imageOf(areaOf(vars));
}

std::string toText(const Variables& vars) {
    std::string text;
    for (const auto& [key, value] : vars) {
        text.append(key).append("=").append(value).append(";");
    }
    return text;
}

std::string listed() {
    const OutputLevel quiet(0);
    KestrovaVector<std::string> names;
    KestrovaVector<std::string> values;
    EXPECT_TRUE(sysBootVarsManager().getVarList(names, values));
    EXPECT_EQ(names.size(), values.size());
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i) {
        text.append(names[i]).append("=").append(values[i]).append(";");
    }
    return text;
}

std::string withoutContext(const std::string& output) {
    std::istringstream lines(output);
    std::string kept;
    for (std::string line; std::getline(lines, line);) {
        const bool context = line.rfind("System/bootvarsmanager/sysBootVarsManager:", 0) == 0 &&
                             line.find(" (level 1):") != std::string::npos;
        kept += context ? "" : line + "\n";
    }
    return kept;
}

BootBox::BootBox(Sandbox& sandbox, const char* options) : mSandbox(sandbox) {
    const OutputLevel quiet(0);
    (void)BlockdeviceConfig::CreateInstance();
    for (const char* const folder : {"/dev/disk", "/dev/disk/by-path", "/boot-sw"}) {
        EXPECT_EQ(::mkdir(folder, 0755), 0) << folder;
    }
    writeFile(kSoftwareDevice, "");
    setMounted(options);
}

BootBox::~BootBox() {
    BlockdeviceConfig::DestroyInstance();
}

void BootBox::setMounted(const char* options) {
    mState = options != nullptr ? std::string(options).substr(0, 2) : "";
    std::string table = "tmpfs / tmpfs rw,relatime 0 0\n/dev/nowhere /mnt xfs ro 0 0\n";
    if (options != nullptr) {
        table += std::string(kSoftwareDevice) + " /boot-sw ext3 " + options + " 0 0\n";
    }
    if (mReplaced) {
        writeFile("/stub/mounts", table);
    } else {
        mSandbox.replaceMounts(table);
        mReplaced = true;
    }
}

void BootBox::simulateMounts() {
    failingcalls::answerMount([this](const failingcalls::MountRequest& request) {
        const FailingNew::Pause pause;
        const base::CancelGuard guard;  // like the real calls, which are not cancellation points
        mMountCalls.push_back("mount " + std::to_string(request.mFlags));
        EXPECT_EQ(request.mData, nullptr);
        EXPECT_STREQ(request.mDirectory, "/boot-sw");
        const bool remount = (request.mFlags & MS_REMOUNT) != 0;
        if (remount == mState.empty()) {
            errno = remount ? EINVAL : EBUSY;
            return -1;
        }
        setMounted((request.mFlags & MS_RDONLY) != 0 ? "ro,noexec" : "rw,noexec");
        return 0;
    });
    failingcalls::answerUmount([this](const char* directory) {
        const FailingNew::Pause pause;
        const base::CancelGuard guard;
        mMountCalls.push_back("umount");
        EXPECT_STREQ(directory, "/boot-sw");
        if (mState.empty()) {
            errno = EINVAL;
            return -1;
        }
        setMounted(nullptr);
        return 0;
    });
}

}  // namespace tests
