// SPDX-License-Identifier: MIT
//
// The command that streams one document.
#include <chrono>
#include <cstring>

#include "app/commands.h"
#include "app/download.h"
#include "app/options.h"
#include "app/outputfile.h"
#include "app/session.h"
#include "app/text.h"
#include "app/transferview.h"
#include "app/webaddress.h"
#include "base/outputlevel.h"

namespace app {

namespace {

constexpr char kStandardOutput[] = "standard output";

std::string countText(unsigned long long bytes) {
    return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
}

Result notWritten(const std::string& path, int error) {
    const std::string name = path.empty() ? kStandardOutput : quoted(path);
    return Result::failed(name + ": " + std::strerror(error));
}

std::string brokenText(const Download::Amount& amount) {
    if (amount.mLength == 0) {
        return "the document broke off after " + countText(amount.mReceived);
    }
    return "the document broke off after " + std::to_string(amount.mReceived) + " of " +
           countText(amount.mLength);
}

/// What is to be said of a download that has ended, but for its file.
Result resultOf(const Download& download, const Download::Amount& amount, const std::string& path) {
    switch (download.outcome()) {
        case Download::eNotOpened:
            return Result::failed("the document could not be opened; -v tells more", eRefused);
        case Download::eBrokenOff:
            return Result::failed(brokenText(amount), eBroken);
        case Download::eStopped:
            return Result::failed("cancelled after " + countText(amount.mReceived), eCancelled);
        case Download::eTooLong:
            return Result::failed("a document of 2 GiB or more can't be fetched");
        case Download::eNotWritten:
            return notWritten(path, download.writeError());
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

/// Shows how far it is until it has ended.
void follow(Session& session, Download& download, bool toTerminal) {
    constexpr int interval = 200;  // milliseconds
    const bool shown = !session.quiet() && !toTerminal && kestrova_debug_output_level == 0 &&
                       session.streams().canRedrawError();
    TransferView view("fetch", shown);
    Download::Wake wake = Download::eTimeOut;
    while (wake != Download::eEnded) {
        wake = download.wait(session.interrupts(), interval);
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
    const std::string& path = invocation.mOptions.mOutput;
    const std::string& url = invocation.mArguments[0];
    if (path.empty() && session.quiet()) {
        return Result::failed("with --json the document needs a file: -o FILE", eMisused);
    }
    OutputFile file;
    if (const int error = openOutput(session, path, file)) {
        return notWritten(path, error);
    }
    Download download(file);
    if (const int error = download.start(url)) {
        return Result::failed(std::string("no thread: ") + std::strerror(error));
    }
    follow(session, download, path.empty() && session.streams().canRedraw());
    const Download::Amount amount = download.amount();
    Result result = resultOf(download, amount, path);
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
    return result;
}

}  // namespace app
