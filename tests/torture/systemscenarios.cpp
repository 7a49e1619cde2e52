// SPDX-License-Identifier: MIT
//
// Starting and stopping the system object, in both modes, and the table of partitions.
#include <unistd.h>

#include "System/BlockdevCfg.fmp.h"
#include "System/drivemanager/drivemanager.h"
#include "System/sysSuperUserUtils.h"
#include "System/system.h"
#include "tests/torture/scenario.h"
#include "tests/unit/System/drivemanager/fakedvr.h"

namespace torture {

namespace {

enum class Life {
    eUpDown,
    eMinimalUpDown,
    eUp,
    eMinimalUp,
    eDown,
    eSecondUp,
    eNoDrive,
    eDvrAgain,
    eDownStarted,
    eMemory,
    eOwn,
};

class SystemCase : public Case {
public:
    explicit SystemCase(Life life) : mLife(life) {}

    void prepare(World& world) override {
        tests::makeDvrDisk(world.box());
        tests::allowMounting(world.box());
        if (mLife == Life::eNoDrive) {
            (void)::unlink("/dev/sda");
        }
        if (mLife == Life::eDown || mLife == Life::eSecondUp || mLife == Life::eDvrAgain ||
            mLife == Life::eDownStarted) {
            SystemInit();
            mpFirst = getSystem();
            mpFirstTable = BlockdeviceConfig::GetInstance();
        }
        if (mLife == Life::eDownStarted) {
            (void)mpFirst->mpDriveManager->getDVRDrive()->start();
        }
    }

    void act() override {
        switch (mLife) {
            case Life::eUpDown:
            case Life::eNoDrive:
                SystemInit();
                mUp = getSystem() != nullptr;
                SystemTerm();
                break;
            case Life::eMinimalUpDown:
                SystemMinimalInit();
                mUp = getSystem() != nullptr;
                SystemTerm();
                break;
            case Life::eUp:
            case Life::eSecondUp:
                SystemInit();
                mUp = getSystem() != nullptr;
                break;
            case Life::eMinimalUp:
                SystemMinimalInit();
                mUp = getSystem() != nullptr;
                break;
            case Life::eDown:
            case Life::eDownStarted:
                SystemTerm();
                mUp = true;
                break;
            case Life::eDvrAgain:
                getSystem()->termDVR();
                getSystem()->initDVR();
                mUp = true;
                break;
            case Life::eMemory:
                download_free(download_allocate(100000));
                mUp = mem_fd == -1;
                break;
            case Life::eOwn: {
                sysInterface own(true);
                const sysSuperUserUtils utils(&own);
                mUp = own.mpSuperUserUtils != nullptr;
                break;
            }
        }
    }

    int descriptorsKept(const Verdict& verdict) const override {
        return verdict.failedIn(Function::ioctl) ? 1 : 0;
    }

    void check(Verdict& verdict) override {
        verdict.expect(!verdict.mustSucceed() || mUp, "it does not come up");
        if (mLife == Life::eSecondUp && verdict.mThrew) {
            verdict.expect(getSystem() == mpFirst, "the first system is gone");
            verdict.expect(BlockdeviceConfig::GetInstance() == mpFirstTable,
                           "the first system's table is gone");
        }
        // Checks that the instance and the table exist together.
        const bool up = getSystem() != nullptr;
        const int level = static_cast<int>(kestrova_debug_output_level);
        kestrova_debug_output_level = 0;
        const bool table = BlockdeviceConfig::GetInstance() != nullptr;
        verdict.expect(up == table || verdict.mCancelled, "half a system");
        if (mLife == Life::eSecondUp && getSystem() != mpFirst) {
            SystemTerm();
            // The first system still exists, and nothing else frees it.
            delete mpFirstTable;
            (void)BlockdeviceConfig::CreateInstance();
            delete mpFirst;
        }
        SystemTerm();
        if (verdict.mCancelled && BlockdeviceConfig::GetInstance() != nullptr) {
            BlockdeviceConfig::DestroyInstance();
        }
        kestrova_debug_output_level = static_cast<unsigned>(level);
        checkNext(verdict);
    }

private:
    void checkNext(Verdict& verdict) {
        SystemInit();
        sysInterface* const system = getSystem();
        verdict.expect(system != nullptr && system->mpDriveManager != nullptr &&
                           system->mpSuperUserUtils != nullptr,
                       "the next start has no objects");
        verdict.expect(system->mpDriveManager->hasDVRDrive() == (mLife != Life::eNoDrive),
                       "the next start finds no drive");
        SystemTerm();
        verdict.expect(getSystem() == nullptr, "the next end leaves a system");
    }

    Life mLife;
    sysInterface* mpFirst = nullptr;
    BlockdeviceConfig* mpFirstTable = nullptr;
    bool mUp = false;
};

/// Collects a dump.
class Sink : public PrintfOutput {
public:
    void put(char character) override { write(&character, 1); }
    void write(const char* text, unsigned length) override {
        const failingcalls::Exempt exempt;
        mText.append(text, length);
    }
    void flush() override {}

    std::string mText;
};

/// An application's own device.
struct Device : BlockdevConfig {};

enum class TableStep { eCreate, eQueries, eDump, eOwn };

class TableCase : public Case {
public:
    explicit TableCase(TableStep step) : mStep(step) {}

    void prepare(World& /*world*/) override {
        if (mStep != TableStep::eCreate && mStep != TableStep::eOwn) {
            mpTable = BlockdeviceConfig::CreateInstance();
        }
    }

    void act() override {
        switch (mStep) {
            case TableStep::eCreate:
                mResult = BlockdeviceConfig::CreateInstance() != nullptr;
                break;
            case TableStep::eQueries:
                query();
                break;
            case TableStep::eDump: {
                KestrovaOstream stream(&mSink, KestrovaOstream::eFlagFlushEach);
                mpTable->DumpToKestrovaOstream(&stream);
                KestrovaVector<PartitionConfig*> partitions;
                mpTable->GetPartitionsByUsage(5, &partitions);
                partitions.at(0)->DumpToKestrovaOstream(&stream);
                Device().DumpToKestrovaOstream(&stream);
                mSink.AppendFormatedString({}, "word", 4);
                mSink.AppendFormatedIntegerIntern({}, false, 16, false, 12);
                *pCoutKestrovaOstream << "piece\n";
                stream << static_cast<const void*>(nullptr) << "" << std::string("text") << true
                       << 12U << -3;
                mResult = true;
                break;
            }
            case TableStep::eOwn: {
                BlockdeviceConfig own;
                mResult = own.GetDataPartition() != nullptr;
                break;
            }
        }
    }

    void check(Verdict& verdict) override {
        verdict.expect(!verdict.mustSucceed() || mResult, "the operation failed without a reason");
        if (verdict.mThrew && mStep == TableStep::eCreate) {
            kestrova_debug_output_level = 0;
            verdict.expect(BlockdeviceConfig::GetInstance() == nullptr, "half a table");
        }
        if (mStep == TableStep::eDump && verdict.returned()) {
            verdict.expect(mSink.mText.find("/media/data0-1") != std::string::npos &&
                               mSink.mText.find("text") != std::string::npos,
                           "half a dump");
        }
        kestrova_debug_output_level = 0;
        if (BlockdeviceConfig::GetInstance() == nullptr) {
            verdict.expect(BlockdeviceConfig::CreateInstance() != nullptr, "the next table fails");
        }
        BlockdeviceConfig::DestroyInstance();
    }

private:
    void query() {
        KestrovaVector<PartitionConfig*> all;
        mpTable->GetPartitionsByUsage(5, &all);
        mpTable->GetSettingsLinuxDevices(&all);
        mpTable->GetBulkLinuxDevices(&all);
        mpTable->GetTempLinuxDevices(&all);
        mpTable->GetIgnoredLinuxDevices(&all);
        mResult = all.size() == 5 && mpTable->GetDataPartition() != nullptr &&
                  *mpTable->GetSoftwarePartitionMountPoint() == '/' &&
                  *mpTable->GetSoftwarePartitionMountDevice() == '/' &&
                  *mpTable->GetSoftwarePartitionFilesystem() == 'e' &&
                  *mpTable->GetCustomPartitionMountDevice() == '\0';
    }

    TableStep mStep;
    BlockdeviceConfig* mpTable = nullptr;
    Sink mSink;
    bool mResult = false;
};

}  // namespace

void addSystemScenarios(Scenarios& scenarios) {
    const struct {
        const char* mName;
        Life mLife;
    } lives[] = {{"system", Life::eUpDown},
                 {"system.minimal", Life::eMinimalUpDown},
                 {"system.no-drive", Life::eNoDrive},
                 {"system-up", Life::eUp},
                 {"system-up.minimal", Life::eMinimalUp},
                 {"system-up.second", Life::eSecondUp},
                 {"system-down", Life::eDown},
                 {"system-down.started", Life::eDownStarted},
                 {"system-drive-again", Life::eDvrAgain},
                 {"system-memory", Life::eMemory},
                 {"system-own", Life::eOwn}};
    for (const auto& each : lives) {
        scenarios.push_back(scenario<SystemCase>(each.mName, each.mLife));
    }
    scenarios.push_back(scenario<TableCase>("table-create", TableStep::eCreate));
    scenarios.push_back(scenario<TableCase>("table-queries", TableStep::eQueries));
    scenarios.push_back(scenario<TableCase>("table-dump", TableStep::eDump));
    scenarios.push_back(scenario<TableCase>("table-own", TableStep::eOwn));
}

}  // namespace torture
