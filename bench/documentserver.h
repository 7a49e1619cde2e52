// SPDX-License-Identifier: MIT
//
// A server for the figures of HTTP: a process of its own, so that its time is not the client's.
#ifndef KESTROVA_BENCH_DOCUMENTSERVER_H
#define KESTROVA_BENCH_DOCUMENTSERVER_H

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace bench {

/// Serves one connection after the other on 127.0.0.1, for as long as the object lives. "/N" is a
/// document of N bytes. "/stall" begins a document of which the rest never comes.
class DocumentServer {
public:
    /// Forks; while the program has no other threads. Ends the program when it cannot.
    DocumentServer();
    ~DocumentServer();
    DocumentServer(const DocumentServer&) = delete;
    DocumentServer& operator=(const DocumentServer&) = delete;

    std::uint16_t port() const { return mPort; }
    std::string url(const std::string& path) const;

private:
    pid_t mProcess = -1;
    std::uint16_t mPort = 0;
};

}  // namespace bench

#endif
