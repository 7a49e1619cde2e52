// SPDX-License-Identifier: MIT
//
// Files and variables that are much larger than the format allows.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <functional>

#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "base/text/base64.h"
#include "tests/support/capture.h"
#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/bootvarsmanager/bootbox.h"

using failingcalls::Call;
using tests::BootBox;
using tests::imageOf;
using tests::inSandbox;
using tests::listed;
using tests::Sandbox;
using tests::Variables;

namespace {

constexpr long long kGiB = 1LL << 30;
const Variables kOld = {{"a", "old"}};
constexpr char kTooBig[] = "Environment too big for flash\n";

/// Returns a header with valid flags and this size.
std::string headerOf(std::uint32_t size) {
    std::string header("\xff\xff\xff\0crc.", 8);
    for (unsigned shift = 32; shift > 0; shift -= 8) {
        header += static_cast<char>(size >> (shift - 8U));
    }
    return header;
}

/// A text of any length that uses one MiB of memory: the same pages are mapped repeatedly.
class LongText {
public:
    explicit LongText(std::size_t length) : mRoom((length / kPiece + 1) * kPiece) {
        const int file = ::memfd_create("text", MFD_CLOEXEC);
        const std::string piece(kPiece, 'v');
        const bool written =
            ::write(file, piece.data(), kPiece) == static_cast<ssize_t>(piece.size());
        void* const room = ::mmap(nullptr, mRoom + kPiece, PROT_NONE,
                                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (!written || room == MAP_FAILED) {
            return;
        }
        mpText = static_cast<char*>(room);
        for (std::size_t at = 0; at < mRoom; at += kPiece) {
            // The last piece is a copy, so that the terminator is written only once.
            const int kind = at + kPiece < mRoom ? MAP_SHARED : MAP_PRIVATE;
            mWhole = mWhole && ::mmap(mpText + at, kPiece, PROT_READ | PROT_WRITE, kind | MAP_FIXED,
                                      file, 0) != MAP_FAILED;
        }
        (void)::close(file);
        if (mWhole) {
            mpText[length] = '\0';
        }
    }
    ~LongText() {
        if (mpText != nullptr) {
            (void)::munmap(mpText, mRoom + kPiece);
        }
    }
    LongText(const LongText&) = delete;
    LongText& operator=(const LongText&) = delete;

    bool whole() const { return mpText != nullptr && mWhole; }
    const char* text() const { return mpText; }
    const unsigned char* bytes() const { return reinterpret_cast<const unsigned char*>(mpText); }

private:
    static constexpr std::size_t kPiece = 1 << 20;
    std::size_t mRoom;
    char* mpText = nullptr;
    bool mWhole = true;
};

/// Runs with one valid file, and expects that it is unchanged at the end.
void refused(const std::function<bool(sysBootVarsManager&)>& change) {
    inSandbox([&](Sandbox& sandbox) {
        const tests::OutputLevel quiet(0);
        const BootBox box(sandbox);
        tests::writeFile(tests::kPrimaryFile, imageOf(kOld));
        {
            const tests::Capture capture;
            sysBootVarsManager manager;
            EXPECT_FALSE(change(manager));
            EXPECT_EQ(capture.errors(), kTooBig);
        }
        EXPECT_EQ(tests::readFile(tests::kPrimaryFile), imageOf(kOld));
        EXPECT_NE(::access(tests::kTemporaryFile, F_OK), 0);
        EXPECT_EQ(listed(), "a=old;");
    });
}

}  // namespace

TEST(BootVarsSizes, ADamagedPrimaryOfManyGibibytesLeavesTheBackup) {
    const std::string damaged[] = {"",
                                   headerOf(65525),
                                   headerOf(INT_MAX),
                                   headerOf(0x80000000U),
                                   headerOf(UINT32_MAX),
                                   headerOf(20)};
    for (const std::string& start : damaged) {
        SCOPED_TRACE(testing::PrintToString(start));
        inSandbox([&](Sandbox& sandbox) {
            const failingcalls::Scope scope;
            const BootBox box(sandbox);
            tests::writeFile(tests::kPrimaryFile, start, 8 * kGiB);
            tests::writeFile(tests::kBackupFile, imageOf(kOld));
            char value[8] = "";
            const tests::Capture capture;
            EXPECT_TRUE(sysBootVarsManager().getVarS("a", value, sizeof(value)));
            EXPECT_STREQ(value, "old");
            const std::string log = tests::withoutContext(capture.output());
            EXPECT_NE(log.find("Path: /boot-sw//boot_env\n"), std::string::npos) << log;
            EXPECT_NE(log.find("Failed to read primary environment - trying backup\n"
                               "Path: /boot-sw//boot_env.bkp\n"),
                      std::string::npos)
                << log;
            EXPECT_EQ(log.find("badflags") != std::string::npos, start.empty()) << log;
            EXPECT_LT(failingcalls::count(Call::eRead), 20);
        });
    }
}

TEST(BootVarsSizes, WhatFollowsTheAreaIsNotRead) {
    inSandbox([](Sandbox& sandbox) {
        const tests::OutputLevel quiet(0);
        const BootBox box(sandbox);
        tests::writeFile(tests::kPrimaryFile, imageOf(kOld), 8 * kGiB);
        EXPECT_EQ(listed(), "a=old;");
        EXPECT_TRUE(sysBootVarsManager().setVarS("b", "new"));
        EXPECT_EQ(listed(), "a=old;b=new;");
    });
}

TEST(BootVarsSizes, AValueOfMoreThanAGibibyteIsRefused) {
    for (const int beyond : {-2, -1, 0, 1, 70000}) {
        const auto length = static_cast<std::size_t>(kGiB + beyond);
        SCOPED_TRACE(length);
        refused([length](sysBootVarsManager& vars) {
            const LongText value(length);
            EXPECT_TRUE(value.whole());
            return vars.setVarS("b", value.text());
        });
    }
}

TEST(BootVarsSizes, ANameOfMoreThanAGibibyteIsRefused) {
    for (const char* const other : {"v", static_cast<const char*>(nullptr)}) {
        refused([other](sysBootVarsManager& vars) {
            const LongText name(kGiB + 5);
            EXPECT_TRUE(name.whole());
            // Twice this text is longer than an int can hold.
            return vars.setVarS(name.text(), other != nullptr ? other : name.text());
        });
    }
}

TEST(BootVarsSizes, ALongNameIsNoVariable) {
    inSandbox([](Sandbox& sandbox) {
        const tests::OutputLevel quiet(0);
        const BootBox box(sandbox);
        tests::writeFile(tests::kPrimaryFile, imageOf(kOld));
        const LongText name(kGiB + 5);
        ASSERT_TRUE(name.whole());
        char value[8] = "before";
        EXPECT_FALSE(sysBootVarsManager().getVarS(name.text(), value, sizeof(value)));
        EXPECT_STREQ(value, "before");
        EXPECT_TRUE(sysBootVarsManager().clearVar(name.text()));
        EXPECT_EQ(listed(), "a=old;");
    });
}

TEST(BootVarsSizes, BytesWhoseTextIsTooLongAreRefused) {
    // The longest whose text length fits an int, and lengths around 2^30 characters.
    for (const unsigned length :
         {49144U, 65536U, 65537U, 805306368U, 805306369U, 1073741824U, 1610612733U}) {
        SCOPED_TRACE(length);
        refused([length](sysBootVarsManager& vars) {
            const LongText bytes(length);
            EXPECT_TRUE(bytes.whole());
            return vars.setVarB("b", bytes.bytes(), length);
        });
    }
}

TEST(BootVarsSizes, BytesWhoseTextHasNoLengthFailWithoutAWord) {
    const tests::Capture capture;
    const unsigned char byte = 0;
    for (const unsigned length : {1610612734U, 2147483647U, 2147483648U, UINT_MAX}) {
        EXPECT_FALSE(sysBootVarsManager().setVarB("b", &byte, length)) << length;
    }
    EXPECT_EQ(capture.output() + capture.errors(), "");
}

namespace {

/// Expects what is logged when a change does not fit.
void expectLogged(const std::string& setting,
                  const std::function<bool(sysBootVarsManager&)>& change) {
    inSandbox([&](Sandbox& sandbox) {
        const BootBox box(sandbox);
        tests::writeFile(tests::kPrimaryFile, imageOf(kOld));
        const tests::Capture capture;
        sysBootVarsManager manager;
        EXPECT_FALSE(change(manager));
        EXPECT_EQ(capture.errors(), kTooBig);
        const std::string expected =
            "Load env already stored\nMouting HDD mode:1\nis mouted 2 1 \n"
            "Path: /boot-sw//boot_env\n" +
            setting + "\nSaving Environment\nMouting HDD mode:2\nis mouted 2 2 \n";
        // Not EXPECT_EQ, which would print both texts.
        EXPECT_TRUE(tests::withoutContext(capture.output()) == expected);
    });
}

}  // namespace

TEST(BootVarsSizes, TheWholeValueIsLogged) {
    for (const std::size_t length : {65523U, 65536U, 65537U, 3000000U}) {
        SCOPED_TRACE(length);
        const std::string value(length, 'v');
        expectLogged("Setting key b " + value,
                     [&](sysBootVarsManager& vars) { return vars.setVarS("b", value.c_str()); });
        expectLogged("Setting key " + value + " v",
                     [&](sysBootVarsManager& vars) { return vars.setVarS(value.c_str(), "v"); });
    }
}

TEST(BootVarsSizes, TheWholeTextOfBytesIsLogged) {
    for (const unsigned length : {65536U, 65537U, 65538U, 65539U, 3072U * 100, 3000000U}) {
        SCOPED_TRACE(length);
        std::vector<unsigned char> bytes(length);
        for (unsigned i = 0; i < length; ++i) {
            bytes[i] = static_cast<unsigned char>(i * 7 + i / 256);
        }
        const int size = base64encodeBufferSize(static_cast<int>(length));
        std::string text(static_cast<std::size_t>(size), '\0');
        ASSERT_EQ(base64encode(bytes.data(), static_cast<int>(length),
                               reinterpret_cast<unsigned char*>(text.data()), size),
                  size);
        expectLogged("Setting key b " + text, [&](sysBootVarsManager& vars) {
            return vars.setVarB("b", bytes.data(), length);
        });
    }
}

TEST(BootVarsSizes, LongBytesWithoutANameFail) {
    const tests::Capture capture;
    const std::vector<unsigned char> bytes(70000);
    EXPECT_FALSE(sysBootVarsManager().setVarB(nullptr, bytes.data(), 70000));
    EXPECT_EQ(tests::withoutContext(capture.output()), "Load env already stored\n");
    EXPECT_EQ(capture.errors(), "");
}
