// SPDX-License-Identifier: MIT
//
// The socket: its number, inheritance, and when and how it is closed.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/descriptors.h"
#include "tests/support/inchild.h"
#include "tests/support/scriptedserver.h"
#include "tests/unit/System/protocols/http/httptest.h"

using failingcalls::Call;
using tests::DeadPort;
using tests::Findings;
using tests::inChild;
using tests::okReply;
using tests::open;
using tests::replyWith;
using tests::Script;
using tests::ScriptedServer;
using tests::SocketWatch;

namespace {

bool isOpen(int descriptor) {
    return ::fcntl(descriptor, F_GETFD) >= 0;
}

TEST(HttpConnectionDescriptor, IsCloseOnExec) {
    const SocketWatch watch;
    ScriptedServer server;
    server.expect(replyWith(okReply("")));
    HTTPConnection connection;
    HTTPReplyHeader header;
    ASSERT_TRUE(open(connection, server.url(), header).mOpened);
    EXPECT_EQ(FD_CLOEXEC, ::fcntl(watch.socket(), F_GETFD));
}

TEST(HttpConnectionDescriptor, NeverStandsInForAStandardStream) {
    ScriptedServer server;
    server.always(replyWith(okReply("body")));
    for (unsigned mask = 0; mask < 8; ++mask) {
        EXPECT_EQ("", inChild([&] {
                      Findings findings;
                      const SocketWatch watch;
                      for (int stream = 0; stream < 3; ++stream) {
                          (void)::close(stream);
                          if ((mask >> stream & 1) == 0) {
                              (void)::dup2(600, stream);
                          }
                      }
                      HTTPConnection connection;
                      findings.expect(connection.Open(server.url().c_str()), "opened");
                      findings.expect(watch.socket() > 2, "above 2");
                      findings.expect(::fcntl(watch.socket(), F_GETFD) == FD_CLOEXEC,
                                      "close-on-exec");
                      for (int stream = 0; stream < 3; ++stream) {
                          findings.expect(isOpen(stream) == ((mask >> stream & 1) == 0),
                                          "streams as before");
                      }
                      char text[5] = "";
                      findings.expect(connection.Read(text, 4) == 4, "read");
                      return findings.text();
                  }))
            << mask;
    }
}

TEST(HttpConnectionDescriptor, CloseShutsItDownFirst) {
    const SocketWatch watch;
    ScriptedServer server;
    server.expect(Script().readRequest().send(okReply("")).stall());
    HTTPConnection connection;
    HTTPReplyHeader header;
    ASSERT_TRUE(open(connection, server.url(), header).mOpened);
    // A duplicate keeps the socket open, so that only the shutdown reaches the server.
    const int copy = ::fcntl(watch.socket(), F_DUPFD_CLOEXEC, 0);
    connection.Close();
    EXPECT_TRUE(server.awaitPeerEnd(0));
    EXPECT_EQ(1, failingcalls::count(Call::eShutdown));
    EXPECT_FALSE(isOpen(watch.socket()));
    (void)::close(copy);
}

TEST(HttpConnectionDescriptor, ClosingTwiceIsHarmless) {
    const SocketWatch watch;
    ScriptedServer server;
    server.expect(replyWith(okReply("body")));
    HTTPConnection connection;
    connection.Close();
    EXPECT_EQ(0, failingcalls::count(Call::eShutdown));
    HTTPReplyHeader header;
    ASSERT_TRUE(open(connection, server.url(), header).mOpened);
    const int closed = failingcalls::count(Call::eClose);
    connection.Close();
    connection.Close();
    EXPECT_EQ(1, failingcalls::count(Call::eShutdown));
    EXPECT_EQ(closed + 1, failingcalls::count(Call::eClose));
    char byte = 0;
    EXPECT_GT(0, connection.Read(&byte, 1));
}

TEST(HttpConnectionDescriptor, TheDestructorClosesAsCloseDoes) {
    ScriptedServer server;
    server.expect(Script().readRequest().send(okReply("")).stall());
    const failingcalls::Scope scope;
    {
        HTTPConnection connection;
        HTTPReplyHeader header;
        ASSERT_TRUE(open(connection, server.url(), header).mOpened);
        EXPECT_EQ(0, failingcalls::count(Call::eShutdown));
    }
    EXPECT_EQ(1, failingcalls::count(Call::eShutdown));
    EXPECT_TRUE(server.awaitPeerEnd(0));
}

TEST(HttpConnectionDescriptor, OpeningAgainClosesTheEarlierOneWithoutAShutdown) {
    const SocketWatch watch;
    ScriptedServer server;
    server.expect(Script().readRequest().send(okReply("one")).stall());
    server.expect(replyWith(okReply("two")));
    HTTPConnection connection;
    HTTPReplyHeader header;
    ASSERT_TRUE(open(connection, server.url(), header).mOpened);
    const int earlier = watch.socket();
    // The socket is closed first: it is already closed when a lookup fails.
    failingcalls::fail(Call::eGethostbyname, ENOMEM);
    EXPECT_FALSE(open(connection, server.url(), header).mOpened);
    EXPECT_FALSE(isOpen(earlier));
    EXPECT_TRUE(server.awaitPeerEnd(0));
    ASSERT_TRUE(open(connection, server.url(), header).mOpened);
    EXPECT_EQ(0, failingcalls::count(Call::eShutdown));
    int last = -1;
    EXPECT_EQ("two", tests::readAll(connection, last));
}

TEST(HttpConnectionDescriptor, StaysWhenTheNextAddressIsNone) {
    ScriptedServer server;
    server.expect(replyWith(okReply("body")));
    HTTPConnection connection;
    HTTPReplyHeader header;
    ASSERT_TRUE(open(connection, server.url(), header).mOpened);
    EXPECT_FALSE(open(connection, "http://127.0.0.1", header).mOpened);
    int last = -1;
    EXPECT_EQ("body", tests::readAll(connection, last));
}

TEST(HttpConnectionDescriptor, NoneIsLostHoweverAnOpenFails) {
    ScriptedServer server;
    server.always(replyWith("HTTP/1.0 404 x\r\n\r\n"));
    const DeadPort refusing(DeadPort::eRefusing);
    ASSERT_TRUE(server.awaitIdle());
    const std::set<int> before = tests::openDescriptors();
    {
        HTTPConnection connection;
        HTTPReplyHeader header;
        for (int count = 0; count < 50; ++count) {
            EXPECT_FALSE(open(connection, server.url(), header).mOpened);
            EXPECT_FALSE(open(connection, refusing.url(), header).mOpened);
            EXPECT_FALSE(open(connection, "http://host", header).mOpened);
            EXPECT_FALSE(open(connection, server.url(), header).mOpened);
        }
    }
    ASSERT_TRUE(server.awaitIdle());
    EXPECT_EQ(before, tests::openDescriptors());
}

}  // namespace
