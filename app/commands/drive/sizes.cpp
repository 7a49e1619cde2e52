// SPDX-License-Identifier: MIT
#include "app/commands/drive/sizes.h"

#include <climits>

#include "app/ui/humantext.h"

namespace app {

namespace {

constexpr int kRest = -1;  // the value that the library uses

/// Returns the number of MiB in a unit, or 0 for any other letter.
unsigned long unitOf(char letter) {
    switch (letter) {
        case 'M':
            return 1;
        case 'G':
            return 1UL << 10U;
        case 'T':
            return 1UL << 20U;
        default:
            return 0;
    }
}

bool parseShare(const std::string& number, unsigned long long capacity, int& size) {
    unsigned long percent = 0;
    if (!readDecimal(number, 100, percent) || percent == 0) {
        return false;
    }
    const unsigned long long share = (capacity >> 20U) * percent / 100;
    // If the capacity is unknown, only the argument's syntax is checked.
    size = capacity == 0 ? 1 : static_cast<int>(share);
    return size > 0;
}

bool parseSize(const std::string& argument, unsigned long long capacity, int& size) {
    if (argument.empty()) {
        return false;
    }
    const std::string number = argument.substr(0, argument.size() - 1);
    if (argument.back() == '%') {
        return parseShare(number, capacity, size);
    }
    const unsigned long unit = unitOf(argument.back());
    unsigned long count = 0;
    if (!readDecimal(unit != 0 ? number : argument, INT_MAX / (unit != 0 ? unit : 1), count) ||
        count == 0) {
        return false;
    }
    size = static_cast<int>(count * (unit != 0 ? unit : 1));
    return true;
}

}  // namespace

Result parseSizes(const Words& arguments, unsigned long long capacity, PartitionSizes& sizes) {
    if (arguments.size() > 4) {
        return Result::misused("more than four sizes: " + quoted(arguments[4]));
    }
    int* next = sizes;
    for (const std::string& argument : arguments) {
        if (argument == "rest" && &argument == &arguments.back()) {
            *next = kRest;
        } else if (argument == "rest") {
            return Result::misused("'rest' can be the last size only");
        } else if (!parseSize(argument, capacity, *next)) {
            return Result::failed(
                "bad size " + quoted(argument) +
                    ": a number of MiB from 1, such as 1500, 1500M or 6G, a share such as 50%, or "
                    "'rest'",
                capacity == 0 ? eMisused : eFailed);
        }
        ++next;
    }
    while (next != sizes + 4) {
        *next++ = 0;
    }
    return {};
}

unsigned long long totalSize(const PartitionSizes& sizes) {
    unsigned long long total = 0;
    for (const int size : sizes) {
        total += size > 0 ? static_cast<unsigned long long>(size) : 0;
    }
    return total << 20U;
}

std::string sizesText(const PartitionSizes& sizes) {
    std::string text;
    for (const int size : sizes) {
        if (size != 0) {
            text += text.empty() ? "" : ", ";
            text += size == kRest ? "the rest" : std::to_string(size) + " MiB";
        }
    }
    return text;
}

Result checkSizes(const Words& arguments) {
    PartitionSizes sizes;
    return parseSizes(arguments, 0, sizes);
}

}  // namespace app
