#include "HostLookup.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <new>
#include <pthread.h>

namespace {

constexpr size_t HOST_ROOM = 256; // longer ones do not exist
constexpr size_t SERVICE_ROOM = 16;
constexpr size_t STACK_BYTES = 1024 * 1024; // address space, for whatever modules the resolver has

} // namespace

struct HostLookup::Question {
    char host[HOST_ROOM];
    char service[SERVICE_ROOM];
    int result = 0;
    int cause = 0;
    AddressList list;
    std::atomic<bool> done{false};
    std::atomic<int> holders{1};

    void answer(int flags) {
        addrinfo hints{};
        hints.ai_family = AF_UNSPEC;
        hints.ai_socktype = SOCK_STREAM;
        hints.ai_flags = flags;
        addrinfo *found = nullptr;
        errno = 0;
        result = getaddrinfo(host, service, &hints, &found);
        cause = errno;
        list.reset(result == 0 ? found : nullptr);
    }
    bool isAbout(const Question &other) const {
        return strcmp(host, other.host) == 0 && strcmp(service, other.service) == 0;
    }
};

HostLookup::~HostLookup() {
    leave(pending);
}

void HostLookup::ask(const char *host, int port) {
    auto *asked = new (std::nothrow) Question;
    if (asked == nullptr) {
        fits = false;
        lastResult = EAI_MEMORY;
        return;
    }
    snprintf(asked->host, sizeof(asked->host), "%s", host);
    snprintf(asked->service, sizeof(asked->service), "%d", port);
    if (pending != nullptr && !pending->done) {
        fits = pending->isAbout(*asked);
        lastResult = EAI_AGAIN;
        leave(asked);
        return;
    }
    leave(pending);
    pending = asked;
    fits = true;
    asked->answer(AI_NUMERICHOST | AI_NUMERICSERV);
    if (asked->result != EAI_NONAME) {
        asked->done = true;
        return;
    }
    const int refused = start(*asked);
    if (refused != 0) {
        asked->result = EAI_SYSTEM;
        asked->cause = refused;
        asked->done = true;
    }
}

// All signals stay with the threads of the application. Gives the number of the error, or 0.
int HostLookup::start(Question &asked) {
    pthread_attr_t attributes;
    int error = pthread_attr_init(&attributes);
    if (error != 0) {
        return error;
    }
    pthread_attr_setstacksize(&attributes, STACK_BYTES);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread;
    ++asked.holders;
    error = pthread_create(&thread, &attributes, resolve, &asked);
    if (error != 0) {
        --asked.holders;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return error;
}

void *HostLookup::resolve(void *question) {
    auto *asked = static_cast<Question *>(question);
    asked->answer(0);
    asked->done = true;
    leave(asked);
    return nullptr;
}

void HostLookup::leave(Question *question) {
    if (question != nullptr && --question->holders == 0) {
        delete question;
    }
}

// The last question got none if an older one was still being resolved: to wait for that would be in vain.
bool HostLookup::answered() const {
    return pending == nullptr || pending->done || !fits;
}

AddressList HostLookup::take() {
    if (pending == nullptr || !pending->done || !fits) {
        return nullptr;
    }
    AddressList list = std::move(pending->list);
    lastResult = pending->result;
    lastCause = pending->cause;
    leave(pending);
    pending = nullptr;
    return list;
}
