// SPDX-License-Identifier: MIT
#include "app/commands/drive/mounts.h"

#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>

#include <fstream>
#include <sstream>

namespace app {

namespace {

bool isOctal(const std::string& text, std::size_t position) {
    return position < text.size() && text[position] >= '0' && text[position] <= '7';
}

/// The kernel writes blanks, line ends and backslashes as a backslash and three octal digits.
std::string unescaped(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && isOctal(text, i + 1) && isOctal(text, i + 2) &&
            isOctal(text, i + 3)) {
            result += static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 +
                                        (text[i + 3] - '0'));
            i += 3;
        } else {
            result += text[i];
        }
    }
    return result;
}

/// "8:1" for a block device, or "".
std::string deviceNumber(const std::string& node) {
    struct stat status = {};
    if (::stat(node.c_str(), &status) != 0 || !S_ISBLK(status.st_mode)) {
        return {};
    }
    return std::to_string(major(status.st_rdev)) + ":" + std::to_string(minor(status.st_rdev));
}

}  // namespace

bool parseMount(const std::string& line, Mount& mount) {
    std::istringstream fields(line);
    std::string skipped;
    std::string directory;
    // mount id, parent id, device, root, mount point, options, optional fields, "-", type, source
    if (!(fields >> skipped >> skipped >> mount.mDevice >> skipped >> directory)) {
        return false;
    }
    while (fields >> skipped && skipped != "-") {
    }
    std::string source;
    if (!(fields >> skipped >> source)) {
        return false;
    }
    mount.mDirectory = unescaped(directory);
    mount.mSource = unescaped(source);
    return true;
}

std::vector<Mount> readMounts() {
    std::vector<Mount> mounts;
    std::ifstream table("/proc/self/mountinfo");
    for (std::string line; std::getline(table, line);) {
        Mount mount;
        if (parseMount(line, mount)) {
            mounts.push_back(mount);
        }
    }
    return mounts;
}

std::vector<std::string> mountPointsOf(const std::vector<Mount>& mounts, const std::string& node) {
    const std::string number = deviceNumber(node);
    std::vector<std::string> directories;
    for (const Mount& mount : mounts) {
        if (mount.mSource == node || (!number.empty() && mount.mDevice == number)) {
            directories.push_back(mount.mDirectory);
        }
    }
    return directories;
}

Space measureSpace(const std::string& directory) {
    struct statfs status = {};
    Space space;
    if (::statfs(directory.c_str(), &status) == 0) {
        const auto blockSize = static_cast<unsigned long long>(status.f_bsize);
        space.mTotal = blockSize * status.f_blocks;
        space.mFree = blockSize * status.f_bfree;
        space.mBlockSize = static_cast<unsigned>(blockSize);
    }
    return space;
}

}  // namespace app
