// SPDX-License-Identifier: MIT
#include "bench/bare.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "bench/figure.h"

namespace bench {

namespace {

int openOrFail(const char* path, int flags) {
    const int descriptor = ::open(path, flags | O_CLOEXEC);
    if (descriptor < 0) {
        fail(path);
    }
    return descriptor;
}

void identify(const char* drive) {
    char identity[512];
    int descriptor = openOrFail(drive, O_RDWR);
    if (::ioctl(descriptor, HDIO_GET_IDENTITY, identity) != 0) {
        fail(drive);
    }
    (void)::close(descriptor);
    unsigned long long size = 0;
    descriptor = openOrFail(drive, O_RDWR);
    if (::ioctl(descriptor, BLKGETSIZE64, &size) != 0) {
        fail(drive);
    }
    (void)::close(descriptor);
}

/// Checks for both file systems in the library's order.
void readSuperblocks(const char* partition) {
    struct stat status = {};
    char ext[1024];
    char magic[4];
    char label[12];
    if (::stat(partition, &status) != 0) {
        fail(partition);
    }
    const int descriptor = openOrFail(partition, O_RDONLY);
    if (::pread(descriptor, ext, sizeof(ext), 1024) != sizeof(ext) ||
        ::pread(descriptor, magic, sizeof(magic), 0) != sizeof(magic) ||
        ::pread(descriptor, label, sizeof(label), 108) != sizeof(label)) {
        fail(partition);
    }
    (void)::close(descriptor);
}

[[noreturn]] void execute(const char* const* arguments, int niceness, int output) {
    (void)::dup2(output, STDOUT_FILENO);
    if (niceness != 0) {
        (void)::nice(niceness);
    }
    (void)::execve(arguments[0], const_cast<char* const*>(arguments), environ);
    ::_exit(EXIT_FAILURE);
}

void logLine(const char* text) {
    if (::write(STDOUT_FILENO, text, std::strlen(text)) < 0) {
        fail("log");
    }
}

}  // namespace

std::string runTool(const char* const* arguments, int niceness) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        fail("pipe");
    }
    const pid_t child = ::fork();
    if (child == 0) {
        execute(arguments, niceness, ends[1]);
    }
    (void)::close(ends[1]);
    std::string output;
    char piece[4096];
    ssize_t length = 0;
    while ((length = ::read(ends[0], piece, sizeof(piece))) > 0) {
        output.append(piece, static_cast<std::size_t>(length));
    }
    (void)::close(ends[0]);
    int status = -1;
    if (child < 0 || ::waitpid(child, &status, 0) != child || status != 0) {
        fail(arguments[0]);
    }
    return output;
}

void readMountTable() {
    char piece[4096];
    const int table = openOrFail("/proc/mounts", O_RDONLY);
    while (::read(table, piece, sizeof(piece)) > 0) {
    }
    (void)::close(table);
}

void detectDrive(const std::string& drive) {
    identify(drive.c_str());
    const char* const list[] = {"/sbin/sfdisk", "-d", drive.c_str(), nullptr};
    (void)runTool(list, 0);
    for (const char* const number : {"1", "2"}) {
        readSuperblocks((drive + number).c_str());
        readMountTable();
    }
    for (const char* const line :
         {"HarddriveInit: /dev/sda\n", "   Model: KESTROVA VIRTUAL RECORDER\n",
          "   Capacity: 4 GB\n", "   Partitions: 2\n",
          "     /dev/sda1  2147 MB  type=83 DVRStorage\n",
          "     /dev/sda2  2146 MB  type=83 DVRData\n"}) {
        logLine(line);
    }
    // The library checks again that the file systems have not been mounted since they were listed.
    readMountTable();
    readMountTable();
}

}  // namespace bench
