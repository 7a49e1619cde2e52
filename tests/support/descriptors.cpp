// SPDX-License-Identifier: MIT
#include "tests/support/descriptors.h"

#include <dirent.h>
#include <unistd.h>

#include <cerrno>

namespace tests {

std::set<int> openDescriptors() {
    DIR* const folder = ::opendir("/proc/self/fd");
    std::set<int> numbers;
    while (const dirent* const entry = ::readdir(folder)) {
        if (entry->d_name[0] != '.') {
            numbers.insert(std::stoi(entry->d_name));
        }
    }
    numbers.erase(::dirfd(folder));
    (void)::closedir(folder);
    return numbers;
}

std::string readToEnd(int descriptor) {
    std::string text;
    char buffer[65536];
    ssize_t count = 0;
    while ((count = ::read(descriptor, buffer, sizeof(buffer))) > 0 ||
           (count < 0 && errno == EINTR)) {
        text.append(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    (void)::close(descriptor);
    return text;
}

}  // namespace tests
