// SPDX-License-Identifier: MIT
//
// Servers that stall: every wait ends.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>

#include "tests/support/scriptedserver.h"
#include "tests/unit/System/protocols/http/httptest.h"

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using tests::connectionLog;
using tests::DeadPort;
using tests::okReply;
using tests::open;
using tests::OpenOutcome;
using tests::Script;
using tests::ScriptedServer;
using tests::SocketWatch;

namespace {

constexpr milliseconds kShort(100);

int inMicroseconds(milliseconds time) {
    return static_cast<int>(std::chrono::microseconds(time).count());
}

TEST(HttpConnectionTimeOut, AServerThatNeverAnswersFailsIt) {
    const SocketWatch watch(inMicroseconds(kShort));
    const DeadPort port(DeadPort::eSilent);
    HTTPConnection connection;
    HTTPReplyHeader header;
    const auto start = steady_clock::now();
    const OpenOutcome outcome = open(connection, port.url(), header, 2);
    EXPECT_GE(steady_clock::now() - start, kShort);
    EXPECT_FALSE(outcome.mOpened);
    EXPECT_EQ("Invalid http reply\n" + connectionLog("hdr.readHeader failed\n"), outcome.mPrinted);
    EXPECT_EQ(0, header.code());
}

TEST(HttpConnectionTimeOut, AServerThatStallsInItsHeaderFailsIt) {
    const SocketWatch watch(inMicroseconds(kShort));
    ScriptedServer server;
    for (const char* beginning : {"H", "HTTP/1.1 200 OK\r", "HTTP/1.1 200 OK\r\nA: b\r\n"}) {
        server.expect(Script().readRequest().send(beginning).stall());
        HTTPConnection connection;
        HTTPReplyHeader header;
        const auto start = steady_clock::now();
        const OpenOutcome outcome = open(connection, server.url(), header);
        EXPECT_GE(steady_clock::now() - start, kShort);
        EXPECT_FALSE(outcome.mOpened);
        EXPECT_EQ(connectionLog("hdr.readHeader failed\n"), outcome.mPrinted);
    }
}

TEST(HttpConnectionTimeOut, AServerThatStallsInItsBodyFailsTheRead) {
    const SocketWatch watch(inMicroseconds(kShort));
    ScriptedServer server;
    server.expect(Script().readRequest().send(okReply("part")).stall().send("rest"));
    HTTPConnection connection;
    HTTPReplyHeader header;
    ASSERT_TRUE(open(connection, server.url(), header).mOpened);
    ASSERT_TRUE(server.awaitStalled(1));
    char buffer[100];
    EXPECT_EQ(4, connection.Read(buffer, sizeof(buffer)));
    errno = 0;
    EXPECT_GT(0, connection.Read(buffer, sizeof(buffer)));
    EXPECT_EQ(EAGAIN, errno);
    // The connection still exists.
    server.release(0);
    ASSERT_TRUE(server.awaitEnd(0));
    EXPECT_EQ(4, connection.Read(buffer, sizeof(buffer)));
    EXPECT_EQ(0, connection.Read(buffer, sizeof(buffer)));
}

TEST(HttpConnectionTimeOut, AnAttemptToConnectIsBoundedToo) {
    const SocketWatch watch(inMicroseconds(kShort));
    const DeadPort port(DeadPort::eFull);
    HTTPConnection connection;
    HTTPReplyHeader header;
    const auto start = steady_clock::now();
    const OpenOutcome outcome = open(connection, port.url(), header);
    EXPECT_GE(steady_clock::now() - start, kShort);
    EXPECT_FALSE(outcome.mOpened);
    EXPECT_EQ(connectionLog("Connect error\n"), outcome.mPrinted);
}

TEST(HttpConnectionTimeOut, InRealTimeAServerThatNeverAnswersFailsItAfterHalfAMinute) {
    const DeadPort port(DeadPort::eSilent);
    HTTPConnection connection;
    HTTPReplyHeader header;
    const auto start = steady_clock::now();
    const OpenOutcome outcome = open(connection, port.url(), header);
    const auto time = steady_clock::now() - start;
    EXPECT_FALSE(outcome.mOpened);
    EXPECT_EQ(connectionLog("hdr.readHeader failed\n"), outcome.mPrinted);
    // The kernel's timer has its own resolution.
    EXPECT_GE(time, std::chrono::seconds(29));
    EXPECT_LT(time, std::chrono::seconds(59));
}

}  // namespace
