// SPDX-License-Identifier: MIT
//
// Simulates a power cut at every point of every save of the boot variables, on a disk in memory,
// and continues with the library from every possible state:
//   crash-states [--of partition|file] [--sample N] [--every N] [--share I/N]
//       [--without file-sync|directory-sync]
// For each such disk the next load must return either all variables from before the save or all
// from after it, and only the latter once the save has returned true. The next save must succeed
// and persist, and its own power cuts are simulated in the same way. A save is also tested with
// each of its calls failing, followed by another save without a boot. --sample N uses only every
// Nth save, --every N only every Nth disk as the start of another save (20 by default), --share
// part I of N. --of file tests an environment file without the software partition, as it is created
// on a build host. The exit status is 1 on a loss.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <unordered_set>

#include "System/BlockdevCfg.fmp.h"
#include "System/bootvarsmanager/sysBootEnvironmentFile.h"
#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "base/outputlevel.h"
#include "tests/crash/diskstates.h"
#include "tests/crash/memorydisk.h"
#include "tests/crash/scenarios.h"

namespace {

using crash::Change;
using crash::Disk;
using crash::History;
using crash::memoryDisk;
using crash::Mounted;
using crash::Scenario;
using crash::Variables;

constexpr unsigned long long kShownLosses = 10;

struct Options {
    unsigned long mSample = 1;
    unsigned long mEvery = 20;
    unsigned long mShare = 0;
    unsigned long mShares = 1;
};

/// The software partition's files, by their paths on the disk in memory.
constexpr char kFile[] = "/boot-sw//boot_env";
bool ofFile = false;

Variables load() {
    KestrovaVector<std::string> names;
    KestrovaVector<std::string> values;
    (void)(ofFile ? sysBootEnvironmentFile(kFile).getVarList(names, values)
                  : sysBootVarsManager().getVarList(names, values));
    Variables vars;
    for (std::size_t i = 0; i < names.size(); ++i) {
        vars[names[i]] = values[i];
    }
    return vars;
}

bool save(const Change& change) {
    KestrovaVector<std::string> names;
    KestrovaVector<std::string> values;
    for (const auto& [name, value] : change.mSettings) {
        names.push_back(name);
        values.push_back(value);
    }
    if (ofFile) {
        sysBootEnvironmentFile file(kFile);
        return change.mCreates ? file.create(true) : file.setVars(names, values);
    }
    return names.size() == 1 ? sysBootVarsManager().setVarS(names[0].c_str(), values[0].c_str())
                             : sysBootVarsManager().setVars(names, values);
}

Variables with(Variables vars, const Change& change) {
    if (change.mCreates) {
        return {};
    }
    for (const auto& [name, value] : change.mSettings) {
        vars.erase(name);
        if (!value.empty()) {
            vars[name] = value;
        }
    }
    return vars;
}

/// The allowed results of a load.
struct Expected {
    std::vector<Variables> mBefore;  ///< until the save has returned
    std::vector<Variables> mAfter;
};

class Cutter {
public:
    explicit Cutter(const Options& options) : mOptions(options) {}

    void run();
    bool lost() const { return mLosses != 0; }

private:
    struct Place {
        const Scenario* mScenario;
        const Change* mChange;
        int mFailing;
        std::size_t mEvent;
        int mDepth;
    };

    bool mine();
    void cutOnce(const Scenario& scenario, const Change& change, int failing);
    void cutRetry(const Scenario& scenario, const Change& change, int failing);
    void cut(const History& history, const Expected& expected, Place place);
    void check(const Disk& disk, const std::vector<Variables>& allowed, const Place& place);
    void goOn(const Disk& disk, const Variables& loaded, const Place& place);
    void expect(bool held, const char* what, const Place& place);

    Options mOptions;
    unsigned long long mWork = 0;
    unsigned long long mStates = 0;
    unsigned long long mDepth[2] = {0, 0};
    unsigned long long mLosses = 0;
    unsigned long long mChosen = 0;
    std::unordered_set<std::size_t> mDifferent;
};

void Cutter::expect(bool held, const char* what, const Place& place) {
    if (held) {
        return;
    }
    if (mLosses++ < kShownLosses) {
        std::printf("%s: %s; %s; call %d fails; event %zu; save %d\n", what,
                    place.mScenario->mName.c_str(), place.mChange->mName, place.mFailing,
                    place.mEvent, place.mDepth + 1);
    }
}

/// Cuts the power after every event of a save, and after its end.
void Cutter::cut(const History& history, const Expected& expected, Place place) {
    // Two points that leave the same disk with the same expectation are one state.
    std::unordered_set<std::size_t> seen;
    const std::size_t events = history.mEvents.size();
    for (place.mEvent = 0; place.mEvent <= events + 1; ++place.mEvent) {
        const bool returned = place.mEvent > events;
        crash::forEachDisk(history, returned ? events : place.mEvent, [&](const Disk& disk) {
            std::size_t hash = returned ? 1 : 0;
            for (const auto& [name, content] : disk) {
                hash = hash * 1000003 + std::hash<std::string>()(name + '\0' + content);
            }
            if (seen.insert(hash).second) {
                mDifferent.insert(hash);
                ++mDepth[place.mDepth];
                check(disk, returned ? expected.mAfter : expected.mBefore, place);
            }
        });
    }
}

void Cutter::check(const Disk& disk, const std::vector<Variables>& allowed, const Place& place) {
    ++mStates;
    memoryDisk().start(disk, place.mScenario->mMounted);
    const Variables loaded = load();
    bool found = false;
    for (const Variables& vars : allowed) {
        found = found || vars == loaded;
    }
    expect(found, "LOST", place);
    goOn(disk, loaded, place);
}

/// Makes the next save after a power cut, and its own power cuts if they have not been tried yet.
void Cutter::goOn(const Disk& disk, const Variables& loaded, const Place& place) {
    const Change change = {"the next save", {{"next", place.mDepth == 0 ? "1" : "2"}}};
    memoryDisk().start(disk, place.mScenario->mMounted);
    expect(save(change), "NOT SAVED", place);
    expect(memoryDisk().faithful(), "LEFT OPEN", place);
    const Variables complete = with(loaded, change);
    const History history = memoryDisk().history();
    memoryDisk().start(crash::syncedDisk(history), place.mScenario->mMounted);
    expect(load() == complete, "LOST BY THE NEXT SAVE", place);
    if (place.mDepth == 0 && mChosen++ % mOptions.mEvery == 0) {
        Place next = place;
        next.mDepth = 1;
        cut(history, {{loaded, complete}, {complete}}, next);
    }
}

void Cutter::cutOnce(const Scenario& scenario, const Change& change, int failing) {
    memoryDisk().start(scenario.mDisk, scenario.mMounted);
    const Variables before = load();
    memoryDisk().start(scenario.mDisk, scenario.mMounted);
    memoryDisk().failAt(failing);
    const bool saved = save(change);
    const Variables after = with(before, change);
    Expected expected = {{before, after}, {after}};
    if (!saved) {
        expected.mAfter = expected.mBefore;
    }
    const Place place = {&scenario, &change, failing, 0, 0};
    expect(saved == (failing == 0), "WRONG RESULT", place);
    cut(History(memoryDisk().history()), expected, place);
}

/// Makes a save, which may fail, and then one that does not, without a boot between them.
void Cutter::cutRetry(const Scenario& scenario, const Change& change, int failing) {
    memoryDisk().start(scenario.mDisk, scenario.mMounted);
    const Variables before = load();
    memoryDisk().start(scenario.mDisk, scenario.mMounted);
    memoryDisk().failAt(failing);
    const bool saved = save(change);
    const Variables between = load();
    const Change retry = {"the retry", {{"retry", "1"}}};
    const Place place = {&scenario, &change, failing, 0, 0};
    expect(saved == (failing == 0), "WRONG RESULT", place);
    expect(save(retry), "NOT SAVED", place);
    const Variables after = with(between, retry);
    cut(History(memoryDisk().history()), {{before, with(before, change), after}, {after}}, place);
}

/// Returns whether the next save belongs to this share and sample.
bool Cutter::mine() {
    const unsigned long long number = mWork++;
    return number % mOptions.mSample == 0 &&
           number / mOptions.mSample % mOptions.mShares == mOptions.mShare;
}

int changingCalls(const Scenario& scenario, const Change& change) {
    memoryDisk().start(scenario.mDisk, scenario.mMounted);
    (void)save(change);
    return memoryDisk().changingCalls();
}

/// An environment file is not mounted, and is changed only if it is valid.
bool applies(const Scenario& scenario) {
    memoryDisk().start(scenario.mDisk, scenario.mMounted);
    return !ofFile || (scenario.mMounted == Mounted::eReadWrite &&
                       sysBootEnvironmentFile(kFile).verify() <= sysBootEnvironmentFile::eStBackup);
}

void Cutter::run() {
    const std::vector<Scenario> scenarios = crash::scenarios();
    const std::vector<Change> changes = crash::changes(ofFile);
    for (const Scenario& scenario : scenarios) {
        if (!applies(scenario)) {
            continue;
        }
        for (const Change& change : changes) {
            const int calls = changingCalls(scenario, change);
            for (int failing = 0; failing <= calls; ++failing) {
                if (mine()) {
                    cutOnce(scenario, change, failing);
                    cutRetry(scenario, change, failing);
                }
            }
        }
    }
    std::printf("%llu after a save, %llu after a save that followed a power cut\n", mDepth[0],
                mDepth[1]);
    std::printf("%llu states, %zu of them different, %llu losses\n", mStates, mDifferent.size(),
                mLosses);
}

bool parse(int count, char** words, Options& options) {
    for (int i = 1; i + 1 < count; i += 2) {
        const std::string word = words[i];
        const char* const value = words[i + 1];
        char* end = nullptr;
        if (word == "--sample") {
            options.mSample = std::strtoul(value, &end, 10);
        } else if (word == "--every") {
            options.mEvery = std::strtoul(value, &end, 10);
        } else if (word == "--share") {
            options.mShare = std::strtoul(value, &end, 10);
            options.mShares = *end == '/' ? std::strtoul(end + 1, &end, 10) : 0;
        } else if (word == "--of" && std::strcmp(value, "file") == 0) {
            ofFile = true;
        } else if (word == "--of" && std::strcmp(value, "partition") == 0) {
            ofFile = false;
        } else if (word == "--without" && std::strcmp(value, "file-sync") == 0) {
            memoryDisk().mIgnoresFileSync = true;
        } else if (word == "--without" && std::strcmp(value, "directory-sync") == 0) {
            memoryDisk().mIgnoresDirectorySync = true;
        } else {
            return false;
        }
        if (end != nullptr && *end != '\0') {
            return false;
        }
    }
    return count % 2 == 1 && options.mSample > 0 && options.mEvery > 0 &&
           options.mShare < options.mShares;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse(argc, argv, options)) {
        std::fprintf(stderr,
                     "usage: crash-states [--of partition|file] [--sample N] [--every N] "
                     "[--share I/N] [--without file-sync|directory-sync]\n");
        return 2;
    }
    kestrova_debug_output_level = 0;
    (void)BlockdeviceConfig::CreateInstance();
    Cutter cutter(options);
    cutter.run();
    BlockdeviceConfig::DestroyInstance();
    return cutter.lost() ? 1 : 0;
}
