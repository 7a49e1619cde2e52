// SPDX-License-Identifier: MIT
#include "app/ui/event.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace app {

Event::Event() : mDescriptor(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (mDescriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

Event::~Event() {
    (void)::close(mDescriptor);
}

void Event::set() const {
    const std::uint64_t one = 1;
    const ssize_t written = ::write(mDescriptor, &one, sizeof(one));
    (void)written;  // cannot fail before the counter overflows
}

bool Event::take() const {
    std::uint64_t count = 0;
    return ::read(mDescriptor, &count, sizeof(count)) == sizeof(count);
}

}  // namespace app
