// SPDX-License-Identifier: MIT
//
// A sandbox with a software partition, and boot environment files created without the library.
#ifndef KESTROVA_TESTS_SYSTEM_BOOTVARSMANAGER_BOOTBOX_H
#define KESTROVA_TESTS_SYSTEM_BOOTVARSMANAGER_BOOTBOX_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tests/support/descriptors.h"
#include "tests/support/failingcalls.h"
#include "tests/support/sandbox.h"

namespace tests {

using Variables = std::map<std::string, std::string>;

extern const char kSoftwareDevice[];
inline constexpr char kPrimaryFile[] = "/boot-sw/boot_env";
inline constexpr char kBackupFile[] = "/boot-sw/boot_env.bkp";
inline constexpr char kTemporaryFile[] = "/boot-sw/boot_env.tmp";

/// CRC-32, bit by bit.
std::uint32_t plainCrc(const std::string& bytes);
/// Returns the records of the variables.
std::string areaOf(const Variables& vars);
/// Return a file image of an area or of variables.
std::string imageOf(const std::string& area);
std::string imageOf(const Variables& vars);

/// Returns "key=value;" for each variable.
std::string toText(const Variables& vars);
/// Returns the variables that the library finds, in the same form.
std::string listed();

/// Returns the text without its context lines, whose line numbers change with every edit.
std::string withoutContext(const std::string& output);

/// The library's environment in a sandbox: the partition usage table, the software partition's
/// node, which is a plain file unless a test replaces it, its directory and the mount table.
class BootBox {
public:
    /// `options` are those of the software partition in the mount table; null if it is not mounted.
    explicit BootBox(Sandbox& sandbox, const char* options = "rw,relatime");
    ~BootBox();
    BootBox(const BootBox&) = delete;
    BootBox& operator=(const BootBox&) = delete;

    /// Sets a mount table with this entry of the software partition; null for none.
    void setMounted(const char* options);
    /// Simulates mount() and umount() from now on as the kernel behaves, and records them: "mount
    /// 9", "mount 40", "umount". The mount table follows.
    void simulateMounts();
    const std::vector<std::string>& mountCalls() const { return mMountCalls; }
    /// Returns the first option in the mount table, "" if it is not mounted.
    const std::string& state() const { return mState; }

private:
    Sandbox& mSandbox;
    bool mReplaced = false;
    std::string mState;
    std::vector<std::string> mMountCalls;
};

}  // namespace tests

#endif
