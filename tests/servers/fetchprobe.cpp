// SPDX-License-Identifier: MIT
//
// fetchprobe url URL: streams a document to standard output. fetchprobe chain URL: does the same
// with the fetcher of small documents. The other values that the callbacks received go to standard
// error, as one JSON line.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <future>
#include <string>

#include "System/protocols/http/sysChainFetcher.h"
#include "System/protocols/http/sysUrlFetcher.h"
#include "base/io/descriptor.h"
#include "base/outputlevel.h"

namespace {

struct Told {
    std::string mCodes;  ///< without repetitions
    int mReceived = 0;
    int mTotal = 0;
};

bool streamed(sysUrlFetcherCode code, char* data, int length, int received, int total, void* user) {
    auto* const told = static_cast<Told*>(user);
    const char digit = static_cast<char>('0' + code);
    if (told->mCodes.empty() || told->mCodes.back() != digit) {
        told->mCodes += digit;
    }
    told->mReceived = received;
    told->mTotal = total;
    return length == 0 || base::writeAll(STDOUT_FILENO, data, static_cast<std::size_t>(length));
}

void stream(const char* url) {
    Told told;
    sysUrlFetcher fetcher;
    fetcher.setCallback(streamed, &told);
    if (fetcher.setUrl(url) != 0) {
        std::exit(1);
    }
    fetcher.waitTillDone();
    std::fprintf(stderr, "{\"codes\": \"%s\", \"received\": %d, \"total\": %d}\n",
                 told.mCodes.c_str(), told.mReceived, told.mTotal);
}

void delivered(bool ok, unsigned id, const char* type, char* data, int length, void* user) {
    std::fprintf(stderr, "{\"ok\": %s, \"id\": %u, \"type\": \"%s\", \"length\": %d}\n",
                 ok ? "true" : "false", id, type, length);
    (void)base::writeAll(STDOUT_FILENO, data, static_cast<std::size_t>(length));
    static_cast<std::promise<void>*>(user)->set_value();
}

void chain(const char* url) {
    std::promise<void> done;
    sysChainFetcher fetcher;
    fetcher.setCallback(delivered, &done);
    fetcher.pushUrl(7, url);
    done.get_future().wait();
}

}  // namespace

int main(int argc, char** argv) {
    kestrova_debug_output_level = 0;
    if (argc == 3 && std::strcmp(argv[1], "url") == 0) {
        stream(argv[2]);
    } else if (argc == 3 && std::strcmp(argv[1], "chain") == 0) {
        chain(argv[2]);
    } else {
        std::fputs("usage: fetchprobe url|chain URL\n", stderr);
        return 2;
    }
    return 0;
}
