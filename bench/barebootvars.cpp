// SPDX-License-Identifier: MIT
#include "bench/barebootvars.h"

#include <endian.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <vector>

#include "base/text/crc32.h"
#include "bench/figure.h"

namespace bench {

namespace {

constexpr std::size_t kHeader = 12;
constexpr std::size_t kLargest = 65536;

int openOrFail(const char* path, int flags) {
    const int descriptor = ::open(path, flags | O_CLOEXEC, 0777);
    if (descriptor < 0) {
        fail(path);
    }
    return descriptor;
}

/// Reads the file into a buffer that has room for the largest one and one more byte. Returns the
/// length.
std::size_t readWhole(const char* path, char* buffer) {
    const int file = openOrFail(path, O_RDONLY);
    std::size_t used = 0;
    ssize_t count = 0;
    while ((count = ::read(file, buffer + used, kLargest + 1 - used)) > 0) {
        used += static_cast<std::size_t>(count);
    }
    (void)::close(file);
    return used;
}

void require(bool good, const char* what) {
    if (!good) {
        fail(what);
    }
}

}  // namespace

void findMount(const char* device) {
    struct stat wanted = {};
    struct stat found = {};
    std::FILE* const mounts = std::fopen("/proc/mounts", "re");
    char line[4096];
    char name[4096];
    require(mounts != nullptr, "/proc/mounts");
    while (std::fgets(line, sizeof(line), mounts) != nullptr &&
           std::sscanf(line, "%4095s", name) == 1) {
        if (::stat(name, &found) == 0 && ::stat(device, &wanted) == 0 &&
            found.st_rdev == wanted.st_rdev && found.st_mode == wanted.st_mode) {
            break;
        }
    }
    (void)std::fclose(mounts);
}

void replaceEnvironment(const std::string& directory, const char* device,
                        const std::string& image) {
    static char buffer[kLargest + 1];
    const std::string primary = directory + "/boot_env";
    const std::string temporary = directory + "/boot_env.tmp";
    struct stat status = {};
    findMount(device);
    (void)readWhole(primary.c_str(), buffer);
    findMount(device);
    const int file = openOrFail(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC);
    const bool written =
        ::write(file, image.data(), image.size()) == static_cast<ssize_t>(image.size());
    require(written && ::fsync(file) == 0 && ::close(file) == 0, temporary.c_str());
    require(::stat(primary.c_str(), &status) == 0 &&
                std::rename(primary.c_str(), (directory + "/boot_env.bkp").c_str()) == 0 &&
                std::rename(temporary.c_str(), primary.c_str()) == 0,
            primary.c_str());
    const int folder = openOrFail(directory.c_str(), O_RDONLY | O_DIRECTORY);
    require(::fsync(folder) == 0 && ::close(folder) == 0, directory.c_str());
}

unsigned long readVariable(const char* path, const char* name) {
    std::vector<char> bytes(kLargest + 1);
    const std::size_t length = readWhole(path, bytes.data());
    std::uint32_t words[3] = {};
    std::memcpy(words, bytes.data(), sizeof(words));
    const std::size_t size = be32toh(words[2]);
    const auto* const area = reinterpret_cast<const unsigned char*>(bytes.data()) + kHeader;
    require(size + kHeader <= length &&
                kestrova_crc32(area, static_cast<int>(size)) == be32toh(words[1]),
            path);
    std::map<std::string, std::string> variables;
    const char* const end = bytes.data() + kHeader + size;
    for (const char* record = bytes.data() + kHeader; record < end;) {
        const char* const value = record + std::strlen(record) + 1;
        const std::size_t valueLength = std::strlen(value);
        variables[record].assign(value, valueLength);
        record = value + valueLength + 2;
    }
    const auto found = variables.find(name);
    require(found != variables.end(), name);
    return found->second.size();
}

}  // namespace bench
