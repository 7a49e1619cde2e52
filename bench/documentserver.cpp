// SPDX-License-Identifier: MIT
#include "bench/documentserver.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <thread>
#include <vector>

#include "bench/figure.h"

namespace bench {

namespace {

bool sendAll(int socket, const char* bytes, std::size_t length) {
    while (length > 0) {
        const ssize_t sent = ::send(socket, bytes, length, MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        bytes += sent;
        length -= static_cast<std::size_t>(sent);
    }
    return true;
}

/// Returns the request's path without its first '/'; empty if there is none.
std::string readPath(int socket) {
    constexpr char begin[] = "GET /";
    constexpr std::size_t beginLength = sizeof(begin) - 1;
    std::string request;
    char buffer[1024];
    while (request.find("\r\n\r\n") == std::string::npos) {
        const ssize_t count = ::recv(socket, buffer, sizeof(buffer), 0);
        if (count <= 0) {
            return {};
        }
        request.append(buffer, static_cast<std::size_t>(count));
    }
    return request.substr(beginLength, request.find(' ', beginLength) - beginLength);
}

void sendDocument(int socket, std::size_t length, const std::vector<char>& bytes) {
    const std::string header =
        "HTTP/1.0 200 OK\r\nContent-Type: application/octet-stream\r\nContent-Length: " +
        std::to_string(length) + "\r\n\r\n";
    bool open = sendAll(socket, header.data(), header.size());
    while (open && length > 0) {
        const std::size_t piece = std::min(length, bytes.size());
        open = sendAll(socket, bytes.data(), piece);
        length -= piece;
    }
}

/// Waits until the client disconnects, while the server accepts other connections.
void stall(int socket) {
    std::thread([socket] {
        char byte = 0;
        (void)::recv(socket, &byte, 1, 0);
        (void)::close(socket);
    }).detach();
}

void serve(int socket, const std::vector<char>& bytes) {
    const std::string path = readPath(socket);
    if (path == "stall") {
        const std::string begin = "HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\nx";
        (void)sendAll(socket, begin.data(), begin.size());
        stall(socket);
        return;
    }
    if (!path.empty()) {
        sendDocument(socket, std::strtoul(path.c_str(), nullptr, 10), bytes);
    }
    (void)::close(socket);
}

[[noreturn]] void serveAll(int listener) {
    constexpr std::size_t pieceSize = 1048576;
    const std::vector<char> bytes(pieceSize, 'x');
    for (;;) {
        const int socket = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket >= 0) {
            serve(socket, bytes);
        }
    }
}

}  // namespace

DocumentServer::DocumentServer() {
    constexpr int backlog = 64;
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (listener < 0 || ::bind(listener, generic, size) != 0 ||
        ::getsockname(listener, generic, &size) != 0 || ::listen(listener, backlog) != 0) {
        fail("server");
    }
    mPort = ntohs(address.sin_port);
    mProcess = ::fork();
    if (mProcess < 0) {
        fail("fork");
    }
    if (mProcess == 0) {
        (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
        serveAll(listener);
    }
    (void)::close(listener);
}

DocumentServer::~DocumentServer() {
    (void)::kill(mProcess, SIGKILL);
    (void)::waitpid(mProcess, nullptr, 0);
}

std::string DocumentServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(mPort) + "/" + path;
}

}  // namespace bench
