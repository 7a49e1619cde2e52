// SPDX-License-Identifier: MIT
//
// Requests, replies and bodies.
#include "System/protocols/http/httpconnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "tests/support/scriptedserver.h"
#include "tests/unit/System/protocols/http/httptest.h"

using failingcalls::Call;
using tests::connectionLog;
using tests::okReply;
using tests::open;
using tests::OpenOutcome;
using tests::printedBy;
using tests::readAll;
using tests::replyWith;
using tests::Script;
using tests::ScriptedServer;

namespace {

std::string requestFor(const ScriptedServer& server, const std::string& path,
                       const std::string& host = "127.0.0.1") {
    return "GET " + path + " HTTP/1.0\r\nHost: " + host + ":" + std::to_string(server.port()) +
           "\r\nUser-Agent: KestrovaMediaClient/1.0\r\nConnection: close\r\n\r\n";
}

TEST(HttpConnection, FetchesADocument) {
    ScriptedServer server;
    server.expect(replyWith(okReply("the body", "Content-Type: text/plain\r\n")));
    HTTPConnection connection;
    HTTPReplyHeader header;
    const OpenOutcome outcome = open(connection, server.url("/a?b=c%20d"), header, 2);
    EXPECT_TRUE(outcome.mOpened);
    EXPECT_EQ("", outcome.mPrinted);
    EXPECT_EQ(requestFor(server, "/a?b=c%20d"), server.request(0));
    EXPECT_EQ(200, header.code());
    EXPECT_EQ("text/plain", header.getValue("Content-Type"));
    int last = -1;
    EXPECT_EQ("the body", readAll(connection, last));
    EXPECT_EQ(0, last);
    EXPECT_EQ(1, server.connections());
}

TEST(HttpConnection, FetchesWithoutKeepingTheHeader) {
    ScriptedServer server;
    server.expect(replyWith(okReply("the body")));
    server.expect(replyWith("HTTP/1.0 404 Not Found\r\n\r\n"));
    HTTPConnection connection;
    EXPECT_TRUE(connection.Open(server.url().c_str()));
    int last = -1;
    EXPECT_EQ("the body", readAll(connection, last));
    EXPECT_EQ(connectionLog("hdr.code() 404\n"),
              printedBy(1, [&] { EXPECT_FALSE(connection.Open(server.url().c_str())); }));
}

TEST(HttpConnection, SendsTheRequestAtOnceAndNothingElse) {
    const failingcalls::Scope scope;
    ScriptedServer server;
    server.expect(replyWith(okReply("")));
    HTTPConnection connection;
    HTTPReplyHeader header;
    EXPECT_TRUE(open(connection, server.url("/" + std::string(5000, 'x')), header).mOpened);
    EXPECT_EQ(1, failingcalls::count(Call::eSend));
    connection.Close();
    ASSERT_TRUE(server.awaitPeerEnd(0));
    EXPECT_EQ(requestFor(server, "/" + std::string(5000, 'x')), server.request(0));
}

TEST(HttpConnection, TakesHostsAsTheResolverDoes) {
    ScriptedServer server;
    server.always(replyWith(okReply("")));
    int number = 0;
    for (const char* host : {"127.0.0.1", "127.1", "localhost"}) {
        HTTPConnection connection;
        HTTPReplyHeader header;
        const std::string url = std::string("http://") + host + ":" + std::to_string(server.port());
        EXPECT_TRUE(open(connection, url + "/", header).mOpened) << host;
        EXPECT_EQ(requestFor(server, "/", host), server.request(number++));
    }
}

TEST(HttpConnection, AnEmptyHostSendsNothingAndReadsTheReply) {
    const failingcalls::Scope scope;
    tests::answerLookupsWith({INADDR_LOOPBACK});
    ScriptedServer server;
    server.expect(Script().send(okReply("unasked")));
    HTTPConnection connection;
    HTTPReplyHeader header;
    EXPECT_TRUE(
        open(connection, "http://:" + std::to_string(server.port()) + "/x", header).mOpened);
    EXPECT_EQ(1, failingcalls::count(Call::eSend));
    int last = -1;
    EXPECT_EQ("unasked", readAll(connection, last));
    connection.Close();
    ASSERT_TRUE(server.awaitPeerEnd(0));
    EXPECT_EQ("", server.request(0));
}

TEST(HttpConnection, OnlyStatus200IsGood) {
    const struct {
        const char* mStatus;
        int mCode;
    } cases[] = {
        {"302", 302},
        {"301", 301},
        {"206", 206},
        {"201", 201},
        {"204", 204},
        {"199", 199},
        {"404", 404},
        {"500", 500},
        {"0", 0},
        {"-200", -200},
        {"2000", 2000},
        // A larger number is not 200 either.
        {"4294967496", INT32_MAX},
        {"18446744073709551816", INT32_MAX},
    };
    ScriptedServer server;
    for (const auto& each : cases) {
        SCOPED_TRACE(each.mStatus);
        const std::string status = each.mStatus;
        server.expect(replyWith("HTTP/1.0 " + status + " Reason\r\nLocation: " + server.url("/b") +
                                "\r\n\r\nbody"));
        HTTPConnection connection;
        HTTPReplyHeader header;
        const OpenOutcome outcome = open(connection, server.url(), header);
        EXPECT_FALSE(outcome.mOpened);
        EXPECT_EQ(connectionLog("hdr.code() " + std::to_string(each.mCode) + "\n"),
                  outcome.mPrinted);
        EXPECT_EQ(each.mCode, header.code());
        EXPECT_EQ("Reason", header.reason());
        EXPECT_EQ(server.url("/b"), header.getValue("Location"));
        // The body could still be read.
        int last = -1;
        EXPECT_EQ("body", readAll(connection, last));
    }
    // No redirect was followed.
    EXPECT_EQ(static_cast<int>(std::size(cases)), server.connections());
}

TEST(HttpConnection, WritesNothingBelowTheLevel) {
    ScriptedServer server;
    server.always(replyWith("HTTP/1.0 404 x\r\n\r\n"));
    HTTPConnection connection;
    HTTPReplyHeader header;
    EXPECT_EQ("", open(connection, server.url(), header, 0).mPrinted);
    EXPECT_EQ("", open(connection, "ftp://host/", header, 0).mPrinted);
}

TEST(HttpConnection, RefusesWhatIsNoAddress) {
    const failingcalls::Scope scope;
    for (const char* url :
         {"", "ftp://host/", "http://127.0.0.1", "http://127.0.0.1:4294967376/"}) {
        HTTPConnection connection;
        HTTPReplyHeader header;
        const OpenOutcome outcome = open(connection, url, header, 2);
        EXPECT_FALSE(outcome.mOpened);
        EXPECT_EQ(connectionLog("u.parse failed\n"), outcome.mPrinted);
    }
    HTTPConnection connection;
    EXPECT_EQ(connectionLog("u.parse failed\n"),
              printedBy(2, [&] { EXPECT_FALSE(connection.Open(nullptr)); }));
    EXPECT_EQ(0, failingcalls::count(Call::eGethostbyname));
    EXPECT_EQ(0, failingcalls::count(Call::eSocket));
}

TEST(HttpConnection, ReceivesAReplyInSegmentsOfOneByte) {
    ScriptedServer server;
    server.expect(Script().readRequest().drip(okReply("a body", "Content-Length: 6\r\nA: b\r\n")));
    HTTPConnection connection;
    HTTPReplyHeader header;
    EXPECT_TRUE(open(connection, server.url(), header, 2).mOpened);
    EXPECT_EQ(6, header.contentSize());
    EXPECT_EQ("b", header.getValue("A"));
    int last = -1;
    EXPECT_EQ("a body", readAll(connection, last));
    EXPECT_EQ(0, last);
}

TEST(HttpConnection, EveryCutOfAReplyHasItsOutcome) {
    const std::string status = "HTTP/1.1 200 OK\r\n";
    const std::string head = okReply("", "Content-Length: 4\r\n");
    const std::string reply = head + "body";
    ScriptedServer server;
    for (std::size_t length = 0; length <= reply.size(); ++length) {
        SCOPED_TRACE(reply.substr(0, length));
        server.expect(replyWith(reply.substr(0, length)));
        HTTPConnection connection;
        HTTPReplyHeader header;
        const OpenOutcome outcome = open(connection, server.url(), header, 2);
        const bool whole = length >= head.size();
        const bool hasStatus = length >= status.size();
        EXPECT_EQ(whole, outcome.mOpened);
        EXPECT_EQ(whole ? ""
                        : std::string("Invalid http reply") + (hasStatus ? " (5)\n" : "\n") +
                              connectionLog("hdr.readHeader failed\n"),
                  outcome.mPrinted);
        EXPECT_EQ(hasStatus ? 200 : 0, header.code());
        int last = -1;
        EXPECT_EQ(whole ? reply.substr(head.size(), length - head.size()) : "",
                  readAll(connection, last));
        EXPECT_EQ(0, last);
    }
    EXPECT_TRUE(server.awaitIdle());
}

TEST(HttpConnection, AResetAtAnyPlaceIsAFailure) {
    const std::string head = okReply("", "Content-Length: 4\r\n");
    const std::string reply = head + "body";
    ScriptedServer server;
    for (std::size_t length = 0; length <= reply.size(); ++length) {
        SCOPED_TRACE(reply.substr(0, length));
        server.expect(Script().readRequest().send(reply.substr(0, length)).reset());
        HTTPConnection connection;
        HTTPReplyHeader header;
        const OpenOutcome outcome = open(connection, server.url(), header);
        EXPECT_EQ(outcome.mOpened ? "" : connectionLog("hdr.readHeader failed\n"),
                  outcome.mPrinted);
        // Data before the reset may be lost, but no other data may appear.
        EXPECT_TRUE(length >= head.size() || !outcome.mOpened);
        int last = 1;
        const std::string body = readAll(connection, last);
        EXPECT_EQ(0U, std::string("body").find(body));
        EXPECT_LE(last, 0);
    }
}

TEST(HttpConnection, HostileHeadersFailIt) {
    const struct {
        std::string mReply;
        std::string mPrinted;
        int mCode;
    } cases[] = {
        {"", "Invalid http reply\n", 0},
        {"HTTP/1.1 200 OK\n\n", "Invalid http reply\n", 0},
        {"HTTP/1.1 200 OK\r\nA: b\n\n", "Invalid http reply (5)\n", 200},
        {"HTTP/1.1 200 OK\r\nA: " + std::string(1, '\0') + "b\r\n\r\n", "Invalid http reply (5)\n",
         200},
        {"HTTP/1.1 200 O" + std::string(1, '\0') + "\r\n\r\n", "Invalid http reply\n", 0},
        {"HTTP/1.1 200\r\n\r\n", "Invalid http reply (4)\n", 200},
        {"\r\n\r\n", "Invalid http reply (2)\n", 0},
        {"ICY 200 OK\r\n\r\n", "Invalid http reply (3)\n", 0},
        {"<html>not found</html>\r\n\r\n", "Invalid http reply (3)\n", 0},
        {"HTTP/1.1 404 Not Found\r\nA: b", "Invalid http reply (5)\n", 404},
    };
    ScriptedServer server;
    for (const auto& each : cases) {
        SCOPED_TRACE(each.mReply);
        server.expect(replyWith(each.mReply));
        HTTPConnection connection;
        HTTPReplyHeader header;
        const OpenOutcome outcome = open(connection, server.url(), header, 2);
        EXPECT_FALSE(outcome.mOpened);
        EXPECT_EQ(each.mPrinted + connectionLog("hdr.readHeader failed\n"), outcome.mPrinted);
        EXPECT_EQ(each.mCode, header.code());
    }
}

TEST(HttpConnection, AFieldWithoutAColonPutsAWordBesideTheLog) {
    ScriptedServer server;
    server.expect(replyWith("HTTP/1.1 200 OK\r\nHmm\r\n\r\n"));
    HTTPConnection connection;
    HTTPReplyHeader header;
    const OpenOutcome outcome = open(connection, server.url(), header, 2);
    EXPECT_FALSE(outcome.mOpened);
    EXPECT_EQ(200, header.code());
    // The word is in the buffer of the C library's stream, the log is not buffered.
    const std::string log = connectionLog("hdr.readHeader failed\n");
    EXPECT_THAT(outcome.mPrinted, testing::AnyOf("Hmm\n" + log, log + "Hmm\n"));
}

TEST(HttpConnection, AnEndlessLineIsGivenUp) {
    for (const char* beginning : {"", "HTTP/1.1 200 OK\r\nName: "}) {
        ScriptedServer server;
        server.expect(
            Script().readRequest().send(beginning).send(std::string(4096, 'x'), Script::kEndless));
        HTTPConnection connection;
        HTTPReplyHeader header;
        const OpenOutcome outcome = open(connection, server.url(), header);
        EXPECT_FALSE(outcome.mOpened);
        EXPECT_EQ(connectionLog("hdr.readHeader failed\n"), outcome.mPrinted);
        connection.Close();
        EXPECT_TRUE(server.awaitPeerEnd(0));
    }
}

TEST(HttpConnection, ReadTakesNoMoreThanItIsGivenRoomFor) {
    ScriptedServer server;
    server.expect(replyWith(okReply("0123456789")));
    HTTPConnection connection;
    HTTPReplyHeader header;
    ASSERT_TRUE(open(connection, server.url(), header).mOpened);
    ASSERT_TRUE(server.awaitEnd(0));
    const failingcalls::Scope scope;
    char buffer[8] = "-------";
    EXPECT_EQ(0, connection.Read(buffer, 0));
    EXPECT_EQ(3, connection.Read(buffer, 3));
    EXPECT_STREQ("012----", buffer);
    EXPECT_EQ(7, connection.Read(buffer, sizeof(buffer)));
    EXPECT_EQ(0, std::memcmp("3456789", buffer, 7));
    EXPECT_EQ(0, connection.Read(buffer, sizeof(buffer)));
    EXPECT_EQ(0, connection.Read(buffer, sizeof(buffer)));
    EXPECT_EQ(5, failingcalls::count(Call::eRecv));
}

TEST(HttpConnection, ABodyIsTakenAsItComes) {
    // Neither a length nor a coding matters here.
    const char* const fields[] = {
        "Content-Length: 3\r\n",          "Content-Length: -1\r\n",
        "Content-Length: 9999999999\r\n", "Transfer-Encoding: chunked\r\n",
        "Connection: keep-alive\r\n",     "",
    };
    std::string body(100000, '\0');
    for (std::size_t at = 0; at < body.size(); ++at) {
        body[at] = static_cast<char>(at * 7 + at / 256);
    }
    ScriptedServer server;
    for (const char* field : fields) {
        server.expect(replyWith(okReply(body, field)));
        HTTPConnection connection;
        HTTPReplyHeader header;
        ASSERT_TRUE(open(connection, server.url(), header).mOpened);
        int last = -1;
        EXPECT_TRUE(body == readAll(connection, last, 65536)) << field;
        EXPECT_EQ(0, last);
    }
}

TEST(HttpConnection, ReadLogsNothingAndTellsWhy) {
    HTTPConnection connection;
    char byte = 0;
    EXPECT_EQ("", printedBy(2, [&] {
                  errno = 0;
                  EXPECT_GT(0, connection.Read(&byte, 1));
                  EXPECT_EQ(EBADF, errno);
              }));
    ScriptedServer server;
    server.expect(Script().readRequest().send(okReply("")).stall().reset());
    HTTPReplyHeader header;
    ASSERT_TRUE(open(connection, server.url(), header).mOpened);
    EXPECT_EQ("", printedBy(2, [&] {
                  server.release(0);
                  errno = 0;
                  EXPECT_GT(0, connection.Read(&byte, 1));
                  EXPECT_EQ(ECONNRESET, errno);
              }));
}

TEST(HttpConnection, SeveralWorkAtOnce) {
    ScriptedServer server;
    server.answer([](const std::string& request) {
        return Script().send(okReply(request.substr(0, request.find(" HTTP"))));
    });
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int number = 0; number < 20; ++number) {
        threads.emplace_back([&, number] {
            HTTPConnection connection;
            HTTPReplyHeader header;
            const std::string path = "/" + std::to_string(number);
            const std::string url = "http://localhost:" + std::to_string(server.port()) + path;
            int last = -1;
            if (connection.Open(url.c_str(), header) &&
                readAll(connection, last) == "GET " + path) {
                ++good;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(20, good);
}

}  // namespace
