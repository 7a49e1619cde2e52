// SPDX-License-Identifier: MIT
//
// The HTTP client, each figure against a plain implementation:
//   kestrova-bench-http [LIBCURL]
// LIBCURL is the libcurl for this word size, as a name for the dynamic loader. Without it its
// figure is omitted.
#include <dlfcn.h>
#include <semaphore.h>
#include <sys/resource.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <deque>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "System/protocols/http/httpconnection.h"
#include "System/protocols/http/sysChainFetcher.h"
#include "System/protocols/http/sysUrlFetcher.h"
#include "bench/barehttp.h"
#include "bench/documentserver.h"
#include "bench/figure.h"

namespace {

constexpr std::size_t kLargeDocument = std::size_t{64} * 1048576;
constexpr std::size_t kLargePiece = 65536;

/// An event that other threads signal.
class Event {
public:
    Event() : mSemaphore() { (void)sem_init(&mSemaphore, 0, 0); }
    ~Event() { (void)sem_destroy(&mSemaphore); }
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    void signal() { (void)sem_post(&mSemaphore); }
    void wait() {
        while (sem_wait(&mSemaphore) != 0 && errno == EINTR) {
        }
    }

private:
    sem_t mSemaphore;
};

void check(bool held, const char* what) {
    if (!held) {
        errno = 0;
        bench::fail(what);
    }
}

/// Fetches a document through the library's connection. Returns the number of bytes received.
std::size_t fetch(const std::string& url, std::vector<char>& buffer) {
    HTTPConnection connection;
    check(connection.Open(url.c_str()), "Open");
    std::size_t total = 0;
    int count = 0;
    while ((count = connection.Read(buffer.data(), static_cast<unsigned>(buffer.size()))) > 0) {
        total += static_cast<std::size_t>(count);
    }
    return total;
}

/// Returns this process's user and system time in seconds.
double processorSeconds() {
    constexpr double microseconds = 1e6;
    rusage usage = {};
    (void)getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / microseconds;
}

/// Writes a comment with the processor seconds of a way to fetch, per 10^9 bytes.
template <class Call>
void tellProcessorTime(bench::Report& report, const char* name, Call call) {
    constexpr int calls = 16;
    const double begin = processorSeconds();
    for (int i = 0; i < calls; ++i) {
        call();
    }
    const double bytes = static_cast<double>(kLargeDocument) * calls;
    report.comment(std::string(name) + ": " +
                   std::to_string((processorSeconds() - begin) * 1e9 / bytes) +
                   " processor seconds a GB");
}

/// The functions of libcurl (<curl/curl.h>) that are used. Loaded by name, because Debian has its
/// headers for only one word size.
class Curl {
public:
    explicit Curl(const char* library) : mpLibrary(dlopen(library, RTLD_NOW)) {
        load(mInit, "curl_easy_init");
        load(mSetOption, "curl_easy_setopt");
        load(mPerform, "curl_easy_perform");
        mpHandle = mInit();
        check(mpHandle != nullptr, "curl_easy_init");
    }

    /// Fetches a document. Returns the number of bytes received.
    std::size_t fetch(const std::string& url) {
        constexpr int optionWriteData = 10001;
        constexpr int optionUrl = 10002;
        constexpr int optionWriteFunction = 20011;
        constexpr int optionHttpVersion = 84;
        constexpr int optionBufferSize = 98;
        constexpr long http10 = 1;
        std::size_t total = 0;
        mSetOption(mpHandle, optionUrl, url.c_str());
        mSetOption(mpHandle, optionHttpVersion, http10);
        mSetOption(mpHandle, optionBufferSize, static_cast<long>(kLargePiece));
        mSetOption(mpHandle, optionWriteFunction, &Curl::write);
        mSetOption(mpHandle, optionWriteData, &total);
        check(mPerform(mpHandle) == 0, "curl_easy_perform");
        return total;
    }

private:
    static std::size_t write(char* /*data*/, std::size_t size, std::size_t count, void* total) {
        *static_cast<std::size_t*>(total) += size * count;
        return size * count;
    }

    template <class Function>
    void load(Function& function, const char* name) {
        function =
            mpLibrary != nullptr ? reinterpret_cast<Function>(dlsym(mpLibrary, name)) : nullptr;
        if (function == nullptr) {
            errno = 0;
            bench::fail(dlerror());
        }
    }

    void* mpLibrary;
    void* mpHandle = nullptr;
    void* (*mInit)() = nullptr;
    int (*mSetOption)(void*, int, ...) = nullptr;
    int (*mPerform)(void*) = nullptr;
};

void compareRead(bench::Report& report, const bench::DocumentServer& server, const char* library) {
    constexpr int rounds = 61;
    const std::string path = std::to_string(kLargeDocument);
    const std::string url = server.url(path);
    std::vector<char> buffer(kLargePiece);
    const auto subject = [&] { check(fetch(url, buffer) == kLargeDocument, "body"); };
    const auto control = [&] {
        check(bench::drainBare(bench::openBare(server.port(), path), buffer.data(),
                               buffer.size()) == kLargeDocument,
              "bare body");
    };
    const bench::Times bare = bench::measure(rounds, 1, subject, control);
    report.figure("http-read", bare.mControl / bare.mSubject, bare);
    tellProcessorTime(report, "http-read", subject);
    tellProcessorTime(report, "http-read bare", control);
    if (library != nullptr) {
        Curl curl(library);
        const auto other = [&] { check(curl.fetch(url) == kLargeDocument, "libcurl's body"); };
        const bench::Times times = bench::measure(rounds, 1, subject, other);
        report.figure("http-read-libcurl", times.mControl / times.mSubject, times);
        tellProcessorTime(report, "http-read libcurl", other);
    }
}

void compareFetcher(bench::Report& report, const bench::DocumentServer& server) {
    constexpr int rounds = 61;
    constexpr std::size_t piece = 2048;
    const std::string path = std::to_string(kLargeDocument);
    const std::string url = server.url(path);
    std::vector<char> buffer(piece);
    bool done = false;
    sysUrlFetcher fetcher;
    fetcher.setCallback(
        [](sysUrlFetcherCode code, char*, int, int, int, void* user) {
            *static_cast<bool*>(user) = code == eUrlFetchDone;
            return true;
        },
        &done);
    const bench::Times times = bench::measure(
        rounds, 1,
        [&] {
            check(fetcher.setUrl(url.c_str()) == 0, "setUrl");
            fetcher.waitTillDone();
            check(done, "fetcher");
        },
        [&] {
            check(bench::drainBare(bench::openBare(server.port(), path), buffer.data(), piece) ==
                      kLargeDocument,
                  "bare body");
        });
    report.figure("http-fetcher", times.mControl / times.mSubject, times);
}

void compareFirstByte(bench::Report& report, const bench::DocumentServer& server) {
    constexpr int rounds = 101;
    constexpr int calls = 20;
    constexpr unsigned size = 1024;
    const std::string path = std::to_string(size);
    const std::string url = server.url(path);
    std::vector<char> buffer(size);
    const bench::Times times = bench::measure(
        rounds, calls, [&] { check(fetch(url, buffer) == size, "body"); },
        [&] {
            check(
                bench::drainBare(bench::openBare(server.port(), path), buffer.data(), size) == size,
                "bare body");
        });
    report.figure("http-first-byte", times.mControl / times.mSubject, times);
}

void compareChain(bench::Report& report, const bench::DocumentServer& server) {
    constexpr int rounds = 2;
    constexpr unsigned documents = 500;
    constexpr unsigned size = 1000;
    const std::string path = std::to_string(size);
    const std::string url = server.url(path);
    const auto subject = [&] {
        Event last;
        sysChainFetcher chain;
        chain.setCallback(
            [](bool ok, unsigned id, const char*, char*, int, void* user) {
                check(ok, "document");
                if (id == documents) {
                    static_cast<Event*>(user)->signal();
                }
            },
            &last);
        for (unsigned id = 1; id <= documents; ++id) {
            chain.pushUrl(id, url.c_str());
        }
        last.wait();
    };
    std::vector<char> buffer(size);
    const auto control = [&] {
        for (unsigned i = 0; i < documents; ++i) {
            check(
                bench::drainBare(bench::openBare(server.port(), path), buffer.data(), size) == size,
                "bare body");
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    };
    const bench::Times times = bench::measure(rounds, 1, subject, control);
    report.figure("http-chain", times.mSubject / times.mControl, times);
}

/// A fetcher that waits for the rest of a document that never arrives.
class StalledFetch {
public:
    explicit StalledFetch(const bench::DocumentServer& server) : mUrl(server.url("stall")) {
        mFetcher.setCallback(
            [](sysUrlFetcherCode code, char*, int, int, int, void* user) {
                if (code == eUrlFetchData) {
                    static_cast<Event*>(user)->signal();
                }
                return true;
            },
            &mBegun);
    }

    void begin() {
        check(mFetcher.setUrl(mUrl.c_str()) == 0, "setUrl");
        mBegun.wait();
    }
    void cancel() { mFetcher.cancelFetch(); }

private:
    std::string mUrl;
    Event mBegun;
    sysUrlFetcher mFetcher;
};

void measureCancel(bench::Report& report, const bench::DocumentServer& server) {
    constexpr int rounds = 1001;
    constexpr double bound = 100000;  // nanoseconds
    StalledFetch fetch(server);
    std::vector<double> times;
    for (int i = 0; i < rounds; ++i) {
        fetch.begin();
        const double start = bench::now();
        fetch.cancel();
        times.push_back(bench::now() - start);
    }
    const double middle = bench::median(times);
    report.figure("http-cancel", middle / bound, {middle, bound});
}

/// Returns the resident memory of this process in KiB.
double residentKib() {
    std::ifstream file("/proc/self/smaps_rollup");
    std::string word;
    while (file >> word) {
        double kib = 0;
        if (word == "Rss:" && file >> kib) {
            return kib;
        }
    }
    errno = 0;
    bench::fail("/proc/self/smaps_rollup");
}

/// Measures one more running fetcher. The first one also maps code pages that the process has not
/// used yet; a comment shows their size.
void measureMemory(bench::Report& report, const bench::DocumentServer& server) {
    constexpr double bound = 128;  // KiB
    constexpr int many = 16;
    (void)residentKib();  // the first call itself uses memory
    const double idle = residentKib();
    std::deque<StalledFetch> fetches;
    fetches.emplace_back(server).begin();
    const double first = residentKib();
    for (int i = 0; i < many; ++i) {
        fetches.emplace_back(server).begin();
    }
    const double each = (residentKib() - first) / many;
    report.comment("http-memory: " + std::to_string(each) + " KiB resident, the first " +
                   std::to_string(first - idle) + " KiB");
    report.ratio("http-memory", each / bound);
}

}  // namespace

int main(int argc, char** argv) {
    constexpr int withLibrary = 2;
    if (argc > withLibrary) {
        (void)std::fprintf(stderr, "usage: %s [LIBCURL]\n", argv[0]);
        return 2;
    }
    bench::Report report;
    const bench::DocumentServer server;
    measureMemory(report, server);  // first, before other downloads leave memory in use
    compareRead(report, server, argc == withLibrary ? argv[1] : nullptr);
    compareFetcher(report, server);
    compareFirstByte(report, server);
    compareChain(report, server);
    measureCancel(report, server);
    return 0;
}
