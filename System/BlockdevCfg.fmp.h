// SPDX-License-Identifier: MIT
/// @file
/// The purpose of the box's block devices and partitions: a fixed, built-in table.
#ifndef KESTROVA_SYSTEM_BLOCKDEVCFG_FMP_H
#define KESTROVA_SYSTEM_BLOCKDEVCFG_FMP_H

#include <vector>

#include "base/export.h"
#include "base/stream.h"
#include "base/vector.h"

struct BlockdevConfig;

/// File system of a partition. Other codes have no name.
enum PartitionFilesystem : unsigned {
    eFstypeXfs = 1,   ///< "xfs"
    eFstypeExt2 = 2,  ///< "ext2"
    eFstypeExt3 = 3,  ///< "ext3"
    eFstypeExt4 = 4,  ///< "ext4"
};

/// Purpose of a partition.
enum PartitionUsage : unsigned {
    eUsageCustom = 3,    ///< custom area
    eUsageSoftware = 4,  ///< software image
    eUsageData = 5,      ///< settings, bulk and temporary storage
};

/// One partition. A plain record that points to static strings: it owns nothing, and no string
/// pointer is null.
struct KESTROVA_EXPORT PartitionConfig {
    unsigned int mPartId = 0;         ///< index on its device, from 0
    unsigned int mFstype = 0;         ///< a PartitionFilesystem code
    unsigned int mUsage = 0;          ///< a PartitionUsage value
    const char* mpMountPoint = "";    ///< mount directory, "" for none
    const char* mpPartDevname = "";   ///< device node of the partition
    bool mUseItForSettings = false;   ///< holds the settings store
    bool mUseItForBulk = false;       ///< holds bulk (project) data
    unsigned int mBulkProjectId = 0;  ///< project number of the bulk area
    const char* mpBulkSubDir = "";    ///< bulk directory below the mount point, "" for none
    bool mUseItForTemp = false;       ///< holds temporary files
    const char* mpTempSubDir = "";    ///< temporary directory below the mount point, "" for none
    BlockdevConfig* mpBlockdev = nullptr;  ///< the device that lists this partition; not owned

    /// Writes the record as one line of text without a newline, integers in the stream's base. The
    /// caller serialises the use of the stream.
    /// @param stream the destination; not null, not owned
    void DumpToKestrovaOstream(KestrovaOstream* stream) const;
};

/// One block device with its partitions, in order.
struct KESTROVA_EXPORT BlockdevConfig {
    unsigned int mBlockdevId = 0;             ///< index, from 0
    unsigned int mBlockdevType = 0;           ///< kind of device; the built-in disk has 1
    const char* mpBlockdevName = "";          ///< device node of the whole device
    std::vector<PartitionConfig> mPartition;  ///< its partitions, owned here

    /// Writes the device and its partitions. See PartitionConfig::DumpToKestrovaOstream().
    /// @param stream the destination; not null, not owned
    void DumpToKestrovaOstream(KestrovaOstream* stream) const;
};

/// The partition usage table. The system object creates the one instance of the process and
/// destroys it. An application does not call CreateInstance() or DestroyInstance() while the system
/// is up.
///
/// The built-in table has one disk with a software partition (index 0, ext3, mounted on "/boot-sw")
/// and a data partition (index 1, xfs, mounted on "/media/data0-1").
///
/// A query that finds nothing returns "" or a null pointer, or appends nothing. Results point into
/// the table and are valid until DestroyInstance().
///
/// Threads: the table is built before any worker thread runs and never changes afterwards, so any
/// thread may query it without a lock. Queries do not block and do not log.
class KESTROVA_EXPORT BlockdeviceConfig {
public:
    /// Builds the built-in table. It does not become the instance.
    BlockdeviceConfig();
    /// Clears the instance pointer, even if another table is the instance.
    virtual ~BlockdeviceConfig();
    BlockdeviceConfig(const BlockdeviceConfig&) = delete;
    BlockdeviceConfig& operator=(const BlockdeviceConfig&) = delete;

    /// Builds the table, makes it the instance and logs its dump at level 2. If there already is an
    /// instance, logs a failed assertion and replaces it without freeing it. Throws only
    /// std::bad_alloc.
    /// @return the new instance; owned by the class until DestroyInstance()
    static BlockdeviceConfig* CreateInstance();
    /// Logs a failed assertion if there is no instance.
    /// @return the instance, or null
    static BlockdeviceConfig* GetInstance();
    /// Frees the instance. Logs a failed assertion if there is none.
    static void DestroyInstance();

    /// Appends every partition of one usage, in table order.
    /// @param usage a PartitionUsage value; compared for equality, not as a bit mask
    /// @param out appended to, not cleared first
    void GetPartitionsByUsage(unsigned int usage, KestrovaVector<PartitionConfig*>* out);
    /// @return the first data partition, or null
    PartitionConfig* GetDataPartition();
    /// @return the mount directory of the first software partition, or ""
    const char* GetSoftwarePartitionMountPoint();
    /// @return the device node of the first software partition, or ""
    const char* GetSoftwarePartitionMountDevice();
    /// @return the file system of the first software partition, "xfs", "ext2", "ext3" or "ext4", or
    /// ""
    const char* GetSoftwarePartitionFilesystem();
    /// @return the device node of the first custom partition, or ""; the built-in table has none
    const char* GetCustomPartitionMountDevice();
    /// Appends the data partitions that hold the settings store.
    /// @param out appended to, not cleared first
    void GetSettingsLinuxDevices(KestrovaVector<PartitionConfig*>* out);
    /// Appends the data partitions that hold bulk data.
    /// @param out appended to, not cleared first
    void GetBulkLinuxDevices(KestrovaVector<PartitionConfig*>* out);
    /// Appends the data partitions that hold temporary files.
    /// @param out appended to, not cleared first
    void GetTempLinuxDevices(KestrovaVector<PartitionConfig*>* out);
    /// Appends the first software partition and then the first custom partition: the partitions
    /// that device handling must ignore.
    /// @param out appended to, not cleared first
    void GetIgnoredLinuxDevices(KestrovaVector<PartitionConfig*>* out);

    /// Writes the whole table and the address of the instance. See
    /// PartitionConfig::DumpToKestrovaOstream().
    /// @param stream the destination; not null, not owned
    void DumpToKestrovaOstream(KestrovaOstream* stream) const;

protected:
    std::vector<BlockdevConfig> mBlockdevice;  ///< the table

private:
    friend class sysInterface;  // restores the previous system's table if a start fails

    KESTROVA_LOCAL PartitionConfig* firstByUsage(unsigned int usage);
    KESTROVA_LOCAL void appendData(bool PartitionConfig::*flag,
                                   KestrovaVector<PartitionConfig*>* out);

    static BlockdeviceConfig* smpBlockdeviceConfig;
};

#endif
