// SPDX-License-Identifier: MIT
//
// Cancellation while the C library resolves a host name, on a machine whose only name server is the
// test's own.
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <thread>

#include "System/protocols/http/sysUrlFetcher.h"
#include "base/io/descriptor.h"
#include "tests/support/descriptors.h"
#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"
#include "tests/support/scriptedserver.h"
#include "tests/unit/System/protocols/http/leftovers.h"
#include "tests/unit/System/protocols/http/urlrecord.h"

using namespace tests;

namespace {

constexpr int kCycles = 300;
constexpr int kMostThreads = 8;
/// Time that the resolver waits for its name server.
constexpr std::chrono::seconds kSilence(20);

/// Enters a new network namespace. Returns false if the machine provides none.
bool enterNetwork() {
    if (::unshare(CLONE_NEWNET) != 0) {
        return false;
    }
    const base::Descriptor socket = base::openSocket(AF_INET, SOCK_DGRAM);
    ifreq loopback = {};
    std::strcpy(loopback.ifr_name, "lo");
    loopback.ifr_flags = IFF_UP | IFF_RUNNING;
    return ::ioctl(socket.get(), SIOCSIFFLAGS, &loopback) == 0;
}

/// A name server that knows "known.test", at 127.0.0.1, and answers on request.
class NameServer {
public:
    NameServer() : mSocket(base::openSocket(AF_INET, SOCK_DGRAM)) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(53);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(0, ::bind(mSocket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)));
        mThread = std::thread([this] { run(); });
    }
    ~NameServer() {
        mStop = true;
        mThread.join();
    }
    NameServer(const NameServer&) = delete;
    NameServer& operator=(const NameServer&) = delete;

    void answers(bool answers) { mAnswers = answers; }
    bool awaitQuestions(int count) const {
        return eventually([&] { return mQuestions >= count; });
    }

private:
    void run() {
        while (!mStop) {
            pollfd ready = {mSocket.get(), POLLIN, 0};
            if (::poll(&ready, 1, 10) == 1) {
                serve();
            }
        }
    }

    void serve() {
        char packet[512];
        sockaddr_in peer = {};
        socklen_t size = sizeof(peer);
        auto* const plain = reinterpret_cast<sockaddr*>(&peer);
        const ssize_t count =
            ::recvfrom(mSocket.get(), packet, sizeof(packet) - 64, 0, plain, &size);
        ++mQuestions;
        if (count < 12 || !eventually([this] { return mAnswers || mStop; }) || mStop) {
            return;
        }
        const std::string reply = answerTo(std::string(packet, static_cast<std::size_t>(count)));
        (void)::sendto(mSocket.get(), reply.data(), reply.size(), 0, plain, size);
    }

    /// Returns the question with the answer appended, or with the code for "no such name".
    static std::string answerTo(std::string packet) {
        const bool known = packet.find("\5known\4test") != std::string::npos;
        packet[2] = '\x84';
        packet[3] = known ? '\0' : '\3';
        if (known) {
            packet[7] = 1;
            packet += std::string("\xc0\x0c\0\1\0\1\0\0\0\1\0\4\x7f\0\0\1", 16);
        }
        return packet;
    }

    base::Descriptor mSocket;
    std::atomic<bool> mStop{false};
    std::atomic<bool> mAnswers{true};
    std::atomic<int> mQuestions{0};
    std::thread mThread;
};

/// Runs the body in a sandbox whose names come from a NameServer.
void withNames(const std::function<void(NameServer&)>& body) {
    inSandbox([&](Sandbox&) {
        if (!enterNetwork()) {
            GTEST_SKIP() << "no network namespace";
        }
        writeFile("/etc/nsswitch.conf", "hosts: files dns\n");
        writeFile("/etc/hosts", "127.0.0.1 localhost\n");
        writeFile("/etc/resolv.conf", "nameserver 127.0.0.1\noptions attempts:1 timeout:" +
                                          std::to_string(kSilence.count()) + "\n");
        const OutputLevel quiet(0);
        const Leftovers leftovers;
        NameServer names;
        body(names);
    });
}

/// A complete fetch from a host whose name must be looked up.
void expectFetch(const char* sequence) {
    ScriptedServer server;
    server.always(replyWith("HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\nab"));
    UrlRecord record;
    sysUrlFetcher fetcher;
    fetcher.setCallback(UrlRecord::callback, &record);
    const std::string url = "http://known.test:" + std::to_string(server.port()) + "/";
    ASSERT_EQ(0, fetcher.setUrl(url.c_str()));
    fetcher.waitTillDone();
    EXPECT_EQ(sequence, record.sequence());
}

TEST(SysUrlFetcherResolverTest, FindsAHostByItsName) {
    withNames([](NameServer&) { expectFetch("3 0/2, 4 2/2, 5 2/2"); });
}

TEST(SysUrlFetcherResolverTest, TellsOfAHostThatIsUnknown) {
    withNames([](NameServer&) {
        UrlRecord record;
        sysUrlFetcher fetcher;
        fetcher.setCallback(UrlRecord::callback, &record);
        ASSERT_EQ(0, fetcher.setUrl("http://unknown.test/"));
        fetcher.waitTillDone();
        EXPECT_EQ("1 0/0, 2 0/0", record.sequence());
    });
}

TEST(SysUrlFetcherResolverTest, ACancellationDoesNotWaitForASilentNameServer) {
    withNames([](NameServer& names) {
        names.answers(false);
        UrlRecord record;
        sysUrlFetcher fetcher;
        fetcher.setCallback(UrlRecord::callback, &record);
        ASSERT_EQ(0, fetcher.setUrl("http://unknown.test/"));
        ASSERT_TRUE(names.awaitQuestions(1));
        fetcher.cancelFetch();
        EXPECT_EQ("2 0/0", record.sequence());
        names.answers(true);
        expectFetch("3 0/2, 4 2/2, 5 2/2");
    });
}

class SysUrlFetcherSpellingTest : public testing::TestWithParam<const char*> {};

/// Spellings of 127.0.0.1; the C library looks most of them up first.
TEST_P(SysUrlFetcherSpellingTest, ACancellationDoesNotWaitForASilentNameServer) {
    withNames([](NameServer& names) {
        names.answers(false);
        UrlRecord record;
        sysUrlFetcher fetcher;
        fetcher.setCallback(UrlRecord::callback, &record);
        const DeadPort port(DeadPort::eSilent);
        const std::string url =
            "http://" + std::string(GetParam()) + ":" + std::to_string(port.port()) + "/";
        const std::set<pid_t> before = threadIds();
        ASSERT_EQ(0, fetcher.setUrl(url.c_str()));
        ASSERT_TRUE(eventually([&] {
            const std::set<pid_t> now = threadIds();
            return std::any_of(now.begin(), now.end(), [&](pid_t thread) {
                return before.count(thread) == 0 &&
                       (sleepsInFutex(thread) || sleepsInReceive(thread));
            });
        }));
        const auto start = std::chrono::steady_clock::now();
        fetcher.cancelFetch();
        EXPECT_LT(std::chrono::steady_clock::now() - start, kSilence / 2);
        EXPECT_EQ("2 0/0", record.sequence());
        names.answers(true);
        EXPECT_TRUE(eventually([&] { return threadIds() == before; }));
    });
}

INSTANTIATE_TEST_SUITE_P(Spellings, SysUrlFetcherSpellingTest,
                         testing::Values("127.0.0.1", "127.1", "2130706433", "0177.0.0.1",
                                         "0x7f.0.0.1", "0x7f000001", "0X7F.1", "127.0.0.1.",
                                         "127.0x1"));

/// Blocks every lookup before the resolver until the scope ends.
class StoppedResolver {
public:
    StoppedResolver() {
        failingcalls::before(failingcalls::Call::eGethostbyname, [this] {
            ++mEntered;
            (void)eventually([this] { return mGo.load(); });
            ++mLeft;
        });
    }
    ~StoppedResolver() {
        mGo = true;
        EXPECT_TRUE(eventually([this] { return mLeft == mEntered && threadIds() == mThreads; }));
        failingcalls::reset();
    }
    StoppedResolver(const StoppedResolver&) = delete;
    StoppedResolver& operator=(const StoppedResolver&) = delete;

    bool awaitEntered(int count) const {
        return eventually([&] { return mEntered >= count; });
    }

private:
    const std::set<pid_t> mThreads = threadIds();
    std::atomic<int> mEntered{0};
    std::atomic<int> mLeft{0};
    std::atomic<bool> mGo{false};
};

TEST(SysUrlFetcherResolverTest, ACancellationThatFallsIntoTheLookUpLosesNothing) {
    withNames([](NameServer&) {
        const std::set<int> descriptors = openDescriptors();
        {
            const StoppedResolver resolver;
            for (int i = 1; i <= kMostThreads; ++i) {
                UrlRecord record;
                sysUrlFetcher fetcher;
                fetcher.setCallback(UrlRecord::callback, &record);
                const std::string url = "http://unknown" + std::to_string(i) + ".test/";
                ASSERT_EQ(0, fetcher.setUrl(url.c_str()));
                ASSERT_TRUE(resolver.awaitEntered(i));
                fetcher.cancelFetch();
                EXPECT_EQ("2 0/0", record.sequence());
            }
        }
        EXPECT_EQ(descriptors, openDescriptors());
    });
}

TEST(SysUrlFetcherResolverTest, ManyCancellationsLoseNothing) {
    withNames([](NameServer& names) {
        const std::set<pid_t> threads = threadIds();
        UrlRecord record;
        sysUrlFetcher fetcher;
        fetcher.setCallback(UrlRecord::callback, &record);
        const auto cycles = [&](int count) {
            for (int i = 0; i < count; ++i) {
                ASSERT_EQ(0, fetcher.setUrl("http://unknown.test/"));
                // Some before the question is sent, some around the answer. Without yielding, which
                // would cost a time slice per call on a busy machine.
                const auto moment =
                    std::chrono::steady_clock::now() + std::chrono::microseconds(i % 50 * 40);
                while (std::chrono::steady_clock::now() < moment) {
                }
                fetcher.cancelFetch();
            }
            EXPECT_TRUE(eventually([&] { return threadIds() == threads; }));
        };
        // One-time allocations of the C library.
        cycles(kCycles / 10);
        const std::set<int> descriptors = openDescriptors();
        const std::size_t heap = heapInUse();
        cycles(kCycles);
        EXPECT_EQ(kCycles + kCycles / 10, record.count(eUrlFetchCancelled));
        EXPECT_EQ(descriptors, openDescriptors());
        // The record of the calls grows.
        EXPECT_LT(heapInUse(), heap + 65536);
        EXPECT_TRUE(names.awaitQuestions(1));
        expectFetch("3 0/2, 4 2/2, 5 2/2");
    });
}

}  // namespace
