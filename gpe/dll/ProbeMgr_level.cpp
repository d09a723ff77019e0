// The probe level and its suppress flags: setters, the saved context, the transition rules.
#include "JVMTIUtils.h"
#include "ProbeContextPersister.h"
#include "ProbeLgKit.h"
#include "ProbeMgr.h"
#include "PropertyMgr.h"
#include "ZykLock.h"

#include <strings.h>

using Ctx = ProbeContextPersister;

ProbeContextPersister *contextPersister = nullptr;

namespace {

// Not the lock of the life cycle, which is held for the seconds that a stop takes.
StaticZykLock contextStorage;
ZykLock &contextLock = contextStorage;

} // namespace

ContextHold::ContextHold() {
    contextLock.lock();
}

ContextHold::~ContextHold() {
    contextLock.unlock();
}

uint32_t ProbeMgr::convertMonitoringLevelToProbeLevel(uint32_t level) {
    if (level >= 1001 && level <= 1003) {
        return level - 1000;
    }
    return level >= 1 && level <= 3 ? level : 0;
}

uint32_t ProbeMgr::convertProbeLevelToMonitoringLevel(uint32_t level) {
    if (level >= 1 && level <= 3) {
        return level + 1000;
    }
    return level >= 1001 && level <= 1003 ? level : 0;
}

uint32_t ProbeMgr::getProbeLevelTransitionType(uint32_t newLevel) {
    return newLevel >= 1 && newLevel <= 3 ? newLevel + 10 * probeLevel : 0;
}

void ProbeMgr::setProbeLevel(uint32_t newLevel) {
    AM_TRACE(ccTracer, LGK_DEBUG_MIN, "ProbeMgr::setProbeLevel( unsigned int newlevel )",
             "Native probe level changed from (%d) to (%d)", probeLevel.get(), newLevel);
    probeLevel = newLevel;
}

void ProbeMgr::setProbeLevelIsDefault(bool isDefault) {
    AM_TRACE(ccTracer, LGK_DEBUG_MIN, "ProbeMgr::setProbeLevelIsDefault( bool isDefault )",
             "Native MOD DefaultLevelCondition changed from (%0$d) to (%1$d)", probeLevelIsDefault.get(),
             isDefault);
    probeLevelIsDefault = isDefault;
}

void ProbeMgr::setSuppressL3Collection(bool suppress) {
    AM_TRACE(ccTracer, LGK_DEBUG_MIN, "ProbeMgr::setSuppressL3Collection( bool bSuppress )",
             "Native MOD Suppress L3 Collection changed from (%0$d) to (%1$d)", suppressL3Collection.get(),
             suppress);
    suppressL3Collection = suppress;
}

void ProbeMgr::setSuppressGCEventCollection(bool suppress) {
    AM_TRACE(ccTracer, LGK_DEBUG_MIN, "ProbeMgr::setSuppressGCEventCollection( bool bSuppress )",
             "Native MOD Suppress GC Event Collection changed from (%0$d) to (%1$d)",
             suppressGCEventCollection.get(), suppress);
    suppressGCEventCollection = suppress;
}

bool ProbeMgr::updateProbeLevelContext(uint32_t level) {
    const uint32_t newLevel = convertMonitoringLevelToProbeLevel(level);
    if (newLevel == 0) {
        AM_TRACE(ccTracer, LGK_DEBUG_MIN, "ProbeMgr::updateProbeLevelContext( unsigned int level )",
                 "Invalid Native probe level (%d). Keeping current MOD level (%d)", level, probeLevel.get());
        return false;
    }
    const ContextHold hold; // also so that of two callers the later one's level is what stands in the file
    if (newLevel == probeLevel) {
        AM_TRACE(ccTracer, LGK_DEBUG_MIN, "ProbeMgr::updateProbeLevelContext( unsigned int level )",
                 "Current Native probe level is same as new level (%d)", newLevel);
        return false;
    }
    setProbeLevel(newLevel);
    if (contextPersister != nullptr) {
        contextPersister->ctx_setEnum(Ctx::ctx_api_ProbeLevel, static_cast<int32_t>(newLevel));
    }
    // The level is the new one already, so the type is 11, 22 or 33 and no change of level ever switches the
    // method trace here. The order is meant so: method events come through the instrumented Java side.
    switch (getProbeLevelTransitionType(newLevel)) {
    case 13:
    case 23:
        turnMethodTrace(true);
        break;
    case 31:
    case 32:
        turnMethodTrace(false);
        break;
    default:
        break;
    }
    return true;
}

namespace {

bool updateFlag(const Relaxed<bool> &current, bool wanted, int element, void (*setter)(bool),
                const char *unchangedText) {
    const ContextHold hold;
    if (current == wanted) {
        AM_TRACE(ccTracer, LGK_DEBUG_MIN, "ProbeMgr::updateFlag()", unchangedText);
        return false;
    }
    setter(wanted);
    if (contextPersister != nullptr) {
        contextPersister->ctx_set(element, wanted);
    }
    return true;
}

} // namespace

bool ProbeMgr::updateProbeLevelIsDefaultContext(bool isDefault) {
    return updateFlag(probeLevelIsDefault, isDefault, Ctx::ctx_api_ProbeLevelIsDefault,
                      setProbeLevelIsDefault, "Current Native Default Level Condition is same as new level");
}

bool ProbeMgr::updateSuppressL3CollectionContext(bool suppress) {
    return updateFlag(suppressL3Collection, suppress, Ctx::ctx_api_SuppressL3Collection,
                      setSuppressL3Collection, "Current Native Suppress L3 Collection is same as new level");
}

bool ProbeMgr::updateSuppressGCEventCollectionContext(bool suppress) {
    return updateFlag(suppressGCEventCollection, suppress, Ctx::ctx_api_SuppressGCEventCollection,
                      setSuppressGCEventCollection,
                      "Current Native Suppress GC Event Collection is same as new level");
}

int32_t *ProbeMgr::initProbeContext() {
    const ContextHold hold;
    if (contextPersister == nullptr) {
        return nullptr;
    }
    contextPersister->ctx_direct(Ctx::CTX_READ);
    return contextPersister->ctx_getElems();
}

int32_t *ProbeMgr::synchInProbeContext() {
    const ContextHold hold;
    if (contextPersister == nullptr) {
        return nullptr;
    }
    const bool good = contextPersister->ctx_direct(Ctx::CTX_READ_SYNCH);
    int32_t *elements = contextPersister->ctx_getElems();
    if (good && elements != nullptr) {
        setProbeLevel(static_cast<uint32_t>(elements[0]));
        setProbeLevelIsDefault(elements[1] == 1);
        setSuppressL3Collection(elements[2] == 1);
        setSuppressGCEventCollection(elements[3] == 1);
    }
    return elements;
}

bool ProbeMgr::synchOutProbeContext(const int32_t *ids, const int32_t *values, int count) {
    const ContextHold hold;
    if (contextPersister == nullptr || ids == nullptr || values == nullptr || count <= 0) {
        return false;
    }
    for (int i = 0; i < count; ++i) {
        switch (ids[i]) {
        case Ctx::ctx_api_ProbeLevel:
            updateProbeLevelContext(static_cast<uint32_t>(values[i]));
            break;
        case Ctx::ctx_api_ProbeLevelIsDefault:
            updateProbeLevelIsDefaultContext(values[i] != 0);
            break;
        case Ctx::ctx_api_SuppressL3Collection:
            updateSuppressL3CollectionContext(values[i] != 0);
            break;
        case Ctx::ctx_api_SuppressGCEventCollection:
            updateSuppressGCEventCollectionContext(values[i] != 0);
            break;
        default:
            break;
        }
    }
    return contextPersister->ctx_direct(Ctx::CTX_WRITE);
}

bool ProbeMgr::resetProbeContext() {
    const ContextHold hold;
    return contextPersister != nullptr && contextPersister->ctx_direct(Ctx::CTX_RESET);
}

char *ProbeMgr::copyContextFilePath() {
    const ContextHold hold;
    return contextPersister != nullptr ? dupString(contextPersister->getLastReadFilePath()) : nullptr;
}

void ProbeMgr::turnMethodTrace(bool) {
    const char *disabled = stringProperty("internal.disableL3", nullptr);
    const char *reason = disabled != nullptr && strcasecmp(disabled, "YES") == 0
                             ? "L3 disabled. Not enabling method events"
                         : suppressL3Collection ? "L3 collection suppressed. Not enabling method events"
                                                : "L3 collection skipped. No longer handled by native probe";
    AM_TRACE(ccTracer, LGK_DEBUG_MIN, "ProbeMgr::turnMethodTrace( bool flag )", reason);
}
