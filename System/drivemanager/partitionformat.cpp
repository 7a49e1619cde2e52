// SPDX-License-Identifier: MIT
//
// The long-running operations of a partition: creating and checking file systems.
#include <cerrno>
#include <cstdio>
#include <string>

#include "System/drivemanager/failure.h"
#include "System/drivemanager/partition.h"
#include "System/drivemanager/tools/toolcommands.h"
#include "System/drivemanager/tools/toolprogress.h"
#include "base/io/descriptor.h"
#include "base/io/linereader.h"
#include "base/log/log.h"

namespace {

/// Fails a format without a label.
bool noLabel(const std::string& device) {
    drivemanager::noteFailure(sysPartition::eFailFormat, device.c_str(), EINVAL);
    return false;
}

/// Returns whether a tool succeeded, and notes a failure.
bool succeeded(sysPartition::FailureStep step, const std::string& device,
               const base::ToolResult& result) {
    if (!result.succeeded()) {
        errno = result.mError;
        drivemanager::noteToolFailure(step, device.c_str(), result.mStatus);
    }
    return result.succeeded();
}

}  // namespace

bool sysPartition::ext3_format(const char* label) {
    const auto setProgress = [this](std::int32_t progress) {
        mFormatProgress.store(progress, std::memory_order_relaxed);
    };
    setProgress(0);
    if (label == nullptr) {
        return noLabel(mPath);
    }
    const base::ToolResult result =
        base::readTool(drivemanager::makeExt3(mPath, label), [&setProgress](std::FILE* stream) {
            setProgress(drivemanager::kFormatOpened);
            drivemanager::FormatOutput output;
            for (int character = base::readCharacter(stream); character != EOF;
                 character = base::readCharacter(stream)) {
                std::int32_t progress = 0;
                if (output.take(static_cast<char>(character), progress)) {
                    setProgress(progress);
                }
            }
            setProgress(drivemanager::kFormatOutputEnded);
        });
    if (result.mRan) {
        setProgress(drivemanager::kProgressDone);
    }
    return succeeded(eFailFormat, mPath, result);
}

bool sysPartition::xfs_format(const char* label) {
    if (label == nullptr) {
        return noLabel(mPath);
    }
    const auto logOutput = [](std::FILE* stream) {
        // Log the result of each read() at once, so that the tool's output is visible while it
        // runs.
        char output[1024];
        for (;;) {
            const ssize_t length = base::readSome(::fileno(stream), output, sizeof(output));
            if (length <= 0) {
                break;
            }
            base::logBytes(1, output, static_cast<std::size_t>(length));
        }
        // Readers of the log expect this byte at the end of the output.
        constexpr char endOfFile = static_cast<char>(EOF);
        base::logBytes(1, &endOfFile, 1);
    };
    return succeeded(eFailFormat, mPath,
                     base::readTool(drivemanager::makeXfs(mPath, label), logOutput));
}

bool sysPartition::ext3_fscheck() {
    if (isMounted()) {
        return true;
    }
    const auto setProgress = [this](std::int32_t progress) {
        mCheckProgress.store(progress, std::memory_order_relaxed);
    };
    setProgress(0);
    const base::ToolResult result =
        base::readTool(drivemanager::checkExt3(mPath), [&setProgress](std::FILE* stream) {
            char line[256];
            while (base::readLine(stream, line, sizeof(line))) {
                std::int32_t progress = 0;
                if (drivemanager::checkProgress(line, progress)) {
                    setProgress(progress);
                }
            }
        });
    if (result.mRan) {
        setProgress(drivemanager::kProgressDone);
    }
    return succeeded(eFailCheck, mPath, result);
}
