// SPDX-License-Identifier: MIT
#include "System/drivemanager/signature.h"

#include <endian.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "base/io/descriptor.h"

namespace drivemanager {

namespace {

using Signature = sysPartition::Signature;

/// Reads a device. After the first failed read all further reads fail.
class Device {
public:
    explicit Device(int descriptor)
        : mDescriptor(descriptor), mSize(::lseek(descriptor, 0, SEEK_END)) {}

    /// Returns false after a failed call, with errno set.
    bool readable() const { return mSize >= 0; }
    off_t size() const { return mSize; }

    /// Returns false without an error if the device is too small.
    bool read(off_t at, void* buffer, std::size_t length) {
        if (at < 0 || at > mSize - static_cast<off_t>(length)) {
            return false;
        }
        errno = EIO;  // if the device has shrunk since its size was read
        if (!base::readAt(mDescriptor, at, buffer, length)) {
            mSize = -1;
            return false;
        }
        return true;
    }

    bool matches(off_t at, const char* bytes, std::size_t length) {
        char found[16];
        return read(at, found, length) && std::memcmp(found, bytes, length) == 0;
    }

    std::uint16_t little16(off_t at) { return le16toh(number<std::uint16_t>(at)); }
    std::uint32_t little32(off_t at) { return le32toh(number<std::uint32_t>(at)); }
    std::uint64_t little64(off_t at) { return le64toh(number<std::uint64_t>(at)); }
    std::uint16_t big16(off_t at) { return be16toh(number<std::uint16_t>(at)); }
    std::uint32_t big32(off_t at) { return be32toh(number<std::uint32_t>(at)); }
    std::uint64_t big64(off_t at) { return be64toh(number<std::uint64_t>(at)); }

private:
    /// Returns 0 if the number cannot be read.
    template <class Number>
    Number number(off_t at) {
        Number value = 0;
        return read(at, &value, sizeof(value)) ? value : 0;
    }

    int mDescriptor;
    off_t mSize;
};

/// Origin of a row's offsets.
enum class From {
    eStart,       ///< the start of the device
    eRaidEnd,     ///< the superblock of md format 1.0, at the end of the device
    eOldRaidEnd,  ///< the superblock of md format 0.90, at the end of the device
};

constexpr std::size_t kLabelLimit = sizeof(Signature::mLabel) - 1;

/// Reads the details of one kind of signature. Returns false if the signature is not valid after
/// all.
using Details = bool (*)(Device& device, off_t magicAt, Signature& signature);

/// One known signature. The bytes at mMagicAt identify it; its label, if it has one, is the text at
/// mLabelAt, terminated by a NUL or after mLabelSize bytes.
struct Row {
    const char* mName;
    From mFrom;
    off_t mMagicAt;
    const char* mMagic;
    std::size_t mMagicSize;
    off_t mLabelAt;
    std::size_t mLabelSize;
    Details mDetails;
};

/// Reads a label without the trailing blanks with which some formats pad the field.
void readLabel(Device& device, off_t at, std::size_t size, Signature& signature) {
    char label[kLabelLimit + 1] = "";
    if (size == 0 || !device.read(at, label, size)) {
        return;
    }
    std::size_t length = ::strnlen(label, size);
    while (length > 0 && label[length - 1] == ' ') {
        --length;
    }
    std::memcpy(signature.mLabel, label, length);
    signature.mLabel[length] = '\0';
}

/// Returns the size of a number of blocks in bytes; 0 if the block size is not a power of two that
/// a kernel supports.
unsigned long long bytesOf(std::uint64_t blocks, std::uint64_t blockSize) {
    constexpr std::uint64_t largest = 1U << 16U;
    const bool possible = blockSize != 0 && blockSize <= largest &&
                          (blockSize & (blockSize - 1)) == 0 && blocks <= UINT64_MAX / blockSize;
    return possible ? blocks * blockSize : 0;
}

// struct ext4_super_block, at byte 1024 (fs/ext4/ext4.h). ext2 has no journal; ext4 has at least
// one feature that ext3 does not support.
bool extDetails(Device& device, off_t /*magicAt*/, Signature& signature) {
    constexpr off_t superblock = 1024;
    constexpr std::uint32_t journal = 0x4;        // EXT4_FEATURE_COMPAT_HAS_JOURNAL
    constexpr std::uint32_t ext3Incompat = 0x16;  // EXT3_FEATURE_INCOMPAT_SUPP
    constexpr std::uint32_t ext3RoCompat = 0x7;   // EXT3_FEATURE_RO_COMPAT_SUPP
    constexpr std::uint32_t wide = 0x80;          // EXT4_FEATURE_INCOMPAT_64BIT
    constexpr std::uint32_t largestLogSize = 6;   // 64 KiB

    const std::uint32_t compat = device.little32(superblock + 92);
    const std::uint32_t incompat = device.little32(superblock + 96);
    const std::uint32_t roCompat = device.little32(superblock + 100);
    if ((incompat & ~ext3Incompat) != 0 || (roCompat & ~ext3RoCompat) != 0) {
        signature.mpName = "ext4";
    } else if ((compat & journal) != 0) {
        signature.mpName = "ext3";
    }
    std::uint64_t blocks = device.little32(superblock + 4);
    if ((incompat & wide) != 0) {
        blocks |= std::uint64_t{device.little32(superblock + 336)} << 32U;
    }
    const std::uint32_t logSize = device.little32(superblock + 24);
    signature.mSize = logSize <= largestLogSize ? bytesOf(blocks, 1024U << logSize) : 0;
    return true;
}

// struct xfs_dsb (fs/xfs/libxfs/xfs_format.h): sb_blocksize, sb_dblocks; big-endian.
bool xfsDetails(Device& device, off_t /*magicAt*/, Signature& signature) {
    signature.mSize = bytesOf(device.big64(8), device.big32(4));
    return true;
}

// struct btrfs_super_block, at 64 KiB (include/uapi/linux/btrfs_tree.h): total_bytes, which counts
// every device of the file system; the size on this one is dev_item.total_bytes.
bool btrfsDetails(Device& device, off_t /*magicAt*/, Signature& signature) {
    constexpr off_t superblock = 65536;
    signature.mSize = device.little64(superblock + 201 + 8);
    return true;
}

// Only version 2 has a label (LUKS2 On-Disk Format Specification).
bool luksDetails(Device& device, off_t /*magicAt*/, Signature& signature) {
    constexpr std::uint16_t versionWithLabel = 2;
    if (device.big16(6) != versionWithLabel) {
        signature.mLabel[0] = '\0';
    }
    return true;
}

// struct label_header (lib/label/label.h of LVM2): the type follows the magic.
bool lvmDetails(Device& device, off_t magicAt, Signature& /*signature*/) {
    return device.matches(magicAt + 24, "LVM2 001", 8);
}

// The mark at the end of every PC boot sector.
bool bootSectorDetails(Device& device, off_t /*magicAt*/, Signature& /*signature*/) {
    return device.matches(510, "\x55\xaa", 2);
}

// struct fat_boot_sector (include/uapi/linux/msdos_fs.h). "NO NAME" means that there is no label.
bool fatDetails(Device& device, off_t magicAt, Signature& signature) {
    if (std::strcmp(signature.mLabel, "NO NAME") == 0) {
        signature.mLabel[0] = '\0';
    }
    return bootSectorDetails(device, magicAt, signature);
}

// In search order; ext comes first, as in sysPartition::init(). Offsets and sizes are from the
// kernel's structures, unless a comment names another source. Names are those that blkid(8) prints.
constexpr Row kRows[] = {
    // struct ext4_super_block at 1024: s_magic 56, s_volume_name 120
    {"ext2", From::eStart, 1080, "\x53\xef", 2, 1144, 16, extDetails},
    // struct xfs_dsb: sb_magicnum 0, sb_fname 108
    {"xfs", From::eStart, 0, "XFSB", 4, 108, 12, xfsDetails},
    // struct btrfs_super_block at 65536: magic 64, label 299
    {"btrfs", From::eStart, 65600, "_BHRfS_M", 8, 65835, 256, btrfsDetails},
    // struct luks2_hdr_disk: magic 0, label 24
    {"crypto_LUKS", From::eStart, 0, "LUKS\xba\xbe", 6, 24, 48, luksDetails},
    // struct label_header, in one of the first four sectors
    {"LVM2_member", From::eStart, 0, "LABELONE", 8, 0, 0, lvmDetails},
    {"LVM2_member", From::eStart, 512, "LABELONE", 8, 0, 0, lvmDetails},
    {"LVM2_member", From::eStart, 1024, "LABELONE", 8, 0, 0, lvmDetails},
    {"LVM2_member", From::eStart, 1536, "LABELONE", 8, 0, 0, lvmDetails},
    // struct mdp_superblock_1 (include/uapi/linux/raid/md_p.h): magic 0, set_name 32
    {"linux_raid_member", From::eStart, 0, "\xfc\x4e\x2b\xa9", 4, 32, 32, nullptr},
    {"linux_raid_member", From::eStart, 4096, "\xfc\x4e\x2b\xa9", 4, 4128, 32, nullptr},
    {"linux_raid_member", From::eRaidEnd, 0, "\xfc\x4e\x2b\xa9", 4, 32, 32, nullptr},
    {"linux_raid_member", From::eOldRaidEnd, 0, "\xfc\x4e\x2b\xa9", 4, 0, 0, nullptr},
    // union swap_header (include/linux/swap.h), pages of 4 KiB: magic at the end of the first page,
    // volume_name 1052
    {"swap", From::eStart, 4086, "SWAPSPACE2", 10, 1052, 16, nullptr},
    {"swap", From::eStart, 4086, "SWAP-SPACE", 10, 0, 0, nullptr},
    // struct iso_primary_descriptor at 32768 (include/uapi/linux/iso_fs.h): id 1, volume_id 40
    {"iso9660", From::eStart, 32769, "CD001", 5, 32808, 32, nullptr},
    // NTFS_BOOT_SECTOR (fs/ntfs3/ntfs.h) and struct boot_sector (fs/exfat/exfat_raw.h)
    {"ntfs", From::eStart, 3, "NTFS    ", 8, 0, 0, bootSectorDetails},
    {"exfat", From::eStart, 3, "EXFAT   ", 8, 0, 0, bootSectorDetails},
    // struct fat_boot_sector: fat32.fs_type 82, fat32.vol_label 71, fat16.fs_type 54,
    // fat16.vol_label 43
    {"vfat", From::eStart, 82, "FAT32   ", 8, 71, 11, fatDetails},
    {"vfat", From::eStart, 54, "FAT16   ", 8, 43, 11, fatDetails},
    {"vfat", From::eStart, 54, "FAT12   ", 8, 43, 11, fatDetails},
    {"vfat", From::eStart, 54, "FAT     ", 8, 43, 11, fatDetails},
    // struct _gpt_header in the second sector (block/partitions/efi.h), sectors of 512 and 4096
    {"gpt", From::eStart, 512, "EFI PART", 8, 0, 0, nullptr},
    {"gpt", From::eStart, 4096, "EFI PART", 8, 0, 0, nullptr},
};

/// Returns the byte from which a row's offsets count; negative if the device is too small.
off_t origin(From from, off_t size) {
    constexpr off_t sector = 512;
    constexpr off_t raidAlignment = 4096;  // super_1_load() in drivers/md/md.c
    constexpr off_t raidReserved = 16 * sector;
    constexpr off_t oldRaidReserved = 65536;  // MD_RESERVED_BYTES in md_p.h
    switch (from) {
        case From::eRaidEnd:
            return size < raidReserved ? -1 : (size - raidReserved) / raidAlignment * raidAlignment;
        case From::eOldRaidEnd:
            return size / oldRaidReserved * oldRaidReserved - oldRaidReserved;
        default:
            return 0;
    }
}

bool recognise(Device& device, const Row& row, Signature& signature) {
    const off_t start = origin(row.mFrom, device.size());
    const off_t magicAt = start + row.mMagicAt;
    if (start < 0 || !device.matches(magicAt, row.mMagic, row.mMagicSize)) {
        return false;
    }
    signature.mpName = row.mName;
    readLabel(device, start + row.mLabelAt, row.mLabelSize, signature);
    if (row.mDetails != nullptr && !row.mDetails(device, magicAt, signature)) {
        signature = Signature();
        return false;
    }
    return true;
}

}  // namespace

bool findSignature(int descriptor, Signature& signature) {
    signature = Signature();
    Device device(descriptor);
    for (const Row& row : kRows) {
        if (!device.readable() || recognise(device, row, signature)) {
            break;
        }
    }
    if (!device.readable()) {
        signature = Signature();
        return false;
    }
    return true;
}

}  // namespace drivemanager
