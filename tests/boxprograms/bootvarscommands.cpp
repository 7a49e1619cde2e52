// SPDX-License-Identifier: MIT
// Commands on the boot variables. Bytes are in hexadecimal digits.
#include <cstdio>
#include <stdexcept>
#include <string>

#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "System/system.h"
#include "driveprobe.h"

namespace {

sysBootVarsManager& manager() {
    if (getSystem() == nullptr) {
        throw std::logic_error("the system is not up");
    }
    return *getSystem()->mpBootVarsManager;
}

Words list() {
    KestrovaVector<std::string> names;
    KestrovaVector<std::string> values;
    Words result = answer(manager().getVarList(names, values));
    for (std::size_t i = 0; i < names.size(); ++i) {
        result.push_back(names[i] + "=" + values[i]);
    }
    return result;
}

/// The answer ends with the contents of the buffer, which is filled with question marks before the
/// call.
Words text(const Words& words) {
    std::string buffer(std::stoul(words.at(2)), '?');
    Words result = answer(
        manager().getVarS(words.at(1).c_str(), buffer.data(), static_cast<int>(buffer.size())));
    result.emplace_back(buffer.c_str());
    return result;
}

Words bytes(const Words& words) {
    std::string buffer(std::stoul(words.at(2)), '\0');
    unsigned length = 0;
    if (!manager().getVarB(words.at(1).c_str(), length,
                           reinterpret_cast<unsigned char*>(buffer.data()),
                           static_cast<unsigned>(buffer.size()))) {
        return answer(false);
    }
    std::string digits;
    for (std::size_t i = 0; i < length; ++i) {
        char pair[3];
        (void)std::snprintf(pair, sizeof(pair), "%02x", static_cast<unsigned char>(buffer[i]));
        digits += pair;
    }
    return {"true", digits};
}

Words setBytes(const Words& words) {
    const std::string& digits = words.at(2);
    std::string data;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        data += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    return answer(manager().setVarB(words.at(1).c_str(),
                                    reinterpret_cast<const unsigned char*>(data.data()),
                                    static_cast<unsigned>(data.size())));
}

}  // namespace

void addBootVarsCommands(Commands& commands) {
    commands["vars-list"] = [](const Words&) { return list(); };
    commands["vars-get"] = text;
    commands["vars-get-bytes"] = bytes;
    commands["vars-set"] = [](const Words& words) {
        return answer(manager().setVarS(words.at(1).c_str(), words.at(2).c_str()));
    };
    commands["vars-set-bytes"] = setBytes;
    commands["vars-clear"] = [](const Words& words) {
        return answer(manager().clearVar(words.at(1).c_str()));
    };
}
