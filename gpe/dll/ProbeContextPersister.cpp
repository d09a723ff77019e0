#include "ProbeContextPersister.h"

#include "ProbeLgKit.h"
#include "PropertyMgr.h"
#include "RegularFile.h"

#include <cstring>
#include <new>

namespace {

constexpr char LINE_FEED = 10;
constexpr char CARRIAGE_RETURN = 13;

bool isEmpty(const char *text) {
    return text == nullptr || *text == '\0';
}

void closeFile(FILE *&file) {
    if (file != nullptr) {
        fclose(file);
        file = nullptr;
    }
}

} // namespace

int32_t ProbeContextPersister::Values::element(int id) const {
    switch (id) {
    case ctx_api_ProbeLevel:
        return probeLevel;
    case ctx_api_ProbeLevelIsDefault:
        return isDefault ? 1 : 0;
    case ctx_api_SuppressL3Collection:
        return suppressL3 ? 1 : 0;
    case ctx_api_SuppressGCEventCollection:
        return suppressGC ? 1 : 0;
    default:
        return 0;
    }
}

bool *ProbeContextPersister::Values::flag(int id) {
    switch (id) {
    case ctx_api_ProbeLevelIsDefault:
        return &isDefault;
    case ctx_api_SuppressL3Collection:
        return &suppressL3;
    case ctx_api_SuppressGCEventCollection:
        return &suppressGC;
    default:
        return nullptr;
    }
}

ProbeContextPersister::ProbeContextPersister()
    : ProbeContextPersister(propertyMgr != nullptr ? propertyMgr->homeDir() : nullptr,
                            propertyMgr != nullptr ? propertyMgr->runtimeDir() : nullptr) {}

ProbeContextPersister::ProbeContextPersister(const char *homeDir, const char *runtimeDir)
    : NamedObject("ProbeContextPersister"), lock(false) {
    initDefaultNames();
    initFileNames(homeDir, runtimeDir);
}

ProbeContextPersister::~ProbeContextPersister() {
    closeFiles();
}

void ProbeContextPersister::initDefaultNames() {
    pathSeparator = "/";
    defaultNode = "defaultnode";
    defaultServer = "appserver";
    defaultProfile = "";
    contextDir = "etc";
    fileName = "am.mod";
}

// An unknown directory must not turn into the root of the file system. A path that does not fit its buffer is
// cut, as every name here is.
void ProbeContextPersister::initFileNames(const char *homeDir, const char *runtimeDir) {
    const auto compose = [](char(&path)[1024], const char *directory, auto... pieces) {
        const int length =
            isEmpty(directory) ? -1 : snprintf(path, sizeof(path), "%s%s%s%s%s", directory, pieces...);
        return length > 0;
    };
    const bool baseNamed =
        compose(ctxBaseContextFilePath, homeDir, pathSeparator, contextDir, pathSeparator, fileName);
    const bool boundNamed = compose(ctxBoundContextFilePath, runtimeDir, pathSeparator, fileName, "", "");
    namesOk = baseNamed && boundNamed;
    if (LgkIsLoggable(ccTracer, LGK_INFO)) {
        traceInfo("ctxBaseContextFilePath:  %.999s", static_cast<const char *>(ctxBaseContextFilePath));
        traceInfo("ctxBoundContextFilePath: %.999s", static_cast<const char *>(ctxBoundContextFilePath));
    }
}

void ProbeContextPersister::closeFiles() {
    closeFile(boundFile);
    closeFile(baseFile);
}

// ---------------------------------------------------------------- the gateway

bool ProbeContextPersister::ctx_direct(int direction) {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MID, "ProbeContextPersister::ctx_direct( int direction )");
    const ZykLockGuard guard(lock);
    bool result = false;
    switch (direction) {
    case CTX_READ:
        result = ctx_read();
        break;
    case CTX_WRITE:
        result = ctxAccessible && ctx_write();
        break;
    case CTX_READ_SYNCH:
        result = ctxAccessible && ctx_read();
        break;
    case CTX_RESET:
        readOk = true;
        namesOk = true;
        result = true;
        break;
    default:
        break;
    }
    ctxAccessible = readOk && namesOk;
    return result;
}

bool ProbeContextPersister::ctx_read() {
    const ZykLockGuard guard(lock);
    closeFiles();
    readOk = ctx_read_bound();
    if (!readOk) {
        ctx_read_base();
        readOk = ctx_write_bound() && ctx_read_bound();
    }
    const char *bound = ctxBoundContextFilePath;
    if (readOk && LgkIsLoggable(ccTracer, LGK_INFO)) {
        messageInfo(1078, "Using MOD file: %s", bound);
        traceInfo("ProbeContextPersister using MOD file: %s", bound);
    } else if (!readOk && LgkIsLoggable(ccTracer, LGK_ERROR)) {
        messageInfo(1078, "MOD file read error: %s", bound);
        traceError("MOD file read error: %s", bound);
    }
    dumpCtxState("ctx_read()");
    return readOk;
}

// Only the gateway looks at what this means for the way: a change that could not be written, and was followed
// by one that could, leaves it open.
bool ProbeContextPersister::ctx_write() {
    const ZykLockGuard guard(lock);
    readOk = ctx_write_bound();
    return readOk;
}

// ---------------------------------------------------------------- elements

bool ProbeContextPersister::ctx_get(int element) const {
    return ctx_getEnum(element) > 0;
}

int32_t ProbeContextPersister::ctx_getEnum(int element) const {
    const ZykLockGuard guard(lock);
    return values.element(element);
}

bool ProbeContextPersister::ctx_getDefault(int element) const {
    return Values().element(element) > 0;
}

int32_t ProbeContextPersister::ctx_getDefaultEnum(int element) const {
    return Values().element(element);
}

bool ProbeContextPersister::ctx_set(int element, bool value) {
    return ctx_setEnum(element,
                       element == ctx_api_ProbeLevel ? ctx_getDefaultEnum(element) : static_cast<int>(value));
}

bool ProbeContextPersister::ctx_setEnum(int element, int32_t value) {
    const ZykLockGuard guard(lock);
    bool *flag = values.flag(element);
    if (flag != nullptr) {
        *flag = value != 0;
    } else if (element == ctx_api_ProbeLevel && value >= levelMin && value <= levelMax) {
        values.probeLevel = value;
    } else {
        return false;
    }
    return ctx_write();
}

int32_t *ProbeContextPersister::ctx_getElems() const {
    int32_t *elements = new (std::nothrow) int32_t[elementCount];
    const ZykLockGuard guard(lock);
    for (int32_t i = 0; elements != nullptr && i < elementCount; ++i) {
        elements[i] = values.element(i + 1);
    }
    return elements;
}

const char *ProbeContextPersister::getLastReadFilePath() const {
    const ZykLockGuard guard(lock);
    return ctxLastReadFilePath;
}

// ---------------------------------------------------------------- files

bool ProbeContextPersister::readFile(FILE *&file, const char *path) {
    const char *fault = nullptr;
    file = openRegularFile(path, &fault);
    if (file == nullptr) {
        if (fault != nullptr) {
            traceWarn("Cannot read MOD file %s: %s", path, fault);
        }
        return false;
    }
    const bool good = fgets(buffer, elementCount, file) != nullptr && unpackCtxBuffer();
    closeFile(file);
    if (good) {
        ctxLastReadFilePath = path;
    }
    return good;
}

bool ProbeContextPersister::ctx_read_bound() {
    return readFile(boundFile, ctxBoundContextFilePath);
}

bool ProbeContextPersister::ctx_read_base() {
    const char *path = ctxBaseContextFilePath;
    AM_TRACE(ccTracer, LGK_DEBUG_MID, "ProbeContextPersister::ctx_read_base()", "Reading base MOD file: %s",
             path);
    const bool good = readFile(baseFile, path);
    if (!good) {
        AM_TRACE(ccTracer, LGK_DEBUG_MID, "ProbeContextPersister::ctx_read_base()",
                 "Base MOD file read failed: %s", path);
    }
    return good;
}

bool ProbeContextPersister::ctx_write_bound() {
    closeFile(boundFile);
    const char *path = ctxBoundContextFilePath;
    boundFile = createRegularFile(path, nullptr);
    if (boundFile == nullptr) {
        AM_TRACE(ccTracer, LGK_DEBUG_MID, "ProbeContextPersister::ctx_write_bound()",
                 "Could not open for write: %s", path);
        return false;
    }
    const bool good = packCtxBuffer() && fputs(buffer, boundFile) >= 0 && fflush(boundFile) == 0;
    closeFile(boundFile);
    return good;
}

// What was taken before an error stays set.
bool ProbeContextPersister::unpackCtxBuffer() {
    values = Values();
    bufferLength = static_cast<int>(strlen(buffer));
    int position = 0;
    if (bufferLength > 0) {
        const int level = buffer[position++] - '0';
        if (level >= levelMin && level <= levelMax) {
            values.probeLevel = level;
        }
    }
    const auto take = [this, &position](char expected) {
        const bool there = buffer[position] == expected;
        position += there ? 1 : 0;
        return there;
    };
    values.isDefault = take(letterDefault);
    values.suppressL3 = take(letterSuppressL3);
    values.suppressGC = take(letterSuppressGC);
    take(LINE_FEED);
    take(CARRIAGE_RETURN);
    return position == bufferLength;
}

bool ProbeContextPersister::packCtxBuffer() {
    memset(buffer, 0, sizeof(buffer));
    bufferLength = 0;
    buffer[bufferLength++] = levelDigits[values.probeLevel];
    const auto append = [this](bool set, char letter) {
        if (set) {
            buffer[bufferLength++] = letter;
        }
    };
    append(values.isDefault, letterDefault);
    append(values.suppressL3, letterSuppressL3);
    append(values.suppressGC, letterSuppressGC);
    return true;
}

void ProbeContextPersister::dumpCtxState(const char *locator) const {
    const auto dump = [](const char *format, auto value) {
        AM_TRACE(ccTracer, LGK_DEBUG_MAX, "ProbeContextPersister::dumpCtxState( const char * locator )",
                 format, value);
    };
    dump("****  Locator: %s", locator != nullptr ? locator : "No Locator");
    dump("****  ctx_api_ProbeLevel: %d", values.probeLevel);
    dump("****  ctx_api_ProbeLevelIsDefault: %d", values.isDefault);
    dump("****  ctx_api_SuppressL3Collection: %d", values.suppressL3);
    dump("****  ctx_api_SuppressGCEventCollection: %d", values.suppressGC);
    dump("****  ctxBaseContextFilePath: %s", static_cast<const char *>(ctxBaseContextFilePath));
    dump("****  ctxBoundContextFilePath: %s", static_cast<const char *>(ctxBoundContextFilePath));
    dump("****  ctxLastReadFilePath: %s", ctxLastReadFilePath);
}
