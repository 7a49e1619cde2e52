// SPDX-License-Identifier: MIT
//
// The long-running operations of a partition: making file systems and checking them.
#include <cstdio>
#include <string>

#include "System/drivemanager/partition.h"
#include "System/drivemanager/toolprogress.h"
#include "base/linereader.h"
#include "base/log.h"
#include "base/tool.h"

namespace {

constexpr int kCannotExecute = 255;

}  // namespace

bool sysPartition::ext3_format(const char* label) {
    const auto setProgress = [this](std::int32_t progress) {
        mFormatProgress.store(progress, std::memory_order_relaxed);
    };
    const char* const arguments[] = {"/sbin/mkfs.ext3", "-L",          label,  "-m", "0", "-i",
                                     "2097152",         mPath.c_str(), nullptr};
    const base::ToolCommand command = {arguments, base::ToolPipe::eStandardOutput, true,
                                       "Error spawning mkfs.ext3", kCannotExecute};
    setProgress(0);
    base::Tool tool;
    if (!tool.openPipe() || tool.start(command) != base::Tool::Start::eStarted) {
        return false;
    }
    setProgress(drivemanager::kFormatOpened);
    drivemanager::FormatOutput output;
    for (int character = base::readCharacter(tool.stream()); character != EOF;
         character = base::readCharacter(tool.stream())) {
        std::int32_t progress = 0;
        if (output.take(static_cast<char>(character), progress)) {
            setProgress(progress);
        }
    }
    setProgress(drivemanager::kFormatOutputEnded);
    const int status = tool.finish();
    setProgress(drivemanager::kProgressDone);
    return status == 0;
}

bool sysPartition::xfs_format(const char* label) {
    const char* const arguments[] = {"/sbin/mkfs.xfs", "-L",          label,  "-f", "-l",
                                     "lazy-count=0",   mPath.c_str(), nullptr};
    const base::ToolCommand command = {arguments, base::ToolPipe::eStandardOutput, true,
                                       "Error spawning mkfs.xfs", kCannotExecute};
    base::Tool tool;
    if (!tool.openPipe() || tool.start(command) != base::Tool::Start::eStarted) {
        return false;
    }
    int character = 0;
    do {
        // The end-of-file value that closes the output is passed on as well: readers of the log
        // know the byte 0xff as its end.
        character = base::readCharacter(tool.stream());
        base::logCharacter(1, static_cast<char>(character));
    } while (character != EOF);
    return tool.finish() == 0;
}

bool sysPartition::ext3_fscheck() {
    if (isMounted()) {
        return true;
    }
    const auto setProgress = [this](std::int32_t progress) {
        mCheckProgress.store(progress, std::memory_order_relaxed);
    };
    setProgress(0);
    base::Tool tool;
    if (!tool.openPipe()) {
        return false;
    }
    const std::string descriptor = std::to_string(tool.writeDescriptor());
    const char* const arguments[] = {"/sbin/fsck.ext3", "-C",   descriptor.c_str(), "-p",
                                     mPath.c_str(),     nullptr};
    const base::ToolCommand command = {arguments, base::ToolPipe::eBothEnds, true, nullptr,
                                       kCannotExecute};
    if (tool.start(command) != base::Tool::Start::eStarted) {
        return false;
    }
    char line[256];
    while (base::readLine(tool.stream(), line, sizeof(line))) {
        std::int32_t progress = 0;
        if (drivemanager::checkProgress(line, progress)) {
            setProgress(progress);
        }
    }
    const int status = tool.finish();
    setProgress(drivemanager::kProgressDone);
    return status == 0;
}
