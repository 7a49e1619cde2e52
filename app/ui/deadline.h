// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_UI_DEADLINE_H
#define KESTROVA_APP_UI_DEADLINE_H

#include <chrono>

namespace app {

/// A point in time some seconds after the construction, by the monotonic clock.
class Deadline {
public:
    explicit Deadline(unsigned seconds)
        : mEnd(std::chrono::steady_clock::now() + std::chrono::seconds(seconds)) {}

    bool passed() const { return std::chrono::steady_clock::now() >= mEnd; }

private:
    std::chrono::steady_clock::time_point mEnd;
};

}  // namespace app

#endif
