// SPDX-License-Identifier: MIT
//
// The address of the remote log, a boot variable of the maintenance utilities.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "System/BlockdevCfg.fmp.h"
#include "System/sysSuperUserUtils.h"
#include "System/system.h"
#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/bootvarsmanager/bootbox.h"

namespace {

using failingcalls::Call;
using tests::BootBox;
using tests::imageOf;
using tests::inSandbox;
using tests::kPrimaryFile;
using tests::listed;
using tests::readFile;
using tests::Sandbox;
using tests::Variables;
using tests::writeFile;

constexpr unsigned kAddress = 0xc0a80102U;  // exceeds the range of int
constexpr char kText[] = "192.168.1.2";

/// The system, without log output, with a mounted software partition.
class Maintenance {
public:
    explicit Maintenance(Sandbox& sandbox) : mBox(sandbox) {
        BlockdeviceConfig::DestroyInstance();  // the system makes its own
        SystemMinimalInit();
    }
    ~Maintenance() { SystemTerm(); }
    Maintenance(const Maintenance&) = delete;
    Maintenance& operator=(const Maintenance&) = delete;

    sysSuperUserUtils* operator->() const { return getSystem()->mpSuperUserUtils; }

private:
    tests::OutputLevel mLevel{0};
    BootBox mBox;
};

TEST(RemoteLogAddressTest, IsStoredReadAndRemoved) {
    inSandbox([](Sandbox& sandbox) {
        const Maintenance utilities(sandbox);
        writeFile(kPrimaryFile, imageOf(Variables{{"a", "1"}}));
        EXPECT_EQ(0U, utilities->GetRemoteLogIP());
        EXPECT_EQ(1, utilities->StoreRemoteLogIP(kAddress));
        EXPECT_EQ(listed(), std::string("a=1;syslog=") + kText + ";");
        EXPECT_EQ(kAddress, utilities->GetRemoteLogIP());
        EXPECT_EQ(1, utilities->StoreRemoteLogIP(1));
        EXPECT_EQ(listed(), "a=1;syslog=0.0.0.1;");
        EXPECT_EQ(1, utilities->StoreRemoteLogIP(0));
        EXPECT_EQ(listed(), "a=1;");
        EXPECT_EQ(0U, utilities->GetRemoteLogIP());
    });
}

// Returns the address itself, so that it is a success unless it is 0.
TEST(RemoteLogAddressTest, WhatIsStoredAlreadyIsNotWritten) {
    inSandbox([](Sandbox& sandbox) {
        const Maintenance utilities(sandbox);
        const failingcalls::Scope calls;
        writeFile(kPrimaryFile, imageOf(Variables{{"syslog", kText}}));
        EXPECT_EQ(static_cast<int>(kAddress), utilities->StoreRemoteLogIP(kAddress));
        writeFile(kPrimaryFile, imageOf(Variables{{"a", "1"}}));
        EXPECT_EQ(0, utilities->StoreRemoteLogIP(0));
        ASSERT_EQ(0, ::unlink(kPrimaryFile));
        EXPECT_EQ(0, utilities->StoreRemoteLogIP(0));
        EXPECT_EQ(0, failingcalls::count(Call::eRename));
        EXPECT_EQ(-1, ::access(kPrimaryFile, F_OK));
    });
}

TEST(RemoteLogAddressTest, AnythingElseInTheVariableIsNoAddress) {
    inSandbox([](Sandbox& sandbox) {
        const Maintenance utilities(sandbox);
        for (const std::string& text :
             {std::string("10.0.0"), std::string("010.0.0.1"), std::string("256.0.0.1"),
              std::string("host"), std::string(" 10.0.0.1"), std::string("10.0.0.1 "),
              std::string("0.0.0.0"), "10.0.0.1" + std::string(2000, ' ')}) {
            writeFile(kPrimaryFile, imageOf(Variables{{"syslog", text}}));
            EXPECT_EQ(0U, utilities->GetRemoteLogIP()) << text;
        }
        EXPECT_EQ(1, utilities->StoreRemoteLogIP(kAddress));
        EXPECT_EQ(kAddress, utilities->GetRemoteLogIP());
    });
}

TEST(RemoteLogAddressTest, FailuresOfTheEnvironment) {
    inSandbox([](Sandbox& sandbox) {
        const Maintenance utilities(sandbox);
        const std::string image = imageOf(Variables{{"syslog", kText}});
        writeFile(kPrimaryFile, image);
        const failingcalls::Scope calls;
        for (const unsigned address : {0U, 1U}) {
            failingcalls::failAll(Call::eRename, EIO);
            EXPECT_EQ(0, utilities->StoreRemoteLogIP(address));
            failingcalls::reset();
            EXPECT_EQ(image, readFile(kPrimaryFile));
        }
        writeFile(kPrimaryFile, image.substr(0, image.size() - 1));
        EXPECT_EQ(0U, utilities->GetRemoteLogIP());
        EXPECT_EQ(0, utilities->StoreRemoteLogIP(0));
    });
}

}  // namespace
