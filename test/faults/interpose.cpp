// Preloaded into a JVM: lets calls of the collector's libraries fail as a full, slow or broken machine would,
// and leaves those of the JVM alone. What its C library does on behalf of a call (the buffer of fopen) fails
// with that call. Allocates nothing.
//
//   AM_FAULTS_FILE    mapped file of kWords 64-bit words: the phase, set by the server, then per call and
//   phase how many
//                     calls there were and how many of them failed
//   AM_FAULTS_CALLS   names as in kNames, joined by '+'; "space" takes the address space but for
//   AM_FAULTS_HOW megabytes AM_FAULTS_PHASE   0 load, 1 start, 2 work, 3 stop; none: count only AM_FAULTS_HOW
//   n17: the 17th call of each kind; p50: 50 of 1000 calls, by AM_FAULTS_SEED; m16: see "space"
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

enum Call {
    kMalloc,
    kOpen,
    kFopen,
    kWrite,
    kSocket,
    kConnect,
    kSend,
    kPoll,
    kGetaddrinfo,
    kPthreadCreate,
    kCalls
};
const char *const kNames[kCalls] = {"malloc",  "open", "fopen", "write",       "socket",
                                    "connect", "send", "poll",  "getaddrinfo", "pthread_create"};
const char *const kLibraries[] = {"libam_qel_16.so", "liblgkit_64.so", "liblgffdc_64.so", "libnlsm_64.so"};

constexpr int kPhases = 5; // the fifth is calm: nothing fails
constexpr int kWords = 1 + kPhases * kCalls * 2;
using Words = std::atomic<std::uint64_t>;
Words ownWords[kWords];
Words *words = ownWords;

struct Plan {
    bool chosen[kCalls];
    bool space;
    char how;
    std::uint64_t phase;
    std::uint64_t number;
    std::uint64_t seed;
} plan;

std::uint64_t mixed(std::uint64_t x) {
    x += 0x9e3779b97f4a7c15U;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9U;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebU;
    return x ^ (x >> 31);
}

std::uint64_t numberIn(const char *name) {
    const char *text = getenv(name);
    return text == nullptr ? 0 : strtoull(text, nullptr, 10);
}

bool named(const char *list, const char *name) {
    const std::size_t length = strlen(name);
    for (const char *at = list; (at = strstr(at, name)) != nullptr; at += length) {
        if ((at == list || at[-1] == '+') && (at[length] == 0 || at[length] == '+')) {
            return true;
        }
    }
    return false;
}

void mapWords(const char *path) {
    const long file = syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC);
    void *map =
        mmap(nullptr, sizeof(ownWords), PROT_READ | PROT_WRITE, MAP_SHARED, static_cast<int>(file), 0);
    syscall(SYS_close, file);
    if (map != MAP_FAILED) {
        words = static_cast<Words *>(map);
    }
}

__attribute__((constructor)) void readPlan() {
    const char *file = getenv("AM_FAULTS_FILE");
    const char *calls = getenv("AM_FAULTS_CALLS");
    const char *how = getenv("AM_FAULTS_HOW");
    if (file == nullptr) {
        return;
    }
    mapWords(file);
    if (calls == nullptr || how == nullptr) {
        return;
    }
    for (int i = 0; i < kCalls; ++i) {
        plan.chosen[i] = named(calls, kNames[i]);
    }
    plan.space = named(calls, "space");
    plan.how = how[0];
    plan.number = strtoull(how + 1, nullptr, 10);
    plan.seed = numberIn("AM_FAULTS_SEED");
    plan.phase = numberIn("AM_FAULTS_PHASE");
}

bool isOurs(void *caller) {
    // Takes no lock and knows a library before its constructors run.
    dl_find_object found;
    if (_dl_find_object(caller, &found) != 0 || found.dlfo_link_map == nullptr) {
        return false;
    }
    const char *path = found.dlfo_link_map->l_name;
    const char *slash = strrchr(path, '/');
    const char *base = slash == nullptr ? path : slash + 1;
    for (const char *library : kLibraries) {
        if (strcmp(base, library) == 0) {
            return true;
        }
    }
    return false;
}

// Pages of the process, from a file that needs no buffer.
std::uint64_t addressSpace() {
    char text[64] = {};
    const long file = syscall(SYS_openat, AT_FDCWD, "/proc/self/statm", O_RDONLY | O_CLOEXEC);
    syscall(SYS_read, file, text, sizeof(text) - 1);
    syscall(SYS_close, file);
    return strtoull(text, nullptr, 10) * 4096;
}

// Once when its phase begins, and back when that ends.
void limitSpace(std::uint64_t phase) {
    static std::atomic<bool> limited;
    const bool wanted = phase == plan.phase;
    if (limited.load(std::memory_order_relaxed) == wanted || limited.exchange(wanted) == wanted) {
        return;
    }
    rlimit limit{};
    getrlimit(RLIMIT_AS, &limit);
    limit.rlim_cur = wanted ? addressSpace() + plan.number * 1024 * 1024 : limit.rlim_max;
    setrlimit(RLIMIT_AS, &limit);
}

// 0, or a number other than 0 by which a kind of failure is drawn.
std::uint64_t fault(Call call, void *caller) {
    const std::uint64_t phase = words[0].load(std::memory_order_relaxed);
    if (plan.space) {
        limitSpace(phase);
    }
    if (phase >= kPhases || words == ownWords || !isOurs(caller)) {
        return 0;
    }
    Words *count = words + 1 + (phase * kCalls + call) * 2;
    const std::uint64_t number = count[0].fetch_add(1) + 1;
    if (!plan.chosen[call] || phase != plan.phase) {
        return 0;
    }
    const std::uint64_t drawn = mixed(plan.seed * kCalls + call + mixed(number));
    if (plan.how == 'n' ? number != plan.number : drawn % 1000 >= plan.number) {
        return 0;
    }
    count[1].fetch_add(1);
    return (drawn >> 16) | 1;
}

template <std::size_t N>
int failed(std::uint64_t drawn, const int (&errors)[N]) {
    errno = errors[(drawn >> 1) % N];
    return -1;
}

// The next definition of a function; what stands before it needs no allocation but that of dlsym itself.
template <typename Function>
Function *next(Function *, const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

constexpr int kNoFile[] = {EMFILE, ENFILE, ENOENT, EACCES, ENOMEM, EINTR};
constexpr int kNoWrite[] = {ENOSPC, EIO, EINTR, EDQUOT};
constexpr int kNoSocket[] = {EMFILE, ENOBUFS, ENOMEM};
constexpr int kNoConnection[] = {ECONNREFUSED, ETIMEDOUT, ENETUNREACH, EADDRNOTAVAIL};
constexpr int kNoSend[] = {ECONNRESET, EPIPE, ENOBUFS, EAGAIN, EINTR};
constexpr int kNoPoll[] = {EINTR, ENOMEM};
constexpr int kNoName[] = {EAI_AGAIN, EAI_NONAME, EAI_FAIL, EAI_MEMORY};

// A part of the bytes is taken as often as none.
std::size_t shortened(std::uint64_t drawn, std::size_t size) {
    return (drawn >> 8) % 2 == 0 && size > 1 ? 1 + (drawn >> 16) % (size - 1) : 0;
}

} // namespace

// Of the C library's streams; its headers keep the name to themselves.
#ifndef _IO_ERR_SEEN
#define _IO_ERR_SEEN 0x0020
#endif

#define CALLER __builtin_return_address(0)
#define NEXT(function) static auto *const real = next(&function, #function)

extern "C" {

void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *old, std::size_t size);
void *__libc_memalign(std::size_t alignment, std::size_t size);

static bool outOfMemory(void *caller) {
    if (fault(kMalloc, caller) == 0) {
        return false;
    }
    errno = ENOMEM;
    return true;
}

void *malloc(std::size_t size) {
    return outOfMemory(CALLER) ? nullptr : __libc_malloc(size);
}
void *calloc(std::size_t count, std::size_t size) {
    return outOfMemory(CALLER) ? nullptr : __libc_calloc(count, size);
}
void *realloc(void *old, std::size_t size) {
    return outOfMemory(CALLER) ? nullptr : __libc_realloc(old, size);
}
void *aligned_alloc(std::size_t alignment, std::size_t size) {
    return outOfMemory(CALLER) ? nullptr : __libc_memalign(alignment, size);
}
int posix_memalign(void **memory, std::size_t alignment, std::size_t size) {
    void *made = fault(kMalloc, CALLER) != 0 ? nullptr : __libc_memalign(alignment, size);
    if (made == nullptr) {
        return ENOMEM;
    }
    *memory = made;
    return 0;
}
char *strdup(const char *text) {
    const std::size_t size = strlen(text) + 1;
    void *copy = outOfMemory(CALLER) ? nullptr : __libc_malloc(size);
    return copy == nullptr ? nullptr : static_cast<char *>(memcpy(copy, text, size));
}

// A call that fails with one of these errors, or is made.
#define DEFINE(result, name, kind, failure, parameters, ...)                                                 \
    result name parameters {                                                                                 \
        NEXT(name);                                                                                          \
        const std::uint64_t drawn = fault(kind, CALLER);                                                     \
        return drawn != 0 ? failure : real(__VA_ARGS__);                                                     \
    }
// The mode counts only where a file may be made.
#define DEFINE_OPEN(name, parameters, ...)                                                                   \
    int name parameters {                                                                                    \
        va_list rest;                                                                                        \
        va_start(rest, flags);                                                                               \
        const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;                 \
        va_end(rest);                                                                                        \
        NEXT(name);                                                                                          \
        const std::uint64_t drawn = fault(kOpen, CALLER);                                                    \
        return drawn != 0 ? failed(drawn, kNoFile) : real(__VA_ARGS__, mode);                                \
    }
// A part of the bytes may be taken.
#define DEFINE_TAKING(name, kind, errors, parameters, ...)                                                   \
    ssize_t name parameters {                                                                                \
        NEXT(name);                                                                                          \
        const std::uint64_t drawn = fault(kind, CALLER);                                                     \
        const std::size_t part = drawn == 0 ? size : shortened(drawn, size);                                 \
        return drawn != 0 && part == 0 ? failed(drawn, errors) : real(__VA_ARGS__);                          \
    }
// What a stream fails to write it also remembers.
static int failedStream(std::uint64_t drawn, FILE *stream) {
    if (stream != nullptr) {
        stream->_flags |= _IO_ERR_SEEN;
    }
    return failed(drawn, kNoWrite);
}

DEFINE_OPEN(open, (const char *path, int flags, ...), path, flags)
DEFINE_OPEN(open64, (const char *path, int flags, ...), path, flags)
DEFINE_OPEN(openat, (int directory, const char *path, int flags, ...), directory, path, flags)
DEFINE_OPEN(openat64, (int directory, const char *path, int flags, ...), directory, path, flags)
#define NO_STREAM (failed(drawn, kNoFile), nullptr)
DEFINE(FILE *, fopen, kFopen, NO_STREAM, (const char *path, const char *mode), path, mode)
DEFINE(FILE *, fopen64, kFopen, NO_STREAM, (const char *path, const char *mode), path, mode)
DEFINE(std::size_t, fwrite, kWrite, (failedStream(drawn, stream), 0),
       (const void *bytes, std::size_t size, std::size_t count, FILE *stream), bytes, size, count, stream)
DEFINE(int, fputs, kWrite, failedStream(drawn, stream), (const char *text, FILE *stream), text, stream)
DEFINE(int, fflush, kWrite, failedStream(drawn, stream), (FILE * stream), stream)
DEFINE(ssize_t, writev, kWrite, failed(drawn, kNoWrite), (int file, const iovec *parts, int count), file,
       parts, count)
DEFINE(int, socket, kSocket, failed(drawn, kNoSocket), (int domain, int type, int protocol), domain, type,
       protocol)
DEFINE(int, connect, kConnect, failed(drawn, kNoConnection), (int file, const sockaddr *to, socklen_t size),
       file, to, size)
DEFINE(int, poll, kPoll, failed(drawn, kNoPoll), (pollfd * files, nfds_t count, int timeout), files, count,
       timeout)
DEFINE(int, getaddrinfo, kGetaddrinfo, kNoName[(drawn >> 1) % 4],
       (const char *name, const char *service, const addrinfo *hints, addrinfo **found), name, service, hints,
       found)
DEFINE(int, pthread_create, kPthreadCreate, EAGAIN,
       (pthread_t * thread, const pthread_attr_t *attributes, void *(*body)(void *), void *argument), thread,
       attributes, body, argument)
DEFINE_TAKING(write, kWrite, kNoWrite, (int file, const void *bytes, std::size_t size), file, bytes, part)
DEFINE_TAKING(send, kSend, kNoSend, (int file, const void *bytes, std::size_t size, int flags), file, bytes,
              part, flags)
DEFINE_TAKING(sendto, kSend, kNoSend,
              (int file, const void *bytes, std::size_t size, int flags, const sockaddr *to,
               socklen_t toSize),
              file, bytes, part, flags, to, toSize)
}
