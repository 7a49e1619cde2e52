// SPDX-License-Identifier: MIT
/// @file
/// Fetches small documents one after the other, each as a whole.
#ifndef KESTROVA_SYSTEM_PROTOCOLS_HTTP_SYSCHAINFETCHER_H
#define KESTROVA_SYSTEM_PROTOCOLS_HTTP_SYSCHAINFETCHER_H

#include <pthread.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "base/export.h"
#include "base/threadsafety.h"

class HTTPConnection;

/// Called in the worker thread, once for every entry that was taken from the queue, while the lock
/// of the fetcher is held: it must not call the fetcher. It must not throw.
///
/// All pointers are valid during the call only.
/// @param ok whether the document came whole; what that means is told at sysChainFetcher
/// @param id the caller's own
/// @param contentType the "Content-Type" of the last reply that was accepted, spelt exactly so, or
/// ""
/// @param data the bytes, not terminated; after a failure what the last attempt that came to the
/// body has read
/// @param length how many
/// @param user what was given to setCallback()
using sysChainFetcherCallback = void (*)(bool ok, unsigned int id, const char* contentType,
                                         char* data, int length, void* user);

/// One queued request.
struct sysChainFetcherQEntry {
    unsigned int mId;  ///< the caller's own
    std::string mUrl;  ///< address
};

/// Downloads queued documents of less than 20480 bytes in the order in which they were queued, in
/// one worker thread that lives as long as the object.
///
/// An attempt fails when the connection cannot be opened, when reading fails, and when the body is
/// not as long as announced. There are up to four, 10 ms apart; a reply with a status other than
/// 200, or with a header that breaks off after its status, is not tried again. A body that fills
/// the 20480 bytes is reported as failed. Of a reply without a "Content-Length" (upper or lower
/// case), or with one of 0, only what the first read returned is taken, and counts as whole: also
/// nothing, as when the request could not be sent.
///
/// The callback runs in the worker: HTTPConnection::lastFailure() returns there why the last
/// attempt failed, and eSend or eSendTimeOut when the request could not be sent.
///
/// Threads: any thread may call the operations. The worker holds the lock while it fetches and
/// calls back, and gives it away for 10 ms after each entry: the operations block until then, for
/// up to four attempts, each as long as an HTTPConnection takes. Logs nothing; the connection logs
/// its own failures. Only allocation failure is thrown; in the worker it ends the process.
class KESTROVA_EXPORT sysChainFetcher {
public:
    /// Starts the worker. Without one, when no thread can be had, the queue is kept and nothing is
    /// ever fetched.
    sysChainFetcher();
    /// Waits until the entry that is being fetched has been delivered; entries that still wait are
    /// dropped without a call.
    ~sysChainFetcher();
    sysChainFetcher(const sysChainFetcher&) = delete;
    sysChainFetcher& operator=(const sysChainFetcher&) = delete;

    /// Sets who is called from the next entry on. Without a callback entries are taken from the
    /// queue and fetched all the same.
    /// @param callback null for none
    /// @param user handed back with every call; not owned
    void setCallback(sysChainFetcherCallback callback, void* user);
    /// Queues a request.
    /// @param id handed back with the document; need not be unique
    /// @param url copied; null counts as "", which cannot be fetched
    void pushUrl(unsigned int id, const char* url);
    /// Drops every waiting entry; not the one that is being fetched.
    void flush();

private:
    struct Delivery;

    KESTROVA_LOCAL static void* internal_run_static(void* self);
    KESTROVA_LOCAL void internal_run();
    KESTROVA_LOCAL bool serveNext(HTTPConnection& connection) KESTROVA_EXCLUDES(mLock);
    // Unchecked, because the condition variable takes the mutex in a form of its own.
    KESTROVA_LOCAL void awaitWake() KESTROVA_REQUIRES(mLock) KESTROVA_UNCHECKED_LOCKING;
    KESTROVA_LOCAL void fetch(HTTPConnection& connection, const std::string& url,
                              Delivery& delivery) KESTROVA_REQUIRES(mLock);
    KESTROVA_LOCAL bool attempt(HTTPConnection& connection, const std::string& url,
                                Delivery& delivery) KESTROVA_REQUIRES(mLock);
    KESTROVA_LOCAL bool receive(HTTPConnection& connection, int size, Delivery& delivery)
        KESTROVA_REQUIRES(mLock);

    pthread_t mThread = 0;
    base::Mutex mLock;
    std::condition_variable mWake;
    bool mStop KESTROVA_GUARDED_BY(mLock) = false;
    std::deque<sysChainFetcherQEntry> mQueue KESTROVA_GUARDED_BY(mLock);
    sysChainFetcherCallback mpCallback KESTROVA_GUARDED_BY(mLock) = nullptr;
    void* mpUser KESTROVA_GUARDED_BY(mLock) = nullptr;
    std::unique_ptr<char[]> mpBuffer KESTROVA_GUARDED_BY(mLock);
    int mCapacity KESTROVA_GUARDED_BY(mLock);
};

#endif
