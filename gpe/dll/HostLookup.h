// The addresses of a host, asked for where nobody has to wait: the system's resolver may take minutes, or for
// ever, and nothing breaks it off. A name goes to a thread of its own, one at a time; numbers are answered at
// once. Whoever leaves last, the thread or the one who asked, frees the answer. For one thread.
#pragma once

#include <atomic>
#include <memory>
#include <netdb.h>

struct FreeAddresses {
    void operator()(addrinfo *list) const { freeaddrinfo(list); }
};
using AddressList = std::unique_ptr<addrinfo, FreeAddresses>;

class HostLookup {
public:
    HostLookup() = default;
    ~HostLookup();
    HostLookup(const HostLookup &) = delete;
    HostLookup &operator=(const HostLookup &) = delete;

    // Begins a question. While an earlier one has no answer there is no other: then this one will fail.
    void ask(const char *host, int port);
    bool answered() const;

    // The answer, in the resolver's order; null on failure.
    AddressList take();
    // Why the last `take` gave nothing: a result of getaddrinfo, and its errno for EAI_SYSTEM.
    int result() const { return lastResult; }
    int cause() const { return lastCause; }

private:
    struct Question;
    static void *resolve(void *question);
    static void leave(Question *question);
    int start(Question &asked);

    Question *pending = nullptr; // shared with its thread
    bool fits = false;           // it is what was asked last
    int lastResult = 0;
    int lastCause = 0;
};
