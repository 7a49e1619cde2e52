// SPDX-License-Identifier: MIT
//
// HTTP/1.0 without the library, for the figures to be compared with.
#ifndef KESTROVA_BENCH_BAREHTTP_H
#define KESTROVA_BENCH_BAREHTTP_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace bench {

/// Connects to a port of this machine, asks for a path without its first '/', and receives the
/// header a byte at a time. Returns the socket, whose next byte is the first of the body; ends the
/// program on any failure.
int openBare(std::uint16_t port, const std::string& path);

/// Receives the rest in pieces of at most `size` bytes, shuts the socket down and closes it.
/// Returns how many bytes came; ends the program on a failure.
std::size_t drainBare(int socket, char* buffer, std::size_t size);

}  // namespace bench

#endif
