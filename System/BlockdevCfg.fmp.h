// SPDX-License-Identifier: MIT
/// @file
/// What the box's block devices and partitions are for: a fixed, built-in table.
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

/// What a partition is for.
enum PartitionUsage : unsigned {
    eUsageCustom = 3,    ///< custom area
    eUsageSoftware = 4,  ///< software image
    eUsageData = 5,      ///< settings, bulk and temporary storage
};

/// One partition. A plain record of static texts: it frees nothing, and no text is null.
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

    /// Writes the record as one line of text, without a line end, integers in the base of the
    /// stream. The caller serialises the use of the stream.
    /// @param stream where to; not null
    void DumpToKestrovaOstream(KestrovaOstream* stream) const;
};

/// One block device with its partitions, in order.
struct KESTROVA_EXPORT BlockdevConfig {
    unsigned int mBlockdevId = 0;             ///< index, from 0
    unsigned int mBlockdevType = 0;           ///< kind of device; the built-in disk has 1
    const char* mpBlockdevName = "";          ///< device node of the whole device
    std::vector<PartitionConfig> mPartition;  ///< its partitions, owned here

    /// As PartitionConfig::DumpToKestrovaOstream(), for the device and its partitions.
    /// @param stream where to; not null
    void DumpToKestrovaOstream(KestrovaOstream* stream) const;
};

/// The table; one instance for the process, made and destroyed by the system object.
///
/// Built before any worker thread runs and only read afterwards: any thread may query it, nothing
/// blocks and no lock is taken. Results point into the table and are valid until DestroyInstance().
/// Queries do not fail and do not log; what is not there is "", a null pointer or nothing appended.
/// CreateInstance() and DestroyInstance() are the system object's: an application calls neither
/// while the system is up.
class KESTROVA_EXPORT BlockdeviceConfig {
public:
    /// Builds the built-in table; does not make it the instance.
    BlockdeviceConfig();
    /// Leaves no instance, whichever table is destroyed.
    virtual ~BlockdeviceConfig();
    BlockdeviceConfig(const BlockdeviceConfig&) = delete;
    BlockdeviceConfig& operator=(const BlockdeviceConfig&) = delete;

    /// Builds the table, makes it the instance and logs its dump at level 2. When there already is
    /// an instance, that is reported as a failed assertion and the earlier one is replaced, not
    /// freed. Only allocation failure is thrown.
    /// @return the new instance; owned here until DestroyInstance()
    static BlockdeviceConfig* CreateInstance();
    /// Reports a failed assertion when there is no instance.
    /// @return the instance, or null
    static BlockdeviceConfig* GetInstance();
    /// Frees the instance. When there is none, reports a failed assertion.
    static void DestroyInstance();

    /// Appends every partition of one usage, in the order of the table.
    /// @param usage a PartitionUsage value, compared as a whole
    /// @param out appended to, not cleared first
    void GetPartitionsByUsage(unsigned int usage, KestrovaVector<PartitionConfig*>* out);
    /// @return the first data partition, or null
    PartitionConfig* GetDataPartition();
    /// @return mount directory of the first software partition, or ""
    const char* GetSoftwarePartitionMountPoint();
    /// @return device node of the first software partition, or ""
    const char* GetSoftwarePartitionMountDevice();
    /// @return "xfs", "ext2", "ext3" or "ext4" as the first software partition has it, else ""
    const char* GetSoftwarePartitionFilesystem();
    /// @return device node of the first custom partition, or ""; the built-in table has none
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
    /// Appends the first software and the first custom partition: those to be left alone as
    /// devices.
    /// @param out appended to, not cleared first
    void GetIgnoredLinuxDevices(KestrovaVector<PartitionConfig*>* out);

    /// As PartitionConfig::DumpToKestrovaOstream(), for the whole table and the instance's address.
    /// @param stream where to; not null
    void DumpToKestrovaOstream(KestrovaOstream* stream) const;

protected:
    std::vector<BlockdevConfig> mBlockdevice;  ///< the table

private:
    KESTROVA_LOCAL PartitionConfig* firstByUsage(unsigned int usage);
    KESTROVA_LOCAL void appendData(bool PartitionConfig::*flag,
                                   KestrovaVector<PartitionConfig*>* out);

    static BlockdeviceConfig* smpBlockdeviceConfig;
};

#endif
