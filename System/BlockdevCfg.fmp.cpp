// SPDX-License-Identifier: MIT
#include "System/BlockdevCfg.fmp.h"

#include "base/log/log.h"

namespace {

constexpr char kSource[] = "BlockdevCfg.fmp";

// The internal disk is behind the box's second PCI bridge. The names depend on that position, not
// on the order of detection.
#define BOX_DISK "/dev/disk/by-path/pci-0000:01:0e.0-scsi-0:0:0:0"

template <class Value>
void writeField(KestrovaOstream& stream, const char* name, Value value) {
    stream << ", " << name << value;
}

template <class Record>
void writeList(KestrovaOstream& stream, const std::vector<Record>& records) {
    stream << "[" << static_cast<unsigned>(records.size()) << "] {";
    for (std::size_t i = 0; i < records.size(); ++i) {
        if (i > 0) {
            stream << ", ";
        }
        records[i].DumpToKestrovaOstream(&stream);
    }
    stream << "}";
}

}  // namespace

BlockdeviceConfig* BlockdeviceConfig::smpBlockdeviceConfig = nullptr;

BlockdeviceConfig::BlockdeviceConfig() : mBlockdevice(1) {
    BlockdevConfig& disk = mBlockdevice[0];
    disk.mBlockdevId = 0;
    disk.mBlockdevType = 1;
    disk.mpBlockdevName = BOX_DISK;
    disk.mPartition.resize(2);

    PartitionConfig& software = disk.mPartition[0];
    software.mPartId = 0;
    software.mFstype = eFstypeExt3;
    software.mUsage = eUsageSoftware;
    software.mpMountPoint = "/boot-sw";
    software.mpPartDevname = BOX_DISK "-part1";
    software.mpBlockdev = &disk;

    PartitionConfig& data = disk.mPartition[1];
    data.mPartId = 1;
    data.mFstype = eFstypeXfs;
    data.mUsage = eUsageData;
    data.mpMountPoint = "/media/data0-1";
    data.mpPartDevname = BOX_DISK "-part2";
    data.mUseItForSettings = true;
    data.mUseItForBulk = true;
    data.mBulkProjectId = 110;
    data.mpBulkSubDir = "/bulk";
    data.mUseItForTemp = true;
    data.mpTempSubDir = "/temp";
    data.mpBlockdev = &disk;
}

BlockdeviceConfig::~BlockdeviceConfig() {
    smpBlockdeviceConfig = nullptr;
}

BlockdeviceConfig* BlockdeviceConfig::CreateInstance() {
    if (smpBlockdeviceConfig != nullptr) {
        base::reportFailedAssertion(kSource, __LINE__, "smpBlockdeviceConfig==NULL");
    }
    smpBlockdeviceConfig = new BlockdeviceConfig;
    const base::PrintAccess access;
    if (base::beginMessageAt(kSource, __LINE__, 2)) {
        KestrovaOstream& console = *pCoutKestrovaOstream;
        console.setFormatFlags(console.formatFlags() | KestrovaOstream::eFlagMark1 |
                               KestrovaOstream::eFlagMark2);
        console.setBase(10);
        console << " *smpBlockdeviceConfig=";
        smpBlockdeviceConfig->DumpToKestrovaOstream(&console);
        console << "\n";
    }
    return smpBlockdeviceConfig;
}

BlockdeviceConfig* BlockdeviceConfig::GetInstance() {
    if (smpBlockdeviceConfig == nullptr) {
        base::reportFailedAssertion(kSource, __LINE__, "smpBlockdeviceConfig!=NULL");
    }
    return smpBlockdeviceConfig;
}

void BlockdeviceConfig::DestroyInstance() {
    if (smpBlockdeviceConfig == nullptr) {
        base::reportFailedAssertion(kSource, __LINE__, "smpBlockdeviceConfig!=NULL");
        return;
    }
    delete smpBlockdeviceConfig;
    smpBlockdeviceConfig = nullptr;
}

void BlockdeviceConfig::GetPartitionsByUsage(unsigned int usage,
                                             KestrovaVector<PartitionConfig*>* out) {
    for (BlockdevConfig& device : mBlockdevice) {
        for (PartitionConfig& partition : device.mPartition) {
            if (partition.mUsage == usage) {
                out->push_back(&partition);
            }
        }
    }
}

PartitionConfig* BlockdeviceConfig::firstByUsage(unsigned int usage) {
    for (BlockdevConfig& device : mBlockdevice) {
        for (PartitionConfig& partition : device.mPartition) {
            if (partition.mUsage == usage) {
                return &partition;
            }
        }
    }
    return nullptr;
}

PartitionConfig* BlockdeviceConfig::GetDataPartition() {
    return firstByUsage(eUsageData);
}

const char* BlockdeviceConfig::GetSoftwarePartitionMountPoint() {
    const PartitionConfig* const software = firstByUsage(eUsageSoftware);
    return software != nullptr ? software->mpMountPoint : "";
}

const char* BlockdeviceConfig::GetSoftwarePartitionMountDevice() {
    const PartitionConfig* const software = firstByUsage(eUsageSoftware);
    return software != nullptr ? software->mpPartDevname : "";
}

const char* BlockdeviceConfig::GetSoftwarePartitionFilesystem() {
    const PartitionConfig* const software = firstByUsage(eUsageSoftware);
    switch (software != nullptr ? software->mFstype : 0) {
        case eFstypeXfs:
            return "xfs";
        case eFstypeExt2:
            return "ext2";
        case eFstypeExt3:
            return "ext3";
        case eFstypeExt4:
            return "ext4";
        default:
            return "";
    }
}

const char* BlockdeviceConfig::GetCustomPartitionMountDevice() {
    const PartitionConfig* const custom = firstByUsage(eUsageCustom);
    return custom != nullptr ? custom->mpPartDevname : "";
}

void BlockdeviceConfig::appendData(bool PartitionConfig::*flag,
                                   KestrovaVector<PartitionConfig*>* out) {
    for (BlockdevConfig& device : mBlockdevice) {
        for (PartitionConfig& partition : device.mPartition) {
            if (partition.mUsage == eUsageData && partition.*flag) {
                out->push_back(&partition);
            }
        }
    }
}

void BlockdeviceConfig::GetSettingsLinuxDevices(KestrovaVector<PartitionConfig*>* out) {
    appendData(&PartitionConfig::mUseItForSettings, out);
}

void BlockdeviceConfig::GetBulkLinuxDevices(KestrovaVector<PartitionConfig*>* out) {
    appendData(&PartitionConfig::mUseItForBulk, out);
}

void BlockdeviceConfig::GetTempLinuxDevices(KestrovaVector<PartitionConfig*>* out) {
    appendData(&PartitionConfig::mUseItForTemp, out);
}

void BlockdeviceConfig::GetIgnoredLinuxDevices(KestrovaVector<PartitionConfig*>* out) {
    for (const unsigned int usage : {eUsageSoftware, eUsageCustom}) {
        if (PartitionConfig* const partition = firstByUsage(usage)) {
            out->push_back(partition);
        }
    }
}

void PartitionConfig::DumpToKestrovaOstream(KestrovaOstream* stream) const {
    *stream << "{"
            << "mPartId=" << mPartId;
    writeField(*stream, "mFstype=", mFstype);
    writeField(*stream, "mUsage=", mUsage);
    writeField(*stream, "mpMountPoint=", mpMountPoint);
    writeField(*stream, "mpPartDevname=", mpPartDevname);
    writeField(*stream, "mUseItForSettings=", mUseItForSettings);
    writeField(*stream, "mUseItForBulk=", mUseItForBulk);
    writeField(*stream, "mBulkProjectId=", mBulkProjectId);
    writeField(*stream, "mpBulkSubDir=", mpBulkSubDir);
    writeField(*stream, "mUseItForTemp=", mUseItForTemp);
    writeField(*stream, "mpTempSubDir=", mpTempSubDir);
    *stream << "}";
}

void BlockdevConfig::DumpToKestrovaOstream(KestrovaOstream* stream) const {
    *stream << "{"
            << "mBlockdevId=" << mBlockdevId;
    writeField(*stream, "mBlockdevType=", mBlockdevType);
    writeField(*stream, "mpBlockdevName=", mpBlockdevName);
    *stream << ", "
            << "mPartition=";
    writeList(*stream, mPartition);
    *stream << "}";
}

void BlockdeviceConfig::DumpToKestrovaOstream(KestrovaOstream* stream) const {
    *stream << "{"
            << "mBlockdevice=";
    writeList(*stream, mBlockdevice);
    *stream << ", "
            << "smpBlockdeviceConfig=" << static_cast<const void*>(smpBlockdeviceConfig) << "}";
}
