// SPDX-License-Identifier: MIT
//
// The command that streams one document.
#include <chrono>

#include "app/cli/command.h"
#include "app/commands/commands.h"
#include "app/commands/fetch/download.h"
#include "app/commands/fetch/fetchfailure.h"
#include "app/commands/fetch/outputfile.h"
#include "app/commands/fetch/webaddress.h"
#include "app/session.h"
#include "app/ui/humantext.h"
#include "app/ui/transferview.h"
#include "base/outputlevel.h"

namespace app {

namespace {

std::string countText(unsigned long long bytes) {
    return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
}

/// Returns the path for the document; empty for standard output.
std::string outputPath(const Invocation& invocation) {
    const std::string& path = invocation.mOptions.mOutput;
    return path == "-" ? std::string() : path;
}

std::string brokenText(const Download& download, const Download::Amount& amount) {
    const std::string received =
        amount.mLength == 0 ? countText(amount.mReceived)
                            : std::to_string(amount.mReceived) + " of " + countText(amount.mLength);
    const std::string reason = fetchFailureText(download.failure());
    return "the document broke off after " + received + (reason.empty() ? "" : ": " + reason);
}

/// Returns the result of a download that has ended, without its file.
Result resultOf(const Download& download, const Download::Amount& amount, const Invocation& words) {
    switch (download.outcome()) {
        case Download::eNotOpened:
            return Result::failed(
                quoted(words.mArguments[0]) + ": " + fetchFailureText(download.failure()),
                eRefused);
        case Download::eBrokenOff:
            return Result::failed(brokenText(download, amount), eBroken);
        case Download::eStopped:
            return Result::failed("cancelled after " + countText(amount.mReceived), eCancelled);
        case Download::eTooLong:
            return Result::failed("a document of 2 GiB or more can't be fetched");
        case Download::eNotWritten:
            return download.writeFailure();
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

/// Returns the status of the reply; 0 if there was none.
int httpStatus(const Download& download) {
    constexpr int good = 200;
    switch (download.outcome()) {
        case Download::eNotOpened:
            return download.failure().mStatus;
        case Download::eStopped:
            return 0;  // the download may have been cancelled before the reply
        default:
            return good;
    }
}

/// Shows the progress until the download has ended. A signal cancels it.
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

Result openOutput(Session& session, const std::string& path, OutputFile& file) {
    if (!path.empty()) {
        return file.open(path);
    }
    file.borrow(session.streams().output());
    return {};
}

Result runFetch(Session& session, const Invocation& invocation) {
    const std::string path = outputPath(invocation);
    const std::string& url = invocation.mArguments[0];
    if (path.empty() && session.quiet()) {
        return Result::failed("with --json the document needs a file: -o FILE", eMisused);
    }
    OutputFile file;
    Result result = openOutput(session, path, file);
    if (!result.good()) {
        return result;
    }
    Download download(file, url);
    result = download.start();
    if (!result.good()) {
        return result;
    }
    follow(session, download, path.empty() && session.streams().canRedraw());
    const Download::Amount amount = download.amount();
    result = resultOf(download, amount, invocation);
    if (result.good()) {
        result = file.commit();
        if (result.good() && !path.empty()) {
            result.mText = printable(path) + ": " + countText(amount.mReceived) + "\n";
        }
        if (download.surplus()) {
            complain("fetch: the server sent more than it announced; the rest was dropped");
        }
    }
    result.mData.add("url", url).add("file", path).add("bytes", amount.mReceived);
    result.mData.add("length", amount.mLength).add("outcome", outcomeName(result.mStatus));
    result.mData.add("reason", fetchFailureText(download.failure()));
    result.mData.add("httpStatus", httpStatus(download));
    return result;
}

}  // namespace

constexpr char kFetchHelp[] = R"(Fetch a document over HTTP.

The URL has the form http://HOST[:PORT]/PATH. The document goes to standard
output (also with -o -), or to a file (-o), which appears, or replaces an older
one, when all of the document is there. At a terminal standard error shows how
far it is. Ctrl-C cancels. With --json, -o FILE is needed.

Exit status:
  1  the document could not be written
  4  the document could not be opened; the message says why
  5  the document broke off
  6  cancelled by Ctrl-C

Example:
  kestrova fetch http://10.0.2.2/film -o /dvr/data/film
)";
const Command kFetchCommand = {"fetch",         "URL",    kFetchHelp, eOptionOutput,
                               eRunsBesideWork, runFetch, checkUrls};

}  // namespace app
