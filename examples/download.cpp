// SPDX-License-Identifier: MIT
//
// Streams a document into a file. The file appears when the document has come whole.
//
//     download http://HOST[:PORT]/PATH FILE
#include <System/protocols/http/sysUrlFetcher.h>

#include <cstdio>
#include <string>

namespace {

// What the callback works on. The worker thread alone uses it until waitTillDone() has returned.
struct Download {
    std::FILE* mFile = nullptr;
    bool mWhole = false;
    const char* mProblem = "there is no thread for it";
};

// Runs in the fetcher's worker thread, which waits for it: what takes long here slows the download.
bool received(sysUrlFetcherCode code, char* data, int length, int sofar, int total, void* user) {
    auto& download = *static_cast<Download*>(user);
    switch (code) {
        case eUrlFetchOpenFailed:  // no such host, no answer, or a reply other than 200
            download.mProblem = "the document could not be opened";
            return false;
        case eUrlFetchHeader:  // total is 0 when the server does not tell
            std::printf("%d bytes announced\n", total);
            return true;  // false would stop here
        case eUrlFetchData:
            if (std::fwrite(data, 1, static_cast<std::size_t>(length), download.mFile) ==
                static_cast<std::size_t>(length)) {
                return true;
            }
            download.mProblem = "the file could not be written";
            return false;  // stops the download; eUrlFetchCancelled follows
        case eUrlFetchDone:
            // The end of the stream is an end also when it comes too early; without a total
            // nobody can tell.
            download.mWhole = sofar >= total;
            download.mProblem = "the document broke off";
            std::printf("%d bytes received\n", sofar);
            return true;
        case eUrlFetchError:
            download.mProblem = "the connection broke";
            return false;
        case eUrlFetchCancelled:  // the last call after a stop; what was wrong is known by now
            return false;
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: download URL FILE\n");
        return 2;
    }
    const std::string part = std::string(argv[2]) + ".part";
    Download download;
    download.mFile = std::fopen(part.c_str(), "wb");
    if (download.mFile == nullptr) {
        std::perror(part.c_str());
        return 1;
    }

    sysUrlFetcher fetcher;
    fetcher.setCallback(received, &download);
    if (fetcher.setUrl(argv[1]) == 0) {  // the worker runs from here on
        fetcher.waitTillDone();
    }

    const bool written = std::fclose(download.mFile) == 0;
    if (download.mWhole && written && std::rename(part.c_str(), argv[2]) == 0) {
        return 0;
    }
    std::remove(part.c_str());
    std::fprintf(stderr, "download: %s\n", download.mWhole ? "not saved" : download.mProblem);
    return 1;
}
