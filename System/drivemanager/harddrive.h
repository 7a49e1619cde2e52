// SPDX-License-Identifier: MIT
/// @file
/// One physical disk: identity, size, partitions, standby.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_HARDDRIVE_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_HARDDRIVE_H

#include <cstddef>
#include <string>
#include <vector>

#include "System/drivemanager/partition.h"
#include "base/export.h"

extern "C" {

/// Size of a block device. Reports perror "Error opening" when it cannot be opened, and prints
/// "GetSize" to standard output when the kernel (ioctl BLKGETSIZE64, `linux/fs.h`) does not tell;
/// the descriptor stays open then. Does not block for long.
/// @param device its node, opened for reading and writing
/// @return bytes; 0 on failure
KESTROVA_EXPORT long long get_blk_capacity(const char* device);

/// Asks an open device who it is: ATA identify data (ioctl HDIO_GET_IDENTITY, `linux/hdreg.h`), or
/// else SCSI INQUIRY (ioctl SG_IO, `scsi/sg.h`; at most 3 s). The texts are terminated and cut to
/// the buffers; padding blanks are kept. Logs nothing.
/// @param fd the open device
/// @param[out] model model text
/// @param modelSize room in it, in bytes
/// @param[out] serial serial number; empty for a SCSI device
/// @param serialSize room in it, in bytes
/// @return 0; -1 with the buffers untouched when the device answers neither
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
    /// No disk, no partitions.
    sysHardDrive();
    /// Frees the partitions; unmounts nothing.
    virtual ~sysHardDrive();
    sysHardDrive(const sysHardDrive&) = delete;
    sysHardDrive& operator=(const sysHardDrive&) = delete;

    /// Identifies a drive and lists its partitions; logs what it found at level 1. Partitions that
    /// cannot be listed are no failure: there are none then, as scanPartitions() tells.
    /// @param device its node, below "/dev/"
    /// @return false for another name or null, and when the node cannot be opened for reading and
    /// writing, the drive does not tell who it is, or it has no size (as get_blk_capacity() tells;
    /// the others tell nothing)
    virtual bool init(const char* device);
    /// Forgets the partitions. What is mounted stays mounted.
    /// @return true always
    virtual bool shut();

    /// @return how many partitions the partition table lists
    int numPartitions() const { return static_cast<int>(mPartitions.size()); }
    /// One partition, in the order of the partition table.
    /// @param index from 0
    /// @return null when there is none; owned by the drive, and valid until its partitions are
    /// scanned again or forgotten
    sysPartition* getPartition(int index);

    /// Adds a partition when sysPartition::init() accepts it; otherwise nothing changes.
    /// @param path its node
    /// @param capacity its size in bytes
    /// @param type the partition table's type byte
    void addPartition(const char* path, unsigned long long capacity, int type);
    /// Frees all partition objects.
    void delPartitions();
    /// Rebuilds the list of partitions from what "/sbin/sfdisk -d" prints. When the tool fails, the
    /// list is empty and "waitpid failed" is logged at level 1; a tool that cannot be executed is
    /// told on standard error as well. Without a process for it the list is empty, too.
    void scanPartitions();

    /// Writes a new partition table with up to four primary partitions and rebuilds the list, also
    /// after a failure of the tool. All data of the drive are lost. The caller unmounts them first;
    /// only the tool looks whether one is in use. On a sysDVRDrive call shut() before and init()
    /// after it.
    /// @param sizes four sizes in MB of 2048 sectors: -1 is the rest of the disk and the last
    /// partition, any other size of 0 or below ends the table; read only
    /// @return true when "/sbin/sfdisk" ends with status 0; what fails is told on standard error
    bool partitionCustom(int* sizes);
    /// One partition over the whole disk; otherwise as partitionCustom().
    /// @return as there
    bool partitionOneBig();

    /// Sends the drive to standby now and after every 120 s of idle time ("/sbin/hdparm -S24", then
    /// "-y"). Writes everything buffered first, and logs at level 1.
    /// @return true when both commands succeeded
    bool spinDown();
    /// Sends the drive to standby after every 120 s of idle time ("/sbin/hdparm -S24"). Writes
    /// everything buffered first, and logs at level 1.
    /// @return true when the command succeeded
    bool spinDownDelayed();
    /// Wakes the drive by a read and switches its standby timer off ("/sbin/hdparm -S0").
    /// @return false when it cannot be opened; the result of the command is not looked at
    bool spinUp();

protected:
    std::string mDevice;                     ///< node; empty until init() succeeds
    std::string mModel;                      ///< model, "Unknown Drive" when the drive tells none
    std::string mSerial;                     ///< serial number, "N/A" when the drive tells none
    std::vector<sysPartition*> mPartitions;  ///< owned, in the order of the partition table
    unsigned long long mCapacity = 0;        ///< size of the drive in bytes

private:
    KESTROVA_LOCAL bool identify(const char* device);
    KESTROVA_LOCAL bool runHdparm(const char* option);
};

#endif
