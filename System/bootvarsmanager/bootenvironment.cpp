// SPDX-License-Identifier: MIT
#include "System/bootvarsmanager/bootenvironment.h"

#include <endian.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "System/bootvarsmanager/softwarepartition.h"
#include "base/crc32.h"
#include "base/descriptor.h"
#include "base/file.h"
#include "base/log.h"

namespace {

constexpr char kSource[] = "System/bootvarsmanager/sysBootVarsManager";

constexpr char kPrimary[] = "/boot_env";
constexpr char kBackup[] = "/boot_env.bkp";
constexpr char kTemporary[] = "/boot_env.tmp";

constexpr std::uint32_t kFlags = 0x00ffffff;
constexpr std::uint32_t kClearFlags = 0xff000000;  // all of these must be zero
constexpr std::uint32_t kSetFlags = 0x00ff0000;    // not all of these may be zero
constexpr unsigned kFileMode = 0777;

using Variables = std::map<std::string, std::string>;

/// The slash is doubled, because the names have one of their own; it does no harm.
std::string pathOf(const SoftwarePartitionAccess& partition, const char* name) {
    return partition.mountPoint() + "/" + name;
}

bool loadFile(const std::string& path, Variables& vars) {
    base::logMessageAt(kSource, __LINE__, 1, "Path: %s\n", path.c_str());
    KestrovaStringShared image;
    BootEnvHeader header = {};
    if (kestrova_file_read(path.c_str(), image, false) < 0 ||
        !validateEnvironment(header, reinterpret_cast<const unsigned char*>(image.data()),
                             static_cast<unsigned>(image.length()))) {
        return false;
    }
    parseEnvironment(vars, image.data() + kBootEnvHeaderSize, header.size);
    return true;
}

/// Builds the file image; false when the variables do not fit.
bool buildImage(const Variables& vars, std::vector<unsigned char>& image) {
    constexpr std::size_t terminators = 3;
    image.reserve(kBootEnvFileSize);
    image.resize(kBootEnvHeaderSize);
    for (const auto& [key, value] : vars) {
        if (value.empty()) {
            continue;
        }
        const std::size_t room = kBootEnvFileSize - image.size();
        if (key.size() > room || value.size() > room ||
            key.size() + value.size() + terminators > room) {
            (void)std::fputs("Environment too big for flash\n", stderr);
            return false;
        }
        image.insert(image.end(), key.begin(), key.end());
        image.push_back('\0');
        image.insert(image.end(), value.begin(), value.end());
        image.insert(image.end(), {'\0', '\0'});
    }
    const auto size = static_cast<std::uint32_t>(image.size()) - kBootEnvHeaderSize;
    const std::uint32_t crc =
        kestrova_crc32(image.data() + kBootEnvHeaderSize, static_cast<int>(size));
    const std::uint32_t header[] = {htole32(kFlags), htobe32(crc), htobe32(size)};
    static_assert(sizeof(header) == kBootEnvHeaderSize);
    std::memcpy(image.data(), header, sizeof(header));
    return true;
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
bool installImage(const SoftwarePartitionAccess& partition, const std::vector<unsigned char>& image,
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
    // A primary that could not be loaded is no backup worth having: the one that was stays.
    if (loadedFromPrimary && kestrova_file_exists(primary.c_str(), eFileExistsRegular) &&
        !moveFile(__LINE__, primary, backup)) {
        base::logMessageAt(kSource, __LINE__, 1, "Error backing up environment\n");
        return false;
    }
    if (!moveFile(__LINE__, temporary, primary)) {
        base::logMessageAt(kSource, __LINE__, 1, "Error making environment current\n");
        return false;
    }
    return syncDirectory(partition.mountPoint());
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
    const char* const end = area + size;
    const auto findEnd = [end](const char* text) {
        return static_cast<const char*>(
            std::memchr(text, '\0', static_cast<std::size_t>(end - text)));
    };
    for (const char* record = area; record < end;) {
        const char* const keyEnd = findEnd(record);
        if (keyEnd == nullptr) {
            return;
        }
        const char* const value = keyEnd + 1;
        const char* const valueEnd = findEnd(value);
        if (valueEnd == nullptr || valueEnd + 1 == end || valueEnd[1] != '\0') {
            return;
        }
        // Behind the last one is where the next key belongs: the file has them in order.
        vars.insert_or_assign(vars.end(), std::string(record, keyEnd),
                              std::string(value, valueEnd));
        record = valueEnd + 2;
    }
}

bool loadEnvironment(std::map<std::string, std::string>& vars, bool& loadedFromPrimary) {
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

bool saveEnvironment(const std::map<std::string, std::string>& vars, bool& loadedFromPrimary) {
    const SoftwarePartitionAccess partition(eMsReadWrite);
    if (!partition.mounted()) {
        base::logMessageAt(kSource, __LINE__, 1, "Unable to mount device\n");
        return false;
    }
    std::vector<unsigned char> image;
    if (!buildImage(vars, image)) {
        return false;
    }
    base::logMessageAt(kSource, __LINE__, 1, "Created environment buffer of size %d\n",
                       static_cast<int>(image.size()));
    if (!installImage(partition, image, loadedFromPrimary)) {
        return false;
    }
    loadedFromPrimary = true;
    return true;
}
