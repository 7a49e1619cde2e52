// SPDX-License-Identifier: MIT
//
// Prints size and alignment of every public type that a client creates or derives from.
#include <System/BlockdevCfg.fmp.h>
#include <System/KestrovaPOpen.h>
#include <System/bootvarsmanager/sysBootEnvironmentFile.h>
#include <System/bootvarsmanager/sysBootVarsManager.h>
#include <System/drivemanager/drivemanager.h>
#include <System/protocols/http/httpconnection.h>
#include <System/protocols/http/httpreplyheader.h>
#include <System/protocols/http/httpurl.h>
#include <System/protocols/http/sysChainFetcher.h>
#include <System/protocols/http/sysUrlFetcher.h>
#include <System/sysSuperUserUtils.h>
#include <System/system.h>
#include <base/outputlevel.h>

#include <cstdio>

#define SHOW(type) std::printf("%s %u %u\n", #type, unsigned(sizeof(type)), unsigned(alignof(type)))

int main() {
    SHOW(PartitionConfig);
    SHOW(BlockdevConfig);
    SHOW(BlockdeviceConfig);
    SHOW(PartitionFilesystem);
    SHOW(PartitionUsage);
    SHOW(KestrovaChildState);
    SHOW(sysBootEnvironmentFile);
    SHOW(sysBootEnvironmentFile::State);
    SHOW(sysBootVarsManager);
    SHOW(sysDriveManager);
    SHOW(sysDVRDrive);
    SHOW(sysDVRDrive::Status);
    SHOW(sysHardDrive);
    SHOW(sysPartition);
    SHOW(sysPartition::FSType);
    SHOW(HTTPConnection);
    SHOW(HTTPReplyHeader);
    SHOW(httpURL);
    SHOW(sysChainFetcher);
    SHOW(sysUrlFetcher);
    SHOW(sysUrlFetcherCode);
    SHOW(sysSuperUserUtils);
    SHOW(sysInterface);
    SHOW(PrintfOutput);
    SHOW(PrintfOutput::ConvertionFlags);
    SHOW(KestrovaOstream);
    return 0;
}
