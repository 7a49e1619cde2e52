// SPDX-License-Identifier: MIT
#include "tests/crash/scenarios.h"

#include "base/text/crc32.h"

namespace crash {

namespace {

const char kPrimary[] = "boot_env";
const char kBackup[] = "boot_env.bkp";
const char kTemporary[] = "boot_env.tmp";

void appendBigEndian(std::string& bytes, std::uint32_t value) {
    for (unsigned shift = 32; shift > 0; shift -= 8) {
        bytes += static_cast<char>(value >> (shift - 8U));
    }
}

std::string imageOf(const Variables& vars) {
    std::string area;
    for (const auto& [key, value] : vars) {
        area += key + '\0' + value + '\0' + '\0';
    }
    std::string image("\xff\xff\xff\0", 4);
    appendBigEndian(image, kestrova_crc32(reinterpret_cast<const unsigned char*>(area.data()),
                                          static_cast<int>(area.size())));
    appendBigEndian(image, static_cast<std::uint32_t>(area.size()));
    return image + area;
}

/// Every kind of damage that makes an image invalid.
std::vector<std::pair<std::string, std::string>> damagedImages(const std::string& image) {
    std::string flipped = image;
    flipped.back() = static_cast<char>(flipped.back() ^ 1);
    std::string badFlags = image;
    badFlags[3] = 1;
    std::string tooLong = image;
    tooLong[8] = '\x7f';
    return {{"flipped bit", flipped},
            {"bad flags", badFlags},
            {"size beyond the end", tooLong},
            {"cut", image.substr(0, image.size() - 1)},
            {"empty", ""},
            {"shorter than a header", image.substr(0, 7)},
            {"zeros", std::string(image.size(), '\0')},
            {"garbage", std::string(image.size(), '\xa5')}};
}

}  // namespace

std::vector<Change> changes(bool creating) {
    std::vector<Change> all = {
        {"a new variable", {{"new", "value"}}},
        {"another value", {{"a", "something else"}}},
        {"a variable less", {{"a", ""}}},
        {"nothing removed", {{"absent", ""}}},
        {"a value of two blocks", {{"big", std::string(900, 'b')}}},
        {"a value of four blocks", {{"big", std::string(1700, 'c')}}},
        {"a value of twelve blocks", {{"big", std::string(5900, 'd')}}},
        {"several", {{"a", "x"}, {"b", ""}, {"new", "value"}, {"serial", std::string(600, 's')}}}};
    if (creating) {
        all.push_back({"created anew", {}, true});
    }
    return all;
}

std::vector<Scenario> scenarios() {
    const std::string older = imageOf({{"a", "0"}, {"serial", "KV-0001"}});
    const std::string old = imageOf({{"a", "1"}, {"b", "2"}, {"serial", "KV-0001"}});
    const std::string other = imageOf({{"never", "to be read"}});
    const std::string large = imageOf({{"a", std::string(700, 'x')}, {"b", std::string(900, 'y')}});
    const std::string longer = imageOf({{"a", "1"}, {"z", std::string(9000, 'f')}});
    std::vector<Scenario> all;
    const auto add = [&](const std::string& name, const Disk& disk) {
        all.push_back({name, disk, Mounted::eReadWrite});
    };
    add("nothing", {});
    add("no variables", {{kPrimary, imageOf({})}});
    add("no backup", {{kPrimary, old}});
    add("both", {{kPrimary, old}, {kBackup, older}});
    add("both, of four blocks", {{kPrimary, large}, {kBackup, older}});
    add("both, of eighteen blocks", {{kPrimary, longer}, {kBackup, older}});
    add("no primary", {{kBackup, older}});
    for (const std::string& left : {other, old, old.substr(0, 30), std::string(),
                                    std::string(2000, '\xa5'), std::string(512, '\0')}) {
        const std::string size = std::to_string(left.size());
        add("both, temporary file left with " + size,
            {{kPrimary, old}, {kBackup, older}, {kTemporary, left}});
        add("no primary, temporary file left with " + size, {{kBackup, older}, {kTemporary, left}});
        add("nothing but a temporary file with " + size, {{kTemporary, left}});
    }
    for (const auto& [damage, image] : damagedImages(old)) {
        add("primary damaged: " + damage, {{kPrimary, image}, {kBackup, older}});
        add("backup damaged: " + damage, {{kPrimary, old}, {kBackup, image}});
        add("both damaged: " + damage, {{kPrimary, image}, {kBackup, image}});
        add("primary damaged, no backup: " + damage, {{kPrimary, image}});
        add("primary damaged, temporary file left: " + damage,
            {{kPrimary, image}, {kBackup, older}, {kTemporary, other}});
    }
    for (const Mounted mounted : {Mounted::eNot, Mounted::eReadOnly}) {
        const std::string how = mounted == Mounted::eNot ? "not mounted" : "read-only";
        all.push_back({"both, " + how, {{kPrimary, old}, {kBackup, older}}, mounted});
        all.push_back({"primary damaged, " + how, {{kPrimary, "x"}, {kBackup, older}}, mounted});
    }
    return all;
}

}  // namespace crash
