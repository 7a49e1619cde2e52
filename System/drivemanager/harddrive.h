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
    /// What is known of a drive's partition table.
    enum TableState {
        eTableUnread = 0,       ///< not read: the tool has not been run, or could not be started
        eTableRead = 1,         ///< read; without partitions the table is empty
        eTableToolMissing = 2,  ///< not read: the tool could not be executed
        eTableToolFailed = 3,   ///< not read: the tool failed
    };

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
    /// Rebuilds the list of partitions from what "/sbin/sfdisk -d" prints. If the tool fails, the
    /// list is empty and "waitpid failed" is logged at level 1; a tool that cannot be executed
    /// reports that on standard error as well. The list is also empty if there is no process for
    /// the tool. tableState() tells these cases from a drive without partitions.
    void scanPartitions();

    /// Tells a table that could not be read from an empty one. Both leave a drive without
    /// partitions.
    ///
    /// This and the four operations below describe the last run of "/sbin/sfdisk" for this object,
    /// also after shut() or delPartitions(). They run nothing, do not block and log nothing; one
    /// thread at a time, as for the class.
    /// @return result of the last scanPartitions(), which init(), partitionCustom() and
    /// partitionOneBig() call; eTableUnread before the first one
    TableState tableState() const;
    /// @return raw wait status, as waitpid() gives it, of the tool in the last scanPartitions(); -1
    /// when it was not started or its child could not be waited for
    int tableToolStatus() const;
    /// @return errno of the call that failed in the last scanPartitions(): the start of the tool,
    /// its execution, or the wait for it. 0 when none failed, whatever the status
    int tableToolError() const;
    /// @return as tableToolStatus(), of the tool in the last partitionCustom() or
    /// partitionOneBig(); SIGKILL when it could not be given the whole table and was killed
    int partitionToolStatus() const;
    /// @return as tableToolError(), of the last partitionCustom() or partitionOneBig(), including a
    /// failed write of the table to the tool
    int partitionToolError() const;

    /// Writes a new partition table with up to four primary partitions and rebuilds the list, also
    /// after a failure of the tool. All data of the drive are lost. The caller unmounts its
    /// partitions first; only the tool checks whether one is in use. On a sysDVRDrive call shut()
    /// before and init() after it. A tool that cannot be given the whole table is killed before its
    /// input ends, so that it writes nothing.
    /// @param sizes four sizes in MB of 2048 sectors: -1 is the rest of the disk and the last
    /// partition, any other size of 0 or below ends the table; read only
    /// @return true when "/sbin/sfdisk" exits with status 0; a tool that cannot be executed reports
    /// that on standard error. See partitionToolStatus()
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
};

#endif
