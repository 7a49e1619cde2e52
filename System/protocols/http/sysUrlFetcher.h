// SPDX-License-Identifier: MIT
/// @file
/// Fetches one document at a time, in its own thread, as a stream of pieces.
#ifndef KESTROVA_SYSTEM_PROTOCOLS_HTTP_SYSURLFETCHER_H
#define KESTROVA_SYSTEM_PROTOCOLS_HTTP_SYSURLFETCHER_H

#include <pthread.h>
#include <semaphore.h>

#include <memory>

#include "base/export.h"
#include "base/threadsafety.h"

class HTTPConnection;

/// Events of a sysUrlFetcher. Lengths are in bytes.
enum sysUrlFetcherCode {
    eUrlFetchError = 0,       ///< a read of the body failed, or the address is null
    eUrlFetchOpenFailed = 1,  ///< HTTPConnection::Open() returned false, or no memory for the
                              ///< reply; eUrlFetchCancelled follows
    eUrlFetchCancelled = 2,   ///< cancelled, stopped by the callback, or not opened; the last event
    eUrlFetchHeader = 3,      ///< HTTPConnection::Open() returned true; no body read yet
    eUrlFetchData = 4,        ///< a piece of the body, at most 2048 bytes
    eUrlFetchDone = 5,        ///< end of the stream, possibly too early, or the announced length is
                              ///< reached
};

/// Called in the worker thread, which cannot be cancelled meanwhile. Must not call the fetcher that
/// called it, and must not throw.
/// @param code the event
/// @param data the piece, for eUrlFetchData only, valid during the call; otherwise null
/// @param length length of the piece; otherwise 0
/// @param received number of bytes received so far, including this piece; wraps beyond 2 GiB; 0 for
/// eUrlFetchOpenFailed and eUrlFetchCancelled
/// @param total the "Content-Length" (exactly this spelling) of the reply, clamped to 32 bits; 0 if
/// the reply has none, and for eUrlFetchOpenFailed and eUrlFetchCancelled
/// @param user pointer passed to setCallback()
/// @return false after eUrlFetchHeader or eUrlFetchData stops the download, which
/// eUrlFetchCancelled then confirms; ignored after other events
using sysUrlFetcherCallback = bool (*)(sysUrlFetcherCode code, char* data, int length, int received,
                                       int total, void* user);

/// Downloads one document at a time in a worker thread.
///
/// Threads: one thread at a time calls these operations. The callback must not be changed while a
/// worker runs. A cancelled worker unwinds its stack as an exception does, closes its connection
/// and reports eUrlFetchCancelled, once. Logs nothing; the connection logs its own failures. The
/// only exception is std::bad_alloc; in the worker it ends the process.
///
/// A download is complete after eUrlFetchDone if `received` equals `total`. Without a total,
/// completeness is unknown. If the request could not be sent, the result may look like an empty
/// document, or like a document that begins with a header.
///
/// The callback runs in the worker, where HTTPConnection::lastFailure() returns why the download
/// failed for eUrlFetchError and eUrlFetchOpenFailed, and for every code that the request could not
/// be sent.
class KESTROVA_EXPORT sysUrlFetcher {
public:
    /// No callback, no worker.
    sysUrlFetcher();
    /// Cancels a running worker and waits for it, without taking the lock.
    ~sysUrlFetcher();
    sysUrlFetcher(const sysUrlFetcher&) = delete;
    sysUrlFetcher& operator=(const sysUrlFetcher&) = delete;

    /// Sets the callback; call it before setUrl().
    /// @param callback null for none
    /// @param user passed to every call; not owned
    void setCallback(sysUrlFetcherCallback callback, void* user);

    /// Stops an earlier download like killThread(), and starts to fetch an address.
    ///
    /// Without a callback the worker exits silently; with a null address it exits after
    /// eUrlFetchError. Both keep the lock, so that killThread() and setUrl() block forever. In this
    /// state call only waitTillDone(), for the worker, and then the destructor. Another setUrl()
    /// would start a worker that waits for the lock forever, and the destructor would wait for that
    /// worker.
    /// @param url an "http://" address that httpURL::parse() accepts; copied
    /// @return 0, or the error number of pthread_create() if no worker was started
    int setUrl(const char* url);

    /// Cancels a running worker and waits until it has exited. Does nothing if there is none.
    /// Blocks until a running callback has returned. Reports eUrlFetchCancelled to the callback
    /// unless the download ended first; the callback is not called afterwards.
    void killThread();
    /// Same as killThread().
    void cancelFetch();
    /// Waits until the worker has exited by itself. Does nothing if there is none. The wait has no
    /// time limit, and no other thread may cancel the download meanwhile.
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
    // A worker may exit without releasing it, and the destructor then destroys it in the locked
    // state. That is undefined for a mutex.
    base::Semaphore mLock;
    // Handed over to the worker, which frees it when it exits.
    std::unique_ptr<char[]> mpUrl;
    sysUrlFetcherCallback mpCallback = nullptr;
    void* mpUser = nullptr;
    std::unique_ptr<HTTPConnection> mpConnection;
};

#endif
