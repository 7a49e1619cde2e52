// SPDX-License-Identifier: MIT
#include "bench/barehttp.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "bench/figure.h"

namespace bench {

int openBare(std::uint16_t port, const std::string& path) {
    const std::string end = "\r\n\r\n";
    // The same request as the library's, so that the server has the same work.
    const std::string request = "GET /" + path +
                                " HTTP/1.0\r\nHost: 127.0.0.1:" + std::to_string(port) +
                                "\r\nUser-Agent: KestrovaMediaClient/1.0\r\n"
                                "Connection: close\r\n\r\n";
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    if (socket < 0 ||
        ::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::send(socket, request.data(), request.size(), 0) != static_cast<ssize_t>(request.size())) {
        fail("bare connection");
    }
    std::size_t matched = 0;
    while (matched < end.size()) {
        char byte = 0;
        if (::recv(socket, &byte, 1, 0) != 1) {
            fail("bare header");
        }
        matched = byte == end[matched] ? matched + 1 : (byte == end[0] ? 1 : 0);
    }
    return socket;
}

std::size_t drainBare(int socket, char* buffer, std::size_t size) {
    std::size_t total = 0;
    ssize_t count = 0;
    while ((count = ::recv(socket, buffer, size, 0)) > 0) {
        total += static_cast<std::size_t>(count);
    }
    if (count < 0) {
        fail("bare body");
    }
    (void)::shutdown(socket, SHUT_RDWR);
    (void)::close(socket);
    return total;
}

}  // namespace bench
