// SPDX-License-Identifier: MIT
//
// Replies over a socket pair.
#include "System/protocols/http/httpreplyheader.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include "base/io/descriptor.h"
#include "tests/support/capture.h"
#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"

using base::Descriptor;
using failingcalls::Call;
using tests::Capture;
using tests::OutputLevel;

namespace {

/// A peer that has sent some bytes and the end of the stream.
class Peer {
public:
    explicit Peer(const std::string& bytes) {
        int ends[2] = {-1, -1};
        EXPECT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
        mHere = Descriptor(ends[0]);
        const Descriptor there(ends[1]);
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
                  ::send(there.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL));
    }

    int descriptor() const { return mHere.get(); }

    /// Returns the bytes that have not been received yet.
    std::string rest() const {
        const failingcalls::Exempt exempt;
        std::string text;
        char buffer[4096];
        for (ssize_t count = 0; (count = ::recv(mHere.get(), buffer, sizeof(buffer), 0)) > 0;) {
            text.append(buffer, static_cast<std::size_t>(count));
        }
        return text;
    }

private:
    Descriptor mHere;
};

/// The result of a read, and the output meanwhile.
struct Outcome {
    bool mGood;
    std::string mPrinted;
};

using Reading = bool (HTTPReplyHeader::*)(int);

Outcome read(HTTPReplyHeader& header, Reading reading, int descriptor) {
    const OutputLevel level(2);
    const Capture capture;
    const bool good = (header.*reading)(descriptor);
    return {good, capture.output() + capture.errors()};
}

Outcome read(HTTPReplyHeader& header, Reading reading, const std::string& bytes) {
    return read(header, reading, Peer(bytes).descriptor());
}

std::string invalid(const char* number = "") {
    return std::string("Invalid http reply") + number + "\n";
}

/// Returns a header that has already been read.
HTTPReplyHeader earlier() {
    HTTPReplyHeader header;
    const Peer peer("HTTP/1.1 201 Earlier\r\nName: value\r\n\r\n");
    EXPECT_TRUE(header.readHeader(peer.descriptor()));
    return header;
}

const std::string kNul(1, '\0');

}  // namespace

TEST(HttpReplyHeaderLine, EndsAtCarriageReturnAndLineFeed) {
    const struct {
        std::string mBytes;
        std::string mLine;
    } cases[] = {
        {"line\r\nrest", "line"},
        {"\r\nrest", ""},
        {"\nline\r\nrest", "\nline"},
        {"li\nne\n\r\nrest", "li\nne\n"},
        {"li\rne\r\r\nrest", "li\rne\r"},
        {"\n\r\r\nrest", "\n\r"},
        {"\t \x01\x7f\x80\xff\r\nrest", "\t \x01\x7f\x80\xff"},
        {std::string(1022, 'x') + "\r\nrest", std::string(1022, 'x')},
        {std::string(1021, 'x') + "\r\r\nrest", std::string(1021, 'x') + "\r"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.mBytes.size());
        const Peer peer(each.mBytes);
        HTTPReplyHeader header;
        char buffer[HTTPReplyHeader::kLineSize];
        ASSERT_TRUE(header.readHeaderLine(peer.descriptor(), buffer));
        EXPECT_EQ(each.mLine, buffer);
        EXPECT_EQ("rest", peer.rest());
    }
}

TEST(HttpReplyHeaderLine, FailsWithoutAnEnd) {
    const struct {
        std::string mBytes;
        std::string mRest;
    } cases[] = {
        {"", ""},
        {"\n", ""},
        {"\r", ""},
        {"line", ""},
        {"line\r", ""},
        {"line\n", ""},
        {"line\n\r", ""},
        {kNul + "\r\nrest", "\r\nrest"},
        {"line" + kNul + "\r\nrest", "\r\nrest"},
        {"line\r" + kNul + "\nrest", "\nrest"},
        {std::string(1023, 'x') + "\r\nrest", "\nrest"},
        {std::string(1024, 'x') + "\r\nrest", "\r\nrest"},
        {std::string(1024, '\n'), ""},
        {std::string(2000, 'x'), std::string(976, 'x')},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.mBytes.size());
        const Peer peer(each.mBytes);
        HTTPReplyHeader header;
        // A separate allocation, so that the address sanitizer detects an overflow.
        const auto buffer = std::make_unique<char[]>(HTTPReplyHeader::kLineSize);
        EXPECT_FALSE(header.readHeaderLine(peer.descriptor(), buffer.get()));
        EXPECT_EQ(each.mRest, peer.rest());
    }
}

TEST(HttpReplyHeaderLine, PrintsNothing) {
    const OutputLevel level(2);
    const Capture capture;
    char buffer[HTTPReplyHeader::kLineSize];
    HTTPReplyHeader header;
    EXPECT_FALSE(header.readHeaderLine(-1, buffer));
    EXPECT_FALSE(header.readHeaderLine(Peer("x").descriptor(), buffer));
    EXPECT_EQ("", capture.output() + capture.errors());
}

TEST(HttpReplyHeaderLine, AnInterruptionEndsItAsAnyOtherFailure) {
    for (const int error : {EINTR, EAGAIN, ECONNRESET}) {
        const failingcalls::Scope scope;
        const Peer peer("line\r\nrest");
        failingcalls::fail(Call::eRecv, error, 3);
        HTTPReplyHeader header;
        char buffer[HTTPReplyHeader::kLineSize];
        EXPECT_FALSE(header.readHeaderLine(peer.descriptor(), buffer));
        EXPECT_EQ("ne\r\nrest", peer.rest());
    }
}

TEST(HttpReplyHeaderStatus, TellsVersionCodeAndReason) {
    const struct {
        const char* mLine;
        int mVersion;
        int mCode;
        const char* mReason;
    } cases[] = {
        {"HTTP/1.0 404 Not Found", 1, 404, "Not Found"},
        {"HTTP/1.1 200 OK", 2, 200, "OK"},
        {"HTTP/1.1 200 ", 2, 200, ""},
        {"HTTP/1.1 200  OK ", 2, 200, " OK "},
        {"HTTP/1.0 \t \n+0200 x", 1, 200, "x"},
        {"HTTP/1.0 7 HTTP/1.1 8 ", 1, 7, "HTTP/1.1 8 "},
        {"HTTP/1.0 -1 x", 1, -1, "x"},
        {"HTTP/1.0 0 x", 1, 0, "x"},
        // Beyond 32 bits: the same on every machine, and none of them is 200.
        {"HTTP/1.0 2147483647 x", 1, INT32_MAX, "x"},
        {"HTTP/1.0 2147483648 x", 1, INT32_MAX, "x"},
        {"HTTP/1.0 4294967496 x", 1, INT32_MAX, "x"},
        {"HTTP/1.0 18446744073709551816 x", 1, INT32_MAX, "x"},
        {"HTTP/1.0 -2147483648 x", 1, INT32_MIN, "x"},
        {"HTTP/1.0 -4294967096 x", 1, INT32_MIN, "x"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.mLine);
        HTTPReplyHeader header = earlier();
        const Outcome outcome =
            read(header, &HTTPReplyHeader::readRequestLine, std::string(each.mLine) + "\r\nX");
        EXPECT_TRUE(outcome.mGood);
        EXPECT_EQ("", outcome.mPrinted);
        EXPECT_EQ(each.mVersion, header.version());
        EXPECT_EQ(each.mCode, header.code());
        EXPECT_EQ(each.mReason, header.reason());
        EXPECT_EQ("", header.getValue("Name"));
    }
}

TEST(HttpReplyHeaderStatus, RefusesAnythingElseAndTellsWhy) {
    constexpr int kStays = 201;
    const struct {
        std::string mBytes;
        std::string mPrinted;
        int mVersion;
        int mCode;
    } cases[] = {
        {"", invalid(), 2, kStays},
        {"HTTP/1.0 200 OK", invalid(), 2, kStays},
        {"HTTP/1.0 200 OK\n", invalid(), 2, kStays},
        {"HTTP/1.0 200 O" + kNul + "\r\n", invalid(), 2, kStays},
        {"HTTP/1.0 200 " + std::string(1010, 'x') + "\r\n", invalid(), 2, kStays},
        {"\r\n", invalid(" (2)"), 2, kStays},
        {"HTTP/1.0\r\n", invalid(" (2)"), 2, kStays},
        {"HTTP/1.2 200 OK\r\n", invalid(" (3)"), 0, kStays},
        {"HTTP/2.0 200 OK\r\n", invalid(" (3)"), 0, kStays},
        {"HTTP/1.0_200 OK\r\n", invalid(" (3)"), 0, kStays},
        {"http/1.1 200 OK\r\n", invalid(" (3)"), 0, kStays},
        {" HTTP/1.1 200 OK\r\n", invalid(" (3)"), 0, kStays},
        {"\nHTTP/1.1 200 OK\r\n", invalid(" (3)"), 0, kStays},
        {"HTTP/1.0 \r\n", invalid(" (4)"), 1, 0},
        {"HTTP/1.1 abc x\r\n", invalid(" (4)"), 2, 0},
        {"HTTP/1.1   \r\n", invalid(" (4)"), 2, 0},
        {"HTTP/1.1 - x\r\n", invalid(" (4)"), 2, 0},
        {"HTTP/1.1 200\r\n", invalid(" (4)"), 2, 200},
        {"HTTP/1.0 200\tOK\r\n", invalid(" (4)"), 1, 200},
        {"HTTP/1.0 200.5 OK\r\n", invalid(" (4)"), 1, 200},
        {"HTTP/1.0 0x1 OK\r\n", invalid(" (4)"), 1, 0},
        {"HTTP/1.0 4294967496\r\n", invalid(" (4)"), 1, INT32_MAX},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.mBytes);
        HTTPReplyHeader header = earlier();
        const Outcome outcome = read(header, &HTTPReplyHeader::readRequestLine, each.mBytes);
        EXPECT_FALSE(outcome.mGood);
        EXPECT_EQ(each.mPrinted, outcome.mPrinted);
        EXPECT_EQ(each.mVersion, header.version());
        EXPECT_EQ(each.mCode, header.code());
        EXPECT_EQ("Earlier", header.reason());
        // The fields are cleared first.
        EXPECT_EQ("", header.getValue("Name"));
    }
}

TEST(HttpReplyHeaderStatus, TheLongestLineIsRead) {
    HTTPReplyHeader header;
    const std::string reason(1009, 'x');
    EXPECT_TRUE(
        read(header, &HTTPReplyHeader::readRequestLine, "HTTP/1.0 200 " + reason + "\r\n").mGood);
    EXPECT_EQ(reason, header.reason());
}

TEST(HttpReplyHeaderFields, AreKeptAsTheyCome) {
    const struct {
        std::string mLine;
        std::string mName;
        std::string mValue;
    } cases[] = {
        {"Content-Length:    1234", "Content-Length", "1234"},
        {"Name:value", "Name", "value"},
        {"Name:", "Name", ""},
        {"Name:    ", "Name", ""},
        {"Name: \tvalue \t ", "Name", "\tvalue \t "},
        {"Name: a:b: c", "Name", "a:b: c"},
        {" Na me :x", " Na me ", "x"},
        {"\tName: x", "\tName", "x"},
        {"\nName: x\ny", "\nName", "x\ny"},
        {"N\xff: \x80", "N\xff", "\x80"},
        {": value", "", "value"},
        {":", "", ""},
        {std::string(1000, 'n') + ":" + std::string(21, 'v'), std::string(1000, 'n'),
         std::string(21, 'v')},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.mLine);
        HTTPReplyHeader header;
        const Peer peer(each.mLine + "\r\n\r\n\r\nbody");
        const Outcome outcome = read(header, &HTTPReplyHeader::readEntityLines, peer.descriptor());
        EXPECT_TRUE(outcome.mGood);
        EXPECT_EQ("", outcome.mPrinted);
        EXPECT_EQ(each.mValue, header.getValue(each.mName));
        EXPECT_EQ("\r\nbody", peer.rest());
    }
}

TEST(HttpReplyHeaderFields, TheLastOfANameStays) {
    HTTPReplyHeader header;
    EXPECT_TRUE(read(header, &HTTPReplyHeader::readEntityLines,
                     std::string("N: a\r\nn: c\r\nN: b\r\nM: x\r\nM:\r\n\r\n"))
                    .mGood);
    EXPECT_EQ("b", header.getValue("N"));
    EXPECT_EQ("c", header.getValue("n"));
    EXPECT_EQ("", header.getValue("M"));
}

TEST(HttpReplyHeaderFields, ManyAreKept) {
    std::string lines;
    for (int number = 0; number < 5000; ++number) {
        lines += "N" + std::to_string(number) + ": " + std::to_string(number) + "\r\n";
    }
    HTTPReplyHeader header;
    EXPECT_TRUE(read(header, &HTTPReplyHeader::readEntityLines, lines + "\r\n").mGood);
    for (int number = 0; number < 5000; ++number) {
        EXPECT_EQ(std::to_string(number), header.getValue("N" + std::to_string(number)));
    }
}

TEST(HttpReplyHeaderFields, ALineWithoutAColonIsAllThatIsSaid) {
    for (const char* line : {"nothing", " continued", "\t", "a;b"}) {
        HTTPReplyHeader header;
        const Peer peer("A: b\r\n" + std::string(line) + "\r\nC: d\r\n\r\n");
        const Outcome outcome = read(header, &HTTPReplyHeader::readEntityLines, peer.descriptor());
        EXPECT_FALSE(outcome.mGood);
        EXPECT_EQ("Hmm\n", outcome.mPrinted);
        EXPECT_EQ("b", header.getValue("A"));
        EXPECT_EQ("C: d\r\n\r\n", peer.rest());
    }
}

TEST(HttpReplyHeaderFields, ABadLineEndsThem) {
    const std::string lines[] = {
        "",
        "B: c",
        "B: c\r",
        "B: c\n",
        "B: c\r\n",
        "B: c\r\n\r",
        "B: c\r\n\n",
        "B:" + kNul + " c\r\n\r\n",
        "B: c\r\n" + kNul + "\r\n",
        "B: c\r\n\r" + kNul,
        "B: " + std::string(1020, 'x') + "\r\n\r\n",
    };
    for (const std::string& line : lines) {
        SCOPED_TRACE(line);
        HTTPReplyHeader header;
        const Outcome outcome = read(header, &HTTPReplyHeader::readEntityLines, "A: b\r\n" + line);
        EXPECT_FALSE(outcome.mGood);
        EXPECT_EQ(invalid(" (5)"), outcome.mPrinted);
        EXPECT_EQ("b", header.getValue("A"));
    }
}

TEST(HttpReplyHeader, BeginsEmpty) {
    HTTPReplyHeader header;
    EXPECT_EQ(0, header.version());
    EXPECT_EQ(0, header.code());
    EXPECT_EQ("", header.reason());
    EXPECT_EQ(0, header.contentSize());
    EXPECT_EQ("", header.getValue("Name"));
}

TEST(HttpReplyHeader, LeavesTheBodyUntouched) {
    const failingcalls::Scope scope;
    const std::string text = "HTTP/1.1 200 OK\r\nA: b\r\n\r\n";
    const Peer peer(text + kNul + "body");
    HTTPReplyHeader header;
    const Outcome outcome = read(header, &HTTPReplyHeader::readHeader, peer.descriptor());
    EXPECT_TRUE(outcome.mGood);
    EXPECT_EQ("", outcome.mPrinted);
    EXPECT_EQ(static_cast<int>(text.size()), failingcalls::count(Call::eRecv));
    EXPECT_EQ(kNul + "body", peer.rest());
}

TEST(HttpReplyHeader, StopsAtABadStatusLine) {
    HTTPReplyHeader header;
    const Peer peer("HTTP/1.1 200\r\nA: b\r\n\r\n");
    const Outcome outcome = read(header, &HTTPReplyHeader::readHeader, peer.descriptor());
    EXPECT_FALSE(outcome.mGood);
    EXPECT_EQ(invalid(" (4)"), outcome.mPrinted);
    EXPECT_EQ("A: b\r\n\r\n", peer.rest());
}

TEST(HttpReplyHeader, EveryCutHasItsOutcome) {
    const std::string status = "HTTP/1.1 200 OK\r\n";
    const std::string first = "A: b\r\n";
    const std::string second = "Content-Length: 12\r\n";
    const std::string text = status + first + second + "\r\n";
    for (std::size_t length = 0; length <= text.size(); ++length) {
        // The end of the stream, a time-out, an interruption and a reset have the same result.
        for (const int error : {0, EAGAIN, EINTR, ECONNRESET}) {
            SCOPED_TRACE(text.substr(0, length) + "|" + std::to_string(error));
            const failingcalls::Scope scope;
            const Peer peer(error == 0 ? text.substr(0, length) : text);
            if (error != 0) {
                failingcalls::fail(Call::eRecv, error, static_cast<int>(length) + 1);
            }
            HTTPReplyHeader header = HTTPReplyHeader();
            const Outcome outcome = read(header, &HTTPReplyHeader::readHeader, peer.descriptor());
            const bool hasStatus = length >= status.size();
            EXPECT_EQ(length == text.size(), outcome.mGood);
            EXPECT_EQ(length == text.size() ? "" : invalid(hasStatus ? " (5)" : ""),
                      outcome.mPrinted);
            EXPECT_EQ(hasStatus ? 200 : 0, header.code());
            EXPECT_EQ(hasStatus ? 2 : 0, header.version());
            EXPECT_EQ(hasStatus ? "OK" : "", header.reason());
            EXPECT_EQ(length >= (status + first + second).size() ? 12 : 0, header.contentSize());
            EXPECT_EQ(length >= (status + first).size() ? "b" : "", header.getValue("A"));
        }
    }
}

TEST(HttpReplyHeader, ANulAnywhereFailsIt) {
    const std::string text = "HTTP/1.1 200 OK\r\nA: b\r\n\r\n";
    for (std::size_t place = 0; place < text.size(); ++place) {
        std::string broken = text;
        broken[place] = '\0';
        HTTPReplyHeader header;
        const Outcome outcome = read(header, &HTTPReplyHeader::readHeader, broken);
        EXPECT_FALSE(outcome.mGood) << place;
        EXPECT_EQ(invalid(place < 17 ? "" : " (5)"), outcome.mPrinted) << place;
    }
}

TEST(HttpReplyHeader, ReadingAnewReplacesEverything) {
    HTTPReplyHeader header = earlier();
    EXPECT_TRUE(read(header, &HTTPReplyHeader::readHeader,
                     std::string("HTTP/1.0 404 Gone\r\nOther: x\r\n\r\n"))
                    .mGood);
    EXPECT_EQ(1, header.version());
    EXPECT_EQ(404, header.code());
    EXPECT_EQ("Gone", header.reason());
    EXPECT_EQ("x", header.getValue("Other"));
    EXPECT_EQ("", header.getValue("Name"));
}

TEST(HttpReplyHeader, LogsAtLevelTwoOnlyButAlwaysSaysHmm) {
    const struct {
        const char* mBytes;
        const char* mPrinted;
    } cases[] = {
        {"", ""},
        {"\r\n", ""},
        {"http/1.1 200 OK\r\n", ""},
        {"HTTP/1.1 200\r\n", ""},
        {"HTTP/1.1 200 OK\r\n", ""},
        {"HTTP/1.1 200 OK\r\nnothing\r\n", "Hmm\n"},
    };
    for (const std::uint32_t verbosity : {0U, 1U}) {
        const OutputLevel level(verbosity);
        for (const auto& each : cases) {
            const Peer peer(each.mBytes);
            const Capture capture;
            HTTPReplyHeader header;
            EXPECT_FALSE(header.readHeader(peer.descriptor()));
            EXPECT_EQ(each.mPrinted, capture.output());
            EXPECT_EQ("", capture.errors());
        }
    }
}

TEST(HttpReplyHeader, PrintDoesNothing) {
    const OutputLevel level(0xffffffffU);
    const Capture capture;
    HTTPReplyHeader header = earlier();
    header.print();
    EXPECT_EQ("", capture.output() + capture.errors());
    EXPECT_EQ("value", header.getValue("Name"));
}

TEST(HttpReplyHeaderSize, IsTheNumberInTheFirstFieldOfThatName) {
    const struct {
        const char* mLines;
        int mSize;
    } cases[] = {
        {"", 0},
        {"Content-Length: 5000\r\n", 5000},
        {"content-length: 7\r\n", 7},
        {"cOnTeNt-LeNgTh: 7\r\n", 7},
        {"Content-Length : 7\r\n", 0},
        {" Content-Length: 7\r\n", 0},
        {"Content-Length:\r\n", 0},
        {"Content-Length: many\r\n", 0},
        {"Content-Length: 12 bytes\r\n", 12},
        {"Content-Length: \t+12\r\n", 12},
        {"Content-Length: -12\r\n", -12},
        {"Content-Length: 0x10\r\n", 0},
        {"Content-Length: 1\r\nContent-Length: 2\r\n", 2},
        // Capitals sort first, wherever they are in the reply.
        {"content-length: 1\r\nContent-Length: 2\r\n", 2},
        {"content-length: 1\r\nCONTENT-LENGTH: 3\r\nContent-Length: 2\r\n", 3},
        {"CONTENT-LENGTH:\r\nContent-Length: 2\r\n", 0},
        // Beyond 32 bits: the same on every machine.
        {"Content-Length: 2147483647\r\n", INT32_MAX},
        {"Content-Length: 2147483648\r\n", INT32_MAX},
        {"Content-Length: 5000000000\r\n", INT32_MAX},
        {"Content-Length: 4294967297\r\n", INT32_MAX},
        {"Content-Length: 18446744073709551617\r\n", INT32_MAX},
        {"Content-Length: -2147483649\r\n", INT32_MIN},
        {"Content-Length: -99999999999999999999\r\n", INT32_MIN},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.mLines);
        HTTPReplyHeader header;
        ASSERT_TRUE(
            read(header, &HTTPReplyHeader::readEntityLines, std::string(each.mLines) + "\r\n")
                .mGood);
        EXPECT_EQ(each.mSize, header.contentSize());
    }
}

TEST(HttpReplyHeaderSize, ALookUpThatMissesChangesIt) {
    HTTPReplyHeader header;
    ASSERT_TRUE(
        read(header, &HTTPReplyHeader::readEntityLines, std::string("content-length: 7\r\n\r\n"))
            .mGood);
    EXPECT_EQ(7, header.contentSize());
    EXPECT_EQ("", header.getValue("Content-length2"));
    EXPECT_EQ(7, header.contentSize());
    EXPECT_EQ("", header.getValue("Content-Length"));
    EXPECT_EQ(0, header.contentSize());
    EXPECT_EQ("7", header.getValue("content-length"));
}

TEST(HttpReplyHeaderSize, ALookUpThatMissesBehindItDoesNot) {
    HTTPReplyHeader header;
    ASSERT_TRUE(
        read(header, &HTTPReplyHeader::readEntityLines, std::string("Content-Length: 7\r\n\r\n"))
            .mGood);
    EXPECT_EQ("", header.getValue("content-length"));
    EXPECT_EQ(7, header.contentSize());
}
