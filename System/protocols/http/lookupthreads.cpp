// SPDX-License-Identifier: MIT
#include "System/protocols/http/lookupthreads.h"

#include <netdb.h>
#include <pthread.h>
#include <semaphore.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <memory>
#include <thread>
#include <utility>

#include "base/cancelguard.h"
#include "base/lock.h"
#include "base/threadsafety.h"

namespace http {

/// A host that one thread resolves while any number of callers wait for the answer.
struct Question {
    enum State { eOpen, eAsked, eAnswered };

    explicit Question(std::string host) : mHost(std::move(host)), mAnswered() {
        (void)sem_init(&mAnswered, 0, 0);
    }
    ~Question() { (void)sem_destroy(&mAnswered); }
    Question(const Question&) = delete;
    Question& operator=(const Question&) = delete;

    const std::string mHost;
    HostLookup mResult;  // written before mAnswered is posted
    sem_t mAnswered;     // posted once for each waiting caller
    // Guarded by lookupLock:
    State mState = eOpen;
    int mWaiting = 0;  // number of callers
    Question* mpNext = nullptr;
};

namespace {

constexpr std::size_t kResolverBuffer = 8096;
constexpr int kMostThreads = 8;
// The C library's own resolver needs about 20 KiB; the rest is for other name service modules.
constexpr std::size_t kStackSize = 262144;
constexpr std::chrono::milliseconds kRetry(10);
constexpr int kRetries = 100;

// Guards everything below. Held for a few instructions or while a thread is started.
base::Mutex lookupLock;
Question* pQuestions KESTROVA_GUARDED_BY(lookupLock) = nullptr;  // open or being asked, in order
int openQuestions KESTROVA_GUARDED_BY(lookupLock) = 0;
// A thread exits only if there is no open question, so every question is asked while a thread
// exists.
int threads KESTROVA_GUARDED_BY(lookupLock) = 0;
int idleThreads KESTROVA_GUARDED_BY(lookupLock) = 0;  // will look for an open question
bool forkHandled KESTROVA_GUARDED_BY(lookupLock) = false;

Question** placeOf(const Question* question) KESTROVA_REQUIRES(lookupLock) {
    Question** place = &pQuestions;
    while (*place != question) {
        place = &(*place)->mpNext;
    }
    return place;
}

/// Removes a question from the list.
void unlink(Question& question) KESTROVA_REQUIRES(lookupLock) {
    *placeOf(&question) = question.mpNext;
}

void begin(Question& question) KESTROVA_REQUIRES(lookupLock) {
    question.mState = Question::eAsked;
    --openQuestions;
}

/// Returns the next open question for a thread; null if the thread must exit.
Question* takeQuestion() {
    const base::Lock lock(lookupLock);
    --idleThreads;
    for (Question* question = pQuestions; question != nullptr; question = question->mpNext) {
        if (question->mState == Question::eOpen) {
            begin(*question);
            return question;
        }
    }
    --threads;
    return nullptr;
}

/// Gives the answer to every waiting caller, or frees the question if no caller waits.
void answerQuestion(Question& question, const HostLookup& result) KESTROVA_REQUIRES(lookupLock) {
    question.mState = Question::eAnswered;
    question.mResult = result;
    unlink(question);
    if (question.mWaiting == 0) {
        delete &question;
        return;
    }
    for (int caller = 0; caller < question.mWaiting; ++caller) {
        (void)sem_post(&question.mAnswered);
    }
}

void* runThread(void* /*unused*/) {
    while (Question* const question = takeQuestion()) {
        const HostLookup result = askResolver(question->mHost.c_str());
        const base::Lock lock(lookupLock);
        answerQuestion(*question, result);
        ++idleThreads;
    }
    return nullptr;
}

void lockForFork() KESTROVA_ACQUIRE(lookupLock) KESTROVA_UNCHECKED_LOCKING {
    lookupLock.lock();
}

void unlockAfterFork() KESTROVA_RELEASE(lookupLock) KESTROVA_UNCHECKED_LOCKING {
    lookupLock.unlock();
}

/// The parent's threads and callers do not exist in the child.
void forgetAfterFork() KESTROVA_RELEASE(lookupLock) KESTROVA_UNCHECKED_LOCKING {
    while (pQuestions != nullptr) {
        delete std::exchange(pQuestions, pQuestions->mpNext);
    }
    openQuestions = 0;
    threads = 0;
    idleThreads = 0;
    lookupLock.unlock();
}

/// Starts a detached thread with all signals blocked, because a handler of the application may need
/// more than the small stack.
bool startThread() KESTROVA_REQUIRES(lookupLock) {
    if (!forkHandled) {
        forkHandled = pthread_atfork(lockForFork, unlockAfterFork, forgetAfterFork) == 0;
    }
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
        return false;
    }
    (void)pthread_attr_setstacksize(&attributes, kStackSize);
    (void)pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    sigset_t all;
    sigset_t before;
    (void)sigfillset(&all);
    (void)pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread = 0;
    const int error = pthread_create(&thread, &attributes, runThread, nullptr);
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
    (void)pthread_attr_destroy(&attributes);
    return error == 0;
}

/// Starts a thread if one is missing. Returns true if a thread asks the question, now or later.
bool arrange(const Question& question) {
    const base::Lock lock(lookupLock);
    if (openQuestions > idleThreads && threads < kMostThreads && startThread()) {
        ++threads;
        ++idleThreads;
    }
    return threads > 0 || question.mState != Question::eOpen;
}

/// Calls the resolver in the calling thread, unless a thread has taken the question meanwhile.
void askHere(Question& question) {
    const base::CancelGuard guard;
    {
        const base::Lock lock(lookupLock);
        if (question.mState != Question::eOpen) {
            return;
        }
        begin(question);
    }
    const HostLookup result = askResolver(question.mHost.c_str());
    const base::Lock lock(lookupLock);
    answerQuestion(question, result);
}

}  // namespace

HostLookup askResolver(const char* host) {
    char buffer[kResolverBuffer];
    hostent entry = {};
    hostent* pHe = nullptr;
    HostLookup result;
    result.mReturned =
        ::gethostbyname_r(host, &entry, buffer, sizeof(buffer), &pHe, &result.mError);
    result.mFound = result.mReturned == 0 && pHe != nullptr;
    if (result.mFound) {
        result.mFamily = pHe->h_addrtype;
        if (result.mFamily == AF_INET) {
            std::memcpy(&result.mAddress, pHe->h_addr_list[0], sizeof(result.mAddress));
        }
    }
    return result;
}

LookupWait::LookupWait(const std::string& host) {
    auto fresh = std::make_unique<Question>(host);
    const base::Lock lock(lookupLock);
    Question** place = &pQuestions;
    while (*place != nullptr && (*place)->mHost != host) {
        place = &(*place)->mpNext;
    }
    if (*place == nullptr) {
        *place = fresh.release();
        ++openQuestions;
    }
    mpQuestion = *place;
    ++mpQuestion->mWaiting;
}

LookupWait::~LookupWait() {
    const base::Lock lock(lookupLock);
    if (--mpQuestion->mWaiting > 0 || mpQuestion->mState == Question::eAsked) {
        return;
    }
    if (mpQuestion->mState == Question::eOpen) {
        unlink(*mpQuestion);
        --openQuestions;
    }
    delete mpQuestion;
}

HostLookup LookupWait::answer() {
    for (int tries = 0; !arrange(*mpQuestion); ++tries) {
        if (tries == kRetries) {
            askHere(*mpQuestion);
            break;
        }
        std::this_thread::sleep_for(kRetry);
    }
    while (sem_wait(&mpQuestion->mAnswered) != 0 && errno == EINTR) {
    }
    return mpQuestion->mResult;
}

}  // namespace http
