// SPDX-License-Identifier: MIT
//
// A root of its own for the code under test, in which the box's tools are stubs that write down how
// they were run and do what the test tells them.
#ifndef KESTROVA_TESTS_SUPPORT_SANDBOX_H
#define KESTROVA_TESTS_SUPPORT_SANDBOX_H

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace tests {

/// What a stub is to do in one run: the arguments that it must be given, then actions in order. It
/// ends with status 0 unless told otherwise.
class Role {
public:
    explicit Role(const std::vector<std::string>& arguments);

    Role& print(const std::string& text) { return add("print", text); }
    /// Writes to the descriptor that is its argument 2, as fsck.ext3 does with -C.
    Role& report(const std::string& text) { return add("report", text); }
    /// Reads its standard input to the end, into the record.
    Role& readInput() { return add("input", ""); }
    Role& close(int descriptor) { return add("close", std::to_string(descriptor)); }
    /// Stops until the test calls Sandbox::release().
    Role& hold() { return add("hold", ""); }
    /// Mounts an empty file system whose device has this name.
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
    std::string mSignals;  ///< masks of what is blocked and ignored, in hexadecimal
    std::map<int, std::string> mDescriptors;  ///< number to target and "r", "w" or "rw"
    std::string mInput;
    bool mReadInput = false;  ///< it has read its input to the end
    bool mRefused = false;
};

/// The view from inside. Every tool of the box is a stub at first; "/bin/sh" and what is in "/usr"
/// are the machine's. "/dev" holds "null" and "zero" only; "/dvr" is an empty directory.
class Sandbox {
public:
    Sandbox();
    ~Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    /// The next run of a stub must be this one; runs come in the order of these calls.
    void expect(const Role& role);
    /// Runs like this one may come at any time and any number of times.
    void allow(const Role& role);
    /// Everything that has been run so far, in order.
    std::vector<ToolRun> runs() const;
    /// Waits until a stub holds. Throws when none does for a minute.
    void awaitHeld();
    void release();

    /// Puts the machine's tool, "/usr" before the path, in the stub's place.
    void useReal(const std::string& path);
    void removeTool(const std::string& path);
    /// Makes a stub of a tool that the sandbox does not have by itself.
    void addTool(const std::string& path);

    /// Puts a text in the place of /proc/mounts.
    void replaceMounts(const std::string& text);

    /// Makes a block device of a file. Skips the test, false, where the machine has no loop device
    /// to spare; it is given back when the sandbox is gone.
    bool attachLoop(const std::string& file, const std::string& device);

    /// Reports as failures what was expected and not run, and what was run and not expected.
    void verify() const;

private:
    int mExpected = 0;
    int mAllowed = 0;
    int mHeld = -1;
    int mGo = -1;
};

/// Writes a whole file; longer than the text when `size` says so.
void writeFile(const std::string& path, const std::string& text, long long size = 0);
std::string readFile(const std::string& path);

/// The beginning of an XFS file system, as far as it is looked at.
std::string xfsHeader(const std::string& label);
/// The beginning of an ext3 file system; a label beyond 16 characters runs into the next field.
std::string extHeader(const std::string& label);

/// Tries until a condition holds, without keeping the processor busy for longer than a moment.
/// False when the condition does not hold for a minute.
bool eventually(const std::function<bool()>& condition);

/// Runs a test's body in a sandbox: a child process with mounts and processes of its own, which are
/// gone when it ends, however that comes. Checks of the test framework work inside as usual. Where
/// the machine gives no namespaces, the test is skipped. A body that runs for longer than the limit
/// is killed, with everything that it started.
void inSandbox(const std::function<void(Sandbox&)>& body, unsigned limitSeconds = 240);

}  // namespace tests

#endif
