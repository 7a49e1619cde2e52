// SPDX-License-Identifier: MIT
//
// The command that fetches many small documents.
#include <poll.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "System/protocols/http/httpconnection.h"
#include "System/protocols/http/sysChainFetcher.h"
#include "app/cli/command.h"
#include "app/commands/commands.h"
#include "app/commands/fetch/fetchfailure.h"
#include "app/commands/fetch/outputfile.h"
#include "app/commands/fetch/webaddress.h"
#include "app/session.h"
#include "app/ui/colour.h"
#include "app/ui/event.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

/// The result for one URL.
struct Entry {
    std::string mUrl;
    bool mOk = false;
    std::string mType;
    std::string mBody;
    std::string mFile;    ///< its path; empty if it was not saved
    std::string mReason;  ///< why it failed; otherwise empty
    int mStatus = 0;      ///< HTTP status; 0 if there was no reply
};

constexpr int kGood = 200;

bool unsent(const HTTPFailure& failure) {
    return failure.mReason == HTTPFailure::eSend || failure.mReason == HTTPFailure::eSendTimeOut;
}

/// The library's queue. It holds only one URL at a time: pushUrl() blocks while a document is being
/// fetched, and Ctrl-C would have to wait as well.
class Queue {
public:
    Queue() { mFetcher.setCallback(take, this); }
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;

    /// Fetches one document. Returns true if Ctrl-C arrived meanwhile, which does not stop the
    /// fetch.
    bool fetch(const Interrupts& interrupts, Entry& entry) {
        mpEntry = &entry;
        // Do not pass on a URL that would corrupt the request; the library fails on null.
        mFetcher.pushUrl(0, isUrl(entry.mUrl) ? entry.mUrl.c_str() : nullptr);
        bool interrupted = false;
        while (!mDelivered.take()) {
            pollfd sources[] = {{mDelivered.descriptor(), POLLIN, 0},
                                {interrupts.descriptor(), POLLIN, 0}};
            (void)::poll(sources, 2, -1);
            if (interrupts.take()) {
                interrupted = true;
                complain("the document under way can't be stopped, waiting for its end");
            }
        }
        return interrupted;
    }

private:
    /// Called by the library in its worker.
    static void take(bool ok, unsigned /*id*/, const char* type, char* data, int length,
                     void* self) {
        auto& queue = *static_cast<Queue*>(self);
        const HTTPFailure& failure = HTTPConnection::lastFailure();
        const bool answered = ok || failure.mReason == HTTPFailure::eLength;
        // A request that could not be sent looks like an empty document.
        queue.mpEntry->mOk = ok && failure.mReason == HTTPFailure::eNone;
        queue.mpEntry->mReason = fetchFailureText(failure);
        queue.mpEntry->mStatus = answered && !unsent(failure) ? kGood : failure.mStatus;
        queue.mpEntry->mType = type;
        queue.mpEntry->mBody.assign(data, static_cast<std::size_t>(length));
        queue.mDelivered.set();
    }

    Entry* mpEntry = nullptr;
    Event mDelivered;
    sysChainFetcher mFetcher;  // last member, destroyed first: its worker uses the others
};

/// All entries of one command.
class Run {
public:
    Run(Session& session, const std::string& folder) : mSession(session), mFolder(folder) {}

    void arguments(const Words& urls) {
        for (const std::string& url : urls) {
            if (over()) {
                return;
            }
            add(url);
        }
    }

    void list() {
        while (!over()) {
            std::string line;
            switch (mSession.readLine(line)) {
                case LineInput::eLine:
                    addLine(line);
                    break;
                case LineInput::eTooLong:
                    printError("fetch-all: a line of the list is too long", mSession.quiet());
                    report({});
                    break;
                case LineInput::eInterrupted:
                    mInterrupted = true;
                    break;
                case LineInput::eEnd:
                    return;
            }
        }
    }

    Result result() const {
        Result result;
        if (mInterrupted) {
            result = Result::failed("cancelled after " + documents(), eCancelled);
        } else if (mFailures != 0) {
            result = Result::failed(std::to_string(mFailures) + " of " + documents() + " failed");
        }
        result.mData.add("entries", mEntries).add("count", mCount).add("failed", mFailures);
        return result;
    }

private:
    std::string documents() const {
        return std::to_string(mCount) + (mCount == 1 ? " document" : " documents");
    }

    /// Returns whether to stop: after Ctrl-C, or if the output cannot be written.
    bool over() const { return mInterrupted || mSession.streams().outputError() != 0; }

    void addLine(std::string line) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        line = trimmed(line);
        if (!line.empty()) {
            add(line);
        }
    }

    void add(const std::string& url) {
        Entry entry;
        entry.mUrl = url;
        mInterrupted = mQueue.fetch(mSession.interrupts(), entry);
        if (entry.mOk && !mFolder.empty()) {
            save(entry);
        }
        report(entry);
    }

    void save(Entry& entry) {
        const std::string path = mFolder + "/" + mNames.add(entry.mUrl);
        OutputFile file;
        Result saved = file.open(path);
        if (saved.good()) {
            saved = file.write(entry.mBody);
        }
        if (saved.good()) {
            saved = file.commit();
        }
        if (saved.good()) {
            entry.mFile = path;
        } else {
            entry.mReason = saved.mError;
            printError("fetch-all: " + entry.mReason, mSession.quiet());
            entry.mOk = false;
        }
    }

    void report(const Entry& entry) {
        ++mCount;
        mFailures += entry.mOk ? 0 : 1;
        const std::size_t bytes = entry.mBody.size();
        if (mSession.quiet()) {
            Json data;
            data.add("ok", entry.mOk).add("bytes", bytes).add("type", entry.mType);
            data.add("url", entry.mUrl).add("file", entry.mFile);
            data.add("reason", entry.mReason).add("httpStatus", entry.mStatus);
            mEntries.append(data);
            return;
        }
        std::string line = (entry.mOk ? coloured("ok", eGreen) : coloured("failed", eRed)) + "\t" +
                           std::to_string(bytes);
        line += "\t" + (entry.mType.empty() ? "-" : printable(entry.mType));
        line += "\t" + printable(entry.mUrl);
        const std::string last = entry.mOk ? entry.mFile : entry.mReason;
        line += last.empty() ? "\n" : "\t" + printable(last) + "\n";
        mSession.streams().write(line);
    }

    Session& mSession;
    const std::string& mFolder;
    FileNames mNames;
    Json mEntries = Json::array();
    std::size_t mCount = 0;
    std::size_t mFailures = 0;
    bool mInterrupted = false;
    Queue mQueue;
};

Result checkFolder(const std::string& path) {
    struct stat status = {};
    const bool exists = ::stat(path.c_str(), &status) == 0;
    if (path.empty() || (exists && S_ISDIR(status.st_mode))) {
        return {};
    }
    return Result::failed(quoted(path) + ": " + std::strerror(exists ? ENOTDIR : errno) +
                          "; -d needs a folder that is there");
}

Result runFetchAll(Session& session, const Invocation& invocation) {
    const std::string& folder = invocation.mOptions.mFolder;
    if (Result found = checkFolder(folder); !found.good()) {
        return found;
    }
    Run run(session, folder);
    if (invocation.mArguments.empty()) {
        run.list();
    } else {
        run.arguments(invocation.mArguments);
    }
    return run.result();
}

}  // namespace

constexpr char kFetchAllHelp[] = R"(Fetch many small documents over HTTP.

Fetches documents of less than 20480 bytes one after the other, and prints a
line for each: 'ok' or 'failed', bytes, type, URL and, with -d, its file, or
the reason of the failure, with tabs in between. Without URLs reads them from
standard input, one a line. A failed connection is tried again, up to three
times. A file is named after the last part of its URL's path, with '.2' and so
on behind when an earlier document has that name, and replaces an older file.
Ctrl-C waits for the document under way.

Exit status:
  1  a document failed or could not be saved
  6  cancelled by Ctrl-C

Example:
  kestrova fetch-all -d /dvr/data http://10.0.2.2/a http://10.0.2.2/b
  kestrova fetch-all <LIST
)";
const Command kFetchAllCommand = {
    "fetch-all", "[URL...]", kFetchAllHelp, eOptionFolder, eRunsBesideWork | eReadsInput,
    runFetchAll, checkUrls};

}  // namespace app
