// SPDX-License-Identifier: MIT
//
// The environment of one run: a sandbox whose mutable parts are new for each run, with real mounts.
#ifndef KESTROVA_TESTS_TORTURE_WORLD_H
#define KESTROVA_TESTS_TORTURE_WORLD_H

#include <map>
#include <optional>
#include <string>

#include "tests/support/sandbox.h"

namespace torture {

using Variables = std::map<std::string, std::string>;

/// Creates a boot environment file without the library.
std::string environmentImage(const Variables& vars);
/// Parses one. Returns nothing for an invalid image.
std::optional<Variables> readImage(const std::string& image);

class World {
public:
    /// Call it once for each sandbox.
    explicit World(tests::Sandbox& box);

    /// Gives the calling process and its children their own directories and mounts.
    void enterRun();

    tests::Sandbox& box() { return mBox; }

    /// Creates a software partition: a file system that survives an unmount. `options` is "ro",
    /// "rw" or null if it is not mounted.
    void makeSoftware(const char* options, const std::string& primary, const std::string& backup);
    /// Returns "ro", "rw", "" if it is not mounted, or "twice" if it is mounted more than once.
    std::string softwareState() const;
    std::string softwareFile(const char* name) const;
    /// Returns what the boot stage reads: the primary, or the backup if the primary is damaged.
    std::optional<Variables> environment() const;

    /// Returns the mounts of the box's devices, each as "device directory option;".
    static std::string mounts();
    static bool isMounted(const std::string& device, const std::string& directory);

private:
    int answerMount(const char* device, const char* directory, unsigned long flags);

    tests::Sandbox& mBox;
    int mSoftware = -1;
};

extern const char kSoftware[];  ///< device of the software partition

}  // namespace torture

#endif
