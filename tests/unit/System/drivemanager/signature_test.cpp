// SPDX-License-Identifier: MIT
//
// Signatures on images made by the machine's own tools, and on the test's own bytes if a tool needs
// more than a file.
#include "System/drivemanager/signature.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "base/io/descriptor.h"
#include "tests/support/failingcalls.h"
#include "tests/support/sandbox.h"
#include "tests/support/tempdir.h"

using failingcalls::Call;
using Signature = sysPartition::Signature;

namespace {

constexpr unsigned long long kMebibyte = 1 << 20;

/// The result of a tool on an empty image.
struct Image {
    const char* mTest;
    unsigned mMebibytes;
    const char* mTool;  ///< skipped if it is not installed
    const char* mArguments;
    const char* mName;
    const char* mLabel;
    unsigned long long mSize;
};

void PrintTo(const Image& image, std::ostream* stream) {
    *stream << image.mTest;
}

const Image kImages[] = {
    {"Ext2", 8, "/sbin/mkfs.ext2", "-q -F -L sixteen-letters.", "ext2", "sixteen-letters.",
     8 * kMebibyte},
    {"Ext3", 8, "/sbin/mkfs.ext3", "-q -F -L DVRStorage", "ext3", "DVRStorage", 8 * kMebibyte},
    {"Ext3OfTheLibrary", 64, "/sbin/mkfs.ext3", "-q -F -m 0 -i 2097152", "ext3", "",
     64 * kMebibyte},
    {"Ext4", 8, "/sbin/mkfs.ext4", "-q -F -b 4096 -L x", "ext4", "x", 8 * kMebibyte},
    {"Ext4With32BitCounts", 8, "/sbin/mkfs.ext4", "-q -F -b 1024 -O ^64bit", "ext4", "",
     8 * kMebibyte},
    {"Xfs", 300, "/sbin/mkfs.xfs", "-q -L 'twelve chars'", "xfs", "twelve chars", 300 * kMebibyte},
    {"XfsWithSmallBlocks", 300, "/sbin/mkfs.xfs", "-q -m crc=0 -b size=512", "xfs", "",
     300 * kMebibyte},
    {"Btrfs", 128, "/sbin/mkfs.btrfs", "-q -L 'a label'", "btrfs", "a label", 128 * kMebibyte},
    {"Fat12", 1, "/sbin/mkfs.vfat", "-F 12 -n TWELVE", "vfat", "TWELVE", 0},
    {"Fat16", 16, "/sbin/mkfs.vfat", "-F 16 -n SIXTEEN", "vfat", "SIXTEEN", 0},
    {"Fat32", 64, "/sbin/mkfs.vfat", "-F 32", "vfat", "", 0},
    {"Exfat", 8, "/sbin/mkfs.exfat", "", "exfat", "", 0},
    {"Ntfs", 8, "/sbin/mkfs.ntfs", "-q -F -f -s 512 -p 0 -H 16 -S 63", "ntfs", "", 0},
    {"Swap", 8, "/sbin/mkswap", "-p 4096 -L scratch", "swap", "scratch", 0},
    {"Luks1", 8, "/sbin/cryptsetup",
     "luksFormat -q --type luks1 --pbkdf-force-iterations 1000 --key-file /proc/version",
     "crypto_LUKS", "", 0},
    {"Luks2", 32, "/sbin/cryptsetup",
     "luksFormat -q --type luks2 --label secret --pbkdf pbkdf2 --pbkdf-force-iterations 1000 "
     "--key-file /proc/version",
     "crypto_LUKS", "secret", 0},
};

class SignatureOf : public testing::TestWithParam<Image> {};

/// Returns an image with these bytes at an offset, and zeros elsewhere.
base::Descriptor imageWith(const std::string& bytes, off_t at, off_t size) {
    base::Descriptor file(::memfd_create("image", MFD_CLOEXEC));
    EXPECT_EQ(::ftruncate(file.get(), size), 0);
    EXPECT_EQ(::pwrite(file.get(), bytes.data(), bytes.size(), at),
              static_cast<ssize_t>(bytes.size()));
    return file;
}

/// Returns "name 'label' size", or "none".
std::string textOf(const Signature& signature) {
    if (signature.mpName == nullptr) {
        return "none";
    }
    return std::string(signature.mpName) + " '" + signature.mLabel + "' " +
           std::to_string(signature.mSize);
}

std::string textOf(const base::Descriptor& file) {
    Signature signature;
    return drivemanager::findSignature(file.get(), signature) ? textOf(signature) : "unreadable";
}

std::string foundIn(const std::string& path) {
    Signature signature;
    return sysPartition::readSignature(path.c_str(), &signature) ? textOf(signature) : "unreadable";
}

/// Runs a command that prints nothing when it succeeds.
int run(const std::string& command) {
    return std::system((command + " 2>/dev/null").c_str());
}

std::string found(const std::string& bytes, off_t at = 0, off_t size = kMebibyte) {
    return textOf(imageWith(bytes, at, size));
}

}  // namespace

TEST_P(SignatureOf, ARealTool) {
    const Image& image = GetParam();
    if (::access(image.mTool, X_OK) != 0) {
        GTEST_SKIP() << image.mTool << " is not installed";
    }
    const tests::TempDir folder;
    const std::string path = folder.write("image", "");
    ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(image.mMebibytes * kMebibyte)), 0);
    const std::string command = std::string(image.mTool) + " " + image.mArguments + " " + path +
                                " </dev/null >" + folder.path("log") + " 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0) << tests::TempDir::read(folder.path("log"));
    EXPECT_EQ(foundIn(path),
              std::string(image.mName) + " '" + image.mLabel + "' " + std::to_string(image.mSize));
}

INSTANTIATE_TEST_SUITE_P(Tools, SignatureOf, testing::ValuesIn(kImages),
                         [](const auto& test) { return test.param.mTest; });

TEST(SignatureOfIso9660, ARealTool) {
    if (::access("/usr/bin/genisoimage", X_OK) != 0) {
        GTEST_SKIP() << "genisoimage is not installed";
    }
    const tests::TempDir folder;
    const std::string image = folder.path("image");
    ASSERT_EQ(run("genisoimage -quiet -V 'A DISC' -o " + image + " " + folder.write("file", "x")),
              0);
    EXPECT_EQ(foundIn(image), "iso9660 'A DISC' 0");
}

TEST(SignatureOfGpt, ARealTool) {
    const tests::TempDir folder;
    const std::string image = folder.write("image", std::string(8 * kMebibyte, '\0'));
    ASSERT_EQ(run("echo label: gpt | /sbin/sfdisk -q " + image), 0);
    EXPECT_EQ(foundIn(image), "gpt '' 0");
}

TEST(Signature, VolumeManagerInEachOfTheFirstFourSectors) {
    const std::string label = std::string("LABELONE") + std::string(16, '\1') + "LVM2 001";
    for (const off_t sector : {0, 1, 2, 3}) {
        EXPECT_EQ(found(label, sector * 512), "LVM2_member '' 0");
    }
    EXPECT_EQ(found(label, 4 * 512), "none");
    EXPECT_EQ(found("LABELONE", 512), "none");
}

TEST(Signature, RaidOfEveryFormat) {
    const std::string magic = "\xfc\x4e\x2b\xa9";
    const std::string named = magic + std::string(28, '\1') + "box:0" + std::string(27, '\0');
    EXPECT_EQ(found(named, 0), "linux_raid_member 'box:0' 0");
    EXPECT_EQ(found(named, 4096), "linux_raid_member 'box:0' 0");
    // Format 1.0: at least 8 KiB before the end, on a multiple of 4 KiB.
    EXPECT_EQ(found(named, kMebibyte - 8192), "linux_raid_member 'box:0' 0");
    EXPECT_EQ(found(named, kMebibyte - 8192, kMebibyte + 4095), "linux_raid_member 'box:0' 0");
    EXPECT_EQ(found(named, kMebibyte - 4096), "none");
    // Format 0.90: in the last but one whole 64 KiB block, without a name.
    EXPECT_EQ(found(magic, kMebibyte - 65536), "linux_raid_member '' 0");
    EXPECT_EQ(found(magic, kMebibyte - 65536, kMebibyte + 65535), "linux_raid_member '' 0");
}

TEST(Signature, TableOfADiskWithLargeSectors) {
    EXPECT_EQ(found("EFI PART", 4096), "gpt '' 0");
}

TEST(Signature, AnExtOfMoreThan2To32Blocks) {
    std::string superblock(1024, '\0');
    superblock.replace(56, 2, "\x53\xef");
    superblock.replace(4, 4, "\1\0\0\0", 4);
    superblock.replace(24, 1, "\2");
    superblock.replace(96, 1, "\x80");
    superblock.replace(336, 1, "\1");
    EXPECT_EQ(found(superblock, 1024), "ext4 '' " + std::to_string(4096ULL * 0x100000001ULL));
    // Without the feature the upper half belongs to another field.
    superblock.replace(96, 1, "\x40");
    EXPECT_EQ(found(superblock, 1024), "ext4 '' 4096");
}

TEST(Signature, ImpossibleBlockSizesGiveNoSize) {
    std::string ext(1024, '\0');
    ext.replace(56, 2, "\x53\xef");
    ext.replace(4, 1, "\1");
    ext.replace(24, 1, "\7");
    EXPECT_EQ(found(ext, 1024), "ext2 '' 0");
    const std::string xfs = std::string("XFSB");
    EXPECT_EQ(found(xfs + std::string("\0\0\x10\1\0\0\0\0\0\0\0\1", 12)), "xfs '' 0");
    EXPECT_EQ(found(xfs + std::string("\0\0\x10\0\xff\0\0\0\0\0\0\1", 12)), "xfs '' 0");
    EXPECT_EQ(found(xfs + std::string("\0\2\0\0\0\0\0\0\0\0\0\1", 12)), "xfs '' 0");
    EXPECT_EQ(found(xfs + std::string("\0\0\x10\0\0\0\0\0\0\0\0\1", 12)), "xfs '' 4096");
}

TEST(Signature, BootSectorsNeedTheirMark) {
    std::string sector(512, '\0');
    sector.replace(3, 8, "NTFS    ");
    EXPECT_EQ(found(sector), "none");
    sector.replace(510, 2, "\x55\xaa");
    EXPECT_EQ(found(sector), "ntfs '' 0");
}

TEST(Signature, ExtComesBeforeXfs) {
    std::string both = tests::xfsHeader("xfs") + tests::extHeader("ext").substr(512);
    EXPECT_EQ(found(both).substr(0, 10), "ext2 'ext'");
}

TEST(Signature, NothingOnBlankAndOnTinyDevices) {
    EXPECT_EQ(found(""), "none");
    for (const off_t size : {0, 1, 3, 511, 512, 4096}) {
        EXPECT_EQ(found("", 0, size), "none");
    }
    // An image that ends within the bytes that would be read.
    EXPECT_EQ(found("XFSB", 0, 4), "xfs '' 0");
    EXPECT_EQ(found("XFS", 0, 3), "none");
}

TEST(Signature, AReadErrorIsNoEmptyDevice) {
    const base::Descriptor file = imageWith(std::string(4096, 'x'), 0, kMebibyte);
    const failingcalls::Scope scope;
    ASSERT_EQ(textOf(file), "none");
    const int reads = failingcalls::count(Call::ePread);
    ASSERT_GT(reads, 10);
    for (int nth = 1; nth <= reads; ++nth) {
        failingcalls::reset();
        failingcalls::fail(Call::ePread, EIO, nth);
        errno = 0;
        EXPECT_EQ(textOf(file), "unreadable") << nth;
        EXPECT_EQ(errno, EIO);
    }
}

TEST(Signature, AMissingDeviceIsNoEmptyOne) {
    Signature signature;
    signature.mpName = "stale";
    EXPECT_FALSE(sysPartition::readSignature("/nonexistent", &signature));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(signature.mpName, nullptr);
    base::Pipe pipe;
    ASSERT_TRUE(pipe.open());
    EXPECT_FALSE(drivemanager::findSignature(pipe.mRead.get(), signature));
    EXPECT_EQ(errno, ESPIPE);
}
