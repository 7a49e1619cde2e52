// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_COMMANDS_FETCH_DOWNLOAD_H
#define KESTROVA_APP_COMMANDS_FETCH_DOWNLOAD_H

#include <pthread.h>

#include <mutex>
#include <string>
#include <string_view>

#include "System/protocols/http/httpconnection.h"
#include "app/commands/fetch/outputfile.h"
#include "app/ui/event.h"
#include "app/ui/interrupts.h"

namespace app {

/// Streams a document into a file in a thread of its own. The thread reads large pieces: with the
/// 2048 bytes of the library's fetcher, a fast network is limited by the processor.
class Download {
public:
    /// How the download ended.
    enum Outcome {
        eRunning,
        eWhole,
        eNotOpened,   ///< no reply with status 200 and a complete header
        eBrokenOff,   ///< the connection failed, or ended before the announced length
        eStopped,     ///< cancelled
        eTooLong,     ///< the library clamps the announced length
        eNotWritten,  ///< the file could not be written
    };
    /// How a wait ended.
    enum Wake { eEnded, eInterrupted, eTimeOut };
    struct Amount {
        unsigned long long mReceived;
        unsigned long long mLength;  ///< as announced; 0 if unknown
    };

    /// The file must outlive the download.
    Download(OutputFile& file, std::string url);
    /// Cancels a running download.
    ~Download();
    Download(const Download&) = delete;
    Download& operator=(const Download&) = delete;

    /// Starts the thread. Call it only once.
    Result start();
    /// Waits for the end of the download, for a signal that ends the command, or for the time
    /// limit.
    Wake wait(const Interrupts& interrupts, int milliseconds);
    /// Stops the thread and waits until it has exited.
    void cancel();

    /// Returns the progress. Any thread may call it at any time.
    Amount amount();

    // Valid after the end:
    Outcome outcome() const { return mOutcome; }
    /// The reason for eNotWritten.
    const Result& writeFailure() const { return mWriteFailure; }
    /// Why the connection failed, for eNotOpened and eBrokenOff; eNone if it did not fail.
    const HTTPFailure& failure() const { return mFailure; }
    /// Returns whether the server has sent more than it announced; the rest was dropped.
    bool surplus() const { return mSurplus; }

private:
    class Ending;

    static void* run(void* self);
    void fetch();
    bool takeHeader(HTTPReplyHeader& header);
    bool takePiece(std::string_view piece);
    void takeEnd(int lastRead);
    void decide(Outcome outcome);
    void join();

    OutputFile& mFile;
    const std::string mUrl;
    Event mEnd;
    std::mutex mLock;
    Amount mAmount = {0, 0};  // guarded by mLock
    Outcome mOutcome = eRunning;
    Result mWriteFailure;
    HTTPFailure mFailure = {HTTPFailure::eNone, 0, 0, ""};
    bool mSurplus = false;
    HTTPConnection mConnection;
    pthread_t mThread = 0;  // 0 if there is no thread to join
};

}  // namespace app

#endif
