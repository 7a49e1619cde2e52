// SPDX-License-Identifier: MIT
#include "System/bootvarsmanager/environmentfiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "base/io/descriptor.h"
#include "base/io/file.h"
#include "base/log/log.h"

namespace {

constexpr char kSource[] = "System/bootvarsmanager/sysBootVarsManager";

constexpr unsigned kFileMode = 0777;

EnvironmentFinding loadFile(const std::string& path, std::size_t most, BootVariables& vars) {
    base::logMessageAt(kSource, __LINE__, 1, "Path: %s\n", path.c_str());
    // No valid file is longer, so the rest of a damaged one is never read, however large it is.
    std::vector<char> image;
    if (!base::readFileStart(path.c_str(), kBootEnvFileSize, image)) {
        return {EnvironmentDefect::eUnreadable, errno};
    }
    BootEnvHeader header = {};
    const EnvironmentDefect defect =
        findDefect(header, reinterpret_cast<const unsigned char*>(image.data()),
                   static_cast<unsigned>(image.size()));
    if (defect != EnvironmentDefect::eNone) {
        return {defect, 0};
    }
    if (header.size + kBootEnvHeaderSize > most) {
        return {EnvironmentDefect::eTooLarge, 0};
    }
    vars.assign(std::move(image), header.size);
    return {};
}

bool moveFile(int line, const std::string& from, const std::string& to) {
    base::logMessageAt(kSource, line, 1, "Moving %s -> %s\n", from.c_str(), to.c_str());
    return std::rename(from.c_str(), to.c_str()) == 0;
}

}  // namespace

EnvironmentReading loadEnvironmentFiles(const EnvironmentFiles& files, std::size_t most,
                                        BootVariables& vars) {
    EnvironmentReading reading;
    reading.mPrimary = loadFile(files.mPrimary, most, vars);
    if (!reading.fromPrimary()) {
        base::logMessageAt(kSource, __LINE__, 1,
                           "Failed to read primary environment - trying backup\n");
        reading.mBackup = loadFile(files.mBackup, most, vars);
    }
    return reading;
}

InstallStep installEnvironment(const EnvironmentFiles& files, const std::vector<char>& image,
                               bool loadedFromPrimary) {
    base::logMessageAt(kSource, __LINE__, 1, "Path: %s\n", files.mTemporary.c_str());
    if (kestrova_file_create_with_data(files.mTemporary.c_str(), kFileMode, image.data(),
                                       static_cast<unsigned>(image.size())) < 0) {
        base::logMessageAt(kSource, __LINE__, 1, "Failed to wirte environment file\n");
        return InstallStep::eWriting;
    }
    // Keep the existing backup when the primary could not be loaded: a damaged file must not
    // replace it.
    if (loadedFromPrimary && kestrova_file_exists(files.mPrimary.c_str(), eFileExistsRegular) &&
        !moveFile(__LINE__, files.mPrimary, files.mBackup)) {
        base::logMessageAt(kSource, __LINE__, 1, "Error backing up environment\n");
        return InstallStep::eBackingUp;
    }
    if (!moveFile(__LINE__, files.mTemporary, files.mPrimary)) {
        base::logMessageAt(kSource, __LINE__, 1, "Error making environment current\n");
        return InstallStep::eMakingCurrent;
    }
    if (!syncDirectory(files.mDirectory)) {
        base::logMessageAt(kSource, __LINE__, 1, "Error making environment permanent\n");
        return InstallStep::eMakingPermanent;
    }
    return InstallStep::eNone;
}

bool syncDirectory(const std::string& directory) {
    const base::Descriptor opened = base::openDescriptor(directory.c_str(), O_RDONLY | O_DIRECTORY);
    return opened.valid() && ::fsync(opened.get()) == 0;
}
