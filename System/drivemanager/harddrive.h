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

/// Returns the size of a block device. Reports perror "Error opening" if the device cannot be
/// opened. If the kernel does not return a size (ioctl BLKGETSIZE64, `linux/fs.h`), prints
/// "GetSize" to standard output and leaves the descriptor open. Does not block for long.
/// @param device device node, opened for reading and writing
/// @return bytes; 0 on failure
KESTROVA_EXPORT long long get_blk_capacity(const char* device);

/// Reads the identity of an open device: ATA identify data (ioctl HDIO_GET_IDENTITY,
/// `linux/hdreg.h`), or if that fails SCSI INQUIRY (ioctl SG_IO, `scsi/sg.h`; at most 3 s). The
/// texts are terminated and truncated to the buffers; padding blanks are kept. Logs nothing.
/// @param fd the open device
/// @param[out] model model text
/// @param modelSize size of `model` in bytes
/// @param[out] serial serial number; empty for a SCSI device
/// @param serialSize size of `serial` in bytes
/// @return 0; -1 with the buffers unchanged if the device answers neither request
KESTROVA_EXPORT int get_drive_model(int fd, char* model, std::size_t modelSize, char* serial,
                                    std::size_t serialSize);
}

/// A physical disk with its partitions.
///
/// Threads: no lock; one thread at a time may use an object. sysDVRDrive ensures this for its own
/// operations. Every operation that runs a tool blocks until the tool has exited. Failures are
/// reported by the result; the only exception is std::bad_alloc.
class KESTROVA_EXPORT sysHardDrive {
public:
    /// State of a drive's partition table.
    enum TableState {
        eTableUnread = 0,       ///< not read: the tool has not been run, or could not be started
        eTableRead = 1,         ///< read; the table is empty if there are no partitions
        eTableToolMissing = 2,  ///< not read: the tool could not be executed
        eTableToolFailed = 3,   ///< not read: the tool failed
    };

    /// No disk, no partitions.
    sysHardDrive();
    /// Frees the partitions; unmounts nothing.
    virtual ~sysHardDrive();
    sysHardDrive(const sysHardDrive&) = delete;
    sysHardDrive& operator=(const sysHardDrive&) = delete;

    /// Identifies a drive and lists its partitions; logs what it found at level 1. Succeeds without
    /// partitions if they cannot be listed; see scanPartitions().
    /// @param device device node, below "/dev/"
    /// @return false if the name is null or not below "/dev/", the node cannot be opened for
    /// reading and writing, the drive does not answer an identity request, or it has no size. Only
    /// the last case is reported; see get_blk_capacity()
    virtual bool init(const char* device);
    /// Forgets the partitions. Mounted file systems stay mounted.
    /// @return always true
    virtual bool shut();

    /// @return the number of partitions in the partition table
    int numPartitions() const { return static_cast<int>(mPartitions.size()); }
    /// Returns one partition, in the order of the partition table.
    /// @param index from 0
    /// @return null if there is none; owned by the drive, and valid until its partitions are
    /// scanned again or forgotten
    sysPartition* getPartition(int index);

    /// Adds a partition if sysPartition::init() accepts it; otherwise changes nothing.
    /// @param path device node
    /// @param capacity size in bytes
    /// @param type the partition table's type byte
    void addPartition(const char* path, unsigned long long capacity, int type);
    /// Frees all partition objects.
    void delPartitions();
    /// Rebuilds the list of partitions from the output of "/sbin/sfdisk -d". If the tool fails, the
    /// list is empty and "waitpid failed" is logged at level 1; a tool that cannot be executed
    /// reports that on standard error as well. The list is also empty if fork() fails. tableState()
    /// distinguishes these cases from a drive without partitions.
    void scanPartitions();

    /// Distinguishes a table that could not be read from an empty one. Both leave a drive without
    /// partitions.
    ///
    /// This and the four operations below describe the last run of "/sbin/sfdisk" for this object,
    /// even after shut() or delPartitions(). They run nothing, do not block and log nothing; one
    /// thread at a time, as for the class.
    /// @return the result of the last scanPartitions(), which init(), partitionCustom() and
    /// partitionOneBig() call; eTableUnread before the first one
    TableState tableState() const;
    /// @return the raw wait status, as waitpid() returns it, of the tool in the last
    /// scanPartitions(); -1 if the tool was not started or waitpid() failed
    int tableToolStatus() const;
    /// @return the errno of the call that failed in the last scanPartitions(): the start of the
    /// tool, its execution, or the wait for it; 0 if none failed, whatever the tool's status
    int tableToolError() const;
    /// @return the raw wait status of the tool in the last partitionCustom() or partitionOneBig(),
    /// as tableToolStatus() returns it; SIGKILL if the tool could not be given the whole table and
    /// was killed
    int partitionToolStatus() const;
    /// @return the errno of the call that failed in the last partitionCustom() or
    /// partitionOneBig(), as tableToolError() returns it; a failed write of the table to the tool
    /// is included
    int partitionToolError() const;

    /// Writes a new partition table with up to four primary partitions and rebuilds the list, even
    /// if the tool fails. All data of the drive is lost. The caller unmounts its partitions first;
    /// only the tool checks whether one is in use. On a sysDVRDrive call shut() before and init()
    /// after it. A tool that cannot be given the whole table is killed before it sees the end of
    /// its input, so that it writes nothing.
    /// @param sizes four sizes in MB of 2048 sectors: -1 is the rest of the disk and the last
    /// partition, any other size of 0 or below ends the table; not changed
    /// @return true if "/sbin/sfdisk" exits with status 0; a tool that cannot be executed reports
    /// that on standard error. See partitionToolStatus()
    bool partitionCustom(int* sizes);
    /// Writes one partition over the whole disk. See partitionCustom().
    /// @return true if "/sbin/sfdisk" exits with status 0
    bool partitionOneBig();

    /// Sends the drive to standby now and after every 120 s of idle time ("/sbin/hdparm -S24", then
    /// "-y"). Flushes all buffered data first. Logs at level 1.
    /// @return true if both commands succeeded
    bool spinDown();
    /// Sends the drive to standby after every 120 s of idle time ("/sbin/hdparm -S24"). Flushes all
    /// buffered data first. Logs at level 1.
    /// @return true if the command succeeded
    bool spinDownDelayed();
    /// Wakes the drive with a read and disables its standby timer ("/sbin/hdparm -S0").
    /// @return false if the drive cannot be opened; the result of the command is ignored
    bool spinUp();

protected:
    std::string mDevice;                     ///< node; empty until init() succeeds
    std::string mModel;                      ///< model, "Unknown Drive" if the drive reports none
    std::string mSerial;                     ///< serial number, "N/A" if the drive reports none
    std::vector<sysPartition*> mPartitions;  ///< owned, in the order of the partition table
    unsigned long long mCapacity = 0;        ///< size of the drive in bytes

private:
    KESTROVA_LOCAL bool identify(const char* device);
};

#endif
