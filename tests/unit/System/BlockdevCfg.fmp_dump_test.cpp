// SPDX-License-Identifier: MIT
//
// The text form of the partition table, and the single instance, which logs it.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <thread>

#include "System/BlockdevCfg.fmp.h"
#include "base/log/log.h"
#include "tests/support/capture.h"
#include "tests/support/hooks.h"
#include "tests/support/outputlevel.h"
#include "tests/unit/System/blockdevtable.h"

namespace {

using tests::Capture;
using tests::deviceOf;
using tests::Devices;
using tests::HookRecorder;
using tests::OutputLevel;
using tests::OwnTable;
using tests::TableInstance;

constexpr char kBuiltInDevices[] =
    "{mBlockdevice=[1] {{mBlockdevId=0, mBlockdevType=1, "
    "mpBlockdevName=/dev/disk/by-path/pci-0000:01:0e.0-scsi-0:0:0:0, mPartition=[2] {"
    "{mPartId=0, mFstype=3, mUsage=4, mpMountPoint=/boot-sw, "
    "mpPartDevname=/dev/disk/by-path/pci-0000:01:0e.0-scsi-0:0:0:0-part1, "
    "mUseItForSettings=false, mUseItForBulk=false, mBulkProjectId=0, mpBulkSubDir=, "
    "mUseItForTemp=false, mpTempSubDir=}, "
    "{mPartId=1, mFstype=1, mUsage=5, mpMountPoint=/media/data0-1, "
    "mpPartDevname=/dev/disk/by-path/pci-0000:01:0e.0-scsi-0:0:0:0-part2, "
    "mUseItForSettings=true, mUseItForBulk=true, mBulkProjectId=110, mpBulkSubDir=/bulk, "
    "mUseItForTemp=true, mpTempSubDir=/temp}}}}, smpBlockdeviceConfig=";

/// Collects a dump, and counts the pieces by their flushes.
class TextOutput : public PrintfOutput {
public:
    void put(char character) override { mText += character; }
    void write(const char* text, unsigned int length) override { mText.append(text, length); }
    void flush() override { ++mFlushes; }
    std::string mText;
    int mFlushes = 0;
};

template <class Record>
std::string dumpOf(const Record& record, int base = 10) {
    TextOutput sink;
    KestrovaOstream stream(&sink);
    stream.setBase(base);
    record.DumpToKestrovaOstream(&stream);
    EXPECT_EQ(0, sink.mFlushes);
    return sink.mText;
}

std::string pointerText(const void* pointer) {
    char text[32];
    (void)std::snprintf(text, sizeof(text), "0x%llx",
                        static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(pointer)));
    return text;
}

TEST(BlockdevDumpTest, BuiltInTableByteForByte) {
    const TableInstance instance;
    EXPECT_EQ(kBuiltInDevices + pointerText(instance.get()) + "}", dumpOf(*instance.get()));
}

TEST(BlockdevDumpTest, NoInstanceIsSpeltOut) {
    const OwnTable table;
    EXPECT_EQ(std::string(kBuiltInDevices) + "(null)}", dumpOf(table));
}

TEST(BlockdevDumpTest, EmptyLists) {
    EXPECT_EQ("{mBlockdevice=[0] {}, smpBlockdeviceConfig=(null)}", dumpOf(OwnTable(Devices{})));
    EXPECT_EQ("{mBlockdevId=0, mBlockdevType=0, mpBlockdevName=, mPartition=[0] {}}",
              dumpOf(BlockdevConfig()));
}

TEST(BlockdevDumpTest, IntegersAreUnsigned) {
    PartitionConfig partition;
    partition.mPartId = partition.mFstype = partition.mUsage = partition.mBulkProjectId =
        4294967295U;
    EXPECT_EQ(
        "{mPartId=4294967295, mFstype=4294967295, mUsage=4294967295, mpMountPoint=, "
        "mpPartDevname=, mUseItForSettings=false, mUseItForBulk=false, mBulkProjectId=4294967295, "
        "mpBulkSubDir=, mUseItForTemp=false, mpTempSubDir=}",
        dumpOf(partition));
    BlockdevConfig device;
    device.mBlockdevId = 2147483648U;
    device.mBlockdevType = 4294967295U;
    EXPECT_EQ(
        "{mBlockdevId=2147483648, mBlockdevType=4294967295, mpBlockdevName=, mPartition=[0] {}}",
        dumpOf(device));
}

TEST(BlockdevDumpTest, IntegersAndCountsAreInTheBaseOfTheStream) {
    BlockdevConfig device = deviceOf(std::vector<PartitionConfig>(17));
    device.mBlockdevId = 255;
    const std::string text = dumpOf(device, 16);
    EXPECT_EQ(0U, text.find("{mBlockdevId=ff, mBlockdevType=0, mpBlockdevName=, "
                            "mPartition=[11] {{mPartId=0, "));
}

TEST(BlockdevDumpTest, ElementsAreSeparatedByACommaAndTextsAreAsTheyAre) {
    BlockdevConfig device = deviceOf({PartitionConfig(), PartitionConfig(), PartitionConfig()});
    device.mpBlockdevName = "a, b} %s \"c\"";
    const std::string partition = dumpOf(PartitionConfig());
    EXPECT_EQ("{mBlockdevId=0, mBlockdevType=0, mpBlockdevName=a, b} %s \"c\", mPartition=[3] {" +
                  partition + ", " + partition + ", " + partition + "}}",
              dumpOf(device));
    EXPECT_EQ("{mBlockdevice=[2] {" + dumpOf(BlockdevConfig()) + ", " + dumpOf(BlockdevConfig()) +
                  "}, smpBlockdeviceConfig=(null)}",
              dumpOf(OwnTable(Devices{BlockdevConfig(), BlockdevConfig()})));
}

TEST(BlockdevDumpTest, SinkIsFlushedAfterEveryPieceWhenTheStreamSaysSo) {
    TextOutput sink;
    KestrovaOstream stream(&sink, KestrovaOstream::eFlagFlushEach);
    OwnTable(Devices{}).DumpToKestrovaOstream(&stream);
    EXPECT_EQ("{mBlockdevice=[0] {}, smpBlockdeviceConfig=(null)}", sink.mText);
    EXPECT_GT(sink.mFlushes, 5);
}

/// Returns the text with "N" for line numbers of the module and "T" for thread names, which these
/// tests do not check.
std::string withoutPlaces(std::string text) {
    const auto replaceAfter = [&text](const std::string& mark, const char* characters, char with) {
        for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at)) {
            at += mark.size();
            const std::size_t end = text.find_first_not_of(characters, at);
            text.replace(at, end - at, 1, with);
        }
    };
    replaceAfter("BlockdevCfg.fmp:", "0123456789", 'N');
    replaceAfter("(calling task: ", "abcdefghijklmnopqrstuvwxyz-", 'T');
    return text;
}

constexpr char kNoInstance[] =
    "BlockdevCfg.fmp:N Assertion `smpBlockdeviceConfig!=NULL' failed (calling task: T).\n";
constexpr char kSecondInstance[] =
    "BlockdevCfg.fmp:N Assertion `smpBlockdeviceConfig==NULL' failed (calling task: T).\n";
constexpr char kContext[] = "BlockdevCfg.fmp:N (level 2):\n";

class BlockdevInstanceTest : public testing::Test {
protected:
    BlockdevInstanceTest() : mLevel(1) {}
    HookRecorder mHooks;
    OutputLevel mLevel;
};

TEST_F(BlockdevInstanceTest, ThereIsNoneAtFirst) {
    const Capture capture;
    EXPECT_EQ(nullptr, BlockdeviceConfig::GetInstance());
    EXPECT_EQ(kNoInstance, withoutPlaces(capture.output()));
    EXPECT_EQ(1, mHooks.assertions());
}

TEST_F(BlockdevInstanceTest, DestroyingNoneIsReportedOnly) {
    const Capture capture;
    BlockdeviceConfig::DestroyInstance();
    EXPECT_EQ(kNoInstance, withoutPlaces(capture.output()));
    EXPECT_EQ(1, mHooks.assertions());
}

TEST_F(BlockdevInstanceTest, IsTheOneThatWasMadeUntilItIsDestroyed) {
    const Capture capture;
    BlockdeviceConfig* const made = BlockdeviceConfig::CreateInstance();
    ASSERT_NE(nullptr, made);
    EXPECT_EQ(made, BlockdeviceConfig::GetInstance());
    EXPECT_EQ(made, BlockdeviceConfig::GetInstance());
    BlockdeviceConfig::DestroyInstance();
    EXPECT_EQ("", capture.output());
    EXPECT_EQ(0, mHooks.assertions());
    EXPECT_EQ(nullptr, BlockdeviceConfig::GetInstance());
}

TEST_F(BlockdevInstanceTest, SecondReplacesTheFirstAndFreesItNot) {
    const Capture capture;
    BlockdeviceConfig* const first = BlockdeviceConfig::CreateInstance();
    BlockdeviceConfig* const second = BlockdeviceConfig::CreateInstance();
    EXPECT_EQ(kSecondInstance, withoutPlaces(capture.output()));
    EXPECT_EQ(1, mHooks.assertions());
    EXPECT_NE(first, second);
    EXPECT_EQ(second, BlockdeviceConfig::GetInstance());
    EXPECT_STREQ("/boot-sw", first->GetSoftwarePartitionMountPoint());
    delete first;
    // Destroying either table clears the instance.
    EXPECT_EQ(nullptr, BlockdeviceConfig::GetInstance());
    delete second;
}

TEST_F(BlockdevInstanceTest, IsSilentBelowLevelTwo) {
    for (const std::uint32_t verbosity : {0U, 1U}) {
        const OutputLevel level(verbosity);
        const Capture capture;
        EXPECT_NE(nullptr, BlockdeviceConfig::CreateInstance());
        BlockdeviceConfig::DestroyInstance();
        EXPECT_EQ("", capture.output());
    }
}

TEST_F(BlockdevInstanceTest, LogsItsDumpAtLevelTwo) {
    const OutputLevel level(2);
    const unsigned flags = pCoutKestrovaOstream->formatFlags();
    pCoutKestrovaOstream->setBase(16);
    const Capture capture;
    const BlockdeviceConfig* const made = BlockdeviceConfig::CreateInstance();
    const std::string text = withoutPlaces(capture.output());
    EXPECT_EQ(kContext + std::string(" *smpBlockdeviceConfig=") + kBuiltInDevices +
                  pointerText(made) + "}\n",
              text);
    EXPECT_EQ(3U, pCoutKestrovaOstream->formatFlags() & 3U);
    EXPECT_EQ(flags | 3U, pCoutKestrovaOstream->formatFlags());
    EXPECT_EQ(10, pCoutKestrovaOstream->base());
    BlockdeviceConfig::DestroyInstance();
    EXPECT_EQ(text, withoutPlaces(capture.output()));
}

// The dump has about sixty pieces. Messages of another thread are before or after it.
TEST_F(BlockdevInstanceTest, DumpIsNotInterleaved) {
    const OutputLevel level(2);
    const Capture capture;
    std::thread other([] {
        for (int i = 0; i < 2000; ++i) {
            base::logMessage(2, "other\n");
        }
    });
    for (int i = 0; i < 50; ++i) {
        EXPECT_NE(nullptr, BlockdeviceConfig::CreateInstance());
        BlockdeviceConfig::DestroyInstance();
    }
    other.join();
    std::istringstream lines(withoutPlaces(capture.output()));
    std::string line;
    std::string dump;
    int dumps = 0;
    while (std::getline(lines, line)) {
        if (line + "\n" == kContext && std::getline(lines, dump)) {
            ++dumps;
            ASSERT_EQ(0U, dump.find(std::string(" *smpBlockdeviceConfig=") + kBuiltInDevices));
            ASSERT_EQ('}', dump.back());
        } else {
            ASSERT_EQ("other", line);
        }
    }
    EXPECT_EQ(50, dumps);
}

}  // namespace
