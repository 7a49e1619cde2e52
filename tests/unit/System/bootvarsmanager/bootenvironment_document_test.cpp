// SPDX-License-Identifier: MIT
//
// The example in docs/boot-environment.md is what the library writes. docs/operating.md maps a
// message to the call that logs it.
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <vector>

#include "System/bootvarsmanager/bootenvironment.h"
#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "tests/support/capture.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/bootvarsmanager/bootbox.h"

namespace {

const tests::Variables kExample = {
    {"bootdelay", "3"}, {"serial", "KV-0001"}, {"syslog", "192.168.1.20"}};

/// Returns the bytes of the document's dump.
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

namespace {

std::vector<std::string> linesOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// The lines of the source file by the start of a message, up to its first conversion, as in the
/// headings of the operating guide.
using Guide = std::map<std::string, std::vector<std::string>>;

Guide readGuide() {
    Guide guide;
    std::string file;
    const std::string path = std::string(KESTROVA_SOURCE_ROOT) + "docs/operating.md";
    for (const std::string& line : linesOf(tests::readFile(path))) {
        if (line.rfind("#", 0) == 0) {
            const std::size_t at = line.find("`System/bootvarsmanager/");
            file = at == std::string::npos ? "" : line.substr(at + 1, line.size() - at - 2);
        } else if (line.rfind("| `\"", 0) == 0 && !file.empty()) {
            guide[line.substr(4, line.find_first_of("%\"", 4) - 4)] =
                linesOf(tests::readFile(KESTROVA_SOURCE_ROOT + file));
        }
    }
    return guide;
}

/// Returns the start of this message in the guide; "" if the guide does not contain it.
std::string guidedStart(const Guide& guide, const std::string& message) {
    for (const auto& [start, source] : guide) {
        if (message.rfind(start, 0) == 0) {
            return start;
        }
    }
    return "";
}

/// Expects that each context line refers to a call that logs the message after it.
void expectGuided(const Guide& guide, const std::string& log) {
    const std::string context = "System/bootvarsmanager/sysBootVarsManager:";
    const std::vector<std::string> lines = linesOf(log);
    for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
        if (lines[i].rfind(context, 0) != 0) {
            continue;
        }
        const std::string start = guidedStart(guide, lines[i + 1]);
        ASSERT_NE(start, "") << lines[i + 1];
        const std::vector<std::string>& source = guide.at(start);
        const std::size_t number = std::stoul(lines[i].substr(context.size()));
        ASSERT_LT(number, source.size()) << lines[i];
        const std::string call = source[number - 1] + source[number];
        EXPECT_TRUE(call.find('"' + start) != std::string::npos ||
                    (start == "Moving " && call.find("moveFile(") != std::string::npos) ||
                    (start == "Setting key " && call.find("logTextSetting(") != std::string::npos))
            << lines[i] << " " << lines[i + 1] << ": " << call;
    }
}

}  // namespace

TEST(BootVarsMessages, TheGuideLeadsToTheirCalls) {
    const Guide guide = readGuide();
    EXPECT_GT(guide.size(), 20U);
    for (const char* const options : {"rw", "ro", static_cast<const char*>(nullptr)}) {
        tests::inSandbox([&guide, options](tests::Sandbox& sandbox) {
            const failingcalls::Scope scope;
            tests::BootBox box(sandbox, options);
            box.simulateMounts();
            std::string damaged = tests::imageOf(kExample);
            damaged.back() = 'x';
            std::string log;
            for (const std::string& primary :
                 {tests::imageOf(kExample), damaged, std::string(12, 'x'), std::string()}) {
                tests::writeFile(tests::kPrimaryFile, primary);
                const tests::Capture capture;
                EXPECT_TRUE(sysBootVarsManager().setVarS("name", "value"));
                EXPECT_FALSE(sysBootVarsManager().setVarS("n", std::string(70000, 'v').c_str()));
                failingcalls::failAll(failingcalls::Call::eRename, EIO);
                EXPECT_FALSE(sysBootVarsManager().clearVar("name"));
                failingcalls::reset();
                failingcalls::failAll(failingcalls::Call::eFsync, EIO);
                box.simulateMounts();
                EXPECT_FALSE(sysBootVarsManager().clearVar("name"));
                failingcalls::reset();
                box.simulateMounts();
                log += capture.output();
            }
            expectGuided(guide, log);
            EXPECT_NE(log.find("bad crc"), std::string::npos);
            EXPECT_NE(log.find("Error backing up environment"), std::string::npos);
        });
    }
}
