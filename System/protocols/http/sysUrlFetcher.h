// SPDX-License-Identifier: MIT
/// @file
/// Fetches one document at a time, in a thread of its own, as a stream of pieces.
#ifndef KESTROVA_SYSTEM_PROTOCOLS_HTTP_SYSURLFETCHER_H
#define KESTROVA_SYSTEM_PROTOCOLS_HTTP_SYSURLFETCHER_H

#include <pthread.h>
#include <semaphore.h>

#include <memory>

#include "base/export.h"
#include "base/threadsafety.h"

class HTTPConnection;

/// What a callback of a sysUrlFetcher is told. Lengths are in bytes.
enum sysUrlFetcherCode {
    eUrlFetchError = 0,       ///< a read of the body failed, or there was no address to fetch
    eUrlFetchOpenFailed = 1,  ///< HTTPConnection::Open() was false, or there was no memory for the
                              ///< reply; eUrlFetchCancelled follows
    eUrlFetchCancelled = 2,   ///< cancelled, stopped by the callback, or not opened; the last one
    eUrlFetchHeader = 3,      ///< HTTPConnection::Open() was true, nothing of the body read yet
    eUrlFetchData = 4,        ///< a piece of the body, at most 2048 bytes
    eUrlFetchDone = 5,  ///< the end of the stream, also one too early, or the announced length
};

/// Called in the worker thread, which cannot be cancelled meanwhile. Must not call the fetcher that
/// called it, and must not throw.
/// @param code what happened
/// @param data the piece, for eUrlFetchData only, valid during the call; otherwise null
/// @param length of the piece; otherwise 0
/// @param received how many bytes came so far, this piece included; wraps beyond 2 GiB; 0 for
/// eUrlFetchOpenFailed and eUrlFetchCancelled
/// @param total the "Content-Length" of the reply, spelt exactly so and cut to the range of 32
/// bits; 0 when the reply has none, and for eUrlFetchOpenFailed and eUrlFetchCancelled
/// @param user what was given to setCallback()
/// @return false after eUrlFetchHeader or eUrlFetchData stops the download, which
/// eUrlFetchCancelled then confirms; otherwise not looked at
using sysUrlFetcherCallback = bool (*)(sysUrlFetcherCode code, char* data, int length, int received,
                                       int total, void* user);

/// Downloads one document at a time in a worker thread.
///
/// Threads: one thread at a time calls these operations. The callback must not be changed while a
/// worker runs. A worker that is cancelled unwinds its stack as an exception does, closes its
/// connection and reports eUrlFetchCancelled, once. Logs nothing; the connection logs its own
/// failures. Only allocation failure is thrown; in the worker it ends the process.
///
/// A download is whole when eUrlFetchDone came and, with a total, as many bytes were received.
/// Without a total nobody can tell, and a request that could not be sent may look like an empty
/// document, or like one that begins with a header.
///
/// The callback runs in the worker: HTTPConnection::lastFailure() returns there why the download
/// failed, with eUrlFetchError and eUrlFetchOpenFailed, and with every code that the request could
/// not be sent.
class KESTROVA_EXPORT sysUrlFetcher {
public:
    /// No callback, no worker.
    sysUrlFetcher();
    /// Cancels a running worker and waits for it, without taking the lock.
    ~sysUrlFetcher();
    sysUrlFetcher(const sysUrlFetcher&) = delete;
    sysUrlFetcher& operator=(const sysUrlFetcher&) = delete;

    /// Sets who is called; comes before setUrl().
    /// @param callback null for none
    /// @param user handed back with every call; not owned
    void setCallback(sysUrlFetcherCallback callback, void* user);

    /// Stops an earlier download, as killThread(), and starts to fetch an address.
    ///
    /// A worker that finds no callback ends without a sign, one that finds a null address after
    /// eUrlFetchError; both keep the lock, so that killThread() and setUrl() block forever. The
    /// way out is waitTillDone() for the worker, and the destructor for the object: another
    /// setUrl() would start a worker that waits for the lock forever, as would the destructor
    /// then.
    /// @param url an "http://" address, as httpURL::parse() takes it; copied
    /// @return 0, or the error number of pthread_create(); there is no worker then
    int setUrl(const char* url);

    /// Cancels a running worker and waits until it has ended. Does nothing when there is none.
    /// Blocks for as long as a callback that is under way takes. The callback is told
    /// eUrlFetchCancelled unless the download came to its end first, and is not called after this.
    void killThread();
    /// The same as killThread().
    void cancelFetch();
    /// Waits until the worker has ended by itself. Does nothing when there is none. There is no
    /// limit to the wait, and no other thread may cancel the download meanwhile.
    void waitTillDone();

private:
    class CleanUp;

    KESTROVA_LOCAL static void* internal_run_static(void* self);
    // Unchecked, because it keeps the lock when it returns early.
    KESTROVA_LOCAL void internal_run() KESTROVA_UNCHECKED_LOCKING;
    KESTROVA_LOCAL void internal_cleanup();
    KESTROVA_LOCAL bool download(const char* url);
    KESTROVA_LOCAL bool open(const char* url, int& total);
    KESTROVA_LOCAL bool receive(int total);
    KESTROVA_LOCAL bool report(sysUrlFetcherCode code, int received = 0, int total = 0,
                               char* data = nullptr, int length = 0);
    KESTROVA_LOCAL void takeLock() KESTROVA_ACQUIRE(mLock);
    KESTROVA_LOCAL void join();

    pthread_t mThread = 0;
    // A worker may end and keep it, so that the destructor destroys it taken: no mutex may be.
    base::Semaphore mLock;
    // Handed over to the worker, which frees it when it ends.
    std::unique_ptr<char[]> mpUrl;
    sysUrlFetcherCallback mpCallback = nullptr;
    void* mpUser = nullptr;
    std::unique_ptr<HTTPConnection> mpConnection;
};

#endif
