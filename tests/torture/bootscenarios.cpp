// SPDX-License-Identifier: MIT
//
// Every operation of the boot variables, from each mount state and each state of the files.
#include <cstring>

#include "System/BlockdevCfg.fmp.h"
#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "tests/torture/scenario.h"

namespace torture {

namespace {

const Variables kOld = {{"a", "1"}, {"b", "AAEC"}, {"syslog", "10.0.0.1"}};
const Variables kOlder = {{"a", "0"}, {"b", "AAEC"}};

struct Operation {
    const char* mName;
    Variables mSettings;  ///< variables of a change, "" to remove one; empty for a reading
                          ///< operation
    bool (*mRun)(sysBootVarsManager&, std::string& read);
};

const Operation kOperations[] = {
    {"get-text",
     {},
     [](sysBootVarsManager& vars, std::string& read) {
         char value[16] = {};
         const bool found = vars.getVarS("a", value, sizeof(value));
         read = value;
         return found;
     }},
    {"get-binary",
     {},
     [](sysBootVarsManager& vars, std::string& read) {
         unsigned length = 0;
         unsigned char bytes[16] = {};
         const bool found = vars.getVarB("b", length, bytes, sizeof(bytes));
         read = found && length == 3 && bytes[2] == 2 ? "1" : "";
         return found;
     }},
    {"list",
     {},
     [](sysBootVarsManager& vars, std::string& read) {
         KestrovaVector<std::string> names;
         KestrovaVector<std::string> values;
         const bool listed = vars.getVarList(names, values);
         read = values.empty() ? "" : values[0];
         return listed;
     }},
    {"set-text",
     {{"c", "new"}},
     [](sysBootVarsManager& vars, std::string&) { return vars.setVarS("c", "new"); }},
    {"set-binary",
     {{"c", "AQI="}},
     [](sysBootVarsManager& vars, std::string&) {
         const unsigned char bytes[] = {1, 2};
         return vars.setVarB("c", bytes, sizeof(bytes));
     }},
    {"set-several",
     {{"a", ""}, {"b", "new"}, {"c", "x"}},
     [](sysBootVarsManager& vars, std::string&) {
         return vars.setVars({"c", "a", "b"}, {"x", "", "new"});
     }},
    {"clear",
     {{"a", ""}},
     [](sysBootVarsManager& vars, std::string&) { return vars.clearVar("a"); }},
};

enum class Files { eBoth, eDamagedPrimary, eNone };

/// The library's table, which contains the device of the software partition.
class Table {
public:
    Table() { (void)BlockdeviceConfig::CreateInstance(); }
    ~Table() { BlockdeviceConfig::DestroyInstance(); }
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;
};

class BootCase : public Case {
public:
    BootCase(const Operation* operation, const char* options, Files files)
        : mOperation(*operation), mOptions(options), mFiles(files) {}

    void prepare(World& world) override {
        mpTable = std::make_unique<Table>();
        const std::string whole = environmentImage(kOld);
        switch (mFiles) {
            case Files::eBoth:
                world.makeSoftware(mOptions, whole, environmentImage(kOlder));
                break;
            case Files::eDamagedPrimary:
                world.makeSoftware(mOptions, whole.substr(0, 20), environmentImage(kOlder));
                break;
            case Files::eNone:
                world.makeSoftware(mOptions, "", "");
                break;
        }
        mBefore = world.environment();
    }

    void act() override { mResult = mOperation.mRun(mManager, mRead); }

    void check(Verdict& verdict) override {
        checkMount(verdict);
        if (mOperation.mSettings.empty()) {
            checkReading(verdict);
        } else {
            checkChange(verdict);
        }
        checkNext(verdict);
    }

private:
    const char* before() const { return mOptions != nullptr ? mOptions : ""; }

    void checkMount(Verdict& verdict) {
        // The kernel may refuse to restore the mount state.
        const bool refused =
            verdict.failedIn(Function::mount) || verdict.failedIn(Function::umount);
        if (!refused) {
            verdict.expect(verdict.mWorld.softwareState() == before(),
                           "the mount state was \"" + std::string(before()) + "\" and is \"" +
                               verdict.mWorld.softwareState() + "\"");
        } else if (verdict.mWorld.softwareState() != before()) {
            verdict.expect(verdict.said({" readonly: "}), "the mount state is lost without a word");
        }
    }

    void checkReading(Verdict& verdict) {
        verdict.expect(verdict.mWorld.environment() == mBefore, "reading has changed the files");
        verdict.expect(verdict.mWorld.softwareFile("boot_env.tmp").empty(), "a temporary file");
        if (verdict.mustSucceed() && mFiles != Files::eNone) {
            verdict.expect(mResult && !mRead.empty(), "the reading failed without a reason");
        }
        if (verdict.returned() && mFiles == Files::eBoth && mRead.empty()) {
            verdict.expectSaid({"Unable to mount device", "trying backup"});
        }
        if (mFiles == Files::eBoth && !mRead.empty()) {
            verdict.expect(mRead == "1" || (mRead == "0" && verdict.mFired), "wrong value");
        }
    }

    /// Returns the variables after the change, applied to these.
    Variables changed(Variables vars) const {
        for (const auto& [key, value] : mOperation.mSettings) {
            vars.erase(key);
            if (!value.empty()) {
                vars[key] = value;
            }
        }
        return vars;
    }

    void checkChange(Verdict& verdict) {
        const std::optional<Variables> now = verdict.mWorld.environment();
        const bool isBefore = now == mBefore;
        const bool isAfter = now.has_value() && *now == changed(mBefore.value_or(Variables()));
        // Variables that could not be read are missing from the next file; the log reports that.
        const bool isFromBackup =
            now.has_value() && *now == changed(kOlder) && verdict.said({"trying backup"});
        const bool isFromNothing = now.has_value() && *now == changed({}) &&
                                   verdict.said({"trying backup", "Unable to mount device"});
        verdict.expect(isBefore || isAfter || (verdict.mFired && (isFromBackup || isFromNothing)),
                       "the variables are neither as before nor as after");
        if (verdict.mustSucceed()) {
            verdict.expect(mResult, "the change failed without a reason");
        }
        if (!verdict.returned()) {
            return;
        }
        if (mResult) {
            verdict.expect(!isBefore || isAfter, "the change is reported and not made");
        } else {
            verdict.expectSaid({"Unable to mount device", "Environment too big for flash",
                                "Failed to wirte environment file", "Error backing up environment",
                                "Error making environment current",
                                "Error making environment permanent"});
        }
    }

    void checkNext(Verdict& verdict) {
        const std::string state = verdict.mWorld.softwareState();
        verdict.expect(mManager.setVarS("next", "9"), "the next change fails");
        const std::optional<Variables> now = verdict.mWorld.environment();
        verdict.expect(now.has_value() && now->count("next") == 1, "the next change is lost");
        verdict.expect(verdict.mWorld.softwareState() == state, "the next change leaves its mount");
        verdict.expect(verdict.mWorld.softwareFile("boot_env.tmp").empty(),
                       "the next change leaves its temporary file");
        char value[16] = {};
        verdict.expect(
            mManager.getVarS("next", value, sizeof(value)) && std::strcmp(value, "9") == 0,
            "the next reading fails");
    }

    const Operation& mOperation;
    const char* mOptions;
    Files mFiles;
    std::unique_ptr<Table> mpTable;
    std::optional<Variables> mBefore;
    sysBootVarsManager mManager;
    bool mResult = false;
    std::string mRead;
};

}  // namespace

void addBootScenarios(Scenarios& scenarios) {
    struct State {
        const char* mName;
        const char* mOptions;
    };
    for (const State& state : {State{".unmounted", nullptr}, {".ro", "ro"}, {".rw", "rw"}}) {
        for (const Operation& operation : kOperations) {
            scenarios.push_back(
                scenario<BootCase>(std::string("boot-") + operation.mName + state.mName, &operation,
                                   state.mOptions, Files::eBoth));
        }
    }
    for (const Operation& operation : kOperations) {
        scenarios.push_back(scenario<BootCase>(std::string("boot-") + operation.mName + ".damaged",
                                               &operation, "ro", Files::eDamagedPrimary));
        scenarios.push_back(scenario<BootCase>(std::string("boot-") + operation.mName + ".empty",
                                               &operation, nullptr, Files::eNone));
    }
}

}  // namespace torture
