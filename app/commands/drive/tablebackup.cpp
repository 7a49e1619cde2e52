// SPDX-License-Identifier: MIT
#include "app/commands/drive/tablebackup.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

#include "app/commands/drive/drivelook.h"
#include "app/commands/drive/toolrun.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

constexpr char kLastingFolder[] = "/var/lib/kestrova";
constexpr char kPassingFolder[] = "/run/kestrova";

/// Returns the partition tool that can also write a saved table: if /sbin/sfdisk is the adapter for
/// the current tool, the tool itself.
std::string tableTool() {
    const char* const folder = std::getenv("KESTROVA_TOOLS");
    const std::string adapted =
        std::string(folder != nullptr ? folder : "/usr/lib/kestrova/tools") + "/sfdisk";
    return ::access(adapted.c_str(), X_OK) == 0 ? adapted : "/sbin/sfdisk";
}

int writeAndSync(int descriptor, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = ::write(descriptor, text.data() + done, text.size() - done);
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    // A pipe or a terminal fails with EINVAL, because it cannot be synced.
    return ::fsync(descriptor) == 0 || errno == EINVAL ? 0 : errno;
}

/// Removes the file on failure. The status is eBusy if the name exists.
Result writeNew(const std::string& path, const std::string& text) {
    const int descriptor =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    int failure = descriptor < 0 ? errno : 0;
    if (descriptor >= 0) {
        failure = writeAndSync(descriptor, text);
        (void)::close(descriptor);
    }
    if (descriptor >= 0 && failure != 0) {
        (void)::unlink(path.c_str());
    }
    return failure == 0 ? Result()
                        : Result::failed(printable(path) + ": " + rootErrorText(failure),
                                         failure == EEXIST ? eBusy : eFailed);
}

/// Syncs the directory, without which the file could be missing after a power cut.
void syncFolder(const std::string& folder) {
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0) {
        (void)::fsync(descriptor);
        (void)::close(descriptor);
    }
}

std::string newName() {
    char text[64];
    const std::time_t now = std::time(nullptr);
    std::tm parts = {};
    (void)::gmtime_r(&now, &parts);
    (void)std::strftime(text, sizeof(text), "partition-table-%Y%m%d-%H%M%S", &parts);
    return text;
}

Result writeInFolder(const std::string& folder, const std::string& text, std::string& file) {
    constexpr int mostNumbers = 9;
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
        return Result::failed(printable(folder) + ": " + rootErrorText(errno));
    }
    // A second table within a second gets a number.
    const std::string name = folder + "/" + newName();
    file = name;
    Result result = writeNew(file, text);
    for (int number = 2; result.mStatus == eBusy && number <= mostNumbers; ++number) {
        file = name + "." + std::to_string(number);
        result = writeNew(file, text);
    }
    if (result.good()) {
        syncFolder(folder);
    }
    return result;
}

Result writeSomewhere(const std::string& file, const std::string& text, TableBackup& backup) {
    if (!file.empty()) {
        backup.mFile = file;
        return writeNew(file, text);
    }
    Result result = writeInFolder(kLastingFolder, text, backup.mFile);
    if (!result.good() && writeInFolder(kPassingFolder, text, backup.mFile).good()) {
        backup.mLasting = false;
        return {};
    }
    return result;
}

}  // namespace

Result saveTable(const std::string& file, TableBackup& backup) {
    const std::string tool = tableTool();
    const ToolRun run = runTool(tool + " -d " + kDriveDevice);
    std::string reason;
    if (run.good()) {
        const Result written = writeSomewhere(file, run.mOutput, backup);
        reason = written.good() ? "" : written.mError + "; --save-table FILE saves it elsewhere";
    } else {
        reason = run.reason((tool + " -d").c_str());
    }
    if (!reason.empty()) {
        return Result::failed("the old partition table could not be saved, nothing was changed: " +
                              reason);
    }
    backup.mRestore = tool + " " + kDriveDevice + " <" + backup.mFile;
    return {};
}

}  // namespace app
