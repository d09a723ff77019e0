#include "class.h"

#include "PlainLock.h"
#include "ProbeLgKit.h"
#include "ZykOsLock.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <mutex>
#include <new>
#include <utility>

namespace {

constexpr uint32_t METHOD_LOCKS = 67;
constexpr int32_t DEFAULT_HASH_SIZE = 55511;
constexpr int32_t MOST_HASH_SIZE = 10000000;

// Made at start and kept for the life of the process.
ZykOsLock *methodBucketLocks = nullptr; // bucket b is guarded by lock b % 67
ZykOsLock *classTableLock = nullptr;
ZykOsLock *classTableCompanion = nullptr; // for the table's use; nothing takes it
ZykOsLock *classSequenceLock = nullptr;

jclass_t *classes = nullptr; // under classTableLock, the newest first

PlainLock methodTableLock; // the next three; a bucket's chain has a lock of its own
jmethod_t **methodBuckets = nullptr;
uint32_t methodHashSize = DEFAULT_HASH_SIZE;

uint32_t classSequence = 0; // under classSequenceLock

class OsLockGuard {
public:
    explicit OsLockGuard(ZykOsLock *osLock) : held(osLock != nullptr && osLock->lock() ? osLock : nullptr) {}
    ~OsLockGuard() {
        if (held != nullptr) {
            held->unlock();
        }
    }
    OsLockGuard(const OsLockGuard &) = delete;
    OsLockGuard &operator=(const OsLockGuard &) = delete;
    explicit operator bool() const { return held != nullptr; }

private:
    ZykOsLock *held;
};

bool makeLock(ZykOsLock *&lock) {
    if (lock == nullptr) {
        lock = new (std::nothrow) ZykOsLock();
    }
    return lock != nullptr;
}

// Null when memory is out. The table never moves and never grows.
jmethod_t **methodTable() {
    const std::lock_guard<PlainLock> guard(methodTableLock);
    if (methodBuckets == nullptr) {
        methodBuckets = new (std::nothrow) jmethod_t *[methodHashSize]();
    }
    return methodBuckets;
}

// `use(link)` with the head of the chain in which an id stands, while nobody else touches it.
template <typename Use>
void withChain(uint32_t id, Use use) {
    jmethod_t **table = methodTable();
    if (table == nullptr || methodBucketLocks == nullptr) {
        return;
    }
    const uint32_t bucket = id % methodHashSize;
    const OsLockGuard guard(&methodBucketLocks[bucket % METHOD_LOCKS]);
    if (guard) {
        use(&table[bucket]);
    }
}

void addToMethodTable(jmethod_t &method) {
    withChain(method.id, [&](jmethod_t **head) {
        method.next = *head;
        *head = &method;
    });
}

void removeFromMethodTable(jmethod_t &method) {
    withChain(method.id, [&](jmethod_t **link) {
        while (*link != nullptr && *link != &method) {
            link = &(*link)->next;
        }
        if (*link != nullptr) {
            *link = method.next;
            method.id = 0;
        }
    });
}

} // namespace

// ---------------------------------------------------------------- records

jmethod_t::~jmethod_t() {
    free(name);
    free(signature);
}

jclass_t::~jclass_t() {
    if (registered) {
        unregister();
    }
    free(name);
    state = -1;
    delete[] methods; // from the last to the first
}

void jclass_t::release(jclass_t *cls) {
    if (cls != nullptr && cls->holders.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete cls;
    }
}

void jclass_t::doRegister() {
    for (int32_t i = 0; i < methodCount; ++i) {
        addToMethodTable(methods[i]);
    }
    addToClassTable();
}

void jclass_t::unregister() {
    unRegisterMethods();
    removeFromClassTable();
    registered = false;
}

void jclass_t::unRegisterMethods() {
    for (int32_t i = 0; i < methodCount; ++i) {
        removeFromMethodTable(methods[i]);
    }
}

void jclass_t::addToClassTable() {
    registered = true; // first: it may be taken at once
    const OsLockGuard guard(classTableLock);
    next = classes;
    classes = this;
}

void jclass_t::removeFromClassTable() {
    const OsLockGuard guard(classTableLock);
    jclass_t **link = &classes;
    while (*link != nullptr && *link != this) {
        link = &(*link)->next;
    }
    if (*link != nullptr) {
        *link = next;
        id = 0;
    }
}

// ---------------------------------------------------------------- tables

bool initMethodLocks() {
    if (methodBucketLocks == nullptr) {
        methodBucketLocks = new (std::nothrow) ZykOsLock[METHOD_LOCKS];
    }
    return methodBucketLocks != nullptr;
}

bool initClassTableLock() {
    return makeLock(classTableLock) && makeLock(classTableCompanion);
}

bool initClassSequenceLock() {
    return makeLock(classSequenceLock);
}

void setMethodHashSize(int32_t size) {
    const std::lock_guard<PlainLock> guard(methodTableLock);
    if (methodBuckets == nullptr) {
        methodHashSize = static_cast<uint32_t>(size > 0 && size <= MOST_HASH_SIZE ? size : DEFAULT_HASH_SIZE);
    }
}

namespace {

// The walk ends at the last class, which is not compared.
jclass_t *findClass(const char *class_name) {
    for (jclass_t *cls = classes; cls != nullptr && cls->next != nullptr; cls = cls->next) {
        if (cls->name != nullptr && strcmp(cls->name, class_name) == 0) {
            return cls;
        }
    }
    return nullptr;
}

} // namespace

jclass_t *getClassForName(const char *class_name) {
    if (class_name == nullptr) {
        return nullptr;
    }
    const OsLockGuard guard(classTableLock);
    return findClass(class_name);
}

jclass_t *takeClassForUnload(const char *class_name) {
    if (class_name == nullptr) {
        return nullptr;
    }
    const OsLockGuard guard(classTableLock);
    jclass_t *cls = findClass(class_name);
    return cls != nullptr && std::exchange(cls->deleteWithEvent, 1) == 0 ? cls : nullptr;
}

uint32_t getNextClassSequence() {
    const OsLockGuard guard(classSequenceLock);
    return ++classSequence;
}

void resetClassSequence() {
    const OsLockGuard guard(classSequenceLock);
    if (guard) {
        classSequence = 0;
    }
}

// ---------------------------------------------------------------- which classes are traced

namespace {

constexpr char OWN_CLASSES[] = "com/zykora/";
constexpr const char *FORCED_CLASSES[] = {
    "com/qel/br/runtime/Server", "com/qel/ejs/cm/proxy/ZykoraStatementProxy",
    "com/qel/ejs/cm/proxy/ZykoraPreparedStatementProxy", "com/qel/ejs/cm/proxy/ZykoraCallableStatementProxy"};

PlainLock filterLock; // the next two
char **filterInclude = nullptr;
char **filterExclude = nullptr;

bool matches(char *const *list, const char *name) {
    for (; list != nullptr && *list != nullptr; ++list) {
        const size_t length = strlen(*list);
        if (length > 0 && strncmp(name, *list, length - 1) == 0) {
            return true;
        }
    }
    return false;
}

bool isExcluded(const char *name) {
    if (strncmp(name, OWN_CLASSES, sizeof(OWN_CLASSES) - 1) == 0) {
        return true;
    }
    const std::lock_guard<PlainLock> guard(filterLock);
    return !matches(filterInclude, name) && matches(filterExclude, name);
}

void freeList(char **list) {
    for (char **entry = list; entry != nullptr && *entry != nullptr; ++entry) {
        free(*entry);
    }
    free(static_cast<void *>(list));
}

char *replaceAll(char *buffer, char from, char to) {
    if (buffer != nullptr) {
        std::replace(buffer, buffer + strlen(buffer), from, to);
    }
    return buffer;
}

} // namespace

int isClassFiltered(const char *name) {
    if (name == nullptr) {
        return 0;
    }
    if (std::any_of(std::begin(FORCED_CLASSES), std::end(FORCED_CLASSES),
                    [=](const char *forced) { return strcmp(name, forced) == 0; })) {
        return 2;
    }
    if (!isExcluded(name)) {
        return 0;
    }
    AM_TRACE(ccTracer, LGK_DEBUG_MID, "isClassFiltered( char *name )", "class %s is excluded ", name);
    return 1;
}

// The lock keeps classes from being unloaded meanwhile.
void reapplyFilter() {
    const OsLockGuard guard(classTableLock);
    for (jclass_t *cls = classes; cls != nullptr; cls = cls->next) {
        cls->filtered = isClassFiltered(cls->name);
    }
}

void replaceClassFilter(char **include, char **exclude) {
    {
        const std::lock_guard<PlainLock> guard(filterLock);
        std::swap(filterInclude, include);
        std::swap(filterExclude, exclude);
    }
    freeList(include);
    freeList(exclude);
}

char *dotToSlash(char *buffer) {
    return replaceAll(buffer, '.', '/');
}

char *slashToDot(char *buffer) {
    return replaceAll(buffer, '/', '.');
}
