// SPDX-License-Identifier: MIT
#include "app/download.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

namespace app {

namespace {

// The library cuts a length to this; how long the document really is can't be told then, nor
// whether all of it came.
constexpr int kCutLength = INT32_MAX;

}  // namespace

Download::Download(OutputFile& file) : mFile(file) {
    mFetcher.setCallback(take, this);
}

Download::Wake Download::wait(const Interrupts& interrupts, int milliseconds) {
    pollfd sources[] = {{mEnd.descriptor(), POLLIN, 0},
                        {interrupts.descriptor(), POLLIN, 0},
                        {mFile.descriptor(), 0, 0}};
    if (::poll(sources, 3, milliseconds) <= 0) {
        return eTimeOut;
    }
    if (sources[0].revents != 0) {
        mFetcher.waitTillDone();
        return eEnded;
    }
    if (sources[1].revents != 0 && interrupts.take()) {
        return eInterrupted;
    }
    if (sources[2].revents == 0) {
        return eTimeOut;
    }
    // The reader of the output has gone, and there may be no data for a long time to find it out.
    cancel();
    if (mOutcome == eStopped) {
        mOutcome = eNotWritten;
        mWriteError = EPIPE;
    }
    return eEnded;
}

void Download::cancel() {
    mFile.stop();
    mFetcher.cancelFetch();
}

Download::Amount Download::amount() {
    const std::lock_guard<std::mutex> lock(mLock);
    return mAmount;
}

/// The library calls this in its worker.
bool Download::take(sysUrlFetcherCode code, char* data, int length, int /*received*/, int total,
                    void* self) {
    auto& download = *static_cast<Download*>(self);
    switch (code) {
        case eUrlFetchHeader:
            return download.takeHeader(total);
        case eUrlFetchData:
            return download.takeData({data, static_cast<std::size_t>(length)});
        case eUrlFetchOpenFailed:
            download.decide(eNotOpened);
            break;
        case eUrlFetchDone:
            download.takeEnd();
            break;
        case eUrlFetchError:
            download.decide(eBrokenOff);
            download.mEnd.set();
            break;
        case eUrlFetchCancelled:
            download.decide(eStopped);
            download.mEnd.set();
            break;
    }
    return true;
}

bool Download::takeHeader(int total) {
    if (total < 0) {
        decide(eBrokenOff);
    } else if (total == kCutLength) {
        decide(eTooLong);
    } else {
        const std::lock_guard<std::mutex> lock(mLock);
        mAmount.mLength = static_cast<unsigned>(total);
    }
    return mOutcome == eRunning;
}

bool Download::takeData(std::string_view piece) {
    const Amount before = amount();
    if (before.mLength != 0 && piece.size() > before.mLength - before.mReceived) {
        piece = piece.substr(0, static_cast<std::size_t>(before.mLength - before.mReceived));
        mSurplus = true;
    }
    mWriteError = mFile.write(piece);
    if (mWriteError != 0) {
        decide(mWriteError == ECANCELED ? eStopped : eNotWritten);
        return false;
    }
    const std::lock_guard<std::mutex> lock(mLock);
    mAmount.mReceived += piece.size();
    return true;
}

void Download::takeEnd() {
    const Amount amount = this->amount();
    decide(amount.mReceived < amount.mLength ? eBrokenOff : eWhole);
    mEnd.set();
}

/// What is known first counts: the library reports each stop as cancelled, too.
void Download::decide(Outcome outcome) {
    if (mOutcome == eRunning) {
        mOutcome = outcome;
    }
}

}  // namespace app
