// SPDX-License-Identifier: MIT
//
// The surroundings of one run: a sandbox whose changing parts are new for each run, with true
// mounts of its own.
#ifndef KESTROVA_TESTS_TORTURE_WORLD_H
#define KESTROVA_TESTS_TORTURE_WORLD_H

#include <map>
#include <optional>
#include <string>

#include "tests/support/sandbox.h"

namespace torture {

using Variables = std::map<std::string, std::string>;

/// A boot environment file, made and read without the library.
std::string environmentImage(const Variables& vars);
/// Nothing for an image that is not whole.
std::optional<Variables> readImage(const std::string& image);

class World {
public:
    /// Once for each sandbox.
    explicit World(tests::Sandbox& box);

    /// Folders and mounts of its own for the calling process and its children.
    void enterRun();

    tests::Sandbox& box() { return mBox; }

    /// A software partition: a file system that stays when it is unmounted. `options` is "ro", "rw"
    /// or null for one that is not mounted.
    void makeSoftware(const char* options, const std::string& primary, const std::string& backup);
    /// "ro", "rw", or "" for one that is not mounted; "twice" for one that is mounted again.
    std::string softwareState() const;
    std::string softwareFile(const char* name) const;
    /// What the boot stage reads: the primary, or the backup of a damaged one.
    std::optional<Variables> environment() const;

    /// The mounts of the box's devices, "device directory option;" each.
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
