// SPDX-License-Identifier: MIT
//
// A sandbox with a software partition, and boot environment files made without the library.
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

/// CRC-32 bit by bit.
std::uint32_t plainCrc(const std::string& bytes);
/// The records of the variables.
std::string areaOf(const Variables& vars);
/// A file image of an area.
std::string imageOf(const std::string& area);
std::string imageOf(const Variables& vars);

/// "key=value;" for each.
std::string toText(const Variables& vars);
/// The variables that the library finds, by the same pattern.
std::string listed();

/// The text without its context lines, in which the lines' numbers change with every edit.
std::string withoutContext(const std::string& output);

/// The world of the library inside a sandbox: the partition usage table, the software partition's
/// node, which is a plain file unless a test makes it a device, its directory and the mount table.
class BootBox {
public:
    /// `options` are those of the software partition in the mount table; null when it is not
    /// mounted.
    explicit BootBox(Sandbox& sandbox, const char* options = "rw,relatime");
    ~BootBox();
    BootBox(const BootBox&) = delete;
    BootBox& operator=(const BootBox&) = delete;

    /// A mount table with this entry of the software partition; null for none.
    void setMounted(const char* options);
    /// mount() and umount() answer from here on as the kernel does, and are recorded: "mount 9",
    /// "mount 40", "umount". The mount table follows.
    void simulateMounts();
    const std::vector<std::string>& mountCalls() const { return mMountCalls; }
    /// First option in the mount table now, "" when not mounted.
    const std::string& state() const { return mState; }

private:
    Sandbox& mSandbox;
    bool mReplaced = false;
    std::string mState;
    std::vector<std::string> mMountCalls;
};

}  // namespace tests

#endif
