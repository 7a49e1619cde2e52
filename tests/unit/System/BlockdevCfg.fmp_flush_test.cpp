// SPDX-License-Identifier: MIT
//
// The dump is written in small pieces; a stream that flushes each piece makes them visible.
#include <gtest/gtest.h>

#include <string>

#include "System/BlockdevCfg.fmp.h"
#include "tests/unit/System/blockdevtable.h"

namespace {

/// Collects the written text and marks the end of each piece.
class PieceOutput : public PrintfOutput {
public:
    void put(char character) override { mText += character; }
    void write(const char* text, unsigned int length) override { mText.append(text, length); }
    void flush() override { mText += '|'; }
    std::string mText;
};

template <class Record>
std::string piecesOf(const Record& record) {
    PieceOutput sink;
    KestrovaOstream stream(&sink, KestrovaOstream::eFlagFlushEach);
    record.DumpToKestrovaOstream(&stream);
    return sink.mText;
}

constexpr char kPartition[] =
    "{|mPartId=|0|, |mFstype=|0|, |mUsage=|0|, |mpMountPoint=||, |mpPartDevname=||, "
    "|mUseItForSettings=|false|, |mUseItForBulk=|false|, |mBulkProjectId=|0|, |mpBulkSubDir=||, "
    "|mUseItForTemp=|false|, |mpTempSubDir=||}|";

}  // namespace

TEST(BlockdevFlush, PartitionIsShownPieceByPiece) {
    EXPECT_EQ(kPartition, piecesOf(PartitionConfig()));
}

TEST(BlockdevFlush, DeviceIsShownPieceByPiece) {
    BlockdevConfig device;
    device.mPartition.resize(2);
    EXPECT_EQ("{|mBlockdevId=|0|, |mBlockdevType=|0|, |mpBlockdevName=||, |mPartition=|[|2|] {|" +
                  std::string(kPartition) + ", |" + kPartition + "}|}|",
              piecesOf(device));
}

TEST(BlockdevFlush, TableIsShownPieceByPiece) {
    EXPECT_EQ("{|mBlockdevice=|[|0|] {|}|, |smpBlockdeviceConfig=|(null)|}|",
              piecesOf(tests::OwnTable(tests::Devices{})));
}
