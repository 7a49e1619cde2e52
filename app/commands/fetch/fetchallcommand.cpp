// SPDX-License-Identifier: MIT
//
// The command that fetches many small documents.
#include <poll.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "System/protocols/http/httpconnection.h"
#include "System/protocols/http/sysChainFetcher.h"
#include "app/cli/commands.h"
#include "app/cli/options.h"
#include "app/commands/fetch/failuretext.h"
#include "app/commands/fetch/outputfile.h"
#include "app/commands/fetch/webaddress.h"
#include "app/session.h"
#include "app/ui/colour.h"
#include "app/ui/event.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

/// What came of one URL.
struct Entry {
    std::string mUrl;
    bool mOk = false;
    std::string mType;
    std::string mBody;
    std::string mFile;    ///< where it is; empty when it was not saved
    std::string mReason;  ///< why it failed; empty otherwise
    int mStatus = 0;      ///< of HTTP; 0 when there was no reply
};

constexpr int kGood = 200;

bool unsent(const HTTPFailure& failure) {
    return failure.mReason == HTTPFailure::eSend || failure.mReason == HTTPFailure::eSendTimeOut;
}

/// The library's queue. One URL at a time is in it: the library blocks who gives it another one
/// while it fetches, and Ctrl-C would have to wait with it.
class Queue {
public:
    Queue() { mFetcher.setCallback(take, this); }
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;

    /// Fetches; true when Ctrl-C came meanwhile, which the fetch does not care for.
    bool fetch(const Interrupts& interrupts, Entry& entry) {
        mpEntry = &entry;
        // What would break the request apart is not let into one; the library fails on null.
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
    /// The library calls this in its worker.
    static void take(bool ok, unsigned /*id*/, const char* type, char* data, int length,
                     void* self) {
        auto& queue = *static_cast<Queue*>(self);
        const HTTPFailure& failure = HTTPConnection::lastFailure();
        const bool answered = ok || failure.mReason == HTTPFailure::eLength;
        // A request that could not be sent looks like an empty document.
        queue.mpEntry->mOk = ok && failure.mReason == HTTPFailure::eNone;
        queue.mpEntry->mReason = failureText(failure);
        queue.mpEntry->mStatus = answered && !unsent(failure) ? kGood : failure.mStatus;
        queue.mpEntry->mType = type;
        queue.mpEntry->mBody.assign(data, static_cast<std::size_t>(length));
        queue.mDelivered.set();
    }

    Entry* mpEntry = nullptr;
    Event mDelivered;
    sysChainFetcher mFetcher;  // goes first: its worker uses the others
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
                case LineReader::eLine:
                    addLine(line);
                    break;
                case LineReader::eTooLong:
                    printError("fetch-all: a line of the list is too long", mSession.quiet());
                    report({});
                    break;
                case LineReader::eInterrupted:
                    mInterrupted = true;
                    break;
                case LineReader::eEnd:
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

    /// The rest is not wanted, or nobody is there to read of it.
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
        int error = file.open(path);
        if (error == 0) {
            error = file.write(entry.mBody);
        }
        if (error == 0) {
            error = file.commit();
        }
        if (error == 0) {
            entry.mFile = path;
        } else {
            entry.mReason = quoted(path) + ": " + std::strerror(error);
            printError("fetch-all: " + entry.mReason, mSession.quiet());
            entry.mOk = false;
        }
    }

    void report(const Entry& entry) {
        ++mCount;
        mFailures += entry.mOk ? 0 : 1;
        const std::size_t bytes = entry.mBody.size();
        if (mSession.quiet()) {
            JsonObject data;
            data.add("ok", entry.mOk).add("bytes", bytes).add("type", entry.mType);
            data.add("url", entry.mUrl).add("file", entry.mFile);
            data.add("reason", entry.mReason).add("httpStatus", entry.mStatus);
            mEntries.addJson(data.text());
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
    JsonArray mEntries;
    std::size_t mCount = 0;
    std::size_t mFailures = 0;
    bool mInterrupted = false;
    Queue mQueue;
};

/// 0 when it is a folder, else what is wrong.
int folderError(const std::string& path) {
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0) {
        return errno;
    }
    return S_ISDIR(status.st_mode) ? 0 : ENOTDIR;
}

}  // namespace

bool checkUrls(const Words& arguments, std::string& error) {
    for (const std::string& argument : arguments) {
        if (!isUrl(argument)) {
            error = "no URL of the form http://HOST[:PORT]/PATH: " + quoted(argument);
            return false;
        }
    }
    return true;
}

Result runFetchAll(Session& session, const Invocation& invocation) {
    const std::string& folder = invocation.mOptions.mFolder;
    if (!folder.empty()) {
        if (const int error = folderError(folder)) {
            return Result::failed(quoted(folder) + ": " + std::strerror(error) +
                                  "; -d needs a folder that is there");
        }
    }
    Run run(session, folder);
    if (invocation.mArguments.empty()) {
        run.list();
    } else {
        run.arguments(invocation.mArguments);
    }
    return run.result();
}

}  // namespace app
