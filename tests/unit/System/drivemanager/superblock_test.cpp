// SPDX-License-Identifier: MIT
#include "System/drivemanager/superblock.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>

#include "base/io/descriptor.h"
#include "tests/support/failingcalls.h"
#include "tests/support/sandbox.h"

using drivemanager::readExtLabel;
using drivemanager::readXfsLabel;
using failingcalls::Call;

namespace {

/// Returns a device with these bytes.
base::Descriptor device(const std::string& bytes) {
    base::Descriptor file(::memfd_create("device", MFD_CLOEXEC));
    EXPECT_TRUE(base::writeAll(file.get(), bytes.data(), bytes.size()));
    return file;
}

std::string extLabel(const std::string& bytes) {
    std::string label = "untouched";
    return readExtLabel(device(bytes).get(), label) ? label : "no: " + label;
}

std::string xfsLabel(const std::string& bytes) {
    std::string label = "untouched";
    return readXfsLabel(device(bytes).get(), label) ? label : "no: " + label;
}

}  // namespace

TEST(Superblock, ReadsExtLabelsOfEveryLength) {
    EXPECT_EQ(extLabel(tests::extHeader("")), "");
    EXPECT_EQ(extLabel(tests::extHeader("x")), "x");
    EXPECT_EQ(extLabel(tests::extHeader("twelve chars")), "twelve chars");
    EXPECT_EQ(extLabel(tests::extHeader("sixteen letters.")), "sixteen letters.");
}

TEST(Superblock, ExtLabelWithoutEndRunsIntoTheNextFields) {
    EXPECT_EQ(extLabel(tests::extHeader("sixteen letters./mnt")), "sixteen letters./mnt");
    const std::string endless = tests::extHeader(std::string(2048 - 1024 - 120, 'e'));
    EXPECT_EQ(extLabel(endless), std::string(904, 'e'));
}

TEST(Superblock, ExtMagicIsLittleEndianAndMustMatchWhole) {
    std::string bytes = tests::extHeader("label");
    bytes.replace(1024 + 56, 2, "\xef\x53");
    EXPECT_EQ(extLabel(bytes), "no: untouched");
    bytes.replace(1024 + 56, 2, "\x53\xee");
    EXPECT_EQ(extLabel(bytes), "no: untouched");
    bytes.replace(1024 + 56, 2, "\x52\xef");
    EXPECT_EQ(extLabel(bytes), "no: untouched");
}

TEST(Superblock, ExtNeedsTheWholeSuperblock) {
    const std::string bytes = tests::extHeader("label");
    EXPECT_EQ(extLabel(bytes.substr(0, 2048)), "label");
    EXPECT_EQ(extLabel(bytes.substr(0, 2047)), "no: untouched");
    EXPECT_EQ(extLabel(bytes.substr(0, 1024)), "no: untouched");
    EXPECT_EQ(extLabel(""), "no: untouched");
}

TEST(Superblock, ReadsXfsLabelsOfEveryLength) {
    EXPECT_EQ(xfsLabel(tests::xfsHeader("")), "");
    EXPECT_EQ(xfsLabel(tests::xfsHeader("x")), "x");
    EXPECT_EQ(xfsLabel(tests::xfsHeader("twelve chars")), "twelve chars");
    // The thirteenth byte belongs to another field.
    EXPECT_EQ(xfsLabel(tests::xfsHeader("twelve charsX")), "twelve chars");
}

TEST(Superblock, XfsNeedsMagicAndLabelWhole) {
    const std::string bytes = tests::xfsHeader("twelve chars");
    EXPECT_EQ(xfsLabel(bytes.substr(0, 120)), "twelve chars");
    EXPECT_EQ(xfsLabel(bytes.substr(0, 119)), "no: untouched");
    EXPECT_EQ(xfsLabel(bytes.substr(0, 4)), "no: untouched");
    EXPECT_EQ(xfsLabel(bytes.substr(0, 3)), "no: untouched");
    EXPECT_EQ(xfsLabel("XFSC" + bytes.substr(4)), "no: untouched");
    EXPECT_EQ(xfsLabel("BSFX" + bytes.substr(4)), "no: untouched");
}

TEST(Superblock, ReadFailuresLeaveItUnrecognised) {
    const failingcalls::Scope scope;
    failingcalls::failAll(Call::ePread, EIO);
    EXPECT_EQ(extLabel(tests::extHeader("label")), "no: untouched");
    EXPECT_EQ(xfsLabel(tests::xfsHeader("label")), "no: untouched");
    failingcalls::reset();
    failingcalls::fail(Call::ePread, EIO, 2);
    EXPECT_EQ(xfsLabel(tests::xfsHeader("label")), "no: untouched");
}

TEST(Superblock, AnInterruptedReadGoesOn) {
    const failingcalls::Scope scope;
    failingcalls::fail(Call::ePread, EINTR);
    EXPECT_EQ(extLabel(tests::extHeader("label")), "label");
    failingcalls::fail(Call::ePread, EINTR, 2);
    EXPECT_EQ(xfsLabel(tests::xfsHeader("label")), "label");
}
