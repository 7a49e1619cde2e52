// SPDX-License-Identifier: MIT
#include "tests/support/sandbox.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/loop.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace tests {

namespace {

constexpr int kMinute = 60;

const char* const kTools[] = {"/sbin/sfdisk",    "/sbin/mkfs.ext3", "/sbin/mkfs.xfs",
                              "/sbin/fsck.ext3", "/sbin/hdparm",    "/bin/mount"};

std::runtime_error failure(const std::string& what) {
    return std::runtime_error(what + ": " + std::strerror(errno));
}

ToolRun parseRun(const std::string& text) {
    ToolRun run;
    std::size_t at = 0;
    while (at < text.size()) {
        const std::string key = text.c_str() + at;
        at += key.size() + 1;
        const std::string value = text.c_str() + at;
        at += value.size() + 1;
        if (key == "argument") {
            run.mArguments.push_back(value);
        } else if (key == "environment") {
            run.mEnvironment.push_back(value);
        } else if (key == "nice") {
            run.mNice = std::stoi(value);
        } else if (key == "directory") {
            run.mDirectory = value;
        } else if (key == "session") {
            run.mLeadsSession = value == "leader";
        } else if (key == "signals") {
            run.mSignals = value;
        } else if (key == "descriptor") {
            run.mDescriptors[std::stoi(value)] = value.substr(value.find(' ') + 1);
        } else if (key == "input") {
            run.mInput = value;
            run.mReadInput = true;
        } else if (key == "refused") {
            run.mRefused = true;
        }
    }
    return run;
}

std::string oneLine(const std::vector<std::string>& arguments) {
    std::string line;
    for (const std::string& argument : arguments) {
        line += (line.empty() ? "" : " ") + argument;
    }
    return line;
}

}  // namespace

Role::Role(const std::vector<std::string>& arguments) {
    for (const std::string& argument : arguments) {
        (void)add("argument", argument);
    }
}

Role& Role::add(const std::string& key, const std::string& value) {
    mText += key + '\0' + value + '\0';
    return *this;
}

Sandbox::Sandbox() {
    for (const char* const tool : kTools) {
        addTool(tool);
    }
    mHeld = ::open("/stub/held", O_RDWR | O_CLOEXEC);
    mGo = ::open("/stub/go", O_RDWR | O_CLOEXEC);
    if (mHeld < 0 || mGo < 0) {
        throw failure("/stub");
    }
}

Sandbox::~Sandbox() {
    (void)::close(mHeld);
    (void)::close(mGo);
}

void Sandbox::expect(const Role& role) {
    writeFile("/stub/roles/" + std::to_string(mExpected++), role.text());
}

void Sandbox::allow(const Role& role) {
    writeFile("/stub/standing/" + std::to_string(mAllowed++), role.text());
}

std::vector<ToolRun> Sandbox::runs() const {
    std::vector<ToolRun> found;
    for (std::string path = "/stub/runs/0"; ::access(path.c_str(), F_OK) == 0;
         path = "/stub/runs/" + std::to_string(found.size())) {
        found.push_back(parseRun(readFile(path)));
    }
    return found;
}

void Sandbox::awaitHeld() {
    pollfd held = {mHeld, POLLIN, 0};
    char byte = 0;
    int ready = -1;
    do {
        ready = ::poll(&held, 1, kMinute * 1000);
    } while (ready < 0 && errno == EINTR);
    if (ready != 1 || ::read(mHeld, &byte, 1) != 1) {
        throw std::runtime_error("no stub holds");
    }
}

void Sandbox::release() {
    if (::write(mGo, "g", 1) != 1) {
        throw failure("release");
    }
}

void Sandbox::useReal(const std::string& path) {
    removeTool(path);
    if (::symlink(("/usr" + path).c_str(), path.c_str()) != 0) {
        throw failure(path);
    }
}

void Sandbox::removeTool(const std::string& path) {
    if (::unlink(path.c_str()) != 0) {
        throw failure(path);
    }
}

void Sandbox::addTool(const std::string& path) {
    if (::link("/stub/tool", path.c_str()) != 0) {
        throw failure(path);
    }
}

void Sandbox::replaceMounts(const std::string& text) {
    writeFile("/stub/mounts", text);
    if (::mount("/stub/mounts", "/proc/self/mounts", nullptr, MS_BIND, nullptr) != 0) {
        throw failure("/proc/self/mounts");
    }
}

bool Sandbox::attachLoop(const std::string& file, const std::string& device) {
    const int control = ::open("/hostdev/loop-control", O_RDWR | O_CLOEXEC);
    const int backing = ::open(file.c_str(), O_RDWR | O_CLOEXEC);
    int loop = -1;
    // Retry, because another program may take the free number first.
    for (int attempt = 0; control >= 0 && backing >= 0 && loop < 0 && attempt < 10; ++attempt) {
        const int number = ::ioctl(control, LOOP_CTL_GET_FREE);
        const std::string name = "/hostdev/loop" + std::to_string(number);
        loop = number < 0 ? -1 : ::open(name.c_str(), O_RDWR | O_CLOEXEC);
        loop_config config = {};
        config.fd = static_cast<unsigned>(backing);
        config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
        if (loop >= 0 && ::ioctl(loop, LOOP_CONFIGURE, &config) != 0) {
            (void)::close(loop);
            loop = -1;
        }
    }
    (void)::close(backing);
    (void)::close(control);
    struct stat status = {};
    if (loop < 0 || ::fstat(loop, &status) != 0 ||
        ::mknod(device.c_str(), S_IFBLK | 0600, status.st_rdev) != 0) {
        std::printf("no loop device: %s\n", std::strerror(errno));
        return false;
    }
    // The descriptor stays open: the device disappears with its last user.
    return true;
}

void Sandbox::verify() const {
    for (const ToolRun& run : runs()) {
        EXPECT_FALSE(run.mRefused) << "not expected: " << oneLine(run.mArguments);
    }
    for (int i = 0; i < mExpected; ++i) {
        const std::string path = "/stub/roles/" + std::to_string(i);
        if (::access(path.c_str(), F_OK) == 0) {
            ADD_FAILURE() << "not run: " << oneLine(parseRun(readFile(path)).mArguments);
        }
    }
}

void writeFile(const std::string& path, const std::string& text, long long size) {
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    const bool written =
        file >= 0 && ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
        (size == 0 || ::ftruncate(file, size) == 0);
    (void)::close(file);
    if (!written) {
        throw failure(path);
    }
}

std::string readFile(const std::string& path) {
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    std::string text;
    char buffer[4096];
    ssize_t count = 0;
    while ((count = ::read(file, buffer, sizeof(buffer))) > 0) {
        text.append(buffer, static_cast<std::size_t>(count));
    }
    (void)::close(file);
    return text;
}

std::string xfsHeader(const std::string& label) {
    std::string header(512, '\0');
    header.replace(0, 4, "XFSB");
    header.replace(108, label.size(), label);
    return header;
}

std::string extHeader(const std::string& label) {
    std::string header(2048, '\0');
    header.replace(1024 + 56, 2, "\x53\xef");
    header.replace(1024 + 120, label.size(), label);
    return header;
}

bool eventually(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(kMinute);
    constexpr int briefly = 1000;
    for (int attempt = 0; !condition(); ++attempt) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        // After a short time sleep instead, because the awaited work needs the processor.
        if (attempt < briefly) {
            std::this_thread::yield();
        } else {
            (void)::poll(nullptr, 0, 1);
        }
    }
    return true;
}

}  // namespace tests
