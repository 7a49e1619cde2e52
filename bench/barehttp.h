// SPDX-License-Identifier: MIT
//
// HTTP/1.0 without the library, as the control of the HTTP figures.
#ifndef KESTROVA_BENCH_BAREHTTP_H
#define KESTROVA_BENCH_BAREHTTP_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace bench {

/// Connects to a port of this machine, requests a path without its first '/', and receives the
/// header a byte at a time. Returns the socket, whose next byte is the first of the body. Exits the
/// program on any failure.
int openBare(std::uint16_t port, const std::string& path);

/// Receives the rest in pieces of at most `size` bytes, shuts the socket down and closes it.
/// Returns the number of bytes received; exits the program on a failure.
std::size_t drainBare(int socket, char* buffer, std::size_t size);

}  // namespace bench

#endif
