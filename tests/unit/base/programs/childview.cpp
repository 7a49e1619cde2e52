// SPDX-License-Identifier: MIT
//
// childview REPORT [ACTION...]: writes to the file REPORT how it was started, one fact per line,
// then executes the actions in order:
//   say:TEXT      writes to standard output
//   complain:TEXT writes to standard error
//   write:N:TEXT  writes to descriptor N
//   read          reads standard input to its end, into the report
//   echo          copies standard input to standard output
//   close:N       closes descriptor N
//   await:FIFO    waits until a process opens the fifo for writing and closes it
//   raise:N       sends itself a signal
//   exit:N        exits with a status
#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

std::string linkTarget(const std::string& path) {
    char target[PATH_MAX];
    const ssize_t length = ::readlink(path.c_str(), target, sizeof(target));
    return length > 0 ? std::string(target, static_cast<std::size_t>(length)) : "?";
}

/// Call it first, before any other descriptor is opened.
std::string openDescriptors() {
    std::string facts;
    DIR* const folder = ::opendir("/proc/self/fd");
    while (const dirent* const entry = folder != nullptr ? ::readdir(folder) : nullptr) {
        const int number = std::atoi(entry->d_name);
        if (entry->d_name[0] == '.' || number == ::dirfd(folder)) {
            continue;
        }
        const char* const modes[] = {" r", " w", " rw", " ?"};
        facts += "descriptor " + std::to_string(number) + " " +
                 linkTarget(std::string("/proc/self/fd/") + entry->d_name) +
                 modes[::fcntl(number, F_GETFL) & O_ACCMODE] + "\n";
    }
    return facts;
}

std::string signals() {
    std::ifstream status("/proc/self/status");
    std::string facts;
    std::string line;
    while (std::getline(status, line)) {
        if (line.compare(0, 6, "SigBlk") == 0 || line.compare(0, 6, "SigIgn") == 0) {
            facts += line + "\n";
        }
    }
    return facts;
}

void put(int descriptor, const std::string& text) {
    (void)!::write(descriptor, text.data(), text.size());
}

void copyInput(int to) {
    char buffer[4096];
    ssize_t count = 0;
    while ((count = ::read(STDIN_FILENO, buffer, sizeof(buffer))) > 0) {
        put(to, std::string(buffer, static_cast<std::size_t>(count)));
    }
}

void await(const char* fifo) {
    const int descriptor = ::open(fifo, O_RDONLY);
    char byte = 0;
    (void)!::read(descriptor, &byte, 1);
    (void)::close(descriptor);
}

void act(const std::string& action, int report) {
    const std::size_t colon = action.find(':');
    const std::string verb = action.substr(0, colon);
    const std::string rest = colon == std::string::npos ? "" : action.substr(colon + 1);
    const int number = std::atoi(rest.c_str());
    if (verb == "say") {
        put(STDOUT_FILENO, rest);
    } else if (verb == "complain") {
        put(STDERR_FILENO, rest);
    } else if (verb == "write") {
        put(number, rest.substr(rest.find(':') + 1));
    } else if (verb == "read") {
        put(report, "input ");
        copyInput(report);
        put(report, "\n");
    } else if (verb == "echo") {
        copyInput(STDOUT_FILENO);
    } else if (verb == "close") {
        (void)::close(number);
    } else if (verb == "await") {
        await(rest.c_str());
    } else if (verb == "raise") {
        (void)std::raise(number);
    } else if (verb == "exit") {
        ::_exit(number);
    } else {
        ::_exit(99);
    }
}

}  // namespace

int main(int count, char** arguments) {
    std::string facts = openDescriptors();
    if (count < 2) {
        return 98;
    }
    // Above the descriptors that are examined or closed.
    const int opened = ::open(arguments[1], O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    const int report = ::fcntl(opened, F_DUPFD_CLOEXEC, 100);
    (void)::close(opened);
    for (int i = 0; i < count; ++i) {
        facts += std::string("argument ") + arguments[i] + "\n";
    }
    for (char** entry = environ; *entry != nullptr; ++entry) {
        facts += std::string("environment ") + *entry + "\n";
    }
    facts += "nice " + std::to_string(::getpriority(PRIO_PROCESS, 0)) + "\n";
    put(report, facts + signals());
    for (int i = 2; i < count; ++i) {
        act(arguments[i], report);
    }
    return 0;
}
