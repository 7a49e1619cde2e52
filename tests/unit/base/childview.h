// SPDX-License-Identifier: MIT
//
// Reads the report of the program childview, which describes the process from inside.
#ifndef KESTROVA_TESTS_BASE_CHILDVIEW_H
#define KESTROVA_TESTS_BASE_CHILDVIEW_H

#include <linux/close_range.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace tests {

/// Makes inherited descriptors of the test program close-on-exec, because a test does not expect
/// them in its children.
inline const int kInheritedStayHere = ::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);

struct ChildView {
    explicit ChildView(const std::string& report) {
        std::ifstream file(report);
        std::string line;
        while (std::getline(file, line)) {
            const std::size_t end = line.find_first_of(" \t");
            const std::string key = line.substr(0, end);
            const std::string value = end < line.size() ? line.substr(end + 1) : "";
            if (key == "descriptor") {
                const std::size_t blank = value.find(' ');
                mDescriptors[std::stoi(value)] = value.substr(blank + 1);
            } else {
                mFacts[key].push_back(value);
            }
        }
    }

    /// Returns all values of a key, in order: "argument", "environment", "nice", "input",
    /// "SigBlk:", …
    std::vector<std::string> all(const std::string& key) const {
        const auto found = mFacts.find(key);
        return found != mFacts.end() ? found->second : std::vector<std::string>();
    }
    std::string only(const std::string& key) const {
        return all(key).size() == 1 ? all(key)[0] : "(" + std::to_string(all(key).size()) + ")";
    }
    bool hasEnvironment(const std::string& entry) const {
        const std::vector<std::string> entries = all("environment");
        return std::count(entries.begin(), entries.end(), entry) == 1;
    }
    /// Returns the open numbers, such as "0 1 2".
    std::string numbers() const {
        std::string text;
        for (const auto& [number, target] : mDescriptors) {
            text += (text.empty() ? "" : " ") + std::to_string(number);
        }
        return text;
    }
    /// Returns the target and mode of a descriptor, such as "/dev/null rw"; a pipe is "pipe r".
    std::string on(int number) const {
        const auto found = mDescriptors.find(number);
        if (found == mDescriptors.end()) {
            return "closed";
        }
        const std::string& target = found->second;
        return target.compare(0, 5, "pipe:") == 0 ? "pipe" + target.substr(target.rfind(' '))
                                                  : target;
    }

    std::map<std::string, std::vector<std::string>> mFacts;
    std::map<int, std::string> mDescriptors;
};

}  // namespace tests

#endif
