#include "PortalMethodMgr.h"

#include "BRSPortal.h"
#include "PlainLock.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

namespace {

constexpr int TABLE_SIZE = 15;

PlainLock birthLock;
Relaxed<PortalMethodMgr *> instance(nullptr);

} // namespace

PortalMethodMgr *PortalMethodMgr::getInstance() {
    const std::lock_guard<PlainLock> guard(birthLock);
    if (instance == nullptr) {
        instance = new (std::nothrow) PortalMethodMgr();
    }
    return instance;
}

PortalMethodMgr::PortalMethodMgr() : NamedObject("PortalMethodMgr"), methods(TABLE_SIZE, false, true) {}

PortalMethodMgr::~PortalMethodMgr() {
    clear();
    instance = nullptr;
}

void PortalMethodMgr::putMethod(jbyte key, const char *val) {
    hasMethods = true;
    if (key == 0 || val == nullptr || methods.entryCount() >= MOST_METHODS) {
        return;
    }
    auto *stored = new (std::nothrow) jbyte(key);
    char *name = strdup(val);
    if (stored == nullptr || name == nullptr || methods.contains(stored) || !methods.put(stored, name)) {
        delete stored;
        free(name);
    }
}

void PortalMethodMgr::pushMethodsToPS(JNIEnv *env) {
    if (!hasMethods) {
        return;
    }
    const std::unique_ptr<jbyte *[]> keys(methods.keys());
    for (jbyte **key = keys.get(); key != nullptr && *key != nullptr; ++key) {
        appendPortalMethodConstantEvent(env, **key, methods.get(*key));
    }
}

void PortalMethodMgr::clear() {
    const std::unique_ptr<jbyte *[]> keys(methods.keys());
    const std::unique_ptr<char *[]> names(methods.values());
    methods.clear();
    for (jbyte **key = keys.get(); key != nullptr && *key != nullptr; ++key) {
        delete *key;
    }
    for (char **name = names.get(); name != nullptr && *name != nullptr; ++name) {
        free(*name);
    }
}
