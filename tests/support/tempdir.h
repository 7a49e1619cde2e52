// SPDX-License-Identifier: MIT
#ifndef KESTROVA_TESTS_SUPPORT_TEMPDIR_H
#define KESTROVA_TESTS_SUPPORT_TEMPDIR_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace tests {

/// A temporary directory for a scope.
class TempDir {
public:
    TempDir() {
        std::string name = (std::filesystem::temp_directory_path() / "kestrova-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            std::abort();
        }
        mPath = name;
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    /// Returns the path of a name in the directory.
    std::string path(const char* name) const { return mPath + "/" + name; }
    /// Writes a file and returns its path.
    std::string write(const char* name, const std::string& text) const {
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    }
    /// Returns the contents of a file.
    static std::string read(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

private:
    std::string mPath;
};

}  // namespace tests

#endif
