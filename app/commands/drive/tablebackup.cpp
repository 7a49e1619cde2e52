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

/// The partition tool that can also write a saved table: where the adapter for today's tool stands
/// at /sbin/sfdisk, the tool itself.
std::string tableTool() {
    const char* const folder = std::getenv("KESTROVA_TOOLS");
    const std::string adapted =
        std::string(folder != nullptr ? folder : "/usr/lib/kestrova/tools") + "/sfdisk";
    return ::access(adapted.c_str(), X_OK) == 0 ? adapted : "/sbin/sfdisk";
}

std::string failureText(const std::string& path, int error) {
    return printable(path) + ": " + rootErrorText(error);
}

/// Returns 0, or the errno of the failure.
int writeAndSync(int descriptor, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = ::write(descriptor, text.data() + done, text.size() - done);
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    // EINVAL: a pipe or a terminal has nothing to sync.
    return ::fsync(descriptor) == 0 || errno == EINVAL ? 0 : errno;
}

/// Returns 0, or the errno of the failure: nothing is left behind then.
int writeNew(const std::string& path, const std::string& text) {
    const int descriptor =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (descriptor < 0) {
        return errno;
    }
    const int failure = writeAndSync(descriptor, text);
    (void)::close(descriptor);
    if (failure != 0) {
        (void)::unlink(path.c_str());
    }
    return failure;
}

/// The file is found after a power cut only when its folder is on the disk, too.
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

bool writeInFolder(const std::string& folder, const std::string& text, std::string& file,
                   std::string& error) {
    constexpr int mostNumbers = 9;
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
        error = failureText(folder, errno);
        return false;
    }
    // A second table within a second gets a number.
    const std::string name = folder + "/" + newName();
    file = name;
    int failure = writeNew(file, text);
    for (int number = 2; failure == EEXIST && number <= mostNumbers; ++number) {
        file = name + "." + std::to_string(number);
        failure = writeNew(file, text);
    }
    if (failure != 0) {
        error = failureText(file, failure);
        return false;
    }
    syncFolder(folder);
    return true;
}

bool writeSomewhere(const std::string& file, const std::string& text, TableBackup& backup,
                    std::string& error) {
    if (!file.empty()) {
        backup.mFile = file;
        const int failure = writeNew(file, text);
        error = failure != 0 ? failureText(file, failure) : std::string();
        return failure == 0;
    }
    if (writeInFolder(kLastingFolder, text, backup.mFile, error)) {
        return true;
    }
    backup.mLasting = false;
    std::string ignored;
    return writeInFolder(kPassingFolder, text, backup.mFile, ignored);
}

}  // namespace

bool saveTable(const std::string& file, TableBackup& backup, std::string& error) {
    const std::string tool = tableTool();
    const ToolRun run = runTool(tool + " -d " + kDriveDevice);
    if (!run.good()) {
        error = run.reason((tool + " -d").c_str());
        return false;
    }
    if (!writeSomewhere(file, run.mOutput, backup, error)) {
        error += "; --save-table FILE saves it elsewhere";
        return false;
    }
    backup.mRestore = tool + " " + kDriveDevice + " <" + backup.mFile;
    return true;
}

}  // namespace app
