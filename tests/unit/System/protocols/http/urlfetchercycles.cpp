// SPDX-License-Identifier: MIT
//
// urlfetchercycles COUNT [SEED]: starts this many downloads, and cancels, replaces, destroys or
// awaits them at random moments. Every sequence of calls must be valid, and descriptors, threads
// and memory must be the same at the end. The exit status is 0 if they are.
#include <time.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <utility>

#include "System/protocols/http/sysUrlFetcher.h"
#include "base/outputlevel.h"
#include "tests/support/descriptors.h"
#include "tests/support/processview.h"
#include "tests/support/sandbox.h"
#include "tests/support/scriptedserver.h"

using namespace tests;

namespace {

/// Downloads per server, because a server keeps a record of every connection.
constexpr int kRound = 500;
constexpr int kWarmUp = 300;
constexpr unsigned kMostMicroseconds = 400;

/// The allocator's own caches vary; the sanitizers' numbers are exact.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kHeapNoise = 1024;
#else
constexpr std::size_t kHeapNoise = 65536;
#endif

std::mt19937 randomness;

unsigned pick(unsigned below) {
    return static_cast<unsigned>(randomness()) % below;
}

/// The codes that a fetcher has reported, as digits.
class Codes {
public:
    std::string take() {
        const std::lock_guard<std::mutex> lock(mLock);
        return std::exchange(mCodes, std::string());
    }
    static bool callback(sysUrlFetcherCode code, char*, int, int, int, void* user) {
        auto* const codes = static_cast<Codes*>(user);
        const std::lock_guard<std::mutex> lock(codes->mLock);
        codes->mCodes += static_cast<char>('0' + code);
        return true;
    }

private:
    std::mutex mLock;
    std::string mCodes;
};

/// The answers for the server's paths. The last ones never end by themselves.
Script answerTo(const std::string& request) {
    const std::string header = "HTTP/1.0 200 OK\r\nContent-Length: 5000\r\n\r\n";
    switch (request[sizeof("GET /") - 1]) {
        case '0':
            return Script().send(header + std::string(5000, 'x'));
        case '1':
            return Script().send("HTTP/1.0 404 Not Found\r\n\r\n");
        case '2':
            // Prints a word on standard output.
            return Script().send("HTTP/1.0 200 OK\r\nnot a field\r\n\r\n");
        case '3':
            return Script().send(header).send(std::string(1000, 'x')).reset();
        case '4':
            return Script().stall();
        case '5':
            return Script().send("HTTP/1.0 200 OK\r\nContent-Le").stall();
        case '6':
            return Script().send(header + "12345").stall();
        default:
            return Script().send("HTTP/1.0 200 OK\r\n\r\n").send("x", Script::kEndless);
    }
}
constexpr unsigned kPaths = 8;
constexpr unsigned kEnding = 4;

/// Sleeps until a random moment of the download.
void passSomeTime() {
    const timespec time = {0, static_cast<long>(pick(kMostMicroseconds)) * 1000};
    if (pick(4) != 0) {
        (void)::nanosleep(&time, nullptr);
    }
}

/// Returns whether a download may report these codes: 3, 4…, and one of 5, 0 and 2; or 1 and 2; or
/// 2.
bool possible(const std::string& codes) {
    if (codes == "2" || codes == "12") {
        return true;
    }
    const std::size_t last = codes.find_first_not_of('4', 1);
    return codes[0] == '3' && last != std::string::npos && last + 1 == codes.size() &&
           std::string("502").find(codes[last]) != std::string::npos;
}

class Cycles {
public:
    /// Runs this many cycles. Returns the number of invalid sequences.
    int run(int count) {
        for (int done = 0; done < count; done += kRound) {
            ScriptedServer server;
            server.answer(answerTo);
            for (int i = 0; i < kRound && done + i < count; ++i) {
                cycle(server);
            }
            mFetcher.reset();
        }
        return mWrong;
    }

private:
    void cycle(const ScriptedServer& server) {
        if (mFetcher == nullptr) {
            mFetcher = std::make_unique<sysUrlFetcher>();
            mFetcher->setCallback(Codes::callback, &mCodes);
        }
        const unsigned path = pick(kPaths);
        const std::string url = server.url("/" + std::to_string(path));
        if (mFetcher->setUrl(url.c_str()) != 0) {
            ++mWrong;
        }
        if (path < kEnding && pick(4) == 0) {
            mFetcher->waitTillDone();
            check(path);
            return;
        }
        passSomeTime();
        end();
        check(path);
    }

    void end() {
        if (pick(3) == 0) {
            mFetcher.reset();
        } else if (pick(2) == 0) {
            // Replaced by one that fails at once, whose codes are removed.
            (void)mFetcher->setUrl("none");
            mFetcher->waitTillDone();
            mReplaced = true;
        } else {
            mFetcher->cancelFetch();
        }
    }

    void check(unsigned path) {
        std::string codes = mCodes.take();
        if (mReplaced) {
            mReplaced = false;
            const bool told = codes.size() >= 2 && codes.substr(codes.size() - 2) == "12";
            codes = told ? codes.substr(0, codes.size() - 2) : codes + "?";
        }
        if (!possible(codes)) {
            std::fprintf(stderr, "path %u: the codes %s\n", path, codes.c_str());
            ++mWrong;
        }
    }

    Codes mCodes;
    std::unique_ptr<sysUrlFetcher> mFetcher;
    bool mReplaced = false;
    int mWrong = 0;
};

/// Values that must be the same before and after.
struct Footprint {
    std::size_t mDescriptors = openDescriptors().size();
    std::size_t mThreads = threadIds().size();
    std::size_t mHeap = heapInUse();

    void print(const char* when) const {
        std::fprintf(stderr, "%s: %zu descriptors, %zu threads, %zu bytes\n", when, mDescriptors,
                     mThreads, mHeap);
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fputs("usage: urlfetchercycles COUNT [SEED]\n", stderr);
        return 2;
    }
    const int count = std::atoi(argv[1]);
    const unsigned seed = argc > 2 ? static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10))
                                   : std::random_device()();
    std::fprintf(stderr, "seed %u\n", seed);
    randomness.seed(seed);
    // The log is part of the test, but its output is not needed.
    kestrova_debug_output_level = 2;
    if (std::freopen("/dev/null", "w", stdout) == nullptr) {
        return 2;
    }

    Cycles cycles;
    // Creates what is created once and kept, such as the unwinder's tables.
    int wrong = cycles.run(kWarmUp);
    (void)eventually([] { return threadIds().size() <= kOwnThreads; });
    const Footprint before;
    before.print("before");
    wrong += cycles.run(count);
    (void)eventually([&] { return threadIds().size() <= before.mThreads; });
    const Footprint after;
    after.print("after");
    const std::size_t allowed = before.mHeap + kHeapNoise;
    const bool same = after.mDescriptors == before.mDescriptors &&
                      after.mThreads == before.mThreads && after.mHeap <= allowed;
    std::fprintf(stderr, "%d cycles, %d wrong sequences, %s\n", count, wrong,
                 same ? "nothing lost" : "something was lost");
    return wrong == 0 && same ? 0 : 1;
}
