// SPDX-License-Identifier: MIT
#include "System/protocols/http/sysUrlFetcher.h"

#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "System/protocols/http/failurenote.h"
#include "System/protocols/http/httpconnection.h"
#include "base/cancelguard.h"
#include "base/lock.h"
#include "base/text/boundedtext.h"

namespace {

constexpr unsigned kChunkSize = 2048;

/// Returns a sum that wraps at 2 GiB on every machine.
int wrappingSum(int first, int second) {
    return static_cast<int>(static_cast<unsigned>(first) + static_cast<unsigned>(second));
}

}  // namespace

/// Cleans up when a worker is cancelled or stops early: runs at every exit from its scope unless
/// dismissed after a complete download.
class sysUrlFetcher::CleanUp {
public:
    explicit CleanUp(sysUrlFetcher& fetcher) : mFetcher(fetcher) {}
    ~CleanUp() {
        if (mArmed) {
            mFetcher.internal_cleanup();
        }
    }
    CleanUp(const CleanUp&) = delete;
    CleanUp& operator=(const CleanUp&) = delete;

    void dismiss() { mArmed = false; }

private:
    sysUrlFetcher& mFetcher;
    bool mArmed = true;
};

sysUrlFetcher::sysUrlFetcher() : mLock(), mpConnection(std::make_unique<HTTPConnection>()) {
    (void)sem_init(&mLock, 0, 1);
}

sysUrlFetcher::~sysUrlFetcher() {
    if (mThread != 0) {
        const base::CancelGuard guard;
        (void)pthread_cancel(mThread);
        join();
    }
    (void)sem_destroy(&mLock);
}

void sysUrlFetcher::takeLock() {
    // Not cancellable, although sem_wait() is a cancellation point: the worker would exit before it
    // reports eUrlFetchCancelled.
    const base::CancelGuard guard;
    base::lockSemaphore(mLock);
}

void sysUrlFetcher::join() {
    // Clear mThread only after the join: the waiting thread may itself be cancelled, and the worker
    // would still exist.
    (void)pthread_join(mThread, nullptr);
    mThread = 0;
}

void sysUrlFetcher::setCallback(sysUrlFetcherCallback callback, void* user) {
    mpCallback = callback;
    mpUser = user;
}

int sysUrlFetcher::setUrl(const char* url) {
    killThread();
    mpUrl.reset();
    if (url != nullptr) {
        const std::size_t size = std::strlen(url) + 1;
        mpUrl = std::make_unique<char[]>(size);
        std::memcpy(mpUrl.get(), url, size);
    }
    const int error = pthread_create(&mThread, nullptr, internal_run_static, this);
    if (error != 0) {
        mThread = 0;
    }
    return error;
}

void sysUrlFetcher::killThread() {
    if (mThread == 0) {
        return;
    }
    takeLock();
    (void)pthread_cancel(mThread);
    base::unlockSemaphore(mLock);
    join();
}

void sysUrlFetcher::cancelFetch() {
    killThread();
}

void sysUrlFetcher::waitTillDone() {
    if (mThread != 0) {
        join();
    }
}

void* sysUrlFetcher::internal_run_static(void* self) {
    static_cast<sysUrlFetcher*>(self)->internal_run();
    return nullptr;
}

void sysUrlFetcher::internal_run() {
    takeLock();
    (void)pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, nullptr);
    const std::unique_ptr<char[]> url = std::move(mpUrl);
    // Both early returns keep the lock on purpose: a fetcher without a callback or an address is
    // misused, and killThread() blocks.
    if (mpCallback == nullptr) {
        return;
    }
    if (url == nullptr) {
        http::noteFailure(HTTPFailure::eAddress);
        (void)report(eUrlFetchError);
        return;
    }
    base::unlockSemaphore(mLock);
    CleanUp cleanUp(*this);
    if (download(url.get())) {
        cleanUp.dismiss();
    }
}

void sysUrlFetcher::internal_cleanup() {
    mpConnection->Close();
    (void)report(eUrlFetchCancelled);
}

bool sysUrlFetcher::report(sysUrlFetcherCode code, int received, int total, char* data,
                           int length) {
    const base::CancelGuard guard;
    return mpCallback(code, data, length, received, total, mpUser);
}

/// Opens the connection and reads the length of the body. Also returns false without memory for the
/// reply: an exception would end the process, because a worker has no caller.
bool sysUrlFetcher::open(const char* url, int& total) {
    try {
        HTTPReplyHeader header;
        if (!mpConnection->Open(url, header)) {
            return false;
        }
        // Only the exact name counts: a length with another spelling is ignored.
        total = base::parseNumber(header.getValue("Content-Length").c_str());
        return true;
    } catch (const std::bad_alloc&) {
        http::noteFailure(HTTPFailure::eConnect, ENOMEM);
        return false;
    }
}

/// Returns true if the download has finished, false if CleanUp must report the end.
bool sysUrlFetcher::download(const char* url) {
    int total = 0;
    if (!open(url, total)) {
        mpConnection->Close();
        (void)report(eUrlFetchOpenFailed);
        return false;
    }
    if (!report(eUrlFetchHeader, 0, total)) {
        mpConnection->Close();
        return false;
    }
    return receive(total);
}

bool sysUrlFetcher::receive(int total) {
    char buffer[kChunkSize];
    int received = 0;
    for (;;) {
        const int n = mpConnection->Read(buffer, sizeof(buffer));
        if (n <= 0) {
            mpConnection->Close();
            (void)report(n == 0 ? eUrlFetchDone : eUrlFetchError, received, total);
            return true;
        }
        received = wrappingSum(received, n);
        if (!report(eUrlFetchData, received, total, buffer, n)) {
            mpConnection->Close();
            return false;
        }
        if (total != 0 && received >= total) {
            mpConnection->Close();
            (void)report(eUrlFetchDone, received, total);
            return true;
        }
    }
}
