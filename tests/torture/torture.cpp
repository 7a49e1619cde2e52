// SPDX-License-Identifier: MIT
//
// Makes every call, allocation and tool of the library fail once, and cancels its threads at every
// cancellation point, in every scenario:
//   torture [--sample N] [--seed S] [--scenario NAME] [--kind call|alloc|cancel|tool] [--list]
//           [--run ID] [--share I/N] [--known FILE] [--controls]
// --sample N runs N of all runs, selected by the seed. --scenario takes a name with shell
// wildcards. --run repeats one run and prints its output. --share selects part I of N. --known
// names a file of explained findings. --controls runs the scenarios with a deliberate defect
// instead of those of the library. The exit status is 1 if there are findings.
#include <fcntl.h>
#include <fnmatch.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>

#include "tests/torture/run.h"

namespace {

using torture::Kind;
using torture::Outcome;
using torture::Plan;
using torture::Runner;
using torture::Scenario;
using torture::Scenarios;

constexpr unsigned kLongestSeconds = 24 * 3600;
constexpr std::size_t kShownRuns = 3;

/// An explained finding: a pattern and its reason.
struct Known {
    std::string mPattern;
    std::string mReason;
};

struct Options {
    unsigned long mSample = 0;  ///< 0 for all
    unsigned long mSeed = 1;
    std::string mScenario = "*";
    std::string mKind;
    std::string mRun;
    std::vector<Known> mKnown;
    unsigned long mShare = 0;
    unsigned long mShares = 1;
    bool mList = false;
    bool mControls = false;
};

struct Job {
    const Scenario* mScenario;
    Plan mPlan;
};

/// Findings with the same text in the same function, which most likely have one cause.
struct Group {
    unsigned long mCount = 0;
    std::vector<std::string> mRuns;
    std::string mText;
    std::string mKnown;  ///< why it is not a defect; "" for a defect
};

class Torture {
public:
    Torture(const Options& options, torture::World& world) : mOptions(options), mRunner(world) {}

    /// Returns whether all findings are explained.
    bool run();

private:
    void collectScenarios();
    void collectJobs();
    void choose();
    void take(const Scenario& scenario, const Plan& plan, const Outcome& outcome);
    bool repeat();
    void list() const;
    bool summary(double seconds) const;
    std::string idOf(const Scenario& scenario, const Plan& plan) const;

    const Options& mOptions;
    Runner mRunner;
    Scenarios mScenarios;
    std::vector<Job> mJobs;
    std::map<std::string, Group> mGroups;
    unsigned long mKinds[5] = {};
    unsigned long mRuns = 0;
    unsigned long mMissed = 0;  ///< runs that never reached their position
    unsigned long long mCalls = 0;
};

void Torture::collectScenarios() {
    Scenarios all;
    if (mOptions.mControls) {
        torture::addControlScenarios(all);
    } else {
        torture::addBootScenarios(all);
        torture::addEnvironmentFileScenarios(all);
        torture::addDriveScenarios(all);
        torture::addPartitionScenarios(all);
        torture::addHttpScenarios(all);
        torture::addFetcherScenarios(all);
        torture::addProcessScenarios(all);
        torture::addLockScenarios(all);
        torture::addSystemScenarios(all);
    }
    for (Scenario& each : all) {
        if (::fnmatch(mOptions.mScenario.c_str(), each.mName.c_str(), 0) == 0) {
            mScenarios.push_back(std::move(each));
        }
    }
}

void Torture::collectJobs() {
    for (const Scenario& each : mScenarios) {
        Outcome outcome;
        const std::vector<Plan> plans = mRunner.plansFor(each, outcome);
        mCalls += static_cast<unsigned long long>(torture::shared().mEvents.load());
        ++mRuns;
        take(each, Plan(), outcome);
        for (const Plan& plan : plans) {
            if (mOptions.mKind.empty() || mOptions.mKind == nameOf(plan.mKind)) {
                mJobs.push_back({&each, plan});
            }
        }
    }
}

/// Selects the sample, and this share of it.
void Torture::choose() {
    if (mOptions.mSample != 0 && mOptions.mSample < mJobs.size()) {
        std::mt19937 random(static_cast<std::mt19937::result_type>(mOptions.mSeed));
        std::vector<Job> sample;
        // Selects each job with the remaining probability, so that the order is kept.
        for (std::size_t i = 0; i < mJobs.size(); ++i) {
            if (random() % (mJobs.size() - i) < mOptions.mSample - sample.size()) {
                sample.push_back(mJobs[i]);
            }
        }
        mJobs.swap(sample);
    }
    std::vector<Job> share;
    for (std::size_t i = mOptions.mShare; i < mJobs.size(); i += mOptions.mShares) {
        share.push_back(mJobs[i]);
    }
    mJobs.swap(share);
}

std::string Torture::idOf(const Scenario& scenario, const Plan& plan) const {
    return scenario.mName + "/" + plan.text();
}

void Torture::take(const Scenario& scenario, const Plan& plan, const Outcome& outcome) {
    for (const std::string& finding : outcome.mFindings) {
        const std::string place =
            outcome.mFiredIn >= 0 ? nameOf(static_cast<torture::Function>(outcome.mFiredIn)) : "-";
        std::string what = finding.substr(0, finding.find('\n'));
        const std::string key =
            scenario.mName + "/" + nameOf(plan.mKind) + "/" + place + ": " + what;
        Group& group = mGroups[key];
        ++group.mCount;
        group.mText = finding;
        if (group.mRuns.size() < kShownRuns) {
            group.mRuns.push_back(idOf(scenario, plan));
        }
        for (const Known& known : mOptions.mKnown) {
            if (::fnmatch(known.mPattern.c_str(), key.c_str(), 0) == 0) {
                group.mKnown = known.mReason;
            }
        }
    }
}

bool Torture::repeat() {
    const std::size_t slash = mOptions.mRun.find('/');
    Plan plan;
    const std::string name = mOptions.mRun.substr(0, slash);
    for (const Scenario& each : mScenarios) {
        if (each.mName != name) {
            continue;
        }
        Outcome outcome;
        (void)mRunner.plansFor(each, outcome);
        if (slash != std::string::npos) {
            if (!plan.parse(mOptions.mRun.substr(slash + 1))) {
                break;
            }
            outcome = mRunner.run(each, plan);
        }
        std::printf("%s\n", outcome.mOutput.c_str());
        for (const std::string& finding : outcome.mFindings) {
            std::printf("FOUND %s\n", finding.c_str());
        }
        std::printf("%s\n", outcome.mFired ? "it went wrong as planned" : "nothing went wrong");
        return outcome.mFindings.empty();
    }
    std::printf("no such run: %s\n", mOptions.mRun.c_str());
    return false;
}

void Torture::list() const {
    for (const Job& job : mJobs) {
        std::printf("%s\n", idOf(*job.mScenario, job.mPlan).c_str());
    }
}

bool Torture::summary(double seconds) const {
    bool clean = true;
    for (const auto& [key, group] : mGroups) {
        const bool known = !group.mKnown.empty();
        clean = clean && known;
        std::printf("%s %s (%lu runs)%s\n", known ? "known" : "FOUND", key.c_str(), group.mCount,
                    known ? (": " + group.mKnown).c_str() : "");
        if (known) {
            continue;
        }
        if (group.mText.find('\n') != std::string::npos) {
            std::printf("%s\n", group.mText.substr(group.mText.find('\n') + 1).c_str());
        }
        for (const std::string& run : group.mRuns) {
            std::printf("      script/torture%s --run %s\n",
                        mOptions.mControls ? " --controls" : "", run.c_str());
        }
    }
    unsigned long found = 0;
    unsigned long known = 0;
    for (const auto& [key, group] : mGroups) {
        (group.mKnown.empty() ? found : known) += 1;
    }
    std::printf(
        "%lu calls failed, %lu allocations, %lu cancellations, %lu tools; %lu runs did not "
        "reach their place; seed %lu, %.0f s\n",
        mKinds[1], mKinds[2], mKinds[3], mKinds[4], mMissed, mOptions.mSeed, seconds);
    std::printf("%zu scenarios, %lu runs, %llu calls, %lu findings, %lu known\n", mScenarios.size(),
                mRuns, mCalls, found, known);
    return clean;
}

bool Torture::run() {
    const auto start = std::chrono::steady_clock::now();
    collectScenarios();
    if (!mOptions.mRun.empty()) {
        return repeat();
    }
    collectJobs();
    choose();
    if (mOptions.mList) {
        list();
        return true;
    }
    for (const Job& job : mJobs) {
        const Outcome outcome = mRunner.run(*job.mScenario, job.mPlan);
        ++mRuns;
        ++mKinds[static_cast<int>(job.mPlan.mKind)];
        mMissed += outcome.mFired ? 0 : 1;
        for (const std::atomic<int>& calls : torture::shared().mCalls) {
            mCalls += static_cast<unsigned long long>(calls.load());
        }
        take(*job.mScenario, job.mPlan, outcome);
    }
    return summary(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
}

/// Reads lines of a pattern, " | " and a reason. Returns false if the file cannot be read.
bool readKnown(const char* path, std::vector<Known>& found) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        const std::size_t bar = line.find(" | ");
        if (bar != std::string::npos && line[0] != '#') {
            found.push_back({line.substr(0, bar), line.substr(bar + 3)});
        }
    }
    return file.eof();
}

bool parse(int count, char** words, Options& options) {
    for (int i = 1; i < count; ++i) {
        const std::string word = words[i];
        if (word == "--list") {
            options.mList = true;
            continue;
        }
        if (word == "--controls") {
            options.mControls = true;
            continue;
        }
        if (++i == count) {
            return false;
        }
        const char* const value = words[i];
        char* end = nullptr;
        if (word == "--sample") {
            options.mSample = std::strtoul(value, &end, 10);
        } else if (word == "--seed") {
            options.mSeed = std::strtoul(value, &end, 10);
        } else if (word == "--scenario") {
            options.mScenario = value;
        } else if (word == "--kind") {
            options.mKind = value;
        } else if (word == "--run") {
            options.mRun = value;
        } else if (word == "--known") {
            if (!readKnown(value, options.mKnown)) {
                return false;
            }
        } else if (word == "--share") {
            options.mShare = std::strtoul(value, &end, 10);
            options.mShares = *end == '/' ? std::strtoul(end + 1, &end, 10) : 0;
        } else {
            return false;
        }
        if (end != nullptr && *end != '\0') {
            return false;
        }
    }
    return options.mShare < options.mShares;
}

/// Enters a network namespace that has only loopback.
void enterNetwork() {
    if (::geteuid() != 0 || ::unshare(CLONE_NEWNET) != 0) {
        return;
    }
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request = {};
    (void)std::snprintf(request.ifr_name, sizeof(request.ifr_name), "lo");
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    (void)::ioctl(socket, SIOCSIFFLAGS, &request);
    (void)::close(socket);
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse(argc, argv, options)) {
        std::fprintf(stderr,
                     "usage: torture [--sample N] [--seed S] [--scenario NAME] "
                     "[--kind call|alloc|cancel|tool] [--list] [--run ID] [--share I/N] "
                     "[--known FILE] [--controls]\n");
        return 2;
    }
    enterNetwork();
    tests::inSandbox(
        [&options](tests::Sandbox& box) {
            torture::World world(box);
            if (!Torture(options, world).run()) {
                ADD_FAILURE() << "something was found";
            }
        },
        kLongestSeconds);
    if (testing::Test::IsSkipped()) {
        return 77;
    }
    return testing::Test::HasFailure() ? 1 : 0;
}
