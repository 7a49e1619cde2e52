// SPDX-License-Identifier: MIT
//
// A server for the HTTP figures. It is a separate process, so that its processor time is not the
// client's.
#ifndef KESTROVA_BENCH_DOCUMENTSERVER_H
#define KESTROVA_BENCH_DOCUMENTSERVER_H

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace bench {

/// Serves one connection after another on 127.0.0.1 during the object's lifetime. "/N" is a
/// document of N bytes. "/stall" starts a document and never completes it.
class DocumentServer {
public:
    /// Forks, so create it before any other thread. Exits the program on failure.
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
