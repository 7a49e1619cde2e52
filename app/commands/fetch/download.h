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

/// A document that a thread streams into a file. The thread reads large pieces: with the 2048 bytes
/// of the library's fetcher, a fast network is limited by the processor.
class Download {
public:
    /// How it ended.
    enum Outcome {
        eRunning,
        eWhole,
        eNotOpened,   ///< no reply with status 200 and a whole header
        eBrokenOff,   ///< the connection failed, or ended before the announced length
        eStopped,     ///< cancelled
        eTooLong,     ///< the library cuts the announced length
        eNotWritten,  ///< the file could not be written
    };
    /// What a wait has ended with.
    enum Wake { eEnded, eInterrupted, eTimeOut };
    struct Amount {
        unsigned long long mReceived;
        unsigned long long mLength;  ///< as announced; 0 when it is not known
    };

    /// The file must live until the download has ended.
    Download(OutputFile& file, std::string url);
    /// Cancels the download if it runs.
    ~Download();
    Download(const Download&) = delete;
    Download& operator=(const Download&) = delete;

    /// Starts the thread. Call it once.
    Result start();
    /// Waits for the end, for a signal that is to end the command, or until the time has passed.
    Wake wait(const Interrupts& interrupts, int milliseconds);
    /// Stops the thread and waits for its end.
    void cancel();

    /// How far the download is. Any thread may call it at any time.
    Amount amount();

    // After the end:
    Outcome outcome() const { return mOutcome; }
    /// The reason of eNotWritten.
    const Result& writeFailure() const { return mWriteFailure; }
    /// Why the connection failed, for eNotOpened and eBrokenOff; eNone when it did not.
    const HTTPFailure& failure() const { return mFailure; }
    /// The server has sent more than it announced; the rest was dropped.
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
    Amount mAmount = {0, 0};  // under mLock
    Outcome mOutcome = eRunning;
    Result mWriteFailure;
    HTTPFailure mFailure = {HTTPFailure::eNone, 0, 0, ""};
    bool mSurplus = false;
    HTTPConnection mConnection;
    pthread_t mThread = 0;  // 0 when none has to be joined
};

}  // namespace app

#endif
