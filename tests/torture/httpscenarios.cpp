// SPDX-License-Identifier: MIT
//
// The HTTP client: address, reply header, connection.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "System/protocols/http/httpconnection.h"
#include "tests/support/failingcalls.h"
#include "tests/support/scriptedserver.h"
#include "tests/torture/scenario.h"

namespace torture {

namespace {

constexpr char kBody[] = "0123456789abcdef";
constexpr char kReply[] = "HTTP/1.0 200 OK\r\nContent-Length: 16\r\n\r\n0123456789abcdef";

/// An address and its request, without a connection.
class AddressCase : public Case {
public:
    void act() override {
        mParsed = mUrl.parse("http://a-host-with-a-name-of-some-length.example:8080/a/path?query");
        mRequest = mUrl.createRequest();
        mUrl.reset();
    }
    void check(Verdict& verdict) override {
        verdict.expect(!verdict.mustSucceed() || (mParsed && mRequest.size() > 100),
                       "the operation failed without a reason");
        verdict.expect(mRequest.empty() || mRequest.substr(mRequest.size() - 4) == "\r\n\r\n",
                       "half a request");
        verdict.expect(mUrl.parse("http://next/") && !mUrl.createRequest().empty(),
                       "the next address fails");
    }

private:
    httpURL mUrl;
    bool mParsed = false;
    std::string mRequest;
};

/// A reply header from a socket, without a connection.
class HeaderCase : public Case {
public:
    explicit HeaderCase(const char* text, bool good) : mText(text), mGood(good) {}

    void prepare(World& /*world*/) override {
        (void)::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, mEnds);
        (void)::send(mEnds[1], mText.data(), mText.size(), 0);
        (void)::shutdown(mEnds[1], SHUT_WR);
    }
    void act() override {
        mRead = mHeader.readHeader(mEnds[0]);
        mLength = mHeader.contentSize();
        mType = mHeader.getValue("Content-Type");
        mHeader.print();
    }
    void check(Verdict& verdict) override {
        // An interrupted receive ends the reading on purpose, so that the time limit holds.
        const bool sure = verdict.mustSucceed();
        verdict.expect(!sure || mRead == mGood, "a wrong result");
        verdict.expect(!sure || !mGood || (mLength == 4 && mType == "text/plain"), "wrong fields");
        if (verdict.returned() && !mRead) {
            verdict.expectSaid({"Invalid http reply", "Hmm"});
        }
        (void)::close(mEnds[0]);
        (void)::close(mEnds[1]);
        prepare(verdict.mWorld);
        HTTPReplyHeader next;
        verdict.expect(next.readHeader(mEnds[0]) == mGood, "the next header fails");
        (void)::close(mEnds[0]);
        (void)::close(mEnds[1]);
    }

private:
    std::string mText;
    bool mGood;
    int mEnds[2] = {-1, -1};
    HTTPReplyHeader mHeader;
    bool mRead = false;
    int mLength = 0;
    std::string mType;
};

/// The steps of Open(), one by one, after connectToServer().
class StepsCase : public Case {
public:
    void prepare(World& /*world*/) override {
        mpServer = std::make_unique<tests::ScriptedServer>();
        mpServer->always(tests::Script().send(kReply));
        (void)mUrl.parse(mpServer->url().c_str());
    }
    void act() override {
        HTTPReplyHeader header;
        char line[HTTPReplyHeader::kLineSize];
        mConnected = mConnection.connectToServer(mUrl);
        if (!mConnected) {
            return;
        }
        const int socket = socketOf();
        mRead = header.readRequestLine(socket) && header.readHeaderLine(socket, line) &&
                header.readEntityLines(socket);
        mConnection.Close();
    }
    void settle() override { mConnection.Close(); }
    void check(Verdict& verdict) override {
        verdict.expect(!verdict.mustSucceed() || (mConnected && mRead),
                       "the operation failed without a reason");
        if (verdict.returned() && !mConnected) {
            verdict.expectSaid({"Error looking up hostname", "Socket Error", "Connect error"});
        }
        verdict.expect(mConnection.connectToServer(mUrl), "the next connection fails");
        mConnection.Close();
    }

private:
    /// Finds the connection's socket, which the class does not reveal: its peer is the server.
    int socketOf() const {
        const failingcalls::Exempt exempt;
        for (int number = 3; number < 64; ++number) {
            sockaddr_in peer = {};
            socklen_t size = sizeof(peer);
            if (::getpeername(number, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
                ntohs(peer.sin_port) == mpServer->port()) {
                return number;
            }
        }
        return -1;
    }

    std::unique_ptr<tests::ScriptedServer> mpServer;
    httpURL mUrl;
    HTTPConnection mConnection;
    bool mConnected = false;
    bool mRead = false;
};

enum class Peer { eWhole, eName, eMissing, eNotFound, eBadHeader, eRefusing, eUnknownName };

class ConnectionCase : public Case {
public:
    explicit ConnectionCase(Peer peer) : mPeer(peer) {}

    void prepare(World& /*world*/) override {
        mpServer = std::make_unique<tests::ScriptedServer>();
        const char* const reply = mPeer == Peer::eNotFound ? "HTTP/1.0 404 Not Found\r\n\r\n"
                                  : mPeer == Peer::eBadHeader
                                      ? "HTTP/1.0 200 OK\r\nno colon\r\n\r\n"
                                      : kReply;
        mpServer->always(tests::replyWith(reply));
        mpDead = std::make_unique<tests::DeadPort>(tests::DeadPort::eRefusing);
        mUrl = mpServer->url();
        const std::string port = ":" + std::to_string(mpServer->port()) + "/";
        if (mPeer == Peer::eName) {
            mUrl = "http://peer.example" + port;
        } else if (mPeer == Peer::eUnknownName) {
            mUrl = "http://nobody.invalid" + port;
        } else if (mPeer == Peer::eRefusing) {
            mUrl = mpDead->url();
        } else if (mPeer == Peer::eMissing) {
            mUrl = "http://no-path";
        }
    }

    void act() override {
        HTTPReplyHeader header;
        mOpened = mConnection.Open(mUrl.c_str(), header);
        if (mOpened) {
            char buffer[64];
            for (;;) {
                const int count = mConnection.Read(buffer, sizeof(buffer));
                if (count <= 0) {
                    mEnd = count;
                    break;
                }
                mBody.append(buffer, static_cast<std::size_t>(count));
            }
        }
        mReason = HTTPConnection::lastFailure().mReason;
        mConnection.Close();
    }

    void settle() override {
        // A thread that is cancelled inside leaves the socket for the connection's owner to close.
        mConnection.Close();
    }

    void check(Verdict& verdict) override {
        const bool good = mPeer == Peer::eWhole || mPeer == Peer::eName;
        if (verdict.mustSucceed()) {
            verdict.expect(mOpened == good, "a wrong result");
            verdict.expect(!good || (mBody == kBody && mEnd == 0), "a wrong body");
        }
        verdict.expect(std::string(kBody).rfind(mBody, 0) == 0, "bytes that were never sent");
        if (verdict.returned() && (!mOpened || mEnd < 0)) {
            verdict.expect(mReason != HTTPFailure::eNone, "a failure without a reason");
        }
        if (verdict.returned() && !mOpened) {
            verdict.expectSaid({"u.parse failed", "Error looking up hostname",
                                "Unknown addrtype from gethostbyname", "Socket Error",
                                "Connect error", "hdr.readHeader failed", "hdr.code() "});
        }
        verdict.expect(mOpened || mBody.empty(), "a body without a reply");
        verdict.expect(mpServer->awaitIdle(), "a connection is left");
        tests::ScriptedServer next;
        next.expect(tests::replyWith(kReply));
        char buffer[64];
        verdict.expect(
            mConnection.Open(next.url().c_str()) && mConnection.Read(buffer, sizeof(buffer)) > 0,
            "the next connection fails");
        mConnection.Close();
    }

private:
    Peer mPeer;
    std::unique_ptr<tests::ScriptedServer> mpServer;
    std::unique_ptr<tests::DeadPort> mpDead;
    std::string mUrl;
    HTTPConnection mConnection;
    bool mOpened = false;
    int mEnd = 0;
    HTTPFailure::Reason mReason = HTTPFailure::eNone;
    std::string mBody;
};

}  // namespace

void addHttpScenarios(Scenarios& scenarios) {
    scenarios.push_back(scenario<AddressCase>("http-address"));
    scenarios.push_back(scenario<StepsCase>("http-steps"));
    scenarios.push_back(scenario<HeaderCase>(
        "http-header",
        "HTTP/1.1 200 OK\r\nContent-Length: 4\r\nContent-Type: text/plain\r\n\r\nbody", true));
    scenarios.push_back(scenario<HeaderCase>(
        "http-header.many-fields",
        "HTTP/1.1 200 OK\r\nDate: Sun, 22 Nov 2026 10:00:00 GMT\r\nServer: a-server/1.0 (a "
        "system)\r\n"
        "Last-Modified: Sat, 21 Nov 2026 10:00:00 GMT\r\nETag: \"0123456789abcdef-0123456789\"\r\n"
        "Accept-Ranges: bytes\r\nCache-Control: max-age=3600, must-revalidate, public\r\n"
        "Expires: Sun, 22 Nov 2026 11:00:00 GMT\r\nVary: Accept-Encoding, User-Agent\r\n"
        "Content-Length: 4\r\nContent-Type: text/plain\r\nConnection: close\r\n\r\nbody",
        true));
    scenarios.push_back(
        scenario<HeaderCase>("http-header.no-colon", "HTTP/1.1 200 OK\r\nnone\r\n\r\n", false));
    scenarios.push_back(scenario<HeaderCase>("http-header.short", "HTTP/1.1\r\n\r\n", false));
    const struct {
        const char* mName;
        Peer mPeer;
    } peers[] = {{"http-connection", Peer::eWhole},
                 {"http-connection.by-name", Peer::eName},
                 {"http-connection.no-path", Peer::eMissing},
                 {"http-connection.not-found", Peer::eNotFound},
                 {"http-connection.bad-header", Peer::eBadHeader},
                 {"http-connection.refused", Peer::eRefusing},
                 {"http-connection.unknown-name", Peer::eUnknownName}};
    for (const auto& each : peers) {
        scenarios.push_back(scenario<ConnectionCase>(each.mName, each.mPeer));
    }
}

}  // namespace torture
