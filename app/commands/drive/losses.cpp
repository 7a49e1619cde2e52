// SPDX-License-Identifier: MIT
#include "app/commands/drive/losses.h"

#include <unistd.h>

#include <cstdio>

#include "app/commands/drive/toolrun.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

constexpr int kTypeLinux = 0x83;
constexpr char kProbe[] = "/sbin/blkid";

/// Returns the value of a line NAME=VALUE, as "blkid -o export" prints it, or of NAME="VALUE"
/// within a line, as smaller tools of that name print it; empty if there is none.
std::string valueOf(const std::string& text, const std::string& name) {
    std::size_t begin = ("\n" + text).find("\n" + name + "=");
    if (begin != std::string::npos) {
        begin += name.size() + 1;
        return text.substr(begin, text.find('\n', begin) - begin);
    }
    begin = text.find(" " + name + "=\"");
    if (begin == std::string::npos) {
        return {};
    }
    begin += name.size() + 3;
    return text.substr(begin, text.find('"', begin) - begin);
}

void probe(Loss& loss) {
    if (::access(kProbe, X_OK) != 0) {
        return;
    }
    const ToolRun run = runTool(std::string(kProbe) + " -p -o export " + loss.mPath);
    if (run.good()) {
        loss.mContent = valueOf(run.mOutput, "TYPE");
        loss.mLabel = valueOf(run.mOutput, "LABEL");
    }
}

Loss contentOf(const std::string& path, unsigned long long capacity) {
    Loss loss{path, capacity, {}, {}};
    sysPartition::Signature signature;
    if (sysPartition::readSignature(path.c_str(), &signature) && signature.mpName != nullptr) {
        loss.mContent = signature.mpName;
        loss.mLabel = static_cast<const char*>(signature.mLabel);
    } else {
        probe(loss);
    }
    loss.mOwn = loss.mContent == "xfs" && (loss.mLabel == "DVRStorage" || loss.mLabel == "DVRData");
    return loss;
}

std::string typeText(int type) {
    char text[16];
    (void)std::snprintf(text, sizeof(text), "type %02x", static_cast<unsigned>(type));
    return text;
}

}  // namespace

std::vector<Loss> findLosses(const DriveLook& look) {
    std::vector<Loss> losses;
    for (const PartitionLook& partition : look.mPartitions) {
        Loss loss = contentOf(partition.mPath, partition.mCapacity);
        if (partition.mType != kTypeLinux) {
            loss.mContent += (loss.mContent.empty() ? "" : ", ") + typeText(partition.mType);
            loss.mOwn = false;
        }
        losses.push_back(loss);
    }
    // With partitions, do not look at the whole disk: an old signature may still be on it.
    if (losses.empty()) {
        losses.push_back(contentOf(kDriveDevice, look.mIdentity.mCapacity));
    }
    return losses;
}

Result checkDestruction(const DriveLook& look, const std::vector<Loss>& losses, bool force) {
    if (!look.mTableFailure.empty()) {
        return Result::failed(look.mTableFailure);
    }
    for (const PartitionLook& partition : look.mPartitions) {
        const std::string path = printable(partition.mPath);
        if (!partition.mMountPoints.empty()) {
            return Result::failed(path + " is mounted on " +
                                  printable(partition.mMountPoints.front()) +
                                  ": 'drive stop' or umount comes first");
        }
        if (partition.isClaimed()) {
            return Result::failed(path + " is in use by another program");
        }
    }
    for (const Loss& loss : losses) {
        if (loss.isForeign() && !force) {
            return Result::failed(printable(loss.mPath) +
                                  " holds what is not the recording drive's own (" +
                                  printable(loss.mContent) +
                                  (loss.mLabel.empty() ? "" : ", label " + quoted(loss.mLabel)) +
                                  "); --force destroys it all the same");
        }
    }
    return {};
}

std::string lossesText(const std::vector<Loss>& losses) {
    std::string text;
    for (const Loss& loss : losses) {
        text += "  " + padded(printable(loss.mPath), 10) + "  " +
                padded(sizeText(loss.mCapacity), 9) + "  " +
                padded(loss.mContent.empty() ? "nothing known" : printable(loss.mContent), 7) +
                (loss.mLabel.empty() ? "" : "  " + printable(loss.mLabel)) + "\n";
    }
    return text;
}

Json lossesData(const std::vector<Loss>& losses) {
    Json array = Json::array();
    for (const Loss& loss : losses) {
        Json data;
        data.add("path", loss.mPath).add("capacity", loss.mCapacity);
        data.add("content", loss.mContent.empty() ? nullptr : loss.mContent.c_str());
        data.add("label", loss.mLabel.empty() ? nullptr : loss.mLabel.c_str());
        data.add("own", loss.mOwn);
        array.append(data);
    }
    return array;
}

}  // namespace app
