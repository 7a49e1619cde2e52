// SPDX-License-Identifier: MIT
//
// Starting and stopping the system.
#include "System/system.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cstddef>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>

#include "System/BlockdevCfg.fmp.h"
#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "System/drivemanager/drivemanager.h"
#include "System/sysSuperUserUtils.h"
#include "tests/support/capture.h"
#include "tests/support/failingcalls.h"
#include "tests/support/hooks.h"
#include "tests/support/outputlevel.h"

namespace {

using failingcalls::Call;
using tests::Capture;
using tests::HookRecorder;
using tests::OutputLevel;

constexpr char kDrive[] = "/dev/sda";

/// Returns the instance of the table without a message.
BlockdeviceConfig* table() {
    const OutputLevel quiet(0);
    return BlockdeviceConfig::GetInstance();
}

/// Stops the system at the end of a test, even if it failed.
class SystemTest : public testing::Test {
protected:
    ~SystemTest() override { SystemTerm(); }

    /// Starts the full system. Returns false, and skips the test, if a drive would be touched.
    static bool initWithoutDrive() {
        if (::access(kDrive, F_OK) == 0) {
            return false;
        }
        SystemInit();
        return true;
    }
};

#define SKIP_WITH_DRIVE() GTEST_SKIP() << "this machine has a " << kDrive

TEST_F(SystemTest, ThereIsNoneBeforeTheStartAndAfterTheEnd) {
    EXPECT_EQ(nullptr, getSystem());
    SystemMinimalInit();
    EXPECT_NE(nullptr, getSystem());
    SystemTerm();
    EXPECT_EQ(nullptr, getSystem());
}

TEST_F(SystemTest, EndWithoutAStartOrTwiceDoesNothing) {
    const HookRecorder hooks;
    const Capture capture;
    SystemTerm();
    SystemMinimalInit();
    SystemTerm();
    SystemTerm();
    EXPECT_EQ(nullptr, getSystem());
    EXPECT_EQ("", capture.output());
    EXPECT_EQ(0, hooks.assertions());
}

TEST_F(SystemTest, MinimalStartHasEverythingButTheDrive) {
    const HookRecorder hooks;
    const Capture capture;
    SystemMinimalInit();
    const sysInterface* const system = getSystem();
    ASSERT_NE(nullptr, system);
    EXPECT_TRUE(system->mMinimal);
    EXPECT_NE(nullptr, system->mpBootVarsManager);
    EXPECT_NE(nullptr, system->mpSuperUserUtils);
    EXPECT_EQ(nullptr, system->mpDriveManager);
    EXPECT_NE(nullptr, table());
    EXPECT_EQ(0, hooks.assertions());
    SystemTerm();
    EXPECT_EQ(nullptr, table());
    EXPECT_EQ("", capture.output());
    EXPECT_EQ("", capture.errors());
}

TEST_F(SystemTest, MinimalStartTouchesNoDriveAndRunsNoTool) {
    const failingcalls::Scope calls;
    SystemMinimalInit();
    SystemTerm();
    for (const Call call :
         {Call::eOpen, Call::eFopen, Call::eIoctl, Call::eFork, Call::eSystem, Call::eClone,
          Call::ePthreadCreate, Call::eSync, Call::eUmount, Call::eStatfs, Call::eMkdir}) {
        EXPECT_EQ(0, failingcalls::count(call)) << static_cast<int>(call);
    }
}

TEST_F(SystemTest, StartsAgainAfterAnEnd) {
    const HookRecorder hooks;
    for (int round = 0; round < 3; ++round) {
        SystemMinimalInit();
        EXPECT_NE(nullptr, getSystem());
        SystemTerm();
    }
    EXPECT_EQ(0, hooks.assertions());
}

TEST_F(SystemTest, FullStartWithoutADriveSaysSo) {
    const Capture capture;
    if (!initWithoutDrive()) {
        SKIP_WITH_DRIVE();
    }
    EXPECT_EQ("No DVR Drive Detected\n", capture.output());
    EXPECT_EQ("", capture.errors());
    const sysInterface* const system = getSystem();
    ASSERT_NE(nullptr, system);
    EXPECT_FALSE(system->mMinimal);
    EXPECT_NE(nullptr, system->mpBootVarsManager);
    EXPECT_NE(nullptr, system->mpSuperUserUtils);
    ASSERT_NE(nullptr, system->mpDriveManager);
    EXPECT_FALSE(system->mpDriveManager->hasDVRDrive());
    EXPECT_EQ(nullptr, system->mpDriveManager->getDVRDrive());
    EXPECT_NE(nullptr, table());
    SystemTerm();
    EXPECT_EQ(nullptr, getSystem());
    EXPECT_EQ(nullptr, table());
    EXPECT_EQ("No DVR Drive Detected\n", capture.output());
}

// The detection queries the table whether the drive may go to standby.
TEST_F(SystemTest, TableIsThereBeforeTheDriveIsDetected) {
    const OutputLevel level(2);
    const Capture capture;
    if (!initWithoutDrive()) {
        SKIP_WITH_DRIVE();
    }
    const std::string text = capture.output();
    const std::size_t dump = text.find(" *smpBlockdeviceConfig={");
    const std::size_t drive = text.find("No DVR Drive Detected\n");
    ASSERT_NE(std::string::npos, dump);
    ASSERT_NE(std::string::npos, drive);
    EXPECT_LT(dump, drive);
}

TEST_F(SystemTest, DrivePartGoesDownOnceAndUpAgain) {
    const Capture capture;
    if (!initWithoutDrive()) {
        SKIP_WITH_DRIVE();
    }
    sysInterface* const system = getSystem();
    system->termDVR();
    EXPECT_EQ(nullptr, system->mpDriveManager);
    system->termDVR();
    EXPECT_EQ(nullptr, system->mpDriveManager);
    EXPECT_NE(nullptr, table());
    system->initDVR();
    EXPECT_NE(nullptr, system->mpDriveManager);
    EXPECT_EQ("No DVR Drive Detected\nNo DVR Drive Detected\n", capture.output());
}

TEST_F(SystemTest, DrivePartOfAMinimalSystemCanBeBroughtUpByHand) {
    if (::access(kDrive, F_OK) == 0) {
        SKIP_WITH_DRIVE();
    }
    const Capture capture;
    SystemMinimalInit();
    getSystem()->termDVR();
    EXPECT_EQ(nullptr, getSystem()->mpDriveManager);
    getSystem()->initDVR();
    EXPECT_NE(nullptr, getSystem()->mpDriveManager);
    EXPECT_TRUE(getSystem()->mMinimal);
    getSystem()->termDVR();
}

TEST_F(SystemTest, SecondStartIsNotRefused) {
    const HookRecorder hooks;
    const Capture capture;
    SystemMinimalInit();
    sysInterface* const first = getSystem();
    BlockdeviceConfig* const firstTable = table();
    SystemMinimalInit();
    sysInterface* const second = getSystem();
    EXPECT_NE(first, second);
    EXPECT_NE(firstTable, table());
    EXPECT_EQ(1, hooks.assertions());
    EXPECT_NE(std::string::npos,
              capture.output().find(" Assertion `smpBlockdeviceConfig==NULL' failed "));
    EXPECT_TRUE(first->mMinimal);
    EXPECT_NE(nullptr, first->mpBootVarsManager);
    EXPECT_NE(first->mpSuperUserUtils, second->mpSuperUserUtils);
    SystemTerm();
    EXPECT_EQ(nullptr, getSystem());
    // Objects that the library no longer points to are still valid.
    EXPECT_STREQ("/boot-sw", firstTable->GetSoftwarePartitionMountPoint());
    delete firstTable;
    delete first;
    EXPECT_EQ(2, hooks.assertions()) << "its destructor found no table";
}

TEST_F(SystemTest, MembersKeepTheirOrder) {
    EXPECT_FALSE(std::is_polymorphic_v<sysInterface>);
    EXPECT_FALSE(std::is_polymorphic_v<sysBootVarsManager>);
    EXPECT_TRUE(std::is_empty_v<sysBootVarsManager>);
    EXPECT_EQ(sizeof(sysInterface*), sizeof(sysSuperUserUtils));
    EXPECT_EQ(0U, offsetof(sysInterface, mMinimal));
    EXPECT_LT(offsetof(sysInterface, mMinimal), offsetof(sysInterface, mpBootVarsManager));
    EXPECT_LT(offsetof(sysInterface, mpBootVarsManager), offsetof(sysInterface, mpSuperUserUtils));
    EXPECT_LT(offsetof(sysInterface, mpSuperUserUtils), offsetof(sysInterface, mpDriveManager));
}

TEST_F(SystemTest, UtilitiesKnowTheirSystem) {
    SystemMinimalInit();
    sysInterface* owner = nullptr;
    std::memcpy(static_cast<void*>(&owner), getSystem()->mpSuperUserUtils, sizeof(owner));
    EXPECT_EQ(getSystem(), owner);
}

TEST_F(SystemTest, DownloadMemoryIsAllocatedAndFreed) {
    for (const int size : {0, 1, 4096, 1000000}) {
        void* const memory = download_allocate(size);
        ASSERT_NE(nullptr, memory);
        std::memset(memory, 0xa5, static_cast<std::size_t>(size));
        download_free(memory);
    }
    download_free(nullptr);
}

TEST_F(SystemTest, DownloadMemoryOfNegativeSizeIsNotToBeHad) {
    for (const int size : {-1, -4096, INT_MIN}) {
        EXPECT_THROW(download_free(download_allocate(size)), std::bad_alloc) << size;
    }
}

TEST_F(SystemTest, MemFdBelongsToTheClients) {
    EXPECT_EQ(-1, mem_fd);
    mem_fd = 77;
    SystemMinimalInit();
    SystemTerm();
    EXPECT_EQ(77, mem_fd);
    mem_fd = -1;
}

}  // namespace
