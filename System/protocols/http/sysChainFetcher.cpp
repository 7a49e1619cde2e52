// SPDX-License-Identifier: MIT
#include "System/protocols/http/sysChainFetcher.h"

#include <cerrno>
#include <chrono>
#include <new>
#include <thread>
#include <utility>

#include "System/protocols/http/failurenote.h"
#include "System/protocols/http/httpconnection.h"
#include "base/cancelguard.h"
#include "base/lock.h"

namespace {

constexpr int kCapacity = 20480;
constexpr int kAttempts = 4;

/// Waits before the next request, so that the server is not overloaded and other threads can take
/// the lock.
void pause() {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

}  // namespace

/// The result for one entry.
struct sysChainFetcher::Delivery {
    bool mOk = false;
    std::string mContentType;
    int mLength = 0;
};

sysChainFetcher::sysChainFetcher()
    : mpBuffer(std::make_unique<char[]>(kCapacity)), mCapacity(kCapacity) {
    if (pthread_create(&mThread, nullptr, internal_run_static, this) != 0) {
        mThread = 0;
    }
}

sysChainFetcher::~sysChainFetcher() {
    if (mThread != 0) {
        {
            const base::Lock lock(mLock);
            mStop = true;
            mWake.notify_all();
        }
        const base::CancelGuard guard;
        (void)pthread_join(std::exchange(mThread, 0), nullptr);
    }
}

void sysChainFetcher::setCallback(sysChainFetcherCallback callback, void* user) {
    const base::Lock lock(mLock);
    mpCallback = callback;
    mpUser = user;
}

void sysChainFetcher::pushUrl(unsigned int id, const char* url) {
    const base::Lock lock(mLock);
    mQueue.push_back({id, url != nullptr ? url : ""});
    mWake.notify_one();
}

void sysChainFetcher::flush() {
    const base::Lock lock(mLock);
    mQueue.clear();
}

void* sysChainFetcher::internal_run_static(void* self) {
    static_cast<sysChainFetcher*>(self)->internal_run();
    return nullptr;
}

void sysChainFetcher::internal_run() {
    HTTPConnection connection;
    while (serveNext(connection)) {
        pause();
    }
}

/// Waits for an entry, fetches and delivers it. Returns false if the worker must exit.
bool sysChainFetcher::serveNext(HTTPConnection& connection) {
    const base::Lock lock(mLock);
    while (!mStop && mQueue.empty()) {
        awaitWake();
    }
    if (mStop) {
        return false;
    }
    const sysChainFetcherQEntry entry = std::move(mQueue.front());
    mQueue.pop_front();
    Delivery delivery;
    fetch(connection, entry.mUrl, delivery);
    connection.Close();
    if (mpCallback != nullptr) {
        mpCallback(delivery.mOk, entry.mId, delivery.mContentType.c_str(), mpBuffer.get(),
                   delivery.mLength, mpUser);
    }
    return true;
}

/// Releases the lock until the condition is notified.
void sysChainFetcher::awaitWake() {
    std::unique_lock<std::mutex> held(mLock, std::adopt_lock);
    mWake.wait(held);
    (void)held.release();
}

void sysChainFetcher::fetch(HTTPConnection& connection, const std::string& url,
                            Delivery& delivery) {
    for (int count = 0; count < kAttempts; ++count) {
        if (attempt(connection, url, delivery)) {
            return;
        }
        connection.Close();
        pause();
    }
}

/// Returns false if another attempt is worthwhile. This includes a lack of memory: an exception
/// would end the process, because a worker has no caller.
bool sysChainFetcher::attempt(HTTPConnection& connection, const std::string& url,
                              Delivery& delivery) {
    try {
        HTTPReplyHeader header;
        if (!connection.Open(url.c_str(), header)) {
            // A server that has sent a status would send the same one again.
            return header.code() != 0;
        }
        // contentSize() ignores the case of the name and getValue() does not; callers rely on both.
        const int size = header.contentSize();
        delivery.mContentType = header.getValue("Content-Type");
        return receive(connection, size, delivery);
    } catch (const std::bad_alloc&) {
        http::noteFailure(HTTPFailure::eConnect, ENOMEM);
        return false;
    }
}

bool sysChainFetcher::receive(HTTPConnection& connection, int size, Delivery& delivery) {
    int& count = delivery.mLength;
    count = 0;
    do {
        const int n =
            connection.Read(mpBuffer.get() + count, static_cast<unsigned>(mCapacity - count));
        if (n < 0) {
            return false;
        }
        if (n == 0) {
            break;
        }
        count += n;
        // Both are intentional: without a size the loop ends after the first read, and a full
        // buffer counts as failed.
    } while (count < size && count < mCapacity);
    delivery.mOk = count < mCapacity && (count == size || size == 0);
    if (!delivery.mOk) {
        http::noteFailure(HTTPFailure::eLength);
    }
    // A body that fills the buffer and has the announced length would do so again.
    return count == size || size == 0;
}
