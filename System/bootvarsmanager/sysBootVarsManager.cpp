// SPDX-License-Identifier: MIT
#include "System/bootvarsmanager/sysBootVarsManager.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "System/bootvarsmanager/bootenvironment.h"
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

/// Sets a variable and saves all of them. `logSetting` is called between loading and saving.
template <class LogSetting>
bool store(std::string_view name, std::string_view value, LogSetting logSetting) {
    BootVariables vars(kBootEnvHeaderSize, kBootEnvAreaSize);
    bool loadedFromPrimary = false;
    (void)loadEnvironment(vars, loadedFromPrimary);
    logSetting();
    vars.set(name, value);
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
    return store(name, {reinterpret_cast<const char*>(data), length}, [=] {
        logLongSetting(__LINE__, name,
                       [=](KestrovaOstream& out) { printEncoded(out, data, length); });
    });
}

}  // namespace

bool sysBootVarsManager::getVarList(KestrovaVector<std::string>& names,
                                    KestrovaVector<std::string>& values) {
    BootVariables vars(kBootEnvHeaderSize, kBootEnvAreaSize);
    bool loadedFromPrimary = false;
    (void)loadEnvironment(vars, loadedFromPrimary);
    // Everything that can fail comes first, so that both vectors always grow together.
    std::vector<std::pair<std::string, std::string>> found;
    found.reserve(vars.count());
    for (std::size_t place = 0; place < vars.count(); ++place) {
        const auto [name, value] = vars.at(place);
        found.emplace_back(name, value);
    }
    names.reserve(names.size() + found.size());
    values.reserve(values.size() + found.size());
    for (auto& [name, value] : found) {
        names.push_back(std::move(name));
        values.push_back(std::move(value));
    }
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
    return store(key, text, [&] {
        if (key.size() <= kBootEnvFileSize && text.size() <= kBootEnvFileSize) {
            base::logMessageAt(kSource, __LINE__, 1, "Setting key %s %s\n", name, value);
        } else {
            logLongSetting(__LINE__, name, [value](KestrovaOstream& out) { out << value; });
        }
    });
}

bool sysBootVarsManager::setVarB(const char* name, const unsigned char* data, unsigned length) {
    if (length > INT_MAX) {
        return false;
    }
    const int size = base64encodeBufferSize(static_cast<int>(length));
    if (size < 0) {
        return false;
    }
    if (length > kBootEnvFileSize) {
        return setLongVariable(name, data, length);
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
