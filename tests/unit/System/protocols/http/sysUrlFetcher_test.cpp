// SPDX-License-Identifier: MIT
//
// What the callback receives for every kind of reply: the codes in order, and nothing else.
#include "System/protocols/http/sysUrlFetcher.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <string>

#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"
#include "tests/support/scriptedserver.h"
#include "tests/unit/System/protocols/http/leftovers.h"
#include "tests/unit/System/protocols/http/urlrecord.h"

using namespace tests;

namespace {

std::string ok(const std::string& fields) {
    return "HTTP/1.0 200 OK\r\n" + fields + "\r\n";
}

class SysUrlFetcherTest : public testing::Test {
protected:
    /// Fetches to the end. Returns the sequence of the calls.
    std::string fetch(const char* url) {
        mFetcher.setCallback(UrlRecord::callback, &mRecord);
        EXPECT_EQ(0, mFetcher.setUrl(url));
        mFetcher.waitTillDone();
        return mRecord.sequence();
    }
    std::string fetch(const Script& script) {
        mServer.expect(script);
        return fetch(mServer.url().c_str());
    }

    const OutputLevel mQuiet{0};
    const Leftovers mLeftovers;
    const failingcalls::Scope mCalls;
    ScriptedServer mServer;
    UrlRecord mRecord;
    sysUrlFetcher mFetcher;
};

struct ReplyCase {
    const char* mName;
    std::string mReply;
    std::string mSequence;
};

void PrintTo(const ReplyCase& reply, std::ostream* out) {
    *out << reply.mName;
}

class SysUrlFetcherReplyTest : public SysUrlFetcherTest,
                               public testing::WithParamInterface<ReplyCase> {};

TEST_P(SysUrlFetcherReplyTest, TellsTheSequence) {
    EXPECT_EQ(GetParam().mSequence, fetch(replyWith(GetParam().mReply)));
    EXPECT_TRUE(mServer.awaitIdle());
}

const std::string kBody(5000, 'b');

const ReplyCase kReplies[] = {
    {"LengthKnown", ok("Content-Length: 5000\r\n") + kBody, "3 0/5000, 4 5000/5000, 5 5000/5000"},
    {"LengthUnknown", ok("") + kBody, "3 0/0, 4 5000/0, 5 5000/0"},
    {"LengthUnknownAndNoBody", ok(""), "3 0/0, 5 0/0"},
    {"LengthZero", ok("Content-Length: 0\r\n"), "3 0/0, 5 0/0"},
    {"LengthZeroWithBody", ok("Content-Length: 0\r\n") + kBody, "3 0/0, 4 5000/0, 5 5000/0"},
    {"LengthEmpty", ok("Content-Length:\r\n") + kBody, "3 0/0, 4 5000/0, 5 5000/0"},
    {"LengthNoNumber", ok("Content-Length: many\r\n") + kBody, "3 0/0, 4 5000/0, 5 5000/0"},
    {"LengthWithRest", ok("Content-Length: 5 kB\r\n") + "12345", "3 0/5, 4 5/5, 5 5/5"},
    {"LengthWithSign", ok("Content-Length: \t +5\r\n") + "12345", "3 0/5, 4 5/5, 5 5/5"},
    {"LengthTooLarge", ok("Content-Length: 6000\r\n") + kBody,
     "3 0/6000, 4 5000/6000, 5 5000/6000"},
    {"LengthAndNoBody", ok("Content-Length: 6000\r\n"), "3 0/6000, 5 0/6000"},
    // All bytes of the read that reaches the length are delivered.
    {"MoreThanPromised", ok("Content-Length: 10\r\n") + "123456789012345",
     "3 0/10, 4 15/10, 5 15/10"},
    {"MuchMoreThanPromised", ok("Content-Length: 10\r\n") + kBody, "3 0/10, 4 2048/10, 5 2048/10"},
    {"OneChunkPromised", ok("Content-Length: 2048\r\n") + kBody,
     "3 0/2048, 4 2048/2048, 5 2048/2048"},
    {"OneByte", ok("Content-Length: 1\r\n") + "x", "3 0/1, 4 1/1, 5 1/1"},
    {"LengthNegative", ok("Content-Length: -1\r\n") + "12345", "3 0/-1, 4 5/-1, 5 5/-1"},
    {"LengthNegativeAndNoBody", ok("Content-Length: -1\r\n"), "3 0/-1, 5 0/-1"},
    {"LengthBeyond32Bits", ok("Content-Length: 5000000000\r\n") + kBody,
     "3 0/2147483647, 4 5000/2147483647, 5 5000/2147483647"},
    {"LengthBelow32Bits", ok("Content-Length: -5000000000\r\n") + "12345",
     "3 0/-2147483648, 4 5/-2147483648, 5 5/-2147483648"},
    {"LengthSpeltOtherwise", ok("content-length: 5000\r\n") + kBody, "3 0/0, 4 5000/0, 5 5000/0"},
    {"LengthTwice", ok("Content-Length: 9\r\nContent-Length: 5\r\n") + "12345",
     "3 0/5, 4 5/5, 5 5/5"},
    {"NotFound", "HTTP/1.0 404 Not Found\r\n\r\nnothing here", "1 0/0, 2 0/0"},
    {"Moved", "HTTP/1.0 302 Found\r\nLocation: /b\r\n\r\n", "1 0/0, 2 0/0"},
    {"PartOnly", "HTTP/1.1 206 Partial Content\r\nContent-Length: 5\r\n\r\n12345", "1 0/0, 2 0/0"},
    {"CodeBeyond32Bits", "HTTP/1.0 4294967496 OK\r\n\r\n", "1 0/0, 2 0/0"},
    {"NoReply", "", "1 0/0, 2 0/0"},
    {"NoHTTP", "ICY 200 OK\r\n\r\n", "1 0/0, 2 0/0"},
    {"HeaderBrokenOff", "HTTP/1.0 200 OK\r\nContent-Length: 5\r\n", "1 0/0, 2 0/0"},
    {"HeaderLineWithoutEnd", "HTTP/1.0 200 OK\r\nX: " + std::string(1100, 'x') + "\r\n\r\n",
     "1 0/0, 2 0/0"},
    {"HeaderWithNUL", std::string("HTTP/1.0 200 OK\r\nX: \0\r\n\r\n", 25), "1 0/0, 2 0/0"},
};

INSTANTIATE_TEST_SUITE_P(Replies, SysUrlFetcherReplyTest, testing::ValuesIn(kReplies),
                         [](const auto& reply) { return reply.param.mName; });

TEST_F(SysUrlFetcherTest, DeliversTheBytesInOrder) {
    std::string body;
    for (unsigned i = 0; i < 100000; ++i) {
        body += static_cast<char>(i * 7 + i / 256);
    }
    EXPECT_EQ("3 0/100000, 4 100000/100000, 5 100000/100000",
              fetch(replyWith(ok("Content-Length: 100000\r\n") + body)));
    EXPECT_EQ(body, mRecord.body());
}

TEST_F(SysUrlFetcherTest, DeliversWhatComesInDrips) {
    EXPECT_EQ("3 0/26, 4 26/26, 5 26/26",
              fetch(Script().readRequest().drip(ok("Content-Length: 26\r\n") +
                                                "abcdefghijklmnopqrstuvwxyz")));
    EXPECT_EQ("abcdefghijklmnopqrstuvwxyz", mRecord.body());
}

TEST_F(SysUrlFetcherTest, EndsAtTheLengthThoughTheServerHoldsTheConnection) {
    EXPECT_EQ("3 0/5, 4 5/5, 5 5/5",
              fetch(Script().readRequest().send(ok("Content-Length: 5\r\n") + "12345").stall()));
    EXPECT_TRUE(mServer.awaitPeerEnd(0));
}

TEST_F(SysUrlFetcherTest, ReportsAResetInTheBody) {
    mServer.expect(
        Script().readRequest().send(ok("Content-Length: 50\r\n") + "12345").stall().reset());
    mFetcher.setCallback(UrlRecord::callback, &mRecord);
    ASSERT_EQ(0, mFetcher.setUrl(mServer.url().c_str()));
    ASSERT_TRUE(mRecord.await(eUrlFetchData));
    mServer.release(0);
    mFetcher.waitTillDone();
    EXPECT_EQ("3 0/50, 4 5/50, 0 5/50", mRecord.sequence());
}

TEST_F(SysUrlFetcherTest, ReportsAResetAheadOfTheBody) {
    mServer.expect(Script().readRequest().send(ok("")).stall().reset());
    mFetcher.setCallback(UrlRecord::callback, &mRecord);
    ASSERT_EQ(0, mFetcher.setUrl(mServer.url().c_str()));
    ASSERT_TRUE(mRecord.await(eUrlFetchHeader));
    mServer.release(0);
    mFetcher.waitTillDone();
    EXPECT_EQ("3 0/0, 0 0/0", mRecord.sequence());
}

TEST_F(SysUrlFetcherTest, ReportsATimeOutInTheBody) {
    failingcalls::answerReceive([](int socket, void* buffer, std::size_t length, int flags) {
        if (length == 1) {
            return ::recv(socket, buffer, length, flags);
        }
        errno = EAGAIN;
        return ssize_t{-1};
    });
    EXPECT_EQ("3 0/5, 0 0/5", fetch(replyWith(ok("Content-Length: 5\r\n") + "12345")));
}

TEST_F(SysUrlFetcherTest, TellsOfARefusedConnection) {
    const DeadPort port(DeadPort::eRefusing);
    EXPECT_EQ("1 0/0, 2 0/0", fetch(port.url().c_str()));
}

TEST_F(SysUrlFetcherTest, TellsOfAnAddressThatIsNone) {
    EXPECT_EQ("1 0/0, 2 0/0", fetch("ftp://127.0.0.1/"));
}

TEST_F(SysUrlFetcherTest, TellsOfAnEmptyAddress) {
    EXPECT_EQ("1 0/0, 2 0/0", fetch(""));
}

TEST_F(SysUrlFetcherTest, FindsOutByReadingThatTheRequestWasNotSent) {
    failingcalls::fail(failingcalls::Call::eSend, ECONNRESET);
    EXPECT_EQ("3 0/0, 5 0/0", fetch(Script()));
}

TEST_F(SysUrlFetcherTest, SurvivesAPeerThatIsGoneWhileItSends) {
    // The default disposition would kill the program.
    failingcalls::answerSend([](int socket, const void* bytes, std::size_t length, int flags) {
        (void)::shutdown(socket, SHUT_WR);
        return ::send(socket, bytes, length, flags);
    });
    struct Masks {
        static bool callback(sysUrlFetcherCode, char*, int, int, int, void* user) {
            sigset_t mask;
            (void)pthread_sigmask(SIG_BLOCK, nullptr, &mask);
            sigset_t pending;
            (void)sigpending(&pending);
            if (sigismember(&mask, SIGPIPE) == 0 && sigismember(&pending, SIGPIPE) == 0) {
                ++*static_cast<std::atomic<int>*>(user);
            }
            return true;
        }
    };
    std::atomic<int> clean{0};
    mServer.expect(Script());
    mFetcher.setCallback(Masks::callback, &clean);
    ASSERT_EQ(0, mFetcher.setUrl(mServer.url().c_str()));
    mFetcher.waitTillDone();
    EXPECT_EQ(1, failingcalls::count(failingcalls::Call::eSend));
    EXPECT_EQ(2, clean);
}

TEST_F(SysUrlFetcherTest, FalseOnTheHeaderStopsTheDownload) {
    mRecord.stopAt(eUrlFetchHeader);
    EXPECT_EQ("3 0/5000, 2 0/0", fetch(replyWith(ok("Content-Length: 5000\r\n") + kBody)));
    EXPECT_TRUE(mServer.awaitPeerEnd(0));
}

TEST_F(SysUrlFetcherTest, FalseOnAPieceStopsTheDownload) {
    mRecord.stopAt(eUrlFetchData);
    EXPECT_EQ("3 0/5000, 4 2048/5000, 2 0/0",
              fetch(replyWith(ok("Content-Length: 5000\r\n") + kBody)));
    EXPECT_TRUE(mServer.awaitPeerEnd(0));
}

TEST_F(SysUrlFetcherTest, FalseOnTheLastPieceStopsTheDownloadToo) {
    mRecord.stopAt(eUrlFetchData);
    EXPECT_EQ("3 0/5, 4 5/5, 2 0/0", fetch(replyWith(ok("Content-Length: 5\r\n") + "12345")));
}

TEST_F(SysUrlFetcherTest, FalseAtTheEndChangesNothing) {
    mRecord.stopAt(eUrlFetchDone);
    EXPECT_EQ("3 0/5, 4 5/5, 5 5/5", fetch(replyWith(ok("Content-Length: 5\r\n") + "12345")));
}

TEST_F(SysUrlFetcherTest, FalseAfterAFailedOpeningChangesNothing) {
    mRecord.stopAt(eUrlFetchOpenFailed);
    EXPECT_EQ("1 0/0, 2 0/0", fetch("nothing"));
}

TEST_F(SysUrlFetcherTest, ReceivedWrapsBeyondTwoGiB) {
    // As much as one call can return; nothing is written beyond the buffer.
    failingcalls::answerReceive(
        [left = 4](int socket, void* buffer, std::size_t length, int flags) mutable {
            if (length == 1) {
                return ::recv(socket, buffer, length, flags);
            }
            return --left > 0 ? ssize_t{INT_MAX} : ssize_t{0};
        });
    struct Counts {
        static bool callback(sysUrlFetcherCode code, char*, int, int received, int, void* user) {
            *static_cast<std::string*>(user) +=
                std::to_string(code) + " " + std::to_string(received) + ", ";
            return true;
        }
    };
    std::string sequence;
    mServer.expect(replyWith(ok("")));
    mFetcher.setCallback(Counts::callback, &sequence);
    ASSERT_EQ(0, mFetcher.setUrl(mServer.url().c_str()));
    mFetcher.waitTillDone();
    EXPECT_EQ("3 0, 4 2147483647, 4 -2, 4 2147483645, 5 2147483645, ", sequence);
}

TEST_F(SysUrlFetcherTest, CopiesTheAddress) {
    mServer.expect(replyWith(ok("")));
    std::string url = mServer.url("/right");
    mFetcher.setCallback(UrlRecord::callback, &mRecord);
    ASSERT_EQ(0, mFetcher.setUrl(url.c_str()));
    url.replace(url.find("/right"), 6, "/wrong");
    mFetcher.waitTillDone();
    EXPECT_EQ("3 0/0, 5 0/0", mRecord.sequence());
    EXPECT_EQ(0U, mServer.request(0).find("GET /right HTTP/1.0\r\n"));
}

TEST_F(SysUrlFetcherTest, FetchesOneAfterTheOther) {
    for (int i = 0; i < 3; ++i) {
        mServer.expect(replyWith(ok("Content-Length: 5\r\n") + "12345"));
    }
    const std::string once = "3 0/5, 4 5/5, 5 5/5";
    EXPECT_EQ(once, fetch(mServer.url().c_str()));
    EXPECT_EQ(once + ", " + once, fetch(mServer.url().c_str()));
    // The worker has exited, but has not been joined.
    ASSERT_EQ(0, mFetcher.setUrl(mServer.url().c_str()));
    ASSERT_TRUE(eventually([this] { return mRecord.count(eUrlFetchDone) == 3; }));
    EXPECT_EQ("1 0/0, 2 0/0", fetch("").substr(3 * once.size() + 6));
}

TEST_F(SysUrlFetcherTest, KeepsNoHandleOfAThreadThatCouldNotBeCreated) {
    mFetcher.setCallback(UrlRecord::callback, &mRecord);
    failingcalls::fail(failingcalls::Call::ePthreadCreate, EAGAIN);
    EXPECT_EQ(EAGAIN, mFetcher.setUrl(mServer.url().c_str()));
    // Each of these would wait for a thread that does not exist.
    mFetcher.waitTillDone();
    mFetcher.killThread();
    mFetcher.cancelFetch();
    EXPECT_EQ("", mRecord.sequence());
    EXPECT_EQ("3 0/0, 5 0/0", fetch(replyWith(ok(""))));
}

TEST_F(SysUrlFetcherTest, KeepsAnErrorNumberOfTheThreadCreation) {
    failingcalls::failAll(failingcalls::Call::ePthreadCreate, EPERM);
    sysUrlFetcher other;
    EXPECT_EQ(EPERM, other.setUrl(nullptr));
    EXPECT_EQ(EPERM, other.setUrl(mServer.url().c_str()));
}

TEST_F(SysUrlFetcherTest, DoesNothingWithoutAWorker) {
    mFetcher.killThread();
    mFetcher.cancelFetch();
    mFetcher.waitTillDone();
    EXPECT_EQ("", mRecord.sequence());
}

}  // namespace
