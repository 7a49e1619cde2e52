// SPDX-License-Identifier: MIT
//
// Shared by the tests of the HTTP client.
#ifndef KESTROVA_TESTS_SYSTEM_PROTOCOLS_HTTP_HTTPTEST_H
#define KESTROVA_TESTS_SYSTEM_PROTOCOLS_HTTP_HTTPTEST_H

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "System/protocols/http/httpconnection.h"
#include "tests/support/capture.h"
#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"

namespace tests {

/// Returns a reply with status 200; `fields` are whole lines.
inline std::string okReply(const std::string& body, const std::string& fields = "") {
    return "HTTP/1.1 200 OK\r\n" + fields + "\r\n" + body;
}

/// Returns what a connection prints for a message at level 1; its line number is "#".
inline std::string connectionLog(const std::string& message) {
    return "System/protocols/http/httpconnection:# (level 1):\n" + message;
}

/// Returns what an operation prints at a verbosity, in connectionLog()'s form.
inline std::string printedBy(std::uint32_t verbosity, const std::function<void()>& operation) {
    const OutputLevel level(verbosity);
    const Capture capture;
    operation();
    std::string text = capture.output() + capture.errors();
    for (std::size_t end = 0; (end = text.find(" (level ", end)) != std::string::npos; ++end) {
        const std::size_t colon = text.rfind(':', end);
        text.replace(colon + 1, end - colon - 1, "#");
        end = colon + 2;
    }
    return text;
}

/// The result of Open().
struct OpenOutcome {
    bool mOpened = false;
    std::string mPrinted;
};

inline OpenOutcome open(HTTPConnection& connection, const std::string& url, HTTPReplyHeader& header,
                        std::uint32_t verbosity = 1) {
    OpenOutcome outcome;
    outcome.mPrinted =
        printedBy(verbosity, [&] { outcome.mOpened = connection.Open(url.c_str(), header); });
    return outcome;
}

/// Reads to the end; `last` is the result of the last read.
inline std::string readAll(HTTPConnection& connection, int& last, unsigned piece = 1000) {
    std::string text;
    std::string buffer(piece, '\0');
    while ((last = connection.Read(buffer.data(), piece)) > 0) {
        text.append(buffer, 0, static_cast<std::size_t>(last));
    }
    return text;
}

/// Records what a connection does to its socket, and optionally shortens the time limits. Contains
/// a failingcalls::Scope.
class SocketWatch {
public:
    struct Option {
        int mLevel;
        int mOption;
        timeval mTime;
    };

    /// `microseconds` replace every time limit; 0 keeps them.
    explicit SocketWatch(int microseconds = 0) {
        failingcalls::answerSetsockopt([this, microseconds](const failingcalls::SocketOption& o) {
            mSocket = o.mSocket;
            timeval time = {};
            if (o.mSize == sizeof(time)) {
                std::memcpy(&time, o.mValue, sizeof(time));
            }
            mOptions.push_back({o.mLevel, o.mOption, time});
            if (microseconds != 0) {
                time = {0, microseconds};
            }
            return ::setsockopt(o.mSocket, o.mLevel, o.mOption, &time, sizeof(time));
        });
    }

    int socket() const { return mSocket; }
    const std::vector<Option>& options() const { return mOptions; }

private:
    failingcalls::Scope mScope;
    int mSocket = -1;
    std::vector<Option> mOptions;
};

/// Answers every lookup with these IPv4 addresses, in this order. Needs a failingcalls::Scope.
inline void answerLookupsWith(const std::vector<in_addr_t>& addresses, int family = AF_INET) {
    failingcalls::answerLookup([addresses, family](const failingcalls::Lookup& lookup) {
        // The answer is in the caller's buffer, as with the original function.
        auto* const list = reinterpret_cast<char**>(lookup.mBuffer);
        char* bytes = lookup.mBuffer + (addresses.size() + 1) * sizeof(char*);
        std::size_t count = 0;
        for (const in_addr_t address : addresses) {
            const in_addr_t inOrder = htonl(address);
            std::memcpy(bytes, &inOrder, sizeof(inOrder));
            list[count++] = bytes;
            bytes += sizeof(inOrder);
        }
        list[count] = nullptr;
        *lookup.mEntry = hostent();
        lookup.mEntry->h_addrtype = family;
        lookup.mEntry->h_length = sizeof(in_addr_t);
        lookup.mEntry->h_addr_list = list;
        *lookup.mFound = lookup.mEntry;
        return 0;
    });
}

}  // namespace tests

#endif
