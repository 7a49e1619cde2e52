// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_DOWNLOAD_H
#define KESTROVA_APP_DOWNLOAD_H

#include <mutex>
#include <string>

#include "System/protocols/http/sysUrlFetcher.h"
#include "app/event.h"
#include "app/interrupts.h"
#include "app/outputfile.h"

namespace app {

/// A document that the library's worker streams into a file.
class Download {
public:
    /// How it ended.
    enum Outcome {
        eRunning,
        eWhole,
        eNotOpened,   ///< could not be opened
        eBrokenOff,   ///< the connection failed, or ended before the announced length
        eStopped,     ///< cancelled
        eTooLong,     ///< longer than the library counts
        eNotWritten,  ///< the file could not be written
    };
    /// What a wait has ended with.
    enum Wake { eEnded, eInterrupted, eTimeOut };
    struct Amount {
        unsigned long long mReceived;
        unsigned long long mLength;  ///< as announced; 0 when it is not known
    };

    explicit Download(OutputFile& file);
    Download(const Download&) = delete;
    Download& operator=(const Download&) = delete;

    /// Returns 0, or the error number of what kept it from starting.
    int start(const std::string& url) { return mFetcher.setUrl(url.c_str()); }
    /// Waits for the end, for Ctrl-C, or until the time has passed.
    Wake wait(const Interrupts& interrupts, int milliseconds);
    void cancel();

    /// At any time.
    Amount amount();

    // After the end:
    Outcome outcome() const { return mOutcome; }
    /// errno of eNotWritten.
    int writeError() const { return mWriteError; }
    /// More came than was announced; it was dropped.
    bool surplus() const { return mSurplus; }

private:
    static bool take(sysUrlFetcherCode code, char* data, int length, int received, int total,
                     void* self);
    bool takeHeader(int total);
    bool takeData(std::string_view piece);
    void takeEnd();
    void decide(Outcome outcome);

    OutputFile& mFile;
    Event mEnd;
    std::mutex mLock;
    Amount mAmount = {0, 0};  // under mLock
    Outcome mOutcome = eRunning;
    int mWriteError = 0;
    bool mSurplus = false;
    sysUrlFetcher mFetcher;  // goes first: its worker uses all the others
};

}  // namespace app

#endif
