// SPDX-License-Identifier: MIT
#include "tests/torture/world.h"

#include <endian.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "tests/torture/interposed.h"

namespace torture {

const char kSoftware[] = "/dev/disk/by-path/pci-0000:01:0e.0-scsi-0:0:0:0-part1";

namespace {

constexpr char kMountPoint[] = "/boot-sw";
constexpr char kStore[] = "/store";
constexpr std::size_t kHeaderSize = 12;

const char* const kFreshFolders[] = {"/dvr",        "/boot-sw",       "/settings",   "/dev/disk",
                                     "/dev/tty",    "/dev/tts",       "/dev/serial", "/stub/runs",
                                     "/stub/roles", "/stub/standing", "/tmp",        "/run/lock"};
const char* const kFolders[] = {"/boot-sw",    "/settings", "/dev/disk", "/dev/tty", "/dev/tts",
                                "/dev/serial", "/store",    "/run",      "/run/lock"};
const char* const kTools[] = {"/bin/killall", "/sbin/syslogd", "/sbin/getty"};

void check(bool held, const std::string& what) {
    if (!held) {
        throw std::runtime_error(what + ": " + std::strerror(errno));
    }
}

std::uint32_t crcOf(const std::string& bytes) {
    std::uint32_t crc = 0xffffffffU;
    for (const char byte : bytes) {
        crc ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1U) ^ ((crc & 1U) != 0 ? 0xedb88320U : 0U);
        }
    }
    return ~crc;
}

std::string readAll(int file) {
    std::string text;
    char buffer[4096];
    ssize_t count = 0;
    while ((count = ::read(file, buffer, sizeof(buffer))) > 0) {
        text.append(buffer, static_cast<std::size_t>(count));
    }
    (void)::close(file);
    return text;
}

}  // namespace

std::string environmentImage(const Variables& vars) {
    std::string area;
    for (const auto& [key, value] : vars) {
        area += key + '\0' + value + '\0' + '\0';
    }
    const std::uint32_t words[] = {htole32(0x00ffffffU), htobe32(crcOf(area)),
                                   htobe32(static_cast<std::uint32_t>(area.size()))};
    return std::string(reinterpret_cast<const char*>(words), sizeof(words)) + area;
}

std::optional<Variables> readImage(const std::string& image) {
    std::uint32_t words[3] = {};
    if (image.size() < kHeaderSize) {
        return std::nullopt;
    }
    std::memcpy(words, image.data(), kHeaderSize);
    const std::string area = image.substr(kHeaderSize);
    if (le32toh(words[0]) != 0x00ffffffU || be32toh(words[2]) != area.size() ||
        (!area.empty() && be32toh(words[1]) != crcOf(area))) {
        return std::nullopt;
    }
    Variables vars;
    std::size_t at = 0;
    while (at < area.size()) {
        const std::string key = area.c_str() + at;
        at += key.size() + 1;
        const std::string value = at < area.size() ? area.c_str() + at : "";
        at += value.size() + 2;
        vars[key] = value;
    }
    return vars;
}

World::World(tests::Sandbox& box) : mBox(box) {
    for (const char* const folder : kFolders) {
        check(::mkdir(folder, 0755) == 0, folder);
    }
    for (const char* const tool : kTools) {
        box.addTool(tool);
    }
    tests::writeFile("/etc/hosts", "127.0.0.1 localhost peer.example\n");
    check(::setenv("PATH", "/bin:/sbin:/usr/bin", 1) == 0, "PATH");
}

void World::enterRun() {
    check(::unshare(CLONE_NEWNS) == 0, "mounts of its own");
    check(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 || errno == EINVAL,
          "private mounts");
    for (const char* const folder : kFreshFolders) {
        check(::mount("fresh", folder, "tmpfs", 0, "mode=0755") == 0, folder);
    }
    check(::mkdir("/dev/disk/by-path", 0755) == 0, "by-path");
    resetAnswers();
    torture::answerMount([this](const char* device, const char* directory, unsigned long flags) {
        return answerMount(device, directory, flags);
    });
}

void World::makeSoftware(const char* options, const std::string& primary,
                         const std::string& backup) {
    tests::writeFile(kSoftware, "");
    check(::mount(kSoftware, kStore, "tmpfs", 0, "mode=0755") == 0, kStore);
    if (!primary.empty()) {
        tests::writeFile(std::string(kStore) + "/boot_env", primary);
    }
    if (!backup.empty()) {
        tests::writeFile(std::string(kStore) + "/boot_env.bkp", backup);
    }
    mSoftware = ::open_tree(AT_FDCWD, kStore, OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC);
    check(mSoftware >= 0, "open_tree");
    check(::umount2(kStore, MNT_DETACH) == 0, kStore);
    if (options != nullptr) {
        const bool readOnly = std::strcmp(options, "ro") == 0;
        check(answerMount(kSoftware, kMountPoint, readOnly ? MS_RDONLY : 0) == 0, kMountPoint);
    }
}

int World::answerMount(const char* device, const char* directory, unsigned long flags) {
    if ((flags & MS_REMOUNT) != 0) {
        return ::mount(device, directory, nullptr, flags, nullptr);
    }
    if (mSoftware < 0 || std::strcmp(device, kSoftware) != 0) {
        errno = ENODEV;
        return -1;
    }
    if (!softwareState().empty()) {
        errno = EBUSY;
        return -1;
    }
    const int tree =
        ::open_tree(mSoftware, "", AT_EMPTY_PATH | OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC);
    const int result = ::move_mount(tree, "", AT_FDCWD, directory, MOVE_MOUNT_F_EMPTY_PATH);
    (void)::close(tree);
    return result != 0 ? result : ::mount(nullptr, directory, nullptr, MS_REMOUNT | flags, nullptr);
}

std::string World::softwareState() const {
    const std::string table = mounts();
    const std::string entry = std::string(kSoftware) + " " + kMountPoint + " ";
    const std::size_t at = table.find(entry);
    if (at == std::string::npos) {
        return "";
    }
    return table.find(kSoftware, at + 1) != std::string::npos ? "twice"
                                                              : table.substr(at + entry.size(), 2);
}

std::string World::softwareFile(const char* name) const {
    const int file = ::openat(mSoftware, name, O_RDONLY | O_CLOEXEC);
    return file >= 0 ? readAll(file) : "";
}

std::optional<Variables> World::environment() const {
    const std::optional<Variables> primary = readImage(softwareFile("boot_env"));
    return primary.has_value() ? primary : readImage(softwareFile("boot_env.bkp"));
}

std::string World::mounts() {
    std::istringstream table(tests::readFile("/proc/self/mounts"));
    std::string found;
    for (std::string line; std::getline(table, line);) {
        std::istringstream fields(line);
        std::string device;
        std::string directory;
        std::string type;
        std::string options;
        fields >> device >> directory >> type >> options;
        if (device.rfind("/dev/sda", 0) == 0 || device == kSoftware) {
            found += device + " " + directory + " " + options.substr(0, 2) + ";";
        }
    }
    return found;
}

bool World::isMounted(const std::string& device, const std::string& directory) {
    return mounts().find(device + " " + directory + " ") != std::string::npos;
}

}  // namespace torture
