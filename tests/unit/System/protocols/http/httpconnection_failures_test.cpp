// SPDX-License-Identifier: MIT
//
// Each failure of the operating system, the resolver and the peer before a reply.
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>

#include "tests/support/inchild.h"
#include "tests/support/scriptedserver.h"
#include "tests/support/sigpipe.h"
#include "tests/unit/System/protocols/http/httptest.h"

using failingcalls::Call;
using tests::connectionLog;
using tests::DeadPort;
using tests::Findings;
using tests::inChild;
namespace sigpipe = tests::sigpipe;
using tests::okReply;
using tests::open;
using tests::OpenOutcome;
using tests::printedBy;
using tests::readAll;
using tests::replyWith;
using tests::Script;
using tests::ScriptedServer;
using tests::SocketWatch;

namespace {

constexpr in_addr_t kNobody = INADDR_LOOPBACK + 1;

/// Returns a header of an earlier reply.
HTTPReplyHeader earlierHeader() {
    ScriptedServer server;
    server.expect(replyWith("HTTP/1.0 200 Earlier\r\nName: value\r\n\r\n"));
    HTTPConnection connection;
    HTTPReplyHeader header;
    EXPECT_TRUE(connection.Open(server.url().c_str(), header));
    return header;
}

TEST(HttpConnectionLookup, AFailureIsToldWithItsNumbers) {
    const struct {
        int mResult;
        int mError;
    } cases[] = {{0, HOST_NOT_FOUND}, {ERANGE, NETDB_INTERNAL}, {EAGAIN, TRY_AGAIN}};
    for (const auto& each : cases) {
        const failingcalls::Scope scope;
        std::string asked;
        std::size_t room = 0;
        failingcalls::answerLookup([&](const failingcalls::Lookup& lookup) {
            asked = lookup.mName;
            room = lookup.mSize;
            *lookup.mError = each.mError;
            return each.mResult;
        });
        HTTPConnection connection;
        HTTPReplyHeader header;
        const OpenOutcome outcome = open(connection, "http://no.such%shost%n:81/", header, 2);
        EXPECT_FALSE(outcome.mOpened);
        EXPECT_EQ(connectionLog("Error looking up hostname: 'no.such%shost%n', ret " +
                                std::to_string(each.mResult) + ", error " +
                                std::to_string(each.mError) + ", pHe 0\n"),
                  outcome.mPrinted);
        EXPECT_EQ("no.such%shost%n", asked);
        EXPECT_EQ(8096U, room);
        EXPECT_EQ(1, failingcalls::count(Call::eGethostbyname));
        EXPECT_EQ(0, failingcalls::count(Call::eSocket));
    }
}

TEST(HttpConnectionLookup, AResultIsNotEnoughWithoutAnEntry) {
    // Neither is an entry with a failure.
    const failingcalls::Scope scope;
    failingcalls::answerLookup([](const failingcalls::Lookup& lookup) {
        *lookup.mFound = lookup.mEntry;
        *lookup.mError = NO_RECOVERY;
        return EBADMSG;
    });
    HTTPConnection connection;
    HTTPReplyHeader header;
    const OpenOutcome outcome = open(connection, "http://host/", header);
    EXPECT_FALSE(outcome.mOpened);
    EXPECT_EQ(0U,
              outcome.mPrinted.find(connectionLog("Error looking up hostname: 'host', ret " +
                                                  std::to_string(EBADMSG) + ", error 3, pHe ")));
    EXPECT_EQ(0, failingcalls::count(Call::eSocket));
}

TEST(HttpConnectionLookup, OnlyIpv4IsKnown) {
    const failingcalls::Scope scope;
    tests::answerLookupsWith({INADDR_LOOPBACK}, AF_INET6);
    HTTPConnection connection;
    HTTPReplyHeader header;
    const OpenOutcome outcome = open(connection, "http://host/", header, 2);
    EXPECT_FALSE(outcome.mOpened);
    EXPECT_EQ(connectionLog("Unknown addrtype from gethostbyname\n"), outcome.mPrinted);
    EXPECT_EQ(0, failingcalls::count(Call::eSocket));
}

TEST(HttpConnectionLookup, OnlyTheFirstAddressIsTried) {
    const failingcalls::Scope scope;
    ScriptedServer server;
    const std::string url = "http://host:" + std::to_string(server.port()) + "/";
    HTTPReplyHeader header;
    {
        tests::answerLookupsWith({kNobody, INADDR_LOOPBACK});
        HTTPConnection connection;
        const OpenOutcome outcome = open(connection, url, header, 2);
        EXPECT_FALSE(outcome.mOpened);
        EXPECT_EQ(connectionLog("Connect error\n"), outcome.mPrinted);
        EXPECT_EQ(1, failingcalls::count(Call::eConnect));
        EXPECT_EQ(0, server.connections());
    }
    tests::answerLookupsWith({INADDR_LOOPBACK, kNobody});
    server.expect(replyWith(okReply("")));
    HTTPConnection connection;
    EXPECT_TRUE(open(connection, url, header).mOpened);
}

TEST(HttpConnectionSocket, NoneIsAFailure) {
    const failingcalls::Scope scope;
    failingcalls::fail(Call::eSocket, EMFILE);
    ScriptedServer server;
    HTTPConnection connection;
    HTTPReplyHeader header;
    const OpenOutcome outcome = open(connection, server.url(), header, 2);
    EXPECT_FALSE(outcome.mOpened);
    EXPECT_EQ(connectionLog("Socket Error\n"), outcome.mPrinted);
    EXPECT_EQ(0, failingcalls::count(Call::eSetsockopt));
    EXPECT_EQ(0, failingcalls::count(Call::eConnect));
    char byte = 0;
    EXPECT_GT(0, connection.Read(&byte, 1));
    connection.Close();
    EXPECT_EQ(0, failingcalls::count(Call::eShutdown));
    EXPECT_EQ(0, server.connections());
}

TEST(HttpConnectionSocket, WaitsHalfAMinuteForEachPiece) {
    const SocketWatch watch;
    ScriptedServer server;
    server.expect(replyWith(okReply("")));
    HTTPConnection connection;
    HTTPReplyHeader header;
    EXPECT_TRUE(open(connection, server.url(), header).mOpened);
    ASSERT_EQ(2U, watch.options().size());
    EXPECT_EQ(SO_RCVTIMEO, watch.options()[0].mOption);
    EXPECT_EQ(SO_SNDTIMEO, watch.options()[1].mOption);
    for (const SocketWatch::Option& option : watch.options()) {
        EXPECT_EQ(SOL_SOCKET, option.mLevel);
        EXPECT_EQ(30, option.mTime.tv_sec);
        EXPECT_EQ(0, option.mTime.tv_usec);
    }
}

TEST(HttpConnectionSocket, GoesOnWithoutATimeOut) {
    // The same text for both, without a newline.
    const std::string message = connectionLog("setsockopt(SO_SNDTIMEO)");
    ScriptedServer server;
    server.always(replyWith(okReply("body")));
    for (const int failing : {1, 2, -1}) {
        const failingcalls::Scope scope;
        if (failing > 0) {
            failingcalls::fail(Call::eSetsockopt, ENOPROTOOPT, failing);
        } else {
            failingcalls::failAll(Call::eSetsockopt, ENOPROTOOPT);
        }
        HTTPConnection connection;
        HTTPReplyHeader header;
        const OpenOutcome outcome = open(connection, server.url(), header);
        EXPECT_TRUE(outcome.mOpened);
        EXPECT_EQ(failing > 0 ? message : message + message, outcome.mPrinted);
        EXPECT_EQ(2, failingcalls::count(Call::eSetsockopt));
        int last = -1;
        EXPECT_EQ("body", readAll(connection, last));
    }
}

TEST(HttpConnectionConnect, ARefusalLeavesTheSocketToClose) {
    const failingcalls::Scope scope;
    const DeadPort port(DeadPort::eRefusing);
    HTTPConnection connection;
    HTTPReplyHeader header;
    const OpenOutcome outcome = open(connection, port.url(), header, 2);
    EXPECT_FALSE(outcome.mOpened);
    EXPECT_EQ(connectionLog("Connect error\n"), outcome.mPrinted);
    EXPECT_EQ(0, header.code());
    EXPECT_EQ(0, failingcalls::count(Call::eSend));
    const int closed = failingcalls::count(Call::eClose);
    connection.Close();
    EXPECT_EQ(1, failingcalls::count(Call::eShutdown));
    EXPECT_EQ(closed + 1, failingcalls::count(Call::eClose));
}

TEST(HttpConnectionConnect, AnyErrorIsARefusal) {
    for (const int error : {EINTR, ENETUNREACH, ETIMEDOUT, EINPROGRESS}) {
        const failingcalls::Scope scope;
        failingcalls::fail(Call::eConnect, error);
        HTTPConnection connection;
        httpURL url;
        ASSERT_TRUE(url.parse("http://127.0.0.1/"));
        EXPECT_EQ(connectionLog("Connect error\n"),
                  printedBy(1, [&] { EXPECT_FALSE(connection.connectToServer(url)); }));
        EXPECT_EQ(1, failingcalls::count(Call::eConnect));
    }
}

TEST(HttpConnectionSend, AFailureOpensItAllTheSame) {
    for (const int error : {ECONNRESET, EAGAIN, EINTR}) {
        HTTPReplyHeader header = earlierHeader();
        const failingcalls::Scope scope;
        failingcalls::fail(Call::eSend, error);
        ScriptedServer server;
        server.expect(Script());
        HTTPConnection connection;
        const OpenOutcome outcome = open(connection, server.url(), header, 2);
        EXPECT_TRUE(outcome.mOpened);
        EXPECT_EQ(connectionLog("Error sending request\n"), outcome.mPrinted);
        EXPECT_EQ(1, failingcalls::count(Call::eSend));
        EXPECT_EQ(0, failingcalls::count(Call::eRecv));
        EXPECT_EQ("Earlier", header.reason());
        EXPECT_EQ("value", header.getValue("Name"));
        // The first read reports it.
        char byte = 0;
        EXPECT_EQ(0, connection.Read(&byte, 1));
    }
}

TEST(HttpConnectionSend, APartIsAFailureToo) {
    HTTPReplyHeader header = earlierHeader();
    const failingcalls::Scope scope;
    failingcalls::limitTransfers(20);
    ScriptedServer server;
    server.expect(Script().stall());
    HTTPConnection connection;
    const OpenOutcome outcome = open(connection, server.url(), header, 2);
    EXPECT_TRUE(outcome.mOpened);
    EXPECT_EQ(connectionLog("Error sending request\n"), outcome.mPrinted);
    EXPECT_EQ(1, failingcalls::count(Call::eSend));
    EXPECT_EQ(0, failingcalls::count(Call::eRecv));
    EXPECT_EQ("Earlier", header.reason());
    connection.Close();
    ASSERT_TRUE(server.awaitPeerEnd(0));
    EXPECT_EQ("GET / HTTP/1.0\r\nHost", server.request(0));
}

TEST(HttpConnectionSend, TheServersResetOnlyFailsIt) {
    ScriptedServer server;
    server.expect(Script().stall().reset());
    const failingcalls::Scope scope;
    failingcalls::before(Call::eSend, [&] {
        server.release(0);
        EXPECT_TRUE(server.awaitEnd(0));
    });
    HTTPConnection connection;
    HTTPReplyHeader header;
    const OpenOutcome outcome = open(connection, server.url(), header);
    EXPECT_TRUE(outcome.mOpened);
    EXPECT_EQ(connectionLog("Error sending request\n"), outcome.mPrinted);
    char byte = 0;
    EXPECT_GE(0, connection.Read(&byte, 1));
}

/// Opens a connection whose peer has closed when the request is sent, which raises SIGPIPE.
void openBroken(const std::string& url, Findings& findings) {
    const SocketWatch watch;
    failingcalls::before(Call::eSend, [&] { (void)::shutdown(watch.socket(), SHUT_RDWR); });
    HTTPConnection connection;
    HTTPReplyHeader header;
    const OpenOutcome outcome = open(connection, url, header);
    findings.expect(outcome.mOpened, "opened");
    findings.expect(outcome.mPrinted == connectionLog("Error sending request\n"), "message");
    char byte = 0;
    findings.expect(connection.Read(&byte, 1) <= 0, "nothing to read");
}

TEST(HttpConnectionSend, APeerThatIsGoneDoesNotEndTheProcess) {
    ScriptedServer server;
    server.always(Script().stall());
    EXPECT_EQ("", inChild([&] {
                  Findings findings;
                  (void)::signal(SIGPIPE, SIG_DFL);
                  openBroken(server.url(), findings);
                  findings.expect(!sigpipe::isPending(), "not pending");
                  findings.expect(!sigpipe::isBlocked(), "not blocked");
                  return findings.text();
              }));
}

TEST(HttpConnectionSend, APendingSignalStaysPending) {
    ScriptedServer server;
    server.always(Script().stall());
    EXPECT_EQ("", inChild([&] {
                  Findings findings;
                  (void)::signal(SIGPIPE, SIG_DFL);
                  sigpipe::block();
                  openBroken(server.url(), findings);
                  findings.expect(!sigpipe::isPending(), "taken back");
                  (void)::raise(SIGPIPE);
                  openBroken(server.url(), findings);
                  findings.expect(sigpipe::isPending(), "still pending");
                  findings.expect(sigpipe::isBlocked(), "still blocked");
                  return findings.text();
              }));
}

}  // namespace
