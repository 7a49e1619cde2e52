// SPDX-License-Identifier: MIT
//
// One physical disk: identity, size, partitions, standby.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_HARDDRIVE_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_HARDDRIVE_H

#include <cstddef>
#include <string>
#include <vector>

#include "System/drivemanager/partition.h"
#include "base/export.h"

extern "C" {

/// Size of a block device in bytes; 0 on failure. The node is opened for reading and writing.
/// Reports perror "Error opening" when it cannot be opened, and prints "GetSize" to standard output
/// when the kernel (ioctl BLKGETSIZE64, <linux/fs.h>) does not tell; the descriptor stays open
/// then. Does not block for long.
KESTROVA_EXPORT long long get_blk_capacity(const char* device);

/// Asks an open device who it is: ATA identify data (ioctl HDIO_GET_IDENTITY, <linux/hdreg.h>), or
/// else SCSI INQUIRY (ioctl SG_IO, <scsi/sg.h>; at most 3 s). Writes the model and the serial
/// number as terminated texts, cut to the sizes of the buffers in bytes; padding blanks are kept. A
/// SCSI device has no serial text. Returns 0, or -1 when the device answers neither; the buffers
/// are then untouched. Logs nothing.
KESTROVA_EXPORT int get_drive_model(int fd, char* model, std::size_t modelSize, char* serial,
                                    std::size_t serialSize);
}

/// A physical disk with its partitions.
///
/// Threads: no lock of its own, one thread at a time; sysDVRDrive sees to that for its own drive.
/// Every operation that runs a tool blocks until the tool has ended. Failures are told by the
/// result; only allocation failure is thrown.
class KESTROVA_EXPORT sysHardDrive {
public:
    sysHardDrive();
    /// Frees the partitions; unmounts nothing.
    virtual ~sysHardDrive();
    sysHardDrive(const sysHardDrive&) = delete;
    sysHardDrive& operator=(const sysHardDrive&) = delete;

    /// Identifies the drive at a node below "/dev/" and lists its partitions; logs what it found at
    /// level 1. False for another name, and when the node cannot be opened for reading and writing,
    /// the drive does not tell who it is, or it has no size.
    virtual bool init(const char* device);
    /// Forgets the partitions; always true. What is mounted stays mounted.
    virtual bool shut();

    /// How many partitions the partition table lists.
    int numPartitions() const { return static_cast<int>(mPartitions.size()); }
    /// The partition at an index from 0, in the order of the partition table; null beyond them.
    /// Owned by the drive, and valid until its partitions are scanned again or forgotten.
    sysPartition* getPartition(int index);

    /// Adds a partition by its node, size in bytes and type byte, when sysPartition::init() accepts
    /// it; otherwise nothing changes.
    void addPartition(const char* path, unsigned long long capacity, int type);
    /// Frees all partition objects.
    void delPartitions();
    /// Rebuilds the list of partitions from what "/sbin/sfdisk -d" prints. When the tool fails, the
    /// list is empty and "waitpid failed" is logged.
    void scanPartitions();

    /// Writes a new partition table with up to four primary partitions and rebuilds the list.
    /// `sizes` points to four sizes in MB: -1 is the rest of the disk and the last partition, any
    /// other size of 0 or below ends the table. True when "/sbin/sfdisk" ends with status 0. All
    /// data of the drive are lost. On a sysDVRDrive call shut() before and init() after it.
    bool partitionCustom(int* sizes);
    /// One partition over the whole disk; as partitionCustom().
    bool partitionOneBig();

    /// Sends the drive to standby now and after every 120 s of idle time; true when both commands
    /// succeeded. Writes everything buffered first.
    bool spinDown();
    /// Sends the drive to standby after every 120 s of idle time; true when the command succeeded.
    bool spinDownDelayed();
    /// Wakes the drive and switches its standby timer off. False when it cannot be opened; the
    /// result of the command is not looked at.
    bool spinUp();

protected:
    std::string mDevice;
    std::string mModel;
    std::string mSerial;
    std::vector<sysPartition*> mPartitions;
    unsigned long long mCapacity = 0;

private:
    KESTROVA_LOCAL bool identify(const char* device);
    KESTROVA_LOCAL bool runHdparm(const char* option);
};

#endif
