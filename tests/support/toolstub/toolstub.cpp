// SPDX-License-Identifier: MIT
//
// Replaces a tool of the box in a test's sandbox: records how it was started, then executes the
// role that the test wrote for this run. A run without a role is refused. Roles and records are
// lists of NUL-terminated texts, alternating keys and values; tests/support/sandbox.cpp writes and
// reads them.
#include <dirent.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

using Texts = std::vector<std::pair<std::string, std::string>>;

constexpr int kRefused = 99;
constexpr int kMostRuns = 100000;

void writeWhole(int descriptor, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = ::write(descriptor, text.data() + done, text.size() - done);
        if (count < 0 && errno != EINTR) {
            return;
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
}

std::string readWhole(int descriptor) {
    std::string text;
    char buffer[4096];
    ssize_t count = 0;
    while ((count = ::read(descriptor, buffer, sizeof(buffer))) > 0) {
        text.append(buffer, static_cast<std::size_t>(count));
    }
    return text;
}

std::string linkTarget(const std::string& path) {
    char target[PATH_MAX];
    const ssize_t length = ::readlink(path.c_str(), target, sizeof(target));
    return length > 0 ? std::string(target, static_cast<std::size_t>(length)) : "?";
}

/// The record of this run, which is written while the run proceeds.
class Record {
public:
    Record() {
        for (; mNumber < kMostRuns && mFile < 0; ++mNumber) {
            mFile = ::open(("/stub/runs/" + std::to_string(mNumber)).c_str(),
                           O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        }
    }
    /// Returns the number of this run, from 1.
    int number() const { return mNumber; }
    void add(const std::string& key, const std::string& value) {
        writeWhole(mFile, key + '\0' + value + '\0');
    }

private:
    int mNumber = 0;
    int mFile = -1;
};

/// Returns the inherited descriptors. Call it before opening any other file.
std::map<int, std::string> givenDescriptors() {
    std::map<int, std::string> given;
    DIR* const folder = ::opendir("/proc/self/fd");
    while (const dirent* const entry = folder != nullptr ? ::readdir(folder) : nullptr) {
        const int number = std::atoi(entry->d_name);
        if (entry->d_name[0] == '.' || number == ::dirfd(folder)) {
            continue;
        }
        const char* const modes[] = {" r", " w", " rw", " ?"};
        given[number] = linkTarget("/proc/self/fd/" + std::string(entry->d_name)) +
                        modes[::fcntl(number, F_GETFL) & O_ACCMODE];
    }
    if (folder != nullptr) {
        (void)::closedir(folder);
    }
    return given;
}

/// Returns the masks of the blocked and ignored signals.
std::string signalMasks() {
    const int file = ::open("/proc/self/status", O_RDONLY | O_CLOEXEC);
    const std::string status = readWhole(file);
    (void)::close(file);
    std::string masks;
    for (const char* const key : {"SigBlk:\t", "SigIgn:\t"}) {
        constexpr std::size_t digits = 16;
        const std::size_t at = status.find(key);
        masks += (masks.empty() ? "" : " ") + status.substr(at + std::strlen(key), digits);
    }
    return masks;
}

void recordStart(Record& record, const std::map<int, std::string>& descriptors, char** arguments) {
    for (; *arguments != nullptr; ++arguments) {
        record.add("argument", *arguments);
    }
    for (char** entry = environ; *entry != nullptr; ++entry) {
        record.add("environment", *entry);
    }
    record.add("nice", std::to_string(::getpriority(PRIO_PROCESS, 0)));
    record.add("directory", linkTarget("/proc/self/cwd"));
    record.add("session", ::getsid(0) == ::getpid() ? "leader" : "member");
    record.add("signals", signalMasks());
    for (const auto& [number, target] : descriptors) {
        record.add("descriptor", std::to_string(number) + " " + target);
    }
}

Texts parse(const std::string& text) {
    Texts texts;
    std::size_t at = 0;
    while (at < text.size()) {
        const std::string key = text.c_str() + at;
        at += key.size() + 1;
        const std::string value = text.c_str() + at;
        at += value.size() + 1;
        texts.emplace_back(key, value);
    }
    return texts;
}

Texts readRole(const std::string& path) {
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    Texts role;
    if (file >= 0) {
        role = parse(readWhole(file));
        (void)::close(file);
    }
    return role;
}

bool isFor(const Texts& role, char** arguments) {
    for (const auto& [key, value] : role) {
        if (key != "argument") {
            break;
        }
        if (*arguments == nullptr || value != *arguments++) {
            return false;
        }
    }
    return *arguments == nullptr;
}

/// Returns the role of this run; empty if there is none.
Texts takeRole(char** arguments) {
    for (int i = 0;; ++i) {
        const Texts standing = readRole("/stub/standing/" + std::to_string(i));
        if (standing.empty()) {
            break;
        }
        if (isFor(standing, arguments)) {
            return standing;
        }
    }
    for (int i = 0; i < kMostRuns; ++i) {
        const std::string path = "/stub/roles/" + std::to_string(i);
        const Texts role = readRole(path);
        if (role.empty() || !isFor(role, arguments)) {
            if (!role.empty()) {
                return {};  // another tool must run first
            }
            continue;
        }
        if (::unlink(path.c_str()) == 0) {
            return role;
        }
    }
    return {};
}

/// Tells the test that this point is reached, and waits until the test releases it.
void hold() {
    const int held = ::open("/stub/held", O_WRONLY | O_CLOEXEC);
    const int go = ::open("/stub/go", O_RDONLY | O_CLOEXEC);
    writeWhole(held, "h");
    char byte = 0;
    while (::read(go, &byte, 1) < 0 && errno == EINTR) {
    }
    (void)::close(held);
    (void)::close(go);
}

void play(const Texts& role, char** arguments, Record& record) {
    for (const auto& [key, value] : role) {
        if (key == "print") {
            writeWhole(STDOUT_FILENO, value);
        } else if (key == "report") {
            writeWhole(std::atoi(arguments[2]), value);  // fsck.ext3 -C N
        } else if (key == "input") {
            record.add("input", readWhole(STDIN_FILENO));
        } else if (key == "close") {
            (void)::close(std::atoi(value.c_str()));
        } else if (key == "hold") {
            hold();
        } else if (key == "mount") {
            const std::size_t blank = value.find(' ');
            if (::mount(value.substr(0, blank).c_str(), value.substr(blank + 1).c_str(), "tmpfs", 0,
                        "size=4m") != 0) {
                record.add("refused", "mount");
                std::exit(kRefused);
            }
        } else if (key == "die") {
            (void)std::raise(std::atoi(value.c_str()));
        } else if (key == "exit") {
            std::exit(std::atoi(value.c_str()));
        }
    }
}

/// Returns how this run must misbehave, or "". The file contains the number of a run and a name.
std::string faultOf(int run) {
    const int file = ::open("/stub/fault", O_RDONLY | O_CLOEXEC);
    const std::string text = file >= 0 ? readWhole(file) : "";
    (void)::close(file);
    const std::size_t blank = text.find(' ');
    return blank != std::string::npos && std::atoi(text.c_str()) == run ? text.substr(blank + 1)
                                                                        : "";
}

[[noreturn]] void die(int signal) {
    sigset_t all;
    (void)sigfillset(&all);
    (void)::signal(signal, SIG_DFL);
    (void)sigprocmask(SIG_UNBLOCK, &all, nullptr);
    (void)std::raise(signal);
    std::exit(kRefused);
}

/// Writes the text to the stream from which the library reads while the tool runs.
void writeOut(const std::string& text, char** arguments) {
    const bool reports = arguments[1] != nullptr && std::strcmp(arguments[1], "-C") == 0;
    writeWhole(reports ? std::atoi(arguments[2]) : STDOUT_FILENO, text);
}

void writeHalf(const Texts& role, char** arguments) {
    for (const auto& [key, value] : role) {
        if (key == "print" || key == "report") {
            writeOut(value.substr(0, value.size() / 2), arguments);
            return;
        }
    }
}

/// Starts a child that keeps the pipe open for a short time after the tool has exited.
void leaveGrandchild() {
    constexpr useconds_t life = 30000;
    if (::fork() == 0) {
        (void)::usleep(life);
        ::_exit(0);
    }
}

/// Misbehaves; the number in the fault's name is a status or a signal. Returns the exit status.
int misbehave(const std::string& fault, const Texts& role, char** arguments, Record& record) {
    const std::size_t dash = fault.rfind('-');
    const std::string kind = fault.substr(0, dash);
    const int number = dash != std::string::npos ? std::atoi(fault.c_str() + dash + 1) : 0;
    if (fault == "silent") {
        return 0;
    }
    if (fault == "close-early") {
        (void)::close(STDIN_FILENO);
        (void)::close(STDOUT_FILENO);
        return 0;
    }
    if (kind == "exit") {
        return number;
    }
    if (kind == "half") {
        writeHalf(role, arguments);
    }
    if (kind == "die" || kind == "half") {
        die(number);
    }
    if (fault == "flood") {
        for (int line = 0; line < 1000; ++line) {
            writeOut("a line that no parser has ever seen, number " + std::to_string(line) + "\n",
                     arguments);
        }
    }
    if (fault == "endless-line") {
        writeOut(std::string(100000, 'x') + '\n', arguments);
    }
    if (kind == "grandchild") {
        leaveGrandchild();
    }
    play(role, arguments, record);
    if (kind == "then-die") {
        die(number);
    }
    return number;
}

}  // namespace

int main(int /*count*/, char** arguments) {
    const std::map<int, std::string> descriptors = givenDescriptors();
    Record record;
    recordStart(record, descriptors, arguments);
    const Texts role = takeRole(arguments);
    if (role.empty()) {
        record.add("refused", "not expected");
        return kRefused;
    }
    const std::string fault = faultOf(record.number());
    if (!fault.empty()) {
        record.add("fault", fault);
        return misbehave(fault, role, arguments, record);
    }
    play(role, arguments, record);
    return 0;
}
