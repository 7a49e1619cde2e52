// SPDX-License-Identifier: MIT
#include "base/text/ipv4.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

std::string textOf(std::uint32_t address) {
    char buffer[kIpV4TextSize];
    std::memset(buffer, '#', sizeof(buffer));
    EXPECT_EQ(buffer, ipV4toString(buffer, address));
    return buffer;
}

TEST(Ipv4Test, FirstOctetIsTheHighestByte) {
    EXPECT_EQ(0x01020304U, buildIpV4("1.2.3.4"));
    EXPECT_EQ(0xc0a80001U, buildIpV4("192.168.0.1"));
    EXPECT_EQ(0xffffffffU, buildIpV4("255.255.255.255"));
    EXPECT_EQ(0x7f000001U, buildIpV4("127.0.0.1"));
    EXPECT_EQ(0x00000001U, buildIpV4("0.0.0.1"));
    EXPECT_EQ(0U, buildIpV4("0.0.0.0"));
}

TEST(Ipv4Test, AnythingButFourDecimalOctetsGivesZero) {
    for (const char* const text : {"",
                                   " ",
                                   ".",
                                   "1",
                                   "1.2",
                                   "1.2.3",
                                   "1.2.3.",
                                   "1.2.3.4.",
                                   "1.2.3.4.5",
                                   ".1.2.3.4",
                                   "1..2.3",
                                   "256.1.1.1",
                                   "1.2.3.256",
                                   "1.2.3.999",
                                   "1.2.3.4294967297",
                                   "1.2.3.-4",
                                   "+1.2.3.4",
                                   " 1.2.3.4",
                                   "1.2.3.4 ",
                                   "1.2.3.4\n",
                                   "1. 2.3.4",
                                   "01.2.3.4",
                                   "1.2.3.04",
                                   "00.0.0.1",
                                   "0x1.2.3.4",
                                   "1.2.3.a",
                                   "a.b.c.d",
                                   "1,2,3,4",
                                   "1.2.3.4/24",
                                   "1.2.3.4:80",
                                   "::1",
                                   "::ffff:1.2.3.4",
                                   "localhost",
                                   "16909060",
                                   "1.131844"}) {
        EXPECT_EQ(0U, buildIpV4(text)) << "'" << text << "'";
    }
    EXPECT_EQ(0U, buildIpV4(nullptr));
}

TEST(Ipv4Test, TextIsTheDottedForm) {
    EXPECT_EQ("0.0.0.0", textOf(0));
    EXPECT_EQ("1.2.3.4", textOf(0x01020304U));
    EXPECT_EQ("255.255.255.255", textOf(0xffffffffU));
    EXPECT_EQ("10.0.200.1", textOf(0x0a00c801U));
}

TEST(Ipv4Test, TextAndAddressAreInverse) {
    for (std::uint32_t address = 1, i = 0; i < 20000; ++i, address = address * 1664525U + 12345U) {
        ASSERT_EQ(address, buildIpV4(textOf(address).c_str())) << address;
    }
}

}  // namespace
