// SPDX-License-Identifier: MIT
//
// A private root directory for the code under test. The box's tools in it are stubs that record how
// they were run and behave as the test specifies.
#ifndef KESTROVA_TESTS_SUPPORT_SANDBOX_H
#define KESTROVA_TESTS_SUPPORT_SANDBOX_H

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace tests {

/// One run of a stub: the arguments that it must receive, then its actions in order. It exits with
/// status 0 unless specified otherwise.
class Role {
public:
    explicit Role(const std::vector<std::string>& arguments);

    Role& print(const std::string& text) { return add("print", text); }
    /// Writes to the descriptor given in its argument 2, like fsck.ext3 with -C.
    Role& report(const std::string& text) { return add("report", text); }
    /// Reads its standard input to the end, and records it.
    Role& readInput() { return add("input", ""); }
    Role& close(int descriptor) { return add("close", std::to_string(descriptor)); }
    /// Blocks until the test calls Sandbox::release().
    Role& hold() { return add("hold", ""); }
    /// Mounts an empty file system with this device name.
    Role& mount(const std::string& device, const std::string& directory) {
        return add("mount", device + " " + directory);
    }
    Role& exit(int status) { return add("exit", std::to_string(status)); }
    Role& die(int signal) { return add("die", std::to_string(signal)); }

    const std::string& text() const { return mText; }

private:
    Role& add(const std::string& key, const std::string& value);

    std::string mText;
};

/// How a stub was run.
struct ToolRun {
    std::vector<std::string> mArguments;
    std::vector<std::string> mEnvironment;
    int mNice = 0;
    std::string mDirectory;
    bool mLeadsSession = false;
    std::string mSignals;  ///< masks of the blocked and ignored signals, in hexadecimal
    std::map<int, std::string> mDescriptors;  ///< number to target and "r", "w" or "rw"
    std::string mInput;
    bool mReadInput = false;  ///< it read its input to the end
    bool mRefused = false;
};

/// The sandbox as seen from inside. Initially every tool of the box is a stub; "/bin/sh" and the
/// contents of "/usr" are the machine's. "/dev" contains only "null" and "zero"; "/dvr" is an empty
/// directory.
class Sandbox {
public:
    Sandbox();
    ~Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    /// Expects this run of a stub next. Runs must occur in the order of these calls.
    void expect(const Role& role);
    /// Allows runs like this one at any time and any number of times.
    void allow(const Role& role);
    /// Returns all runs so far, in order.
    std::vector<ToolRun> runs() const;
    /// Waits until a stub blocks in hold(). Throws after a minute.
    void awaitHeld();
    void release();

    /// Replaces the stub with the machine's tool, which is at "/usr" plus the path.
    void useReal(const std::string& path);
    void removeTool(const std::string& path);
    /// Adds a stub for a tool that the sandbox does not have by default.
    void addTool(const std::string& path);

    /// Replaces the contents of /proc/mounts.
    void replaceMounts(const std::string& text);

    /// Creates a block device from a file. Skips the test and returns false if the machine has no
    /// free loop device. The device is released with the sandbox.
    bool attachLoop(const std::string& file, const std::string& device);

    /// Reports expected runs that did not happen, and unexpected runs, as failures.
    void verify() const;

private:
    int mExpected = 0;
    int mAllowed = 0;
    int mHeld = -1;
    int mGo = -1;
};

/// Writes a whole file, extended to `size` if that is longer than the text.
void writeFile(const std::string& path, const std::string& text, long long size = 0);
std::string readFile(const std::string& path);

/// Returns the start of an XFS file system, as far as the library reads it.
std::string xfsHeader(const std::string& label);
/// Returns the start of an ext3 file system; a label of more than 16 characters continues in the
/// next field.
std::string extHeader(const std::string& label);

/// Retries until a condition holds, without using the processor for long. Returns false after a
/// minute.
bool eventually(const std::function<bool()>& condition);

/// Runs a test's body in a sandbox: a child process in its own mount and PID namespaces, which
/// disappear with it in every case. Checks of the test framework work inside as usual. Skips the
/// test if the machine provides no namespaces. Kills a body that exceeds the time limit, with
/// everything that it started.
void inSandbox(const std::function<void(Sandbox&)>& body, unsigned limitSeconds = 240);

}  // namespace tests

#endif
