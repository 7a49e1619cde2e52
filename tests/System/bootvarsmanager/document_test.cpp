// SPDX-License-Identifier: MIT
//
// The example in docs/boot-environment.md is what the library writes.
#include <gtest/gtest.h>

#include <sstream>

#include "System/bootvarsmanager/bootenvironment.h"
#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "tests/System/bootvarsmanager/bootbox.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"

namespace {

const tests::Variables kExample = {
    {"bootdelay", "3"}, {"serial", "KV-0001"}, {"syslog", "192.168.1.20"}};

/// The bytes of the document's dump.
std::string dumpedBytes() {
    std::istringstream lines(tests::readFile(KESTROVA_BOOT_DOCUMENT));
    std::string bytes;
    std::string line;
    while (std::getline(lines, line) && line != "```") {
    }
    while (std::getline(lines, line) && line != "```") {
        std::istringstream fields(line.substr(0, line.find('|')));
        std::string field;
        fields >> field;
        EXPECT_EQ(std::stoul(field, nullptr, 16), bytes.size());
        while (fields >> field) {
            bytes += static_cast<char>(std::stoul(field, nullptr, 16));
        }
    }
    return bytes;
}

}  // namespace

TEST(BootEnvironmentDocument, TheDumpIsWhatTheLibraryWrites) {
    const std::string dumped = dumpedBytes();
    EXPECT_EQ(dumped, tests::imageOf(kExample));
    tests::inSandbox([&](tests::Sandbox& sandbox) {
        const tests::OutputLevel quiet(0);
        const tests::BootBox box(sandbox);
        for (const auto& [name, value] : kExample) {
            EXPECT_TRUE(sysBootVarsManager().setVarS(name.c_str(), value.c_str()));
        }
        EXPECT_EQ(tests::readFile(tests::kPrimaryFile), dumped);
    });
}

TEST(BootEnvironmentDocument, TellsTheFieldsOfTheDump) {
    const std::string text = tests::readFile(KESTROVA_BOOT_DOCUMENT);
    const std::string area = tests::areaOf(kExample);
    char row[64];
    (void)std::snprintf(row, sizeof(row), "crc `%08x` of the %zu bytes", tests::plainCrc(area),
                        area.size());
    EXPECT_NE(text.find(row), std::string::npos) << row;
    EXPECT_NE(text.find("| size " + std::to_string(area.size()) + " |"), std::string::npos);
    EXPECT_NE(text.find(std::to_string(kBootEnvFileSize)), std::string::npos);
    EXPECT_NE(text.find(std::to_string(kBootEnvAreaSize)), std::string::npos);
}
