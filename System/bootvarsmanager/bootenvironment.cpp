// SPDX-License-Identifier: MIT
#include "System/bootvarsmanager/bootenvironment.h"

#include <cstdio>
#include <vector>

#include "System/bootvarsmanager/environmentfiles.h"
#include "System/bootvarsmanager/softwarepartition.h"
#include "base/log/log.h"

namespace {

constexpr char kSource[] = "System/bootvarsmanager/sysBootVarsManager";

/// The slash in the paths is doubled; it does no harm, and released versions log it so.
EnvironmentFiles filesOf(const SoftwarePartitionAccess& partition) {
    const std::string& directory = partition.mountPoint();
    return {directory, directory + "//boot_env", directory + "//boot_env.bkp",
            directory + "//boot_env.tmp"};
}

}  // namespace

bool loadEnvironment(BootVariables& vars, bool& loadedFromPrimary) {
    const SoftwarePartitionAccess partition(eMsReadOnly);
    if (!partition.mounted()) {
        base::logMessageAt(kSource, __LINE__, 1, "Unable to mount device\n");
        return false;
    }
    const EnvironmentReading reading =
        loadEnvironmentFiles(filesOf(partition), kBootEnvFileSize, vars);
    if (reading.loaded()) {
        loadedFromPrimary = reading.fromPrimary();
    }
    return reading.loaded();
}

bool saveEnvironment(BootVariables& vars, bool& loadedFromPrimary) {
    const SoftwarePartitionAccess partition(eMsReadWrite);
    if (!partition.mounted()) {
        base::logMessageAt(kSource, __LINE__, 1, "Unable to mount device\n");
        return false;
    }
    if (!vars.fits()) {
        (void)std::fputs("Environment too big for flash\n", stderr);
        return false;
    }
    std::vector<char>& image = vars.image();
    completeImage(image);
    base::logMessageAt(kSource, __LINE__, 1, "Created environment buffer of size %d\n",
                       static_cast<int>(image.size()));
    if (installEnvironment(filesOf(partition), image, loadedFromPrimary) != InstallStep::eNone) {
        return false;
    }
    loadedFromPrimary = true;
    return true;
}

bool loadEnvironment(std::map<std::string, std::string>& vars, bool& loadedFromPrimary) {
    BootVariables loaded(kBootEnvHeaderSize, kBootEnvAreaSize);
    if (!loadEnvironment(loaded, loadedFromPrimary)) {
        return false;
    }
    for (std::size_t place = 0; place < loaded.count(); ++place) {
        const BootRecord record = loaded.at(place);
        vars.insert_or_assign(std::string(record.mKey), std::string(record.mValue));
    }
    return true;
}

bool saveEnvironment(const std::map<std::string, std::string>& vars, bool& loadedFromPrimary) {
    BootVariables records(kBootEnvHeaderSize, kBootEnvAreaSize);
    for (const auto& [key, value] : vars) {
        records.set(key, value);
    }
    return saveEnvironment(records, loadedFromPrimary);
}
