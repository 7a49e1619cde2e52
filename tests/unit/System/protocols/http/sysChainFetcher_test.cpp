// SPDX-License-Identifier: MIT
//
// The fate of a queued document: how often it is tried, and what is delivered.
#include "System/protocols/http/sysChainFetcher.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"
#include "tests/support/scriptedserver.h"
#include "tests/unit/System/protocols/http/chainrecord.h"
#include "tests/unit/System/protocols/http/leftovers.h"

using namespace tests;

namespace {

constexpr int kCapacity = 20480;

std::string ok(const std::string& fields) {
    return "HTTP/1.0 200 OK\r\n" + fields + "\r\n";
}

std::string withLength(const std::string& body) {
    return ok("Content-Length: " + std::to_string(body.size()) + "\r\nContent-Type: text/x\r\n") +
           body;
}

class SysChainFetcherTest : public testing::Test {
protected:
    SysChainFetcherTest() { mFetcher->setCallback(ChainRecord::callback, &mRecord); }

    /// Fetches one document. Returns the delivery.
    std::string fetch(const std::string& url) {
        mFetcher->pushUrl(7, url.c_str());
        EXPECT_TRUE(mRecord.await(1));
        return mRecord.sequence();
    }
    /// Fetches one document from a server with one of these scripts per attempt.
    std::string fetch(const std::vector<Script>& attempts) {
        for (const Script& script : attempts) {
            mServer.expect(script);
        }
        const std::string sequence = fetch(mServer.url());
        EXPECT_EQ(static_cast<int>(attempts.size()), mServer.connections());
        return sequence;
    }
    std::string fetch(const std::string& reply, int attempts) {
        return fetch(std::vector<Script>(static_cast<std::size_t>(attempts), replyWith(reply)));
    }
    const OutputLevel mQuiet{0};
    const Leftovers mLeftovers;
    const failingcalls::Scope mCalls;
    ScriptedServer mServer;
    ChainRecord mRecord;
    std::unique_ptr<sysChainFetcher> mFetcher = std::make_unique<sysChainFetcher>();
};

struct AttemptCase {
    const char* mName;
    std::string mReply;
    int mAttempts;
    std::string mDelivery;
};

void PrintTo(const AttemptCase& attempt, std::ostream* out) {
    *out << attempt.mName;
}

class SysChainFetcherReplyTest : public SysChainFetcherTest,
                                 public testing::WithParamInterface<AttemptCase> {};

TEST_P(SysChainFetcherReplyTest, IsTriedAndDelivered) {
    EXPECT_EQ(GetParam().mDelivery, fetch(GetParam().mReply, GetParam().mAttempts));
}

const std::string kType = "Content-Type: text/x\r\n";

const AttemptCase kReplies[] = {
    {"Whole", withLength(std::string(1000, 'x')), 1, "7 ok 1000 text/x"},
    {"OneByte", withLength("x"), 1, "7 ok 1 text/x"},
    {"JustBelowTheCapacity", withLength(std::string(kCapacity - 1, 'x')), 1, "7 ok 20479 text/x"},
    {"TheCapacity", withLength(std::string(kCapacity, 'x')), 1, "7 failed 20480 text/x"},
    {"AboveTheCapacity", withLength(std::string(kCapacity + 1, 'x')), 4, "7 failed 20480 text/x"},
    {"CutOff", ok("Content-Length: 10\r\n" + kType) + "12345", 4, "7 failed 5 text/x"},
    {"NothingOfABody", ok("Content-Length: 10\r\n" + kType), 4, "7 failed 0 text/x"},
    {"LongerThanTold", ok("Content-Length: 3\r\n" + kType) + "12345", 4, "7 failed 5 text/x"},
    {"LengthNegative", ok("Content-Length: -3\r\n" + kType) + "12345", 4, "7 failed 5 text/x"},
    {"LengthBeyond32Bits", ok("Content-Length: 4294967301\r\n" + kType) + "12345", 4,
     "7 failed 5 text/x"},
    {"LengthSpeltOtherwise", ok("cOnTent-lENGTH: 5\r\n") + "12345", 1, "7 ok 5"},
    {"LengthSpeltOtherwiseAndCutOff", ok("content-length: 6\r\n") + "12345", 4, "7 failed 5"},
    // Of several spellings the first in byte order counts.
    {"LengthsOfTwoSpellings", ok("content-length: 9\r\nCONTENT-LENGTH: 5\r\n") + "12345", 1,
     "7 ok 5"},
    {"TypeSpeltOtherwise", ok("content-type: text/x\r\nContent-Length: 5\r\n") + "12345", 1,
     "7 ok 5"},
    {"TypeWithParameters", ok("Content-Type:  a/b; c=d \r\nContent-Length: 1\r\n") + "1", 1,
     "7 ok 1 a/b; c=d "},
    {"LengthUnknown", ok(kType) + "12345", 1, "7 ok 5 text/x"},
    {"LengthUnknownAndNoBody", ok(""), 1, "7 ok 0"},
    {"LengthZero", ok("Content-Length: 0\r\n" + kType), 1, "7 ok 0 text/x"},
    {"LengthZeroWithBody", ok("Content-Length: 0\r\n") + "12345", 1, "7 ok 5"},
    {"LengthUnknownAndTheCapacity", ok("") + std::string(kCapacity, 'x'), 1, "7 failed 20480"},
    {"LengthUnknownAndJustBelow", ok("") + std::string(kCapacity - 1, 'x'), 1, "7 ok 20479"},
    {"NotFound", "HTTP/1.0 404 Not Found\r\n" + kType + "\r\nnothing", 1, "7 failed 0"},
    {"Moved", "HTTP/1.0 302 Found\r\nLocation: /\r\n\r\n", 1, "7 failed 0"},
    {"PartOnly", "HTTP/1.0 206 Partial Content\r\n\r\n", 1, "7 failed 0"},
    {"CodeNegative", "HTTP/1.0 -1 x\r\n\r\n", 1, "7 failed 0"},
    {"CodeZero", "HTTP/1.0 0 x\r\n\r\n", 4, "7 failed 0"},
    {"HeaderBrokenOffBehindItsStatus", "HTTP/1.0 200 OK\r\nContent-Le", 1, "7 failed 0"},
    {"FieldWithNUL", std::string("HTTP/1.0 200 OK\r\nX: \0\r\n\r\n", 25), 1, "7 failed 0"},
    // The code was parsed before the line was refused.
    {"StatusLineWithoutReason", "HTTP/1.0 200\r\n\r\n", 1, "7 failed 0"},
    {"StatusLineWithoutCode", "HTTP/1.0 abc x\r\n\r\n", 4, "7 failed 0"},
    {"StatusLineBrokenOff", "HTTP/1.0 200 O", 4, "7 failed 0"},
    {"NoHTTP", "http/1.0 200 OK\r\n\r\n", 4, "7 failed 0"},
    {"NoReply", "", 4, "7 failed 0"},
};

INSTANTIATE_TEST_SUITE_P(Replies, SysChainFetcherReplyTest, testing::ValuesIn(kReplies),
                         [](const auto& reply) { return reply.param.mName; });

TEST_F(SysChainFetcherTest, DeliversTheBytes) {
    std::string body;
    for (unsigned i = 0; i < kCapacity - 1; ++i) {
        body += static_cast<char>(i * 7 + i / 256);
    }
    EXPECT_EQ("7 ok 20479 text/x", fetch(withLength(body), 1));
    EXPECT_EQ(body, mRecord.data());
}

TEST_F(SysChainFetcherTest, DeliversWhatComesInDrips) {
    EXPECT_EQ("7 ok 200 text/x",
              fetch({Script().readRequest().drip(withLength(std::string(200, 'x')))}));
}

TEST_F(SysChainFetcherTest, TakesOnlyTheFirstSegmentWithoutALength) {
    // The second segment is sent after the first one has been read and delivered.
    EXPECT_EQ("7 ok 5",
              fetch({Script().readRequest().send(ok("") + "12345").stall().send("67890")}));
    EXPECT_EQ("12345", mRecord.data());
}

TEST_F(SysChainFetcherTest, TakesBothSegmentsWithALength) {
    mServer.expect(
        Script().readRequest().send(ok("Content-Length: 10\r\n") + "12345").stall().send("67890"));
    mFetcher->pushUrl(7, mServer.url().c_str());
    ASSERT_TRUE(mServer.awaitStalled(1));
    mServer.release(0);
    ASSERT_TRUE(mRecord.await(1));
    EXPECT_EQ("7 ok 10", mRecord.sequence());
    EXPECT_EQ("1234567890", mRecord.data());
}

TEST_F(SysChainFetcherTest, TriesARefusedConnectionFourTimes) {
    const DeadPort port(DeadPort::eRefusing);
    EXPECT_EQ("7 failed 0", fetch(port.url()));
    EXPECT_EQ(4, failingcalls::count(failingcalls::Call::eConnect));
}

TEST_F(SysChainFetcherTest, TriesAResetBodyFourTimes) {
    // The read fails after a piece, whose bytes count.
    failingcalls::answerReceive([](int socket, void* buffer, std::size_t length, int flags) {
        if (length == 1 || length == kCapacity) {
            return ::recv(socket, buffer, length, flags);
        }
        errno = ECONNRESET;
        return ssize_t{-1};
    });
    EXPECT_EQ("7 failed 5 text/x", fetch(ok("Content-Length: 10\r\n" + kType) + "12345", 4));
}

TEST_F(SysChainFetcherTest, TriesAgainUntilItSucceeds) {
    const Script cut = replyWith(ok("Content-Length: 10\r\nContent-Type: a\r\n") + "12345");
    EXPECT_EQ("7 ok 3 b",
              fetch({cut, replyWith(""), cut,
                     replyWith(ok("Content-Length: 3\r\nContent-Type: b\r\n") + "123")}));
    EXPECT_EQ("123", mRecord.data());
}

TEST_F(SysChainFetcherTest, KeepsCountAndTypeOfAnEarlierAttempt) {
    const Script cut = replyWith(ok("Content-Length: 10\r\nContent-Type: a\r\n") + "12345");
    EXPECT_EQ("7 failed 5 a", fetch({cut, replyWith(""), replyWith(""), replyWith("")}));
    EXPECT_EQ("12345", mRecord.data());
}

TEST_F(SysChainFetcherTest, KeepsThemAlsoWhenAStatusEndsIt) {
    const Script cut = replyWith(ok("Content-Length: 10\r\nContent-Type: a\r\n") + "12345");
    EXPECT_EQ("7 failed 5 a",
              fetch({cut, replyWith("HTTP/1.0 404 Not Found\r\nContent-Type: b\r\n\r\n")}));
}

TEST_F(SysChainFetcherTest, TakesTheTypeOfTheLastAcceptedReply) {
    const Script first = replyWith(ok("Content-Length: 10\r\nContent-Type: a\r\n") + "12345");
    const Script second = replyWith(ok("Content-Length: 10\r\n") + "123");
    EXPECT_EQ("7 failed 3", fetch({first, second, replyWith(""), replyWith("")}));
}

TEST_F(SysChainFetcherTest, StartsEachEntryAnew) {
    mServer.expect(replyWith(withLength("12345")));
    mServer.expect(replyWith("HTTP/1.0 404 Not Found\r\n\r\n"));
    mFetcher->pushUrl(1, mServer.url().c_str());
    mFetcher->pushUrl(2, mServer.url().c_str());
    ASSERT_TRUE(mRecord.await(2));
    EXPECT_EQ("1 ok 5 text/x, 2 failed 0", mRecord.sequence());
}

TEST_F(SysChainFetcherTest, TakesAnEndAfterAFailedSendForAnEmptyDocument) {
    failingcalls::failAll(failingcalls::Call::eSend, EPIPE);
    EXPECT_EQ("7 ok 0", fetch({Script()}));
}

TEST_F(SysChainFetcherTest, TriesAgainWhenReadingFailsAfterAFailedSend) {
    failingcalls::failAll(failingcalls::Call::eSend, EPIPE);
    failingcalls::failAll(failingcalls::Call::eRecv, ECONNRESET);
    const Script nothing;
    EXPECT_EQ("7 failed 0", fetch({nothing, nothing, nothing, nothing}));
}

TEST_F(SysChainFetcherTest, ReportsWhatIsNoAddress) {
    for (const char* const url : {"", "ftp://127.0.0.1/", "http://127.0.0.1"}) {
        mFetcher->pushUrl(1, url);
    }
    mFetcher->pushUrl(2, nullptr);
    ASSERT_TRUE(mRecord.await(4));
    EXPECT_EQ("1 failed 0, 1 failed 0, 1 failed 0, 2 failed 0", mRecord.sequence());
}

TEST_F(SysChainFetcherTest, HandsTheIdentifierBackWhole) {
    mServer.expect(replyWith(withLength("1")));
    mFetcher->pushUrl(4294967295U, mServer.url().c_str());
    ASSERT_TRUE(mRecord.await(1));
    EXPECT_EQ("4294967295 ok 1 text/x", mRecord.sequence());
}

}  // namespace
