// SPDX-License-Identifier: MIT
#include "System/protocols/http/httpurl.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct Address {
    std::string mText;
    std::string mHost;
    int mPort;
    std::string mPath;
};

const std::string kLong(100000, 'x');

const Address kGood[] = {
    {"http://host/", "host", 80, "/"},
    {"HtTp://10.0.0.1:8080/a?b=c", "10.0.0.1", 8080, "/a?b=c"},
    {"HTTP://host/x", "host", 80, "/x"},
    {"http://host:80/x", "host", 80, "/x"},
    {"http://host:1/", "host", 1, "/"},
    {"http://host:65535/", "host", 65535, "/"},
    {"http://host:0/", "host", 0, "/"},
    // No digits are a zero, as in strtol().
    {"http://host:/x", "host", 0, "/x"},
    {"http://host:-0/", "host", 0, "/"},
    {"http://host:+81/", "host", 81, "/"},
    {"http://host: \t\n\v\f\r81/", "host", 81, "/"},
    {"http://host:00000000000000000000081/", "host", 81, "/"},
    // An empty host is valid, and there is then no request.
    {"http:///x", "", 80, "/x"},
    {"http://:81/x", "", 81, "/x"},
    {"http:////", "", 80, "//"},
    // Only the first ':' or '/' counts.
    {"http://host/a:b/c:8080/", "host", 80, "/a:b/c:8080/"},
    {"http://host:81/http://other:82/", "host", 81, "/http://other:82/"},
    // These parts have no meaning here.
    {"http://user@host/", "user@host", 80, "/"},
    {"http://ho st/a b\r\nX: y#f%20\x80\xff", "ho st", 80, "/a b\r\nX: y#f%20\x80\xff"},
    {"http://host?a/b#c", "host?a", 80, "/b#c"},
    {"http://" + kLong + ":81/" + kLong, kLong, 81, "/" + kLong},
};

// The scheme is right, and the rest is not.
const std::string kBad[] = {
    "http://",
    "http://host",
    "http://host:",
    "http://host:81",
    "http://host:8080",
    "http://host:80x/",
    "http://host:x/",
    "http://host:x80/",
    "http://host: /",
    "http://host:80 /",
    "http://host:80:80/",
    "http://host:8.0/",
    "http://host:0x50/",
    "http://host:+-81/",
    "http://host:- 81/",
    "http://host:65536/",
    "http://host:-1/",
    "http://host:-65536/",
    // Beyond 32 bits: none of these is port 80 or 1 on any machine.
    "http://host:2147483647/",
    "http://host:2147483648/",
    "http://host:4294967295/",
    "http://host:4294967296/",
    "http://host:4294967376/",
    "http://host:-4294967216/",
    "http://host:-2147483649/",
    "http://host:18446744073709551696/",
    "http://host:99999999999999999999999999999999/",
    "http://host:-99999999999999999999999999999999/",
    "http://" + kLong,
};

const std::string kOtherSchemes[] = {
    "",
    "h",
    "http",
    "http:/",
    "http:/x/host/",
    "ftp://host/",
    "https://h/",
    " http://h/",
    "http//h/",
    "httpx://h/",
    "host/",
    "/",
    "http:\\\\h/",
    "\xe8ttp://h/",
};

void expectFields(const httpURL& url, const std::string& host, int port, const std::string& path) {
    EXPECT_EQ(host, url.host());
    EXPECT_EQ(port, url.port());
    EXPECT_EQ(path, url.path());
}

/// Returns an address with every field set.
httpURL earlier() {
    httpURL url;
    EXPECT_TRUE(url.parse("http://earlier:99/path"));
    return url;
}

TEST(HttpUrl, BeginsEmpty) {
    const httpURL url;
    EXPECT_EQ("", url.host());
    EXPECT_EQ("", url.path());
    EXPECT_EQ("", url.createRequest());
}

TEST(HttpUrl, ResetEmptiesItAndSetsTheDefaultPort) {
    httpURL url = earlier();
    url.reset();
    expectFields(url, "", 80, "");
    EXPECT_EQ("", url.createRequest());
}

TEST(HttpUrl, TakesAnAddressApart) {
    for (const Address& address : kGood) {
        SCOPED_TRACE(address.mText.substr(0, 100));
        httpURL url = earlier();
        EXPECT_TRUE(url.parse(address.mText.c_str()));
        expectFields(url, address.mHost, address.mPort, address.mPath);
    }
}

TEST(HttpUrl, IsResetByWhatIsNoAddress) {
    for (const std::string& text : kBad) {
        SCOPED_TRACE(text.substr(0, 100));
        httpURL url = earlier();
        EXPECT_FALSE(url.parse(text.c_str()));
        expectFields(url, "", 80, "");
    }
}

TEST(HttpUrl, StaysAsItWasUnderAnotherScheme) {
    for (const std::string& text : kOtherSchemes) {
        SCOPED_TRACE(text);
        httpURL url = earlier();
        EXPECT_FALSE(url.parse(text.c_str()));
        expectFields(url, "earlier", 99, "/path");
    }
    httpURL url = earlier();
    EXPECT_FALSE(url.parse(nullptr));
    expectFields(url, "earlier", 99, "/path");
}

TEST(HttpUrl, EveryPortIsReadAsItIsWritten) {
    for (int port = 0; port <= 65535; ++port) {
        httpURL url;
        ASSERT_TRUE(url.parse(("http://h:" + std::to_string(port) + "/").c_str()));
        ASSERT_EQ(port, url.port());
    }
}

TEST(HttpUrl, TheRequestIsExactlyThis) {
    httpURL url;
    ASSERT_TRUE(url.parse("http://host/"));
    EXPECT_EQ(
        "GET / HTTP/1.0\r\n"
        "Host: host\r\n"
        "User-Agent: KestrovaMediaClient/1.0\r\n"
        "Connection: close\r\n"
        "\r\n",
        url.createRequest());
}

TEST(HttpUrl, TheRequestNamesAPortOtherThanTheDefault) {
    const struct {
        const char* mText;
        const char* mLines;
    } cases[] = {
        {"HtTp://10.0.0.1:8080/a?b=c", "GET /a?b=c HTTP/1.0\r\nHost: 10.0.0.1:8080\r\n"},
        {"http://host:80/x", "GET /x HTTP/1.0\r\nHost: host\r\n"},
        {"http://host:0/", "GET / HTTP/1.0\r\nHost: host:0\r\n"},
        {"http://host:065535/", "GET / HTTP/1.0\r\nHost: host:65535\r\n"},
        {"http://ho st/a b%20\r\nX: y", "GET /a b%20\r\nX: y HTTP/1.0\r\nHost: ho st\r\n"},
    };
    for (const auto& each : cases) {
        httpURL url;
        ASSERT_TRUE(url.parse(each.mText));
        EXPECT_EQ(std::string(each.mLines) +
                      "User-Agent: KestrovaMediaClient/1.0\r\nConnection: close\r\n\r\n",
                  url.createRequest());
    }
}

TEST(HttpUrlAliases, ParsesItsOwnPath) {
    httpURL url;
    ASSERT_TRUE(url.parse("http://a-host-with-a-long-name.example/http://another.host/path"));
    EXPECT_TRUE(url.parse(url.path().c_str() + 1));
    EXPECT_EQ(url.host(), "another.host");
    EXPECT_EQ(url.path(), "/path");
}

TEST(HttpUrl, ThereIsNoRequestWithoutAHost) {
    for (const char* text : {"http:///x", "http://:81/x"}) {
        httpURL url;
        ASSERT_TRUE(url.parse(text));
        EXPECT_EQ("", url.createRequest());
    }
    httpURL url = earlier();
    EXPECT_FALSE(url.parse("http://host"));
    EXPECT_EQ("", url.createRequest());
}

}  // namespace
