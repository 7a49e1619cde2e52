// SPDX-License-Identifier: MIT
#include "app/commands/fetch/download.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

namespace app {

namespace {

constexpr std::size_t kPiece = 262144;

/// Disables cancellation of the calling thread for a scope.
class Uncancelled {
public:
    Uncancelled() { (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &mState); }
    ~Uncancelled() { (void)pthread_setcancelstate(mState, nullptr); }
    Uncancelled(const Uncancelled&) = delete;
    Uncancelled& operator=(const Uncancelled&) = delete;

private:
    int mState = PTHREAD_CANCEL_ENABLE;
};

struct AnnouncedLength {
    long long mBytes;  ///< 0 if there is none
    bool mCut;         ///< the library has clamped it to 32 bits
};

AnnouncedLength announcedLength(HTTPReplyHeader& header) {
    // Call contentSize() first, because getValue() inserts a missing field.
    const int inAnyCase = header.contentSize();
    const std::string text = header.getValue("Content-Length");
    if (text.empty()) {
        return {inAnyCase, inAnyCase == INT32_MAX};
    }
    constexpr int decimal = 10;
    return {std::strtoll(text.c_str(), nullptr, decimal), false};
}

}  // namespace

/// Signals the end of the thread, even after a cancellation.
class Download::Ending {
public:
    explicit Ending(Download& download) : mDownload(download) {}
    ~Ending() {
        // Setting the event is a cancellation point, and a destructor must not be unwound.
        const Uncancelled uncancelled;
        mDownload.decide(eStopped);
        mDownload.mEnd.set();
    }
    Ending(const Ending&) = delete;
    Ending& operator=(const Ending&) = delete;

private:
    Download& mDownload;
};

Download::Download(OutputFile& file, std::string url) : mFile(file), mUrl(std::move(url)) {}

Download::~Download() {
    cancel();
}

Result Download::start() {
    const int error = pthread_create(&mThread, nullptr, run, this);
    if (error != 0) {
        mThread = 0;
        return Result::failed(std::string("no thread: ") + std::strerror(error));
    }
    return {};
}

Download::Wake Download::wait(const Interrupts& interrupts, int milliseconds) {
    pollfd sources[] = {{mEnd.descriptor(), POLLIN, 0},
                        {interrupts.descriptor(), POLLIN, 0},
                        {mFile.descriptor(), 0, 0}};
    if (::poll(sources, sizeof(sources) / sizeof(sources[0]), milliseconds) <= 0) {
        return eTimeOut;
    }
    if (sources[0].revents != 0) {
        join();
        return eEnded;
    }
    if (sources[1].revents != 0 && interrupts.take()) {
        return eInterrupted;
    }
    if (sources[2].revents == 0) {
        return eTimeOut;
    }
    // The reader of the output has exited. Without data the thread would not notice that.
    cancel();
    if (mOutcome == eStopped) {
        mOutcome = eNotWritten;
        mWriteFailure = Result::failed("");
    }
    return eEnded;
}

void Download::cancel() {
    if (mThread != 0) {
        mFile.stop();
        (void)pthread_cancel(mThread);
        join();
    }
}

void Download::join() {
    (void)pthread_join(std::exchange(mThread, 0), nullptr);
}

Download::Amount Download::amount() {
    const std::lock_guard<std::mutex> lock(mLock);
    return mAmount;
}

void* Download::run(void* self) {
    auto& download = *static_cast<Download*>(self);
    const Ending ending(download);
    download.fetch();
    return nullptr;
}

/// The thread's function. It can be cancelled while it waits for the server.
void Download::fetch() {
    HTTPReplyHeader header;
    const bool opened = mConnection.Open(mUrl.c_str(), header);
    mFailure = HTTPConnection::lastFailure();
    // Open() also returns true if the request could not be sent.
    if (!opened || mFailure.mReason != HTTPFailure::eNone) {
        decide(eNotOpened);
        return;
    }
    if (!takeHeader(header)) {
        return;
    }
    std::vector<char> buffer(kPiece);
    int count = 0;
    do {
        // Ctrl-Z and 'fg' also interrupt the read.
        do {
            count = mConnection.Read(buffer.data(), static_cast<unsigned>(buffer.size()));
        } while (count < 0 && HTTPConnection::lastFailure().mErrno == EINTR);
        if (count <= 0) {
            takeEnd(count);
            return;
        }
    } while (takePiece({buffer.data(), static_cast<std::size_t>(count)}));
}

/// Returns false if the download has ended.
bool Download::takeHeader(HTTPReplyHeader& header) {
    const AnnouncedLength length = announcedLength(header);
    if (length.mBytes < 0) {
        decide(eBrokenOff);
    } else if (length.mCut) {
        decide(eTooLong);
    } else {
        const std::lock_guard<std::mutex> lock(mLock);
        mAmount.mLength = static_cast<unsigned long long>(length.mBytes);
    }
    return mOutcome == eRunning;
}

/// Returns false if the download has ended.
bool Download::takePiece(std::string_view piece) {
    const Uncancelled uncancelled;
    const Amount before = amount();
    const unsigned long long missing = before.mLength - before.mReceived;
    if (before.mLength != 0 && piece.size() > missing) {
        piece = piece.substr(0, static_cast<std::size_t>(missing));
        mSurplus = true;
    }
    mWriteFailure = mFile.write(piece);
    if (!mWriteFailure.good()) {
        decide(mWriteFailure.mStatus == eCancelled ? eStopped : eNotWritten);
        return false;
    }
    {
        const std::lock_guard<std::mutex> lock(mLock);
        mAmount.mReceived += piece.size();
    }
    if (before.mLength == 0 || piece.size() < missing) {
        return true;
    }
    decide(eWhole);
    return false;
}

/// `lastRead` is 0 at the end of the stream, and negative after an error.
void Download::takeEnd(int lastRead) {
    if (lastRead < 0) {
        mFailure = HTTPConnection::lastFailure();
    }
    const Amount reached = amount();
    const bool whole = lastRead == 0 && reached.mReceived >= reached.mLength;
    decide(whole ? eWhole : eBrokenOff);
}

/// Keeps the first outcome.
void Download::decide(Outcome outcome) {
    if (mOutcome == eRunning) {
        mOutcome = outcome;
    }
}

}  // namespace app
