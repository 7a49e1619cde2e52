// SPDX-License-Identifier: MIT
#include "tests/support/scriptedserver.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <filesystem>
#include <iterator>
#include <memory>
#include <vector>

#include "base/io/descriptor.h"
#include "tests/support/processview.h"
#include "tests/support/sandbox.h"

using base::Descriptor;
using tests::DeadPort;
using tests::replyWith;
using tests::Script;
using tests::ScriptedServer;

namespace {

constexpr char kRequest[] = "GET / HTTP/1.0\r\n\r\n";

/// Returns a client that is connected, or an invalid one with errno set.
Descriptor connectTo(int port) {
    Descriptor client = base::openSocket(AF_INET, SOCK_STREAM);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (::connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
        0) {
        return Descriptor();
    }
    return client;
}

void say(const Descriptor& client, const std::string& text) {
    EXPECT_EQ(static_cast<ssize_t>(text.size()),
              ::send(client.get(), text.data(), text.size(), MSG_NOSIGNAL));
}

/// Returns everything up to the end of the stream; an error is appended as its number.
std::string hear(const Descriptor& client) {
    std::string text;
    char buffer[1000];
    for (;;) {
        const ssize_t count = ::recv(client.get(), buffer, sizeof(buffer), 0);
        if (count <= 0) {
            return count == 0 ? text : text + "error " + std::to_string(errno);
        }
        text.append(buffer, static_cast<std::size_t>(count));
    }
}

std::ptrdiff_t countEntries(const char* directory) {
    return std::distance(std::filesystem::directory_iterator(directory), {});
}

TEST(ScriptedServer, AnswersWhatItWasAskedAndRemembersIt) {
    ScriptedServer server;
    server.expect(replyWith("the answer"));
    const Descriptor client = connectTo(server.port());
    say(client, kRequest);
    EXPECT_EQ("the answer", hear(client));
    EXPECT_EQ(kRequest, server.request(0));
    EXPECT_EQ(1, server.connections());
    EXPECT_FALSE(server.peerEnded(0));
}

TEST(ScriptedServer, WaitsForTheWholeRequest) {
    ScriptedServer server;
    server.expect(replyWith("now"));
    const Descriptor client = connectTo(server.port());
    say(client, "GET / HTTP/1.0\r\n\r");
    ASSERT_TRUE(server.awaitConnections(1));
    char byte = 0;
    EXPECT_EQ(-1, ::recv(client.get(), &byte, 1, MSG_DONTWAIT));
    say(client, "\n");
    EXPECT_EQ("now", hear(client));
}

TEST(ScriptedServer, SendsOneByteASegment) {
    ScriptedServer server;
    const std::string text(300, 'x');
    server.expect(Script().drip(text));
    const Descriptor client = connectTo(server.port());
    EXPECT_EQ(text, hear(client));
}

TEST(ScriptedServer, StallsUntilItIsReleased) {
    ScriptedServer server;
    server.expect(Script().send("a").stall().send("b").stall().send("c"));
    const Descriptor client = connectTo(server.port());
    ASSERT_TRUE(server.awaitStalled(1));
    server.release(0);
    server.release(0);
    EXPECT_EQ("abc", hear(client));
}

TEST(ScriptedServer, AStallEndsWhenThePeerIsGone) {
    ScriptedServer server;
    server.expect(Script().stall());
    {
        const Descriptor client = connectTo(server.port());
        ASSERT_TRUE(server.awaitStalled(1));
        EXPECT_FALSE(server.peerEnded(0));
    }
    ASSERT_TRUE(server.awaitPeerEnd(0));
    EXPECT_FALSE(server.peerReset(0));
    EXPECT_TRUE(server.awaitIdle());
}

TEST(ScriptedServer, TellsAResetFromAnEnd) {
    ScriptedServer server;
    server.expect(Script().stall());
    {
        const Descriptor client = connectTo(server.port());
        const linger now = {1, 0};
        ASSERT_EQ(0, ::setsockopt(client.get(), SOL_SOCKET, SO_LINGER, &now, sizeof(now)));
    }
    ASSERT_TRUE(server.awaitPeerEnd(0));
    EXPECT_TRUE(server.peerReset(0));
}

TEST(ScriptedServer, Resets) {
    ScriptedServer server;
    server.expect(Script().readRequest().reset());
    const Descriptor client = connectTo(server.port());
    say(client, kRequest);
    EXPECT_EQ("error " + std::to_string(ECONNRESET), hear(client));
}

TEST(ScriptedServer, SendsForEver) {
    ScriptedServer server;
    server.expect(Script().send("0123456789", Script::kEndless));
    {
        const Descriptor client = connectTo(server.port());
        char buffer[100000];
        ASSERT_EQ(static_cast<ssize_t>(sizeof(buffer)),
                  ::recv(client.get(), buffer, sizeof(buffer), MSG_WAITALL));
    }
    EXPECT_TRUE(server.awaitPeerEnd(0));
}

TEST(ScriptedServer, SendsBytesAsOftenAsTold) {
    ScriptedServer server;
    server.expect(Script().send("ab", 3).send("", 5).send("x", 0).send("c"));
    EXPECT_EQ("abababc", hear(connectTo(server.port())));
}

TEST(ScriptedServer, MakesItsAnswerOfTheRequest) {
    ScriptedServer server;
    server.answer([](const std::string& request) { return Script().send("[" + request + "]"); });
    for (const char* text : {"one\r\n\r\n", "two\r\n\r\n"}) {
        const Descriptor client = connectTo(server.port());
        say(client, text);
        EXPECT_EQ("[" + std::string(text) + "]", hear(client));
    }
}

TEST(ScriptedServer, FollowsWhatIsExpectedBeforeWhatIsAlways) {
    ScriptedServer server;
    server.always(Script().send("always"));
    server.expect(Script().send("first"));
    EXPECT_EQ("first", hear(connectTo(server.port())));
    EXPECT_EQ("always", hear(connectTo(server.port())));
    EXPECT_EQ("always", hear(connectTo(server.port())));
    EXPECT_EQ(3, server.connections());
}

TEST(ScriptedServer, ReportsWhomItDidNotExpect) {
    EXPECT_NONFATAL_FAILURE(
        {
            ScriptedServer server;
            EXPECT_EQ("error " + std::to_string(ECONNRESET), hear(connectTo(server.port())));
        },
        "did not expect");
}

TEST(ScriptedServer, ServesHundredsAtOnceAndLeavesNothingBehind) {
    const std::ptrdiff_t descriptors = countEntries("/proc/self/fd");
    {
        ScriptedServer server;
        server.always(Script().readRequest().stall().send("done"));
        std::vector<Descriptor> clients;
        for (int count = 0; count < 200; ++count) {
            clients.push_back(connectTo(server.port()));
            ASSERT_TRUE(clients.back().valid());
            say(clients.back(), kRequest);
        }
        ASSERT_TRUE(server.awaitStalled(200));
        EXPECT_EQ(200, server.open());
        server.releaseAll();
        for (int number = 0; number < 100; ++number) {
            EXPECT_EQ("done", hear(clients[static_cast<std::size_t>(number)]));
        }
    }
    EXPECT_EQ(descriptors, countEntries("/proc/self/fd"));
    EXPECT_TRUE(tests::eventually([] { return tests::threadIds().size() <= tests::kOwnThreads; }));
}

TEST(DeadPort, Refuses) {
    const DeadPort port(DeadPort::eRefusing);
    EXPECT_FALSE(connectTo(port.port()).valid());
    EXPECT_EQ(ECONNREFUSED, errno);
}

TEST(DeadPort, KeepsSilent) {
    const DeadPort port(DeadPort::eSilent);
    const Descriptor client = connectTo(port.port());
    ASSERT_TRUE(client.valid());
    say(client, kRequest);
    char byte = 0;
    EXPECT_EQ(-1, ::recv(client.get(), &byte, 1, MSG_DONTWAIT));
}

}  // namespace
