// SPDX-License-Identifier: MIT
//
// A thread that is cancelled inside the C library's resolver loses what the resolver has open. But
// a resolver whose server is silent takes half a minute, and who cancels a download must not wait
// for it. So a thread that nobody cancels asks, and the caller can go away in the meantime.
#include "System/protocols/http/hostlookup.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <pthread.h>
#include <semaphore.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "base/cancelguard.h"

namespace {

constexpr std::size_t kResolverBuffer = 8096;

HostLookup ask(const char* host) {
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

/// What the asking thread and the caller share; whoever is done last frees it.
struct Question {
    explicit Question(std::string host) : mHost(std::move(host)), mAnswered() {
        (void)sem_init(&mAnswered, 0, 0);
    }
    ~Question() { (void)sem_destroy(&mAnswered); }
    Question(const Question&) = delete;
    Question& operator=(const Question&) = delete;

    const std::string mHost;
    HostLookup mResult;
    sem_t mAnswered;
};

using SharedQuestion = std::shared_ptr<Question>;

void* askInThread(void* argument) {
    const std::unique_ptr<SharedQuestion> question(static_cast<SharedQuestion*>(argument));
    (*question)->mResult = ask((*question)->mHost.c_str());
    (void)sem_post(&(*question)->mAnswered);
    return nullptr;
}

bool startAsking(const SharedQuestion& question) {
    auto shared = std::make_unique<SharedQuestion>(question);
    pthread_t thread = 0;
    if (pthread_create(&thread, nullptr, askInThread, shared.get()) != 0) {
        return false;
    }
    (void)shared.release();
    (void)pthread_detach(thread);
    return true;
}

bool isDottedAddress(const std::string& host) {
    in_addr address = {};
    return ::inet_aton(host.c_str(), &address) != 0;
}

}  // namespace

HostLookup lookUpHost(const std::string& host) {
    // A dotted address asks nobody.
    if (!isDottedAddress(host)) {
        const auto question = std::make_shared<Question>(host);
        if (startAsking(question)) {
            while (sem_wait(&question->mAnswered) != 0 && errno == EINTR) {
            }
            return question->mResult;
        }
    }
    const base::CancelGuard guard;
    return ask(host.c_str());
}
