// SPDX-License-Identifier: MIT
//
// Every operation on a boot environment in a plain file, with each state of the files.
#include <cerrno>

#include "System/bootvarsmanager/sysBootEnvironmentFile.h"
#include "tests/torture/scenario.h"

namespace torture {

namespace {

using File = sysBootEnvironmentFile;

const Variables kOld = {{"a", "1"}, {"b", "AAEC"}};
const Variables kOlder = {{"a", "0"}, {"b", "AAEC"}};
constexpr char kPath[] = "/boot-sw/env";

struct Operation {
    const char* mName;
    bool mChanges;
    Variables mSettings;  ///< "" to remove
    bool (*mRun)(File&, std::string& read);
};

const Operation kOperations[] = {
    {"verify",
     false,
     {},
     [](File& file, std::string& read) {
         const bool valid = file.verify() <= File::eStBackup;
         read = valid ? "1" : "";
         return valid;
     }},
    {"get-text", false, {}, [](File& file, std::string& read) { return file.getVarS("a", read); }},
    {"get-binary",
     false,
     {},
     [](File& file, std::string& read) {
         KestrovaVector<unsigned char> bytes;
         const bool found = file.getVarB("b", bytes);
         read = found && bytes.size() == 3 && bytes[2] == 2 ? "1" : "";
         return found;
     }},
    {"list",
     false,
     {},
     [](File& file, std::string& read) {
         KestrovaVector<std::string> names;
         KestrovaVector<std::string> values;
         const bool listed = file.getVarList(names, values);
         read = values.empty() ? "" : values[0];
         return listed;
     }},
    {"export",
     false,
     {},
     [](File& file, std::string& read) {
         std::string text;
         const bool exported = file.exportText(text);
         read = text.substr(0, 3) == "a=1" ? "1" : text.substr(0, 3) == "a=0" ? "0" : "";
         return exported;
     }},
    {"parse",
     false,
     {},
     [](File& /*file*/, std::string& read) {
         KestrovaVector<std::string> names;
         KestrovaVector<std::string> values;
         std::string reason;
         const bool parsed = File::parseText("a=1\n", names, values, reason);
         std::string text;
         read = parsed && File::formatText(names, values, text, reason) ? text.substr(2, 1) : "";
         return parsed;
     }},
    {"create", true, {}, [](File& file, std::string&) { return file.create(true); }},
    {"create-new", true, {}, [](File& file, std::string&) { return file.create(); }},
    {"set-text",
     true,
     {{"c", "new"}},
     [](File& file, std::string&) { return file.setVarS("c", "new"); }},
    {"set-binary",
     true,
     {{"c", "AQI="}},
     [](File& file, std::string&) {
         const unsigned char bytes[] = {1, 2};
         return file.setVarB("c", bytes, sizeof(bytes));
     }},
    {"set-several",
     true,
     {{"a", ""}, {"c", "x"}},
     [](File& file, std::string&) {
         return file.setVars({"c", "a"}, {"x", ""});
     }},
    {"import",
     true,
     {{"a", ""}, {"c", "x"}},
     [](File& file, std::string&) { return file.importText("c=x\na=\n"); }},
    {"clear", true, {{"a", ""}}, [](File& file, std::string&) { return file.clearVar("a"); }},
};

enum class Files { eBoth, eDamagedPrimary, eNone };

class EnvironmentFileCase : public Case {
public:
    EnvironmentFileCase(const Operation* operation, Files files)
        : mOperation(*operation), mFiles(files) {}

    void prepare(World& /*world*/) override {
        const std::string whole = environmentImage(kOld);
        if (mFiles != Files::eNone) {
            tests::writeFile(kPath, mFiles == Files::eBoth ? whole : whole.substr(0, 20));
            tests::writeFile(path(".bkp"), environmentImage(kOlder));
        }
        mBefore = environment();
        mpFile = std::make_unique<File>(kPath);
    }

    void act() override {
        mResult = mOperation.mRun(*mpFile, mRead);
        mError = mpFile->error();
        mReason = mpFile->reason();
    }

    void check(Verdict& verdict) override {
        const bool refused = is("create-new")
                                 ? mFiles != Files::eNone
                                 : mFiles == Files::eNone && !creates() && !is("parse");
        verdict.expect(!verdict.mustSucceed() || mResult != refused, "a wrong result: " + mReason);
        if (verdict.returned()) {
            verdict.expect(mResult == (mError == 0), "a result against the error");
            verdict.expect(mResult || !mReason.empty(), "a failure without a reason");
        }
        verdict.expect(!leftTemporary() || verdict.failedIn(Function::unlink), "a temporary file");
        if (mOperation.mChanges) {
            checkChange(verdict);
        } else {
            checkReading(verdict);
        }
        checkNext(verdict);
    }

private:
    static std::string path(const char* suffix) { return std::string(kPath) + suffix; }
    bool is(const char* name) const { return std::string(mOperation.mName) == name; }
    bool creates() const { return is("create") || is("create-new"); }
    static bool leftTemporary() { return !tests::readFile(path(".tmp")).empty(); }

    /// What the box would read.
    static std::optional<Variables> environment() {
        const std::optional<Variables> primary = readImage(tests::readFile(kPath));
        return primary ? primary : readImage(tests::readFile(path(".bkp")));
    }

    void checkReading(Verdict& verdict) {
        verdict.expect(environment() == mBefore, "reading has changed the files");
        if (mResult && mFiles == Files::eBoth) {
            verdict.expect(mRead == "1" || (mRead == "0" && verdict.mFired), "wrong value");
        }
    }

    Variables changed(Variables vars) const {
        if (creates()) {
            return {};
        }
        for (const auto& [key, value] : mOperation.mSettings) {
            vars.erase(key);
            if (!value.empty()) {
                vars[key] = value;
            }
        }
        return vars;
    }

    void checkChange(Verdict& verdict) {
        const std::optional<Variables> now = environment();
        const bool isBefore = now == mBefore;
        const bool isAfter = now.has_value() && *now == changed(mBefore.value_or(Variables()));
        // A file that could not be read is taken for damaged: its backup counts.
        const bool isFromBackup = mFiles == Files::eBoth && verdict.mFired && now.has_value() &&
                                  *now == changed(kOlder) && verdict.said({"trying backup"});
        verdict.expect(isBefore || isAfter || isFromBackup,
                       "the variables are neither as before nor as after");
        if (verdict.returned() && mResult) {
            verdict.expect(isAfter || isFromBackup, "the change is reported and not made");
        }
    }

    void checkNext(Verdict& verdict) {
        File next(kPath);
        if (!environment()) {
            verdict.expect(next.create(true), "the next environment fails: " + next.reason());
        }
        verdict.expect(next.setVarS("next", "9"), "the next change fails: " + next.reason());
        const std::optional<Variables> now = environment();
        verdict.expect(now.has_value() && now->count("next") == 1, "the next change is lost");
        verdict.expect(!leftTemporary(), "the next change leaves its temporary file");
        verdict.expect(next.verify() == File::eStGood && next.state() == File::eStGood,
                       "the next file is not good: " + next.reason());
    }

    const Operation& mOperation;
    Files mFiles;
    std::unique_ptr<File> mpFile;
    std::optional<Variables> mBefore;
    bool mResult = false;
    int mError = 0;
    std::string mReason;
    std::string mRead;
};

}  // namespace

void addEnvironmentFileScenarios(Scenarios& scenarios) {
    for (const Operation& operation : kOperations) {
        const std::string name = std::string("environment-file-") + operation.mName;
        scenarios.push_back(scenario<EnvironmentFileCase>(name, &operation, Files::eBoth));
        scenarios.push_back(
            scenario<EnvironmentFileCase>(name + ".damaged", &operation, Files::eDamagedPrimary));
        scenarios.push_back(
            scenario<EnvironmentFileCase>(name + ".empty", &operation, Files::eNone));
    }
}

}  // namespace torture
