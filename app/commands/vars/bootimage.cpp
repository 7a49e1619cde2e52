// SPDX-License-Identifier: MIT
#include "app/commands/vars/bootimage.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <set>

#include "app/ui/humantext.h"
#include "app/ui/interrupts.h"

namespace app {

namespace {

constexpr std::size_t kHeaderSize = 12;
constexpr std::size_t kChecksumOffset = 4;
constexpr std::size_t kSizeOffset = 8;

std::uint32_t byteAt(std::string_view image, std::size_t offset) {
    return static_cast<unsigned char>(image[offset]);
}

std::uint32_t bigEndian(std::string_view image, std::size_t offset) {
    return byteAt(image, offset) << 24U | byteAt(image, offset + 1) << 16U |
           byteAt(image, offset + 2) << 8U | byteAt(image, offset + 3);
}

/// Bit by bit: this must be obviously correct, not fast.
std::uint32_t checksum(std::string_view bytes) {
    constexpr std::uint32_t polynomial = 0xedb88320;
    std::uint32_t rest = 0xffffffff;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        rest ^= byteAt(bytes, i);
        for (int bit = 0; bit < 8; ++bit) {
            rest = (rest & 1U) != 0 ? rest >> 1U ^ polynomial : rest >> 1U;
        }
    }
    return ~rest;
}

std::string hexadecimal(std::uint32_t value) {
    char text[16];
    (void)std::snprintf(text, sizeof(text), "%08x", value);
    return text;
}

std::string number(std::size_t value) {
    return std::to_string(value);
}

class Checker {
public:
    explicit Checker(std::string_view image) : mImage(image) {}

    BootImage run() {
        if (mImage.size() < kHeaderSize) {
            problem(mImage.size(), "the file ends within the header of 12 bytes");
            return mResult;
        }
        checkFlags();
        if (mImage.size() > kLargestBootImage) {
            problem(kLargestBootImage, "the file is longer than 65536 bytes");
        }
        checkArea();
        return mResult;
    }

private:
    void problem(std::size_t offset, std::string text) {
        mResult.mProblems.push_back({offset, std::move(text)});
    }

    void note(std::size_t offset, std::string text) {
        mResult.mNotes.push_back({offset, std::move(text)});
    }

    void checkFlags() {
        if (byteAt(mImage, 3) != 0) {
            problem(3, "bad flags: this byte must be 0");
        }
        if (byteAt(mImage, 2) == 0) {
            problem(2, "bad flags: this byte must not be 0");
        }
    }

    void checkArea() {
        const std::uint32_t size = bigEndian(mImage, kSizeOffset);
        const std::uint32_t stored = bigEndian(mImage, kChecksumOffset);
        const std::string_view behindHeader = mImage.substr(kHeaderSize);
        if (size > kLargestBootImage - kHeaderSize) {
            problem(kSizeOffset, "bad size: " + number(size) + ", at most 65524 are possible");
            return;
        }
        if (size > behindHeader.size()) {
            problem(kSizeOffset, "bad size: " + number(size) + ", but the file holds only " +
                                     number(behindHeader.size()) + " bytes of variables");
            return;
        }
        if (size == 0 && stored != 0 && !behindHeader.empty()) {
            // Readers treat size 0 as an environment without variables, whatever the checksum is.
            problem(kSizeOffset, "bad size: 0, but a checksum and " + number(behindHeader.size()) +
                                     " bytes are there");
            return;
        }
        if (behindHeader.size() > size) {
            note(kHeaderSize + size,
                 number(behindHeader.size() - size) + " bytes behind the variables are ignored");
        }
        const std::uint32_t computed = checksum(behindHeader.substr(0, size));
        if (size != 0 && computed != stored) {
            problem(kChecksumOffset, "bad checksum: " + hexadecimal(stored) +
                                         " is stored, the variables give " + hexadecimal(computed));
        }
        checkRecords(behindHeader.substr(0, size));
    }

    void checkRecords(std::string_view area) {
        std::set<std::string_view> names;
        std::size_t position = 0;
        while (position < area.size()) {
            const std::size_t begin = kHeaderSize + position;
            const std::size_t nameEnd = area.find('\0', position);
            if (nameEnd == std::string_view::npos) {
                return problem(begin, "a name does not end; it is ignored");
            }
            const std::string_view name = area.substr(position, nameEnd - position);
            const std::size_t end = area.find('\0', nameEnd + 1);
            if (end == std::string_view::npos || end + 1 == area.size()) {
                return problem(begin,
                               "the variable " + quoted(name) + " does not end; it is ignored");
            }
            if (area[end + 1] != '\0') {
                return problem(kHeaderSize + end + 1,
                               "the second 0 behind the value of " + quoted(name) +
                                   " is missing; it and all that follows are ignored");
            }
            noteVariable(begin, name, end == nameEnd + 1, !names.insert(name).second);
            ++mResult.mVariables;
            position = end + 2;
        }
    }

    void noteVariable(std::size_t offset, std::string_view name, bool empty, bool again) {
        if (name.empty()) {
            note(offset, "a variable without a name");
        }
        if (empty) {
            note(offset, "the variable " + quoted(name) + " is empty");
        }
        if (again) {
            note(offset, "the variable " + quoted(name) + " is there again; the last one counts");
        }
    }

    std::string_view mImage;
    BootImage mResult;
};

/// Waits until the input is readable. Returns false after a signal; -1 disables signals.
bool awaitInput(int input, int signals) {
    pollfd sources[] = {{input, POLLIN, 0}, {signals, POLLIN, 0}};
    while (::poll(sources, 2, -1) < 0 && errno == EINTR) {
    }
    return sources[1].revents == 0;
}

/// Returns 0, or errno: EINTR after a signal.
int readFrom(int input, std::size_t limit, int signals, std::string& content) {
    content.resize(limit);
    std::size_t length = 0;
    ssize_t count = -1;
    while (length < limit && count != 0) {
        if (!awaitInput(input, signals)) {
            return EINTR;
        }
        count = ::read(input, &content[length], limit - length);
        if (count < 0 && errno != EAGAIN && errno != EINTR) {
            return errno;
        }
        length += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    content.resize(length);
    return 0;
}

}  // namespace

BootImage checkBootImage(std::string_view image) {
    return Checker(image).run();
}

Result readContent(const std::string& path, std::size_t limit, const Interrupts* interrupts,
                   std::string& content) {
    // Non-blocking, because a signal could not interrupt the open of a pipe without a writer.
    const int input = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    int error = errno;
    if (input >= 0) {
        error =
            readFrom(input, limit, interrupts != nullptr ? interrupts->descriptor() : -1, content);
        (void)::close(input);
    }
    if (error == EINTR && interrupts != nullptr) {
        (void)interrupts->take();
        return Result::failed("cancelled", eCancelled);
    }
    return input >= 0 && error == 0
               ? Result()
               : Result::failed(std::strerror(error), error == ENOENT ? eAbsent : eFailed);
}

}  // namespace app
