// SPDX-License-Identifier: MIT
#include "System/bootvarsmanager/bootenvironment.h"

#include <endian.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "System/bootvarsmanager/softwarepartition.h"
#include "base/io/descriptor.h"
#include "base/io/file.h"
#include "base/log/log.h"
#include "base/text/crc32.h"

namespace {

constexpr char kSource[] = "System/bootvarsmanager/sysBootVarsManager";

constexpr char kPrimary[] = "/boot_env";
constexpr char kBackup[] = "/boot_env.bkp";
constexpr char kTemporary[] = "/boot_env.tmp";

constexpr std::uint32_t kFlags = 0x00ffffff;
constexpr std::uint32_t kClearFlags = 0xff000000;  // all of these must be zero
constexpr std::uint32_t kSetFlags = 0x00ff0000;    // not all of these may be zero
constexpr unsigned kFileMode = 0777;

/// The slash is doubled, because the names have one of their own; it does no harm.
std::string pathOf(const SoftwarePartitionAccess& partition, const char* name) {
    return partition.mountPoint() + "/" + name;
}

bool loadFile(const std::string& path, BootVariables& vars) {
    base::logMessageAt(kSource, __LINE__, 1, "Path: %s\n", path.c_str());
    // No valid file is longer, so the rest of a damaged one is never read, however large it is.
    std::vector<char> image;
    BootEnvHeader header = {};
    if (!base::readFileStart(path.c_str(), kBootEnvFileSize, image) ||
        !validateEnvironment(header, reinterpret_cast<const unsigned char*>(image.data()),
                             static_cast<unsigned>(image.size()))) {
        return false;
    }
    vars.assign(std::move(image), header.size);
    return true;
}

/// Writes the header of the image.
void completeImage(std::vector<char>& image) {
    image.resize(std::max<std::size_t>(image.size(), kBootEnvHeaderSize));
    const auto size = static_cast<std::uint32_t>(image.size()) - kBootEnvHeaderSize;
    const auto* const area =
        reinterpret_cast<const unsigned char*>(image.data()) + kBootEnvHeaderSize;
    const std::uint32_t crc = kestrova_crc32(area, static_cast<int>(size));
    const std::uint32_t header[] = {htole32(kFlags), htobe32(crc), htobe32(size)};
    static_assert(sizeof(header) == kBootEnvHeaderSize);
    std::memcpy(image.data(), header, sizeof(header));
}

bool moveFile(int line, const std::string& from, const std::string& to) {
    base::logMessageAt(kSource, line, 1, "Moving %s -> %s\n", from.c_str(), to.c_str());
    return std::rename(from.c_str(), to.c_str()) == 0;
}

/// Makes the renames in a directory last.
bool syncDirectory(const std::string& directory) {
    const base::Descriptor opened = base::openDescriptor(directory.c_str(), O_RDONLY | O_DIRECTORY);
    return opened.valid() && ::fsync(opened.get()) == 0;
}

/// Writes the image beside the files and rotates it in. Each rename replaces one name at once.
bool installImage(const SoftwarePartitionAccess& partition, const std::vector<char>& image,
                  bool loadedFromPrimary) {
    const std::string primary = pathOf(partition, kPrimary);
    const std::string temporary = pathOf(partition, kTemporary);
    const std::string backup = pathOf(partition, kBackup);

    base::logMessageAt(kSource, __LINE__, 1, "Path: %s\n", temporary.c_str());
    if (kestrova_file_create_with_data(temporary.c_str(), kFileMode, image.data(),
                                       static_cast<unsigned>(image.size())) < 0) {
        base::logMessageAt(kSource, __LINE__, 1, "Failed to wirte environment file\n");
        return false;
    }
    // Keep the existing backup when the primary could not be loaded: a damaged file must not
    // replace it.
    if (loadedFromPrimary && kestrova_file_exists(primary.c_str(), eFileExistsRegular) &&
        !moveFile(__LINE__, primary, backup)) {
        base::logMessageAt(kSource, __LINE__, 1, "Error backing up environment\n");
        return false;
    }
    if (!moveFile(__LINE__, temporary, primary)) {
        base::logMessageAt(kSource, __LINE__, 1, "Error making environment current\n");
        return false;
    }
    if (!syncDirectory(partition.mountPoint())) {
        base::logMessageAt(kSource, __LINE__, 1, "Error making environment permanent\n");
        return false;
    }
    return true;
}

}  // namespace

bool validateEnvironment(BootEnvHeader& header, const unsigned char* data, unsigned length) {
    if (length < kBootEnvHeaderSize) {
        return false;
    }
    std::uint32_t words[3];
    std::memcpy(words, data, sizeof(words));
    header = {le32toh(words[0]), words[1], words[2]};
    if ((header.flags & kClearFlags) != 0 || (header.flags & kSetFlags) == 0) {
        base::logMessageAt(kSource, __LINE__, 1, "badflags %x vm:%x-%x dm:%x-%x\n", header.flags,
                           kClearFlags, 0U, kSetFlags, 0U);
        return false;
    }
    header.crc = be32toh(header.crc);
    header.size = be32toh(header.size);
    if (header.size > length - kBootEnvHeaderSize) {
        return false;
    }
    if (header.size == 0) {
        return true;
    }
    const std::uint32_t crc =
        kestrova_crc32(data + kBootEnvHeaderSize, static_cast<int>(header.size));
    if (crc != header.crc) {
        base::logMessageAt(kSource, __LINE__, 1, "bad crc  %x %x\n", crc, header.crc);
        return false;
    }
    return true;
}

void parseEnvironment(std::map<std::string, std::string>& vars, const char* area, unsigned size) {
    std::string_view rest(area, size);
    for (BootRecord record; takeRecord(rest, record);) {
        vars.insert_or_assign(std::string(record.mKey), std::string(record.mValue));
    }
}

bool loadEnvironment(BootVariables& vars, bool& loadedFromPrimary) {
    const SoftwarePartitionAccess partition(eMsReadOnly);
    if (!partition.mounted()) {
        base::logMessageAt(kSource, __LINE__, 1, "Unable to mount device\n");
        return false;
    }
    if (loadFile(pathOf(partition, kPrimary), vars)) {
        loadedFromPrimary = true;
        return true;
    }
    base::logMessageAt(kSource, __LINE__, 1,
                       "Failed to read primary environment - trying backup\n");
    if (loadFile(pathOf(partition, kBackup), vars)) {
        loadedFromPrimary = false;
        return true;
    }
    return false;
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
    if (!installImage(partition, image, loadedFromPrimary)) {
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
