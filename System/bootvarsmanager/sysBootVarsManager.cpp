// SPDX-License-Identifier: MIT
#include "System/bootvarsmanager/sysBootVarsManager.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <map>

#include "System/bootvarsmanager/bootenvironment.h"
#include "base/base64.h"
#include "base/log.h"
#include "base/text.h"

namespace {

constexpr char kSource[] = "System/bootvarsmanager/sysBootVarsManager";

using Variables = std::map<std::string, std::string>;

/// Room for the text of a binary variable of at most `max` bytes: twice as much. No variable is
/// longer than the file, so that bounds it; and with room for one character even `max` 0 does not
/// pass a variable off as empty.
std::size_t textRoom(unsigned max) {
    constexpr std::size_t least = 2;
    return std::clamp<std::size_t>(std::min<std::size_t>(max, kBootEnvFileSize) * 2, least,
                                   kBootEnvFileSize);
}

}  // namespace

bool sysBootVarsManager::getVarList(KestrovaVector<std::string>& names,
                                    KestrovaVector<std::string>& values) {
    Variables vars;
    bool loadedFromPrimary = false;
    (void)loadEnvironment(vars, loadedFromPrimary);
    for (const auto& [name, value] : vars) {
        names.push_back(name);
        values.push_back(value);
    }
    return true;
}

bool sysBootVarsManager::getVarS(const char* name, char* buf, int size) {
    if (name == nullptr) {
        return false;
    }
    Variables vars;
    bool loadedFromPrimary = false;
    if (!loadEnvironment(vars, loadedFromPrimary)) {
        return false;
    }
    const auto found = vars.find(name);
    if (found == vars.end()) {
        return false;
    }
    (void)kestrova_strncpy(buf, found->second.c_str(), size);
    return true;
}

bool sysBootVarsManager::getVarB(const char* name, unsigned& length, unsigned char* buf,
                                 unsigned max) {
    KestrovaVector<char> text(textRoom(max));
    if (!getVarS(name, text.data(), static_cast<int>(text.size()))) {
        return false;
    }
    const auto* const encoded = reinterpret_cast<const unsigned char*>(text.data());
    const auto textLength = static_cast<int>(std::strlen(text.data()));
    if (base64decodeBufferSize(encoded, textLength) < 0) {
        return false;
    }
    const int decoded =
        base64decode(encoded, textLength, buf, static_cast<int>(std::min<unsigned>(max, INT_MAX)));
    if (decoded < 0) {
        return false;
    }
    length = static_cast<unsigned>(decoded);
    return true;
}

bool sysBootVarsManager::setVarS(const char* name, const char* value) {
    base::logMessageAt(kSource, __LINE__, 1, "Load env already stored\n");
    if (name == nullptr) {
        return false;
    }
    if (value == nullptr) {
        value = "";
    }
    Variables vars;
    bool loadedFromPrimary = false;
    (void)loadEnvironment(vars, loadedFromPrimary);
    base::logMessageAt(kSource, __LINE__, 1, "Setting key %s %s\n", name, value);
    vars[name] = value;
    base::logMessageAt(kSource, __LINE__, 1, "Saving Environment\n");
    return saveEnvironment(vars, loadedFromPrimary);
}

bool sysBootVarsManager::setVarB(const char* name, const unsigned char* data, unsigned length) {
    if (length > INT_MAX) {
        return false;
    }
    const int size = base64encodeBufferSize(static_cast<int>(length));
    if (size < 0) {
        return false;
    }
    std::string text(static_cast<std::size_t>(size) + 1, '\0');
    const int encoded = base64encode(data, static_cast<int>(length),
                                     reinterpret_cast<unsigned char*>(text.data()), size);
    if (encoded < 0) {
        return false;
    }
    text.resize(static_cast<std::size_t>(encoded));
    return setVarS(name, text.c_str());
}

bool sysBootVarsManager::clearVar(const char* name) {
    return setVarS(name, nullptr);
}
