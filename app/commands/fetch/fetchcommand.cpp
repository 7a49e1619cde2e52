// SPDX-License-Identifier: MIT
//
// The command that streams one document.
#include <cerrno>
#include <chrono>
#include <cstring>

#include "app/cli/commands.h"
#include "app/cli/options.h"
#include "app/commands/fetch/download.h"
#include "app/commands/fetch/failuretext.h"
#include "app/commands/fetch/outputfile.h"
#include "app/commands/fetch/webaddress.h"
#include "app/session.h"
#include "app/ui/humantext.h"
#include "app/ui/transferview.h"
#include "base/outputlevel.h"

namespace app {

namespace {

constexpr char kStandardOutput[] = "standard output";

std::string countText(unsigned long long bytes) {
    return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
}

/// Where the document goes; empty for standard output.
std::string outputPath(const Invocation& invocation) {
    const std::string& path = invocation.mOptions.mOutput;
    return path == "-" ? std::string() : path;
}

Result notWritten(const std::string& path, int error) {
    if (path.empty() && error == EPIPE) {
        Result quiet;  // the reader has what it wanted
        quiet.mStatus = eFailed;
        return quiet;
    }
    const std::string name = path.empty() ? kStandardOutput : quoted(path);
    return Result::failed(name + ": " + std::strerror(error));
}

std::string brokenText(const Download& download, const Download::Amount& amount) {
    const std::string received =
        amount.mLength == 0 ? countText(amount.mReceived)
                            : std::to_string(amount.mReceived) + " of " + countText(amount.mLength);
    const std::string reason = failureText(download.failure());
    return "the document broke off after " + received + (reason.empty() ? "" : ": " + reason);
}

/// What is to be said of a download that has ended, but for its file.
Result resultOf(const Download& download, const Download::Amount& amount, const Invocation& words) {
    switch (download.outcome()) {
        case Download::eNotOpened:
            return Result::failed(
                quoted(words.mArguments[0]) + ": " + failureText(download.failure()), eRefused);
        case Download::eBrokenOff:
            return Result::failed(brokenText(download, amount), eBroken);
        case Download::eStopped:
            return Result::failed("cancelled after " + countText(amount.mReceived), eCancelled);
        case Download::eTooLong:
            return Result::failed("a document of 2 GiB or more can't be fetched");
        case Download::eNotWritten:
            return notWritten(outputPath(words), download.writeError());
        default:
            return {};
    }
}

const char* outcomeName(ExitStatus status) {
    switch (status) {
        case eDone:
            return "done";
        case eRefused:
            return "refused";
        case eBroken:
            return "broken";
        case eCancelled:
            return "cancelled";
        default:
            return "failed";
    }
}

/// Status of the reply; 0 when there was none.
int httpStatus(const Download& download) {
    constexpr int good = 200;
    switch (download.outcome()) {
        case Download::eNotOpened:
            return download.failure().mStatus;
        case Download::eStopped:
            return 0;  // it may have been cancelled before the reply
        default:
            return good;
    }
}

/// Shows how far it is until it has ended. A signal cancels it.
void follow(Session& session, Download& download, bool toTerminal) {
    constexpr int interval = 200;  // milliseconds
    const bool shown = !session.quiet() && !toTerminal && kestrova_debug_output_level == 0 &&
                       session.streams().canRedrawError();
    TransferView view("fetch", shown);
    Download::Wake wake = Download::eTimeOut;
    while (wake != Download::eEnded) {
        wake = download.wait(session.interrupts(), shown ? interval : -1);
        if (wake == Download::eInterrupted) {
            download.cancel();
            wake = Download::eEnded;
        }
        const Download::Amount amount = download.amount();
        view.show(amount.mReceived, amount.mLength);
    }
    view.end();
}

int openOutput(Session& session, const std::string& path, OutputFile& file) {
    if (!path.empty()) {
        return file.open(path);
    }
    file.borrow(session.streams().output());
    return 0;
}

}  // namespace

Result runFetch(Session& session, const Invocation& invocation) {
    const std::string path = outputPath(invocation);
    const std::string& url = invocation.mArguments[0];
    if (path.empty() && session.quiet()) {
        return Result::failed("with --json the document needs a file: -o FILE", eMisused);
    }
    OutputFile file;
    if (const int error = openOutput(session, path, file)) {
        return notWritten(path, error);
    }
    Download download(file, url);
    if (const int error = download.start()) {
        return Result::failed(std::string("no thread: ") + std::strerror(error));
    }
    follow(session, download, path.empty() && session.streams().canRedraw());
    const Download::Amount amount = download.amount();
    Result result = resultOf(download, amount, invocation);
    if (result.mStatus == eDone) {
        if (const int error = file.commit()) {
            result = notWritten(path, error);
        } else if (!path.empty()) {
            result.mText = printable(path) + ": " + countText(amount.mReceived) + "\n";
        }
        if (download.surplus()) {
            complain("fetch: the server sent more than it announced; the rest was dropped");
        }
    }
    result.mData.add("url", url).add("file", path).add("bytes", amount.mReceived);
    result.mData.add("length", amount.mLength).add("outcome", outcomeName(result.mStatus));
    result.mData.add("reason", failureText(download.failure()));
    result.mData.add("httpStatus", httpStatus(download));
    return result;
}

}  // namespace app
