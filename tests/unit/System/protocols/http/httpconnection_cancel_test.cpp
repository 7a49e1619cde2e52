// SPDX-License-Identifier: MIT
//
// A thread that is cancelled in a call of a connection: nothing leaks.
#include <gtest/gtest.h>
#include <pthread.h>
#include <semaphore.h>
#include <unistd.h>

#include <atomic>
#include <random>
#include <set>

#include "tests/support/descriptors.h"
#include "tests/support/processview.h"
#include "tests/support/sandbox.h"
#include "tests/support/scriptedserver.h"
#include "tests/unit/System/protocols/http/httptest.h"

using failingcalls::Call;
using tests::DeadPort;
using tests::okReply;
using tests::OutputLevel;
using tests::Script;
using tests::ScriptedServer;
using tests::SocketWatch;

namespace {

/// A thread that opens and reads with another object's connection.
class Worker {
public:
    Worker(HTTPConnection& connection, const std::string& url)
        : mConnection(connection), mUrl(url) {
        EXPECT_EQ(0, pthread_create(&mThread, nullptr, run, this));
    }

    /// Returns whether the cancellation ended it.
    bool cancel() {
        EXPECT_EQ(0, pthread_cancel(mThread));
        void* result = nullptr;
        EXPECT_EQ(0, pthread_join(mThread, &result));
        return result == PTHREAD_CANCELED;
    }
    bool unwound() const { return mUnwound; }

private:
    static void* run(void* self) {
        static_cast<Worker*>(self)->work();
        return nullptr;
    }
    void work() {
        struct Unwinding {
            explicit Unwinding(std::atomic<bool>& flag) : mFlag(flag) {}
            ~Unwinding() { mFlag = true; }
            std::atomic<bool>& mFlag;
        };
        const Unwinding unwinding(mUnwound);
        HTTPReplyHeader header;
        char buffer[1000];
        while (mConnection.Open(mUrl.c_str(), header) &&
               mConnection.Read(buffer, sizeof(buffer)) > 0) {
        }
    }

    HTTPConnection& mConnection;
    std::string mUrl;
    pthread_t mThread = 0;
    std::atomic<bool> mUnwound{false};
};

TEST(HttpConnectionCancel, WhileTheServerStallsLeavesTheSocketToClose) {
    const Script stalls[] = {
        Script().stall(),
        Script().readRequest().send("HTTP/1.1 200").stall(),
        Script().readRequest().send("HTTP/1.1 200 OK\r\nA: b\r\n").stall(),
        Script().readRequest().send(okReply("")).stall(),
    };
    ScriptedServer server;
    int number = 0;
    for (const Script& script : stalls) {
        const SocketWatch watch;
        server.expect(script);
        HTTPConnection connection;
        Worker worker(connection, server.url());
        ASSERT_TRUE(server.awaitConnections(number + 1));
        EXPECT_TRUE(worker.cancel());
        EXPECT_TRUE(worker.unwound());
        EXPECT_FALSE(server.peerEnded(number));
        connection.Close();
        EXPECT_TRUE(server.awaitPeerEnd(number));
        EXPECT_EQ(1, failingcalls::count(Call::eShutdown));
        ++number;
    }
    EXPECT_TRUE(server.awaitIdle());
}

TEST(HttpConnectionCancel, AnObjectIsAsGoodAsBefore) {
    ScriptedServer server;
    server.expect(Script().stall());
    server.expect(tests::replyWith(okReply("body")));
    HTTPConnection connection;
    {
        Worker worker(connection, server.url());
        ASSERT_TRUE(server.awaitRequest(0));
        EXPECT_TRUE(worker.cancel());
    }
    HTTPReplyHeader header;
    ASSERT_TRUE(tests::open(connection, server.url(), header).mOpened);
    EXPECT_TRUE(server.awaitPeerEnd(0));
    int last = -1;
    EXPECT_EQ("body", tests::readAll(connection, last));
}

TEST(HttpConnectionCancel, WhileItConnectsLeavesTheSocketToClose) {
    const failingcalls::Scope scope;
    const DeadPort port(DeadPort::eFull);
    const std::set<int> before = tests::openDescriptors();
    std::atomic<bool> connects{false};
    failingcalls::before(Call::eConnect, [&] { connects = true; });
    {
        HTTPConnection connection;
        Worker worker(connection, port.url());
        while (!connects) {
        }
        EXPECT_TRUE(worker.cancel());
        EXPECT_EQ(before.size() + 1, tests::openDescriptors().size());
    }
    EXPECT_EQ(before, tests::openDescriptors());
}

TEST(HttpConnectionCancel, DoesNotWaitForTheResolver) {
    const failingcalls::Scope scope;
    sem_t asked;
    sem_t go;
    sem_t done;
    for (sem_t* const semaphore : {&asked, &go, &done}) {
        ASSERT_EQ(0, sem_init(semaphore, 0, 0));
    }
    failingcalls::answerLookup([&](const failingcalls::Lookup& lookup) {
        const std::string name = lookup.mName;
        (void)sem_post(&asked);
        (void)sem_wait(&go);
        // Its arguments still exist.
        EXPECT_EQ(name, lookup.mName);
        (void)sem_post(&done);
        return 1;
    });
    HTTPConnection connection;
    Worker worker(connection, "http://localhost/");
    (void)sem_wait(&asked);
    EXPECT_TRUE(worker.cancel());
    (void)sem_post(&go);
    (void)sem_wait(&done);
    EXPECT_EQ(0, failingcalls::count(Call::eSocket));
    // The lookup thread is still in the test's answer for a moment.
    EXPECT_TRUE(tests::eventually([] { return tests::threadIds().size() <= tests::kOwnThreads; }));
    for (sem_t* const semaphore : {&asked, &go, &done}) {
        EXPECT_EQ(0, sem_destroy(semaphore));
    }
}

TEST(HttpConnectionCancel, AtAnyMomentLosesNothing) {
    ScriptedServer server;
    server.always(tests::replyWith(okReply("body")));
    const OutputLevel level(0);
    const std::set<int> before = tests::openDescriptors();
    std::minstd_rand random(1);
    for (int count = 0; count < 2000; ++count) {
        HTTPConnection connection;
        Worker worker(connection, server.url());
        // A busy loop, so that the cancellation arrives anywhere in the first few requests.
        for (volatile unsigned spins = static_cast<unsigned>(random() % 200000); spins > 0;
             spins = spins - 1) {
        }
        EXPECT_TRUE(worker.cancel());
    }
    ASSERT_TRUE(server.awaitIdle());
    EXPECT_EQ(before, tests::openDescriptors());
}

}  // namespace
