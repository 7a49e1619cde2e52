// SPDX-License-Identifier: MIT
//
// Commands on a disk and its partitions: the recording drive, or another disk by its node.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>

#include "System/BlockdevCfg.fmp.h"
#include "System/drivemanager/harddrive.h"
#include "driveprobe.h"

namespace {

/// A disk with accessors for its protected members.
class OpenDisk : public sysHardDrive {
public:
    Words identity() const { return {mDevice, mModel, mSerial, std::to_string(mCapacity)}; }
};

std::unique_ptr<OpenDisk> otherDisk;  // null while the recording drive is selected

sysHardDrive& disk() {
    return otherDisk != nullptr ? static_cast<sysHardDrive&>(*otherDisk) : recorder();
}

sysPartition& partition(const Words& words) {
    sysPartition* const found = disk().getPartition(std::stoi(words.at(1)));
    if (found == nullptr) {
        throw std::out_of_range("no such partition");
    }
    return *found;
}

std::string text(const char* value) {
    return value != nullptr ? value : "-";
}

Words describe(const sysPartition& partition) {
    static const char* const names[] = {"unknown", "ext3", "xfs"};
    return {partition.path(), std::to_string(partition.capacity()),
            std::to_string(partition.type()), names[partition.fileSystemType()],
            text(partition.label())};
}

/// Runs an operation on its own thread. The answer is its result, followed by each progress value
/// seen meanwhile; the first may be that of the previous operation.
Words watched(const std::function<bool()>& operation, const std::function<int()>& progress) {
    std::future<bool> result = std::async(std::launch::async, operation);
    std::vector<int> seen;
    bool ended = false;
    while (!ended) {
        ended = result.wait_for(std::chrono::milliseconds(1)) == std::future_status::ready;
        const int value = progress();
        if (seen.empty() || seen.back() != value) {
            seen.push_back(value);
        }
    }
    Words words = answer(result.get());
    for (const int value : seen) {
        words.push_back(std::to_string(value));
    }
    return words;
}

Words modelOf(const Words& words) {
    std::array<char, 64> model = {};
    std::array<char, 64> serial = {};
    const int descriptor = ::open(words.at(1).c_str(), O_RDONLY | O_CLOEXEC);
    const int result =
        get_drive_model(descriptor, model.data(), model.size(), serial.data(), serial.size());
    (void)::close(descriptor);
    return {std::to_string(result), model.data(), serial.data()};
}

void addIdentityCommands(Commands& commands) {
    commands["drive-model"] = modelOf;
    commands["capacity"] = [](const Words& words) -> Words {
        return {std::to_string(get_blk_capacity(words.at(1).c_str()))};
    };
    // "use" with a node selects that disk, without a node the recording drive.
    commands["use"] = [](const Words& words) {
        otherDisk.reset();
        if (words.size() == 1) {
            return answer(true);
        }
        otherDisk = std::make_unique<OpenDisk>();
        Words result = answer(otherDisk->init(words[1].c_str()));
        for (const std::string& word : otherDisk->identity()) {
            result.push_back(word);
        }
        return result;
    };
    // Initialises a partition from its node only, as code does that uses the partition usage table.
    commands["recognise"] = [](const Words& words) {
        sysPartition found;
        if (!found.init(words.at(1).c_str(), 0, 0x83)) {
            return answer(false);
        }
        return describe(found);
    };
    commands["software-partition"] = [](const Words&) -> Words {
        BlockdeviceConfig& table = *BlockdeviceConfig::GetInstance();
        return {table.GetSoftwarePartitionMountDevice(), table.GetSoftwarePartitionFilesystem(),
                table.GetDataPartition()->mpPartDevname};
    };
}

void addTableCommands(Commands& commands) {
    commands["partitions"] = [](const Words&) -> Words {
        return {std::to_string(disk().numPartitions())};
    };
    commands["describe"] = [](const Words& words) { return describe(partition(words)); };
    commands["partition"] = [](const Words& words) {
        int sizes[] = {std::stoi(words.at(1)), std::stoi(words.at(2)), std::stoi(words.at(3)),
                       std::stoi(words.at(4))};
        return answer(disk().partitionCustom(sizes));
    };
    commands["one-big"] = [](const Words&) { return answer(disk().partitionOneBig()); };
    commands["spin-down"] = [](const Words&) { return answer(disk().spinDown()); };
    commands["spin-down-delayed"] = [](const Words&) { return answer(disk().spinDownDelayed()); };
    commands["spin-up"] = [](const Words&) { return answer(disk().spinUp()); };
}

void addFilesystemCommands(Commands& commands) {
    commands["ext3-format"] = [](const Words& words) {
        sysPartition& target = partition(words);
        return watched([&] { return target.ext3_format(words.at(2).c_str()); },
                       [&] { return target.ext3_format_progress(); });
    };
    commands["ext3-progress"] = [](const Words& words) -> Words {
        return {std::to_string(partition(words).ext3_format_progress())};
    };
    commands["xfs-format"] = [](const Words& words) {
        return answer(partition(words).xfs_format(words.at(2).c_str()));
    };
    commands["check"] = [](const Words& words) {
        sysPartition& target = partition(words);
        return watched([&] { return target.ext3_fscheck(); },
                       [&] { return target.ext3_fscheck_progress(); });
    };
    commands["mount"] = [](const Words& words) {
        const auto type = words.at(3) == "xfs" ? sysPartition::eFsXfs : sysPartition::eFsExt3;
        return answer(partition(words).mount(words.at(2).c_str(), type,
                                             words.size() > 4 ? words[4].c_str() : nullptr));
    };
    commands["unmount"] = [](const Words& words) { return answer(partition(words).unmount()); };
    commands["is-mounted"] = [](const Words& words) -> Words {
        sysPartition& target = partition(words);
        return {target.isMounted() ? "true" : "false", text(target.mountpoint())};
    };
    commands["space"] = [](const Words& words) -> Words {
        const sysPartition& target = partition(words);
        return {std::to_string(target.fsBlockSize()), std::to_string(target.fsCapacity()),
                std::to_string(target.fsFree())};
    };
}

}  // namespace

void addDiskCommands(Commands& commands) {
    addIdentityCommands(commands);
    addTableCommands(commands);
    addFilesystemCommands(commands);
}
