// SPDX-License-Identifier: MIT
//
// The outside of the sandbox: the processes and the root directory in which a test's body runs.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "tests/support/sandbox.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#include <sanitizer/common_interface_defs.h>
#endif

namespace tests {

namespace {

constexpr int kSkipped = 77;

void check(bool held, const std::string& what) {
    if (!held) {
        throw std::runtime_error(what + ": " + std::strerror(errno));
    }
}

void copyFile(int from, const std::string& path) {
    const int to = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0755);
    check(to >= 0, path);
    char buffer[65536];
    ssize_t count = 0;
    while ((count = ::read(from, buffer, sizeof(buffer))) > 0) {
        check(::write(to, buffer, static_cast<std::size_t>(count)) == count, path);
    }
    (void)::close(to);
}

void bindFolder(const std::string& from, const std::string& to) {
    check(::mkdir(to.c_str(), 0755) == 0, to);
    check(::mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0, to);
}

/// Binds the directories from which programs of the machine load their libraries.
void provideLibraries(const std::string& root) {
    bindFolder("/usr", root + "/usr");
    for (const std::string name : {"/lib", "/lib32", "/lib64", "/libx32"}) {
        char target[256] = {};
        struct stat status = {};
        if (::readlink(name.c_str(), target, sizeof(target) - 1) > 0) {
            check(::symlink(target, (root + name).c_str()) == 0, name);
        } else if (::stat(name.c_str(), &status) == 0) {
            bindFolder(name, root + name);
        }
    }
}

void provideDevices(const std::string& root) {
    check(::mkdir((root + "/dev").c_str(), 0755) == 0, "/dev");
    for (const std::string name : {"/dev/null", "/dev/zero"}) {
        writeFile(root + name, "");
        check(::mount(name.c_str(), (root + name).c_str(), nullptr, MS_BIND, nullptr) == 0, name);
    }
    bindFolder("/dev", root + "/hostdev");
}

#ifdef KESTROVA_COVERAGE_FOLDER
/// Binds the directory of the coverage counters to the same path inside. It was opened before the
/// root was mounted over /tmp, which may contain it.
void provideCounters(const std::string& root, int folder) {
    const std::string path = root + KESTROVA_COVERAGE_FOLDER;
    for (std::size_t at = path.find('/', root.size() + 1); at != std::string::npos;
         at = path.find('/', at + 1)) {
        (void)::mkdir(path.substr(0, at).c_str(), 0755);
    }
    bindFolder("/proc/self/fd/" + std::to_string(folder), path);
    (void)::close(folder);
}
#endif

/// Builds the root directory over /tmp, visible only to this process and its children, and enters
/// it.
void enterRoot() {
    const std::string root = "/tmp";
    const int stub = ::open(KESTROVA_TOOL_STUB, O_RDONLY | O_CLOEXEC);
    check(stub >= 0, KESTROVA_TOOL_STUB);
    check(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
#ifdef KESTROVA_COVERAGE_FOLDER
    const int counters = ::open(KESTROVA_COVERAGE_FOLDER, O_PATH | O_CLOEXEC);
    check(counters >= 0, KESTROVA_COVERAGE_FOLDER);
#endif
    check(::mount("sandbox", root.c_str(), "tmpfs", 0, "mode=0755") == 0, "root");
    provideLibraries(root);
    provideDevices(root);
    for (const char* const name : {"/bin", "/sbin", "/tmp", "/dvr", "/proc", "/etc", "/stub",
                                   "/stub/roles", "/stub/standing", "/stub/runs"}) {
        check(::mkdir((root + name).c_str(), 0755) == 0, name);
    }
    check(::mount("proc", (root + "/proc").c_str(), "proc", 0, nullptr) == 0, "/proc");
    check(::symlink("/usr/bin/sh", (root + "/bin/sh").c_str()) == 0, "/bin/sh");
#ifdef KESTROVA_COVERAGE_FOLDER
    provideCounters(root, counters);
#endif
    check(::mkfifo((root + "/stub/held").c_str(), 0600) == 0, "held");
    check(::mkfifo((root + "/stub/go").c_str(), 0600) == 0, "go");
    copyFile(stub, root + "/stub/tool");
    (void)::close(stub);
    check(::chroot(root.c_str()) == 0 && ::chdir("/") == 0, "chroot");
}

/// Creates namespaces for the children of this process. Returns false if the machine provides none.
bool unshareAll() {
    const uid_t user = ::geteuid();
    const gid_t group = ::getegid();
    if (::unshare(CLONE_NEWNS | CLONE_NEWPID | (user != 0 ? CLONE_NEWUSER : 0)) != 0) {
        std::printf("no namespaces: %s\n", std::strerror(errno));
        return false;
    }
    if (user != 0) {
        writeFile("/proc/self/setgroups", "deny");
        writeFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
        writeFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
    }
    return true;
}

void runBody(const std::function<void(Sandbox&)>& body) {
    try {
        enterRoot();
        Sandbox sandbox;
        body(sandbox);
        sandbox.verify();
    } catch (const std::exception& problem) {
        ADD_FAILURE() << problem.what();
    }
}

/// Runs as the first process of the new namespace: everything that the body started ends with it.
[[noreturn]] void runFirst(const std::function<void(Sandbox&)>& body) {
    (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
    // Close descriptors inherited by the test program, so that they do not look like leaks.
    (void)::close_range(STDERR_FILENO + 1, ~0U, 0);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    // The sanitizer reports even while a test captures standard error.
    __sanitizer_set_report_fd(reinterpret_cast<void*>(
        static_cast<std::intptr_t>(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 700))));
#endif
    runBody(body);
    (void)std::fflush(nullptr);
    if (testing::Test::HasFailure()) {
        std::exit(1);
    }
    std::exit(testing::Test::IsSkipped() ? kSkipped : 0);
}

int waitFor(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

[[noreturn]] void runOutside(const std::function<void(Sandbox&)>& body, unsigned limitSeconds) {
    (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
    (void)::alarm(limitSeconds);
    if (!unshareAll()) {
        (void)std::fflush(nullptr);
        ::_exit(kSkipped);
    }
    const pid_t first = ::fork();
    if (first == 0) {
        runFirst(body);
    }
    const int status = waitFor(first);
    ::_exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

}  // namespace

void inSandbox(const std::function<void(Sandbox&)>& body, unsigned limitSeconds) {
    (void)std::fflush(nullptr);
    const pid_t outside = ::fork();
    ASSERT_GE(outside, 0);
    if (outside == 0) {
        runOutside(body, limitSeconds);
    }
    const int status = waitFor(outside);
    ASSERT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    if (WEXITSTATUS(status) == kSkipped) {
        GTEST_SKIP() << "see above";
    }
    EXPECT_EQ(WEXITSTATUS(status), 0) << "see above";
}

}  // namespace tests
