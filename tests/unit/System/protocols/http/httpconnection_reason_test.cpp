// SPDX-License-Identifier: MIT
//
// HTTPConnection::lastFailure(): the reason for each operation's failure.
#include <gtest/gtest.h>
#include <netdb.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>

#include "System/protocols/http/sysChainFetcher.h"
#include "System/protocols/http/sysUrlFetcher.h"
#include "tests/support/sandbox.h"
#include "tests/support/scriptedserver.h"
#include "tests/unit/System/protocols/http/httptest.h"

using failingcalls::Call;
using tests::DeadPort;
using tests::okReply;
using tests::OutputLevel;
using tests::replyWith;
using tests::Script;
using tests::ScriptedServer;
using tests::SocketWatch;

namespace {

constexpr int kShort = 100000;  // microseconds

/// Returns the failure as "reason errno status phrase".
std::string text(const HTTPFailure& failure) {
    return std::to_string(failure.mReason) + " " + std::to_string(failure.mErrno) + " " +
           std::to_string(failure.mStatus) + " " + failure.mPhrase;
}

std::string text(HTTPFailure::Reason reason, int error = 0, int status = 0,
                 const std::string& phrase = "") {
    return std::to_string(reason) + " " + std::to_string(error) + " " + std::to_string(status) +
           " " + phrase;
}

class HttpConnectionReason : public testing::Test {
protected:
    /// Opens an address. Returns the thread's failure after it.
    std::string afterOpen(const std::string& url, bool opened = false) {
        HTTPReplyHeader header;
        EXPECT_EQ(opened, mConnection.Open(url.c_str(), header));
        return text(HTTPConnection::lastFailure());
    }
    std::string afterReply(const std::string& bytes, bool opened = false) {
        mServer.expect(replyWith(bytes));
        return afterOpen(mServer.url(), opened);
    }

    const OutputLevel mQuiet{0};
    ScriptedServer mServer;
    HTTPConnection mConnection;
};

TEST_F(HttpConnectionReason, IsNoneAtFirstAndAfterASuccess) {
    std::thread([] {
        EXPECT_EQ(text(HTTPFailure::eNone), text(HTTPConnection::lastFailure()));
    }).join();
    EXPECT_EQ(text(HTTPFailure::eAddress), afterOpen("ftp://host/"));
    EXPECT_EQ(text(HTTPFailure::eNone), afterReply(okReply("body"), true));
    char buffer[10];
    EXPECT_EQ(4, mConnection.Read(buffer, sizeof(buffer)));
    EXPECT_EQ(0, mConnection.Read(buffer, sizeof(buffer)));
    EXPECT_EQ(text(HTTPFailure::eNone), text(HTTPConnection::lastFailure()));
}

TEST_F(HttpConnectionReason, AnAddressThatIsNotUnderstood) {
    for (const char* url : {"", "ftp://host/", "http://host", "http://host:65536/"}) {
        EXPECT_EQ(text(HTTPFailure::eAddress), afterOpen(url)) << url;
    }
    EXPECT_FALSE(mConnection.Open(nullptr));
    EXPECT_EQ(text(HTTPFailure::eAddress), text(HTTPConnection::lastFailure()));
}

TEST_F(HttpConnectionReason, AHostThatCannotBeFound) {
    const struct {
        int mReturned;
        int mError;
        std::string mExpected;
    } cases[] = {
        {0, HOST_NOT_FOUND, text(HTTPFailure::eUnknownHost)},
        {0, NO_DATA, text(HTTPFailure::eUnknownHost)},
        {EAGAIN, TRY_AGAIN, text(HTTPFailure::eLookup)},
        {0, NO_RECOVERY, text(HTTPFailure::eLookup)},
        {ERANGE, NETDB_INTERNAL, text(HTTPFailure::eLookup, ERANGE)},
    };
    const failingcalls::Scope scope;
    for (const auto& each : cases) {
        failingcalls::answerLookup([&each](const failingcalls::Lookup& lookup) {
            *lookup.mError = each.mError;
            return each.mReturned;
        });
        EXPECT_EQ(each.mExpected, afterOpen("http://localhost/"));
    }
    tests::answerLookupsWith({INADDR_LOOPBACK}, AF_INET6);
    EXPECT_EQ(text(HTTPFailure::eUnknownHost), afterOpen("http://localhost/"));
}

TEST_F(HttpConnectionReason, NoSocket) {
    const failingcalls::Scope scope;
    failingcalls::fail(Call::eSocket, EMFILE);
    EXPECT_EQ(text(HTTPFailure::eSocket, EMFILE), afterOpen(mServer.url()));
    char byte = 0;
    EXPECT_GT(0, mConnection.Read(&byte, 1));
    EXPECT_EQ(text(HTTPFailure::eSocket, EBADF), text(HTTPConnection::lastFailure()));
}

TEST_F(HttpConnectionReason, AConnectionThatIsRefused) {
    const DeadPort port(DeadPort::eRefusing);
    EXPECT_EQ(text(HTTPFailure::eRefused, ECONNREFUSED), afterOpen(port.url()));
}

TEST_F(HttpConnectionReason, AConnectionThatDoesNotComeAboutInTime) {
    const SocketWatch watch(kShort);
    const DeadPort port(DeadPort::eFull);
    EXPECT_EQ(text(HTTPFailure::eConnectTimeOut, EINPROGRESS), afterOpen(port.url()));
    failingcalls::fail(Call::eConnect, ETIMEDOUT);
    EXPECT_EQ(text(HTTPFailure::eConnectTimeOut, ETIMEDOUT), afterOpen(port.url()));
}

TEST_F(HttpConnectionReason, AConnectionThatFailsOtherwise) {
    const failingcalls::Scope scope;
    failingcalls::fail(Call::eConnect, ENETUNREACH);
    EXPECT_EQ(text(HTTPFailure::eConnect, ENETUNREACH), afterOpen(mServer.url()));
}

TEST_F(HttpConnectionReason, ARequestThatCannotBeSentShowsAlthoughTheOpeningIsTrue) {
    mServer.always(Script().stall());
    const failingcalls::Scope scope;
    failingcalls::fail(Call::eSend, ECONNRESET);
    EXPECT_EQ(text(HTTPFailure::eSend, ECONNRESET), afterOpen(mServer.url(), true));
    failingcalls::fail(Call::eSend, EAGAIN);
    EXPECT_EQ(text(HTTPFailure::eSendTimeOut, EAGAIN), afterOpen(mServer.url(), true));
    failingcalls::fail(Call::eRecv, ECONNRESET);
    char byte = 0;
    EXPECT_GT(0, mConnection.Read(&byte, 1));
    EXPECT_EQ(text(HTTPFailure::eSendTimeOut, EAGAIN), text(HTTPConnection::lastFailure()));
    failingcalls::limitTransfers(10);
    EXPECT_EQ(text(HTTPFailure::eSendTimeOut, EAGAIN), afterOpen(mServer.url(), true));
}

TEST_F(HttpConnectionReason, AfterAFailedSendAReadMayReturnWhatTheServerSentBefore) {
    mServer.expect(Script().send("HTTP/1.0 400 Bad\r\n\r\n").stall());
    const SocketWatch watch;
    failingcalls::before(Call::eSend, [&] {
        char byte = 0;
        EXPECT_EQ(1, ::recv(watch.socket(), &byte, 1, MSG_PEEK));  // until the byte has arrived
    });
    failingcalls::fail(Call::eSend, ECONNRESET);
    EXPECT_EQ(text(HTTPFailure::eSend, ECONNRESET), afterOpen(mServer.url(), true));
    char piece[5] = "";
    EXPECT_EQ(4, mConnection.Read(piece, 4));
    EXPECT_STREQ("HTTP", piece);
}

TEST_F(HttpConnectionReason, AServerThatDoesNotAnswerInTime) {
    const SocketWatch watch(kShort);
    const DeadPort port(DeadPort::eSilent);
    EXPECT_EQ(text(HTTPFailure::eReceiveTimeOut, EAGAIN), afterOpen(port.url()));
    mServer.expect(Script().readRequest().send(okReply("")).stall());
    EXPECT_EQ(text(HTTPFailure::eNone), afterOpen(mServer.url(), true));
    char byte = 0;
    EXPECT_GT(0, mConnection.Read(&byte, 1));
    EXPECT_EQ(text(HTTPFailure::eReceiveTimeOut, EAGAIN), text(HTTPConnection::lastFailure()));
}

TEST_F(HttpConnectionReason, AConnectionThatBreaks) {
    mServer.expect(Script().readRequest().send("HTTP/1.0 200").reset());
    EXPECT_EQ(text(HTTPFailure::eBroken, ECONNRESET), afterOpen(mServer.url()));
    EXPECT_EQ(text(HTTPFailure::eNone), afterReply(okReply(""), true));
    const failingcalls::Scope scope;
    failingcalls::fail(Call::eRecv, ECONNRESET);
    char byte = 0;
    EXPECT_GT(0, mConnection.Read(&byte, 1));
    EXPECT_EQ(text(HTTPFailure::eBroken, ECONNRESET), text(HTTPConnection::lastFailure()));
}

TEST_F(HttpConnectionReason, AHeaderThatEndsEarly) {
    for (const char* reply : {"", "HTTP/1.0 200 OK\r\n", "HTTP/1.0 200 OK\r\nA: b\r\n"}) {
        EXPECT_EQ(text(HTTPFailure::eEnded), afterReply(reply)) << reply;
    }
}

TEST_F(HttpConnectionReason, AHeaderThatIsNone) {
    const std::string replies[] = {
        "\r\n\r\n",
        "<html></html>\r\n\r\n",
        "HTTP/1.0 200\r\n\r\n",
        "HTTP/1.0 200 O" + std::string(1, '\0') + "K\r\n\r\n",
        "HTTP/1.0 200 OK\r\nno field\r\n\r\n",
    };
    for (const std::string& reply : replies) {
        EXPECT_EQ(text(HTTPFailure::eHeader), afterReply(reply)) << reply;
    }
}

TEST_F(HttpConnectionReason, ALineThatIsTooLong) {
    const std::string line(1023, 'x');
    EXPECT_EQ(text(HTTPFailure::eLongHeader), afterReply(line + "\r\n\r\n"));
    EXPECT_EQ(text(HTTPFailure::eLongHeader), afterReply("HTTP/1.0 200 OK\r\n" + line + "\r\n"));
}

TEST_F(HttpConnectionReason, AStatusOtherThan200) {
    EXPECT_EQ(text(HTTPFailure::eStatus, 0, 404, "Not Found"),
              afterReply("HTTP/1.0 404 Not Found\r\n\r\n"));
    EXPECT_EQ(text(HTTPFailure::eStatus, 0, 302, ""), afterReply("HTTP/1.1 302 \r\n\r\n"));
    const std::string longest(HTTPFailure::kPhraseSize - 1, 'p');
    EXPECT_EQ(text(HTTPFailure::eStatus, 0, 500, longest),
              afterReply("HTTP/1.0 500 " + longest + "\r\n\r\n"));
    EXPECT_EQ(text(HTTPFailure::eStatus, 0, 500, longest),
              afterReply("HTTP/1.0 500 " + longest + "p\r\n\r\n"));
    EXPECT_EQ(text(HTTPFailure::eNone), afterReply(okReply(""), true));
}

TEST_F(HttpConnectionReason, EachThreadHasItsOwn) {
    EXPECT_EQ(text(HTTPFailure::eAddress), afterOpen("none"));
    std::thread([this] {
        EXPECT_EQ(text(HTTPFailure::eStatus, 0, 404, "Gone"),
                  afterReply("HTTP/1.0 404 Gone\r\n\r\n"));
    }).join();
    EXPECT_EQ(text(HTTPFailure::eAddress), text(HTTPConnection::lastFailure()));
}

/// The failures that a fetcher's callback sees with codes 0 and 1, in order.
struct SeenByFetcher {
    std::string mText;

    static bool callback(sysUrlFetcherCode code, char*, int, int, int, void* user) {
        if (code == eUrlFetchError || code == eUrlFetchOpenFailed) {
            static_cast<SeenByFetcher*>(user)->mText +=
                std::to_string(code) + ": " + text(HTTPConnection::lastFailure()) + "; ";
        }
        return true;
    }
};

TEST_F(HttpConnectionReason, IsSeenInTheCallbackOfAFetcher) {
    SeenByFetcher seen;
    sysUrlFetcher fetcher;
    fetcher.setCallback(SeenByFetcher::callback, &seen);
    mServer.expect(replyWith("HTTP/1.0 404 Not Found\r\n\r\n"));
    mServer.expect(Script().readRequest().send(okReply("body")).reset());
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(0, fetcher.setUrl(mServer.url().c_str()));
        fetcher.waitTillDone();
    }
    ASSERT_EQ(0, fetcher.setUrl(nullptr));
    fetcher.waitTillDone();
    EXPECT_EQ("1: " + text(HTTPFailure::eStatus, 0, 404, "Not Found") +
                  "; 0: " + text(HTTPFailure::eBroken, ECONNRESET) +
                  "; 0: " + text(HTTPFailure::eAddress) + "; ",
              seen.mText);
}

/// The failures that a chain's callback sees, by the entries' numbers.
struct SeenByChain {
    std::string mTexts[10];
    std::atomic<unsigned> mCount{0};

    static void callback(bool ok, unsigned id, const char*, char*, int, void* user) {
        auto* const seen = static_cast<SeenByChain*>(user);
        seen->mTexts[id] = (ok ? "ok " : "failed ") + text(HTTPConnection::lastFailure());
        ++seen->mCount;
    }
};

TEST_F(HttpConnectionReason, IsSeenInTheCallbackOfAChain) {
    mServer.answer([](const std::string& request) {
        const std::string full(20480, 'x');
        switch (request[sizeof("GET /") - 1]) {
            case '1':
                return Script().send("HTTP/1.0 404 Not Found\r\n\r\n");
            case '2':
                return Script().send(okReply("body", "Content-Length: 5\r\n"));
            case '3':
                return Script().send(okReply(full, "Content-Length: 20480\r\n"));
            case '4':
                return Script().send(okReply("bodies", "Content-Length: 4\r\n"));
            default:
                return Script().send(okReply("body", "Content-Length: 4\r\n"));
        }
    });
    SeenByChain seen;
    sysChainFetcher chain;
    chain.setCallback(SeenByChain::callback, &seen);
    for (unsigned id = 0; id < 5; ++id) {
        chain.pushUrl(id, mServer.url("/" + std::to_string(id)).c_str());
    }
    chain.pushUrl(5, nullptr);
    ASSERT_TRUE(tests::eventually([&] { return seen.mCount == 6; }));
    EXPECT_EQ("ok " + text(HTTPFailure::eNone), seen.mTexts[0]);
    EXPECT_EQ("failed " + text(HTTPFailure::eStatus, 0, 404, "Not Found"), seen.mTexts[1]);
    for (int id = 2; id < 5; ++id) {
        EXPECT_EQ("failed " + text(HTTPFailure::eLength), seen.mTexts[id]) << id;
    }
    EXPECT_EQ("failed " + text(HTTPFailure::eAddress), seen.mTexts[5]);
}

}  // namespace
