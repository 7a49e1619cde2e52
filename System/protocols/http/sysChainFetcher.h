// SPDX-License-Identifier: MIT
/// @file
/// Fetches small documents one after another, each as a whole.
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

/// Called in the worker thread, once for every entry taken from the queue, while the fetcher's lock
/// is held: it must not call the fetcher, and it must not throw.
///
/// All pointers are valid during the call only.
/// @param ok whether the whole document was received; see sysChainFetcher
/// @param id id passed to pushUrl()
/// @param contentType the "Content-Type" (exactly this spelling) of the last accepted reply, or ""
/// @param data the bytes, not terminated; after a failure the bytes of the last attempt that
/// reached the body
/// @param length number of bytes
/// @param user pointer passed to setCallback()
using sysChainFetcherCallback = void (*)(bool ok, unsigned int id, const char* contentType,
                                         char* data, int length, void* user);

/// One queued request.
struct sysChainFetcherQEntry {
    unsigned int mId;  ///< id passed to pushUrl()
    std::string mUrl;  ///< address
};

/// Downloads queued documents of less than 20480 bytes in the order in which they were queued, in
/// one worker thread that lives as long as the object.
///
/// An attempt fails if the connection cannot be opened, reading fails, or the body differs from the
/// announced length. There are up to four attempts, 10 ms apart; a reply with a status other than
/// 200, or with a header that breaks off after its status, is not retried. A body that fills the
/// 20480 bytes is reported as failed. If a reply has no "Content-Length" (upper or lower case), or
/// a length of 0, the result of the first read counts as the whole document, even if it is empty,
/// as it is when the request could not be sent.
///
/// The callback runs in the worker, where HTTPConnection::lastFailure() returns why the last
/// attempt failed, and eSend or eSendTimeOut if the request could not be sent.
///
/// Threads: any thread may call the operations. The worker holds the lock while it fetches and
/// calls back, and releases it for 10 ms after each entry. An operation blocks until then, for up
/// to four attempts, each as long as HTTPConnection blocks. Logs nothing; the connection logs its
/// own failures. The only exception is std::bad_alloc; in the worker it ends the process.
///
/// @code
/// void show(bool ok, unsigned id, const char* type, char*, int length, void*) {
///     std::printf("%u: %s, %d bytes of %s\n", id, ok ? "whole" : "failed",
///                 length, type);
/// }
///
/// void queuePages(sysChainFetcher& fetcher) {
///     fetcher.setCallback(show, nullptr);
///     fetcher.pushUrl(1, "http://guide.example/today");
///     fetcher.pushUrl(2, "http://guide.example/tomorrow");
/// }
/// @endcode
class KESTROVA_EXPORT sysChainFetcher {
public:
    /// Starts the worker. If no thread can be created, entries are queued but never fetched.
    sysChainFetcher();
    /// Waits until the entry that is being fetched has been delivered; drops the queued entries
    /// without calling back.
    ~sysChainFetcher();
    sysChainFetcher(const sysChainFetcher&) = delete;
    sysChainFetcher& operator=(const sysChainFetcher&) = delete;

    /// Sets the callback, starting with the next entry. Without a callback the worker still takes
    /// entries from the queue and fetches them.
    /// @param callback null for none
    /// @param user passed to every call; not owned
    void setCallback(sysChainFetcherCallback callback, void* user);
    /// Queues a request.
    /// @param id passed to the callback; need not be unique
    /// @param url copied; null is "", which cannot be fetched
    void pushUrl(unsigned int id, const char* url);
    /// Drops every queued entry, but not the one that is being fetched.
    void flush();

private:
    struct Delivery;

    KESTROVA_LOCAL static void* internal_run_static(void* self);
    KESTROVA_LOCAL void internal_run();
    KESTROVA_LOCAL bool serveNext(HTTPConnection& connection) KESTROVA_EXCLUDES(mLock);
    // Unchecked, because the condition variable needs the mutex in a std::unique_lock.
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
