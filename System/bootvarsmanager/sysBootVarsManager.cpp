// SPDX-License-Identifier: MIT
#include "System/bootvarsmanager/sysBootVarsManager.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <string_view>

#include "System/bootvarsmanager/binaryvalue.h"
#include "System/bootvarsmanager/bootenvironment.h"
#include "System/bootvarsmanager/environmenttext.h"
#include "base/log/log.h"
#include "base/stream.h"
#include "base/text/base64.h"
#include "base/text/boundedtext.h"

namespace {

constexpr char kSource[] = "System/bootvarsmanager/sysBootVarsManager";

/// Room for the text of a binary variable of at most `max` bytes: twice as much, bounded by the
/// file's size. At least one character fits, so that a `max` of 0 does not make every variable
/// look empty.
std::size_t textRoom(unsigned max) {
    constexpr std::size_t least = 2;
    return std::clamp<std::size_t>(std::min<std::size_t>(max, kBootEnvFileSize) * 2, least,
                                   kBootEnvFileSize);
}

/// Writes the base64 text of bytes, a part at a time: the whole text may not fit into memory.
void printEncoded(KestrovaOstream& out, const unsigned char* data, unsigned length) {
    constexpr unsigned part = 3072;  // whole groups of three, so that the parts join
    char text[part / 3 * 4 + 1];
    while (length > 0) {
        const unsigned taken = std::min(length, part);
        const int size = base64encode(data, static_cast<int>(taken),
                                      reinterpret_cast<unsigned char*>(text), sizeof(text) - 1);
        text[size] = '\0';
        out << text;
        data += taken;
        length -= taken;
    }
}

/// Logs a setting whose text may be too long to be put together in memory: piece by piece.
/// `printValue` writes the value.
template <class PrintValue>
void logLongSetting(int line, const char* name, PrintValue printValue) {
    const base::PrintAccess access;
    if (base::beginMessageAt(kSource, line, 1)) {
        *pCoutKestrovaOstream << "Setting key " << name << " ";
        printValue(*pCoutKestrovaOstream);
        *pCoutKestrovaOstream << "\n";
    }
}

/// Logs a setting. A longer text than any that fits the file is written piece by piece.
void logTextSetting(int line, const char* name, std::size_t nameSize, const char* value,
                    std::size_t valueSize) {
    if (nameSize <= kBootEnvFileSize && valueSize <= kBootEnvFileSize) {
        base::logMessageAt(kSource, line, 1, "Setting key %s %s\n", name, value);
    } else {
        logLongSetting(line, name, [value](KestrovaOstream& out) { out << value; });
    }
}

/// Loads the variables, changes them and saves all of them. `change` is given the variables.
template <class Change>
bool store(Change change) {
    BootVariables vars(kBootEnvHeaderSize, kBootEnvAreaSize);
    bool loadedFromPrimary = false;
    (void)loadEnvironment(vars, loadedFromPrimary);
    change(vars);
    base::logMessageAt(kSource, __LINE__, 1, "Saving Environment\n");
    return saveEnvironment(vars, loadedFromPrimary);
}

/// setVarB() of more bytes than the file holds, without their text in memory. The bytes take the
/// text's place, because the save refuses both for their length before it copies anything.
bool setLongVariable(const char* name, const unsigned char* data, unsigned length) {
    base::logMessageAt(kSource, __LINE__, 1, "Load env already stored\n");
    if (name == nullptr) {
        return false;
    }
    return store([=](BootVariables& vars) {
        logLongSetting(__LINE__, name,
                       [=](KestrovaOstream& out) { printEncoded(out, data, length); });
        vars.set(name, {reinterpret_cast<const char*>(data), length});
    });
}

}  // namespace

bool sysBootVarsManager::getVarList(KestrovaVector<std::string>& names,
                                    KestrovaVector<std::string>& values) {
    BootVariables vars(kBootEnvHeaderSize, kBootEnvAreaSize);
    bool loadedFromPrimary = false;
    (void)loadEnvironment(vars, loadedFromPrimary);
    vars.appendTo(names, values);
    return true;
}

bool sysBootVarsManager::getVarS(const char* name, char* buf, int size) {
    if (name == nullptr) {
        return false;
    }
    BootVariables vars(kBootEnvHeaderSize, kBootEnvAreaSize);
    bool loadedFromPrimary = false;
    if (!loadEnvironment(vars, loadedFromPrimary)) {
        return false;
    }
    BootRecord found;
    if (!vars.find(name, found)) {
        return false;
    }
    // A NUL follows the value.
    (void)kestrova_strncpy(buf, found.mValue.data(), size);
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
    const std::string_view key = name;
    const std::string_view text = value;
    return store([&](BootVariables& vars) {
        logTextSetting(__LINE__, name, key.size(), value, text.size());
        vars.set(key, text);
    });
}

bool sysBootVarsManager::setVars(const KestrovaVector<std::string>& names,
                                 const KestrovaVector<std::string>& values) {
    const std::string problem = settingsProblem(names, values);
    if (!problem.empty()) {
        base::logMessageAt(kSource, __LINE__, 1, "Settings refused: %s\n", problem.c_str());
        return false;
    }
    base::logMessageAt(kSource, __LINE__, 1, "Load env already stored\n");
    return store([&](BootVariables& vars) {
        for (std::size_t i = 0; i < names.size(); ++i) {
            logTextSetting(__LINE__, names[i].c_str(), names[i].size(), values[i].c_str(),
                           values[i].size());
        }
        vars.setAll(names, values);
    });
}

bool sysBootVarsManager::setVarB(const char* name, const unsigned char* data, unsigned length) {
    if (length > INT_MAX || base64encodeBufferSize(static_cast<int>(length)) < 0) {
        return false;
    }
    if (length > kBootEnvFileSize) {
        return setLongVariable(name, data, length);
    }
    std::string text;
    if (!encodeBinaryValue(data, length, text)) {
        return false;
    }
    return setVarS(name, text.c_str());
}

bool sysBootVarsManager::clearVar(const char* name) {
    return setVarS(name, nullptr);
}
