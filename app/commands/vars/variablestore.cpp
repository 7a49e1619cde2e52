// SPDX-License-Identifier: MIT
#include "app/commands/vars/variablestore.h"

#include <cerrno>
#include <cstring>

#include "System/bootvarsmanager/sysBootEnvironmentFile.h"
#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "System/system.h"
#include "app/commands/vars/bootimage.h"
#include "app/commands/vars/environmentcheck.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

// No variable is longer than the file that contains all of them.
constexpr unsigned kLongestValue = kLargestBootImage;

Result noVariable(const std::string& name) {
    return Result::failed("there is no variable " + quoted(name) + "; 'vars list' shows them all",
                          eAbsent);
}

Result notBinary(const std::string& name) {
    return Result::failed("the variable " + quoted(name) +
                          " is not binary: no base64 text; 'vars get' prints it");
}

const unsigned char* bytesOf(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

class BoxStore : public VariableStore {
public:
    Result list(Words& names, Words& values) override {
        (void)mManager.getVarList(names, values);
        return names.empty() ? checkEnvironment() : Result();
    }

    Result get(const std::string& name, std::string& value) override {
        std::string text(kLongestValue, '\0');
        if (!mManager.getVarS(name.c_str(), text.data(), static_cast<int>(text.size()))) {
            return notFound(name);
        }
        value.assign(text, 0, text.find('\0'));
        return {};
    }

    Result getBinary(const std::string& name, std::string& bytes) override {
        std::string text;
        if (Result result = get(name, text); !result.good()) {
            return result;
        }
        std::string found(kLongestValue, '\0');
        unsigned length = 0;
        if (!mManager.getVarB(name.c_str(), length, reinterpret_cast<unsigned char*>(found.data()),
                              kLongestValue)) {
            return notBinary(name);
        }
        bytes = found.substr(0, length);
        return {};
    }

    Result set(const Words& names, const Words& values) override {
        return saved(names.size() == 1 ? mManager.setVarS(names[0].c_str(), values[0].c_str())
                                       : mManager.setVars(names, values));
    }

    Result setBinary(const std::string& name, const std::string& bytes) override {
        return saved(
            mManager.setVarB(name.c_str(), bytesOf(bytes), static_cast<unsigned>(bytes.size())));
    }

private:
    /// Returns why the library found no variable with this name.
    Result notFound(const std::string& name) {
        Words names;
        Words values;
        Result result = list(names, values);
        return result.good() ? noVariable(name) : result;
    }

    static Result saved(bool done) {
        return done ? Result()
                    : Result::failed("the boot environment could not be saved; -v tells more");
    }

    sysBootVarsManager& mManager = *getSystem()->mpBootVarsManager;
};

/// A failure of the file's last operation.
Result failureOf(const sysBootEnvironmentFile& file) {
    const std::string reason = printable(file.reason());
    if (file.error() == EWOULDBLOCK) {
        return Result::failed(reason, eBusy);
    }
    if (file.error() == ENOENT && file.state() == sysBootEnvironmentFile::eStMissing) {
        return Result::failed(reason + "; 'vars create' makes it", eAbsent);
    }
    return Result::failed(reason);
}

unsigned sizeOf(const Options& options) {
    return options.mSize.value_or(static_cast<unsigned>(kLargestBootImage));
}

class FileStore : public VariableStore {
public:
    explicit FileStore(const Options& options) : mFile(options.mFile.c_str(), sizeOf(options)) {}

    Result list(Words& names, Words& values) override {
        return result(mFile.getVarList(names, values));
    }

    Result get(const std::string& name, std::string& value) override {
        const bool found = mFile.getVarS(name.c_str(), value);
        return !found && mFile.error() == ENODATA ? noVariable(name) : result(found);
    }

    Result getBinary(const std::string& name, std::string& bytes) override {
        KestrovaVector<unsigned char> data;
        const bool found = mFile.getVarB(name.c_str(), data);
        if (!found && mFile.error() == EILSEQ) {
            return notBinary(name);
        }
        if (!found && mFile.error() == ENODATA) {
            return noVariable(name);
        }
        bytes.assign(data.begin(), data.end());
        return result(found);
    }

    Result set(const Words& names, const Words& values) override {
        return result(mFile.setVars(names, values));
    }

    Result setBinary(const std::string& name, const std::string& bytes) override {
        return result(
            mFile.setVarB(name.c_str(), bytesOf(bytes), static_cast<unsigned>(bytes.size())));
    }

private:
    Result result(bool done) const { return done ? Result() : failureOf(mFile); }

    sysBootEnvironmentFile mFile;
};

}  // namespace

std::unique_ptr<VariableStore> openStore(const Options& options) {
    if (options.mFile.empty()) {
        return std::make_unique<BoxStore>();
    }
    return std::make_unique<FileStore>(options);
}

Result createEnvironment(const Options& options) {
    sysBootEnvironmentFile file(options.mFile.c_str(), sizeOf(options));
    if (file.create(options.mReplace)) {
        return {};
    }
    Result result = failureOf(file);
    result.mError += file.error() == EEXIST ? "; --replace replaces it" : "";
    return result;
}

Result environmentState(const Options& options, std::string& state) {
    static const char* const names[] = {"good", "backup", "damaged", "missing", "unreadable"};
    sysBootEnvironmentFile file(options.mFile.c_str(), sizeOf(options));
    state = names[file.verify()];
    switch (file.state()) {
        case sysBootEnvironmentFile::eStGood:
            return {};
        case sysBootEnvironmentFile::eStBackup:
            return Result::failed(printable(file.reason()) + "; its backup is used");
        default:
            return failureOf(file);
    }
}

}  // namespace app
