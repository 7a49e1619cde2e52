// SPDX-License-Identifier: MIT
//
// The text form of the partition table, and the one instance, which logs it.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <regex>
#include <string>
#include <thread>

#include "System/BlockdevCfg.fmp.h"
#include "base/log.h"
#include "tests/System/blockdevtable.h"
#include "tests/support/capture.h"
#include "tests/support/hooks.h"
#include "tests/support/outputlevel.h"

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

/// Collects what is dumped, and counts the pieces by their flushes.
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

class BlockdevInstanceTest : public testing::Test {
protected:
    BlockdevInstanceTest() : mLevel(1) {}
    static std::string assertionLine(const char* condition) {
        return std::string("BlockdevCfg\\.fmp:[0-9]+ Assertion `smpBlockdeviceConfig") + condition +
               "NULL' failed \\(calling task: .*\\)\\.\n";
    }
    static void expectMatch(const std::string& pattern, const std::string& text) {
        EXPECT_TRUE(std::regex_match(text, std::regex(pattern))) << text;
    }

    HookRecorder mHooks;
    OutputLevel mLevel;
};

TEST_F(BlockdevInstanceTest, ThereIsNoneAtFirst) {
    const Capture capture;
    EXPECT_EQ(nullptr, BlockdeviceConfig::GetInstance());
    expectMatch(assertionLine("!="), capture.output());
    EXPECT_EQ(1, mHooks.assertions());
}

TEST_F(BlockdevInstanceTest, DestroyingNoneIsReportedOnly) {
    const Capture capture;
    BlockdeviceConfig::DestroyInstance();
    expectMatch(assertionLine("!="), capture.output());
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
    expectMatch(assertionLine("=="), capture.output());
    EXPECT_EQ(1, mHooks.assertions());
    EXPECT_NE(first, second);
    EXPECT_EQ(second, BlockdeviceConfig::GetInstance());
    EXPECT_STREQ("/boot-sw", first->GetSoftwarePartitionMountPoint());
    delete first;
    // Whichever table goes takes the instance with it.
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
    const std::string text = capture.output();
    const std::string context = text.substr(0, text.find('\n') + 1);
    expectMatch("BlockdevCfg\\.fmp:[0-9]+ \\(level 2\\):\n", context);
    EXPECT_EQ(std::string(" *smpBlockdeviceConfig=") + kBuiltInDevices + pointerText(made) + "}\n",
              text.substr(context.size()));
    EXPECT_EQ(3U, pCoutKestrovaOstream->formatFlags() & 3U);
    EXPECT_EQ(flags | 3U, pCoutKestrovaOstream->formatFlags());
    EXPECT_EQ(10, pCoutKestrovaOstream->base());
    BlockdeviceConfig::DestroyInstance();
    EXPECT_EQ(text, capture.output());
}

// The dump has some sixty pieces; another thread's messages stay before it or behind it.
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
    std::string text = capture.output();
    const std::regex entry(
        "BlockdevCfg\\.fmp:[0-9]+ \\(level 2\\):\n \\*smpBlock[^\n]*=0x[0-9a-f]+\\}\n");
    const auto entries = std::distance(std::sregex_iterator(text.begin(), text.end(), entry),
                                       std::sregex_iterator());
    EXPECT_EQ(50, entries);
    text = std::regex_replace(text, entry, "");
    text = std::regex_replace(text, std::regex("other\n"), "");
    EXPECT_EQ("", text);
}

}  // namespace
