// SPDX-License-Identifier: MIT
//
// Recognises the contents of a device by the signatures that file systems, volume managers and
// partition tables write at fixed positions.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_SIGNATURE_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_SIGNATURE_H

#include "System/drivemanager/partition.h"

namespace drivemanager {

/// Looks for a known signature on an open device or image file and fills `signature`. If the device
/// holds none, mpName is null. Returns false, with errno set, if the device cannot be read.
bool findSignature(int descriptor, sysPartition::Signature& signature);

}  // namespace drivemanager

#endif
