#include "ProbeLgKit.h"

#include "FixedText.h"
#include "RegularFile.h"
#include "cmdline.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <iterator>

Relaxed<LgkObject *> msgLogger(nullptr);
Relaxed<LgkObject *> naTracer(nullptr);
Relaxed<LgkObject *> eaTracer(nullptr);
Relaxed<LgkObject *> caTracer(nullptr);
Relaxed<LgkObject *> ccTracer(nullptr);
Relaxed<LgkObject *> gcTracer(nullptr);
Relaxed<LgkObject *> traceLogger(nullptr);
Relaxed<int> tracedFrom(LGK_INFO);
LgkApi lgkApi{};

namespace {

constexpr int MAX_NAME = 256;
constexpr int MAX_FFDC_FILES = 1000;
constexpr long MAX_PROPERTY_BYTES = 1000000; // as the toolkit has it
constexpr char PROPERTY_FILE[] = "zyk-lgkit.properties";
constexpr char DEFAULT_COMMON_DIR[] = "C:/Program Files/qel/morvex/common";

using Name = FixedText<MAX_NAME>;
using PathText = FixedText<PATH_MAX>;

// Operations that only the opening needs.
struct OpeningApi {
    int (*openToolkit)(const char *path);
    LgkObject *(*getObject)(const char *name, const char *typeName);
    char *(*getObjProp)(LgkObject *, const char *property, int *foundFlag);
    int (*setObjProp)(LgkObject *, const char *property, const char *value);
    int (*setObjPropInt)(LgkObject *, const char *property, int value);
    void (*releaseObject)(LgkObject *);
    void (*memoryFree)(void *);
    int (*initFFDCExtensions)();
    char *(*getFiles)(LgkObject *);
    int (*setFiles)(LgkObject *, const char *list);
    char *(*getBaseDir)(LgkObject *);
    int (*setBaseDir)(LgkObject *, const char *directory);
    int (*nlsSetDir)(const char *directory);
};

OpeningApi api{};
Relaxed<int> messageSetNumber(0);
Relaxed<bool> statisticsEnabled(false);
bool lgkitOpen = false;
char catalog[MAX_NAME] = "";
char commonDir[MAX_NAME] = "";
char qualifierCopy[MAX_NAME] = "";
char logFilePath[MAX_NAME] = "";

// The level each module tracer had when the toolkit gave it out; owned by the toolkit's allocator.
const char *initialLevels[5] = {};

bool isSet(const char *text) {
    return text != nullptr && *text != '\0';
}

// To standard output, at once: the process may die next.
void printLine(const char *format, ...) __attribute__((format(printf, 1, 2)));
void printLine(const char *format, ...) {
    va_list args;
    va_start(args, format);
    vprintf(format, args);
    va_end(args);
    fflush(stdout);
}

// ---------------------------------------------------------------- binding

// Empty if unknown.
PathText ownDirectory() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void *>(&ownDirectory), &info) == 0 || info.dli_fname == nullptr) {
        return PathText();
    }
    const char *slash = strrchr(info.dli_fname, '/');
    PathText directory;
    return slash != nullptr ? directory.add(info.dli_fname, static_cast<size_t>(slash - info.dli_fname) + 1)
                            : directory;
}

// A pipe in the library's place would keep the loader waiting.
bool isRegularFile(const char *path) {
    FILE *file = openRegularFile(path, nullptr, LONG_MAX);
    if (file != nullptr) {
        fclose(file);
    }
    return file != nullptr;
}

void *openLibrary(const char *fileName) {
    const PathText beside = ownDirectory().add(fileName);
    const bool there = !beside.isCut() && isRegularFile(beside.get());
    void *library = there ? dlopen(beside.get(), RTLD_NOW | RTLD_LOCAL) : nullptr;
    return library != nullptr ? library : dlopen(fileName, RTLD_NOW | RTLD_LOCAL);
}

struct Symbol {
    const char *name;
    void *slot;
};

bool bindSymbols(const char *fileName, const Symbol *symbols, size_t count) {
    void *library = openLibrary(fileName);
    if (library == nullptr) {
        printLine("## Could not open library %s, nothing will be logged\n", fileName);
        return false;
    }
    for (size_t i = 0; i < count; ++i) {
        void *address = dlsym(library, symbols[i].name);
        if (address == nullptr) {
            printLine("## Could not find %s in library %s, nothing will be logged\n", symbols[i].name,
                      fileName);
            return false;
        }
        memcpy(symbols[i].slot, &address, sizeof(address));
    }
    return true;
}

template <size_t N>
bool bindSymbols(const char *fileName, const Symbol (&symbols)[N]) {
    return bindSymbols(fileName, symbols, N);
}

// The libraries are never closed: log calls may come from any thread until the process ends.
bool bindToolkit() {
    const Symbol toolkit[] = {
        {"LgkOpenToolkit", &api.openToolkit},
        {"LgkGetObject", &api.getObject},
        {"LgkGetObjProp", &api.getObjProp},
        {"LgkSetObjProp", &api.setObjProp},
        {"LgkSetObjPropInt", &api.setObjPropInt},
        {"LgkReleaseObject", &api.releaseObject},
        {"LgkMemoryFree", &api.memoryFree},
        {"LgkIsLoggable", &lgkApi.isLoggable},
        {"LgkLogDebugMin", &lgkApi.debugMin},
        {"LgkLogDebugMid", &lgkApi.debugMid},
        {"LgkLogDebugMax", &lgkApi.debugMax},
        {"LgkLogInfo", &lgkApi.info},
        {"LgkLogWarn", &lgkApi.warn},
        {"LgkLogError", &lgkApi.error},
        {"LgkLogFatal", &lgkApi.fatal},
        {"LgkLogText", &lgkApi.text},
    };
    const Symbol ffdc[] = {
        {"LgkInitFFDCExtensions", &api.initFFDCExtensions},
        {"LgkFileCopyHandlerGetFiles", &api.getFiles},
        {"LgkFileCopyHandlerSetFiles", &api.setFiles},
        {"LgkFFDCTriggerHandlerGetBaseDir", &api.getBaseDir},
        {"LgkFFDCTriggerHandlerSetBaseDir", &api.setBaseDir},
    };
    const Symbol nls[] = {{"nls_set_dir", &api.nlsSetDir}};
    return bindSymbols("libnlsm_64.so", nls) && bindSymbols("liblgkit_64.so", toolkit) &&
           bindSymbols("liblgffdc_64.so", ffdc);
}

// ---------------------------------------------------------------- directories

void putEnvironment(const char *name, const char *value) {
    if (setenv(name, value, 1) != 0) {
        fprintf(stderr, "Failed to set %s. Error code is %d\n", name, errno);
    }
}

// Catalogues of this installation come after what the operator named.
void extendCatalogPath(const char *toolkitDir) {
    char own[MAX_NAME];
    snprintf(own, sizeof(own), "%.240s/msg/%%L/%%N.cat", toolkitDir);
    const char *old = getenv("NLSPATH");
    char *path = nullptr;
    if (asprintf(&path, "%s%s%s", old != nullptr ? old : "", old != nullptr ? ";" : "", own) < 0) {
        fprintf(stderr, "Failed to allocate memory at %s (%d).\n", __FILE_NAME__, __LINE__);
        return;
    }
    putEnvironment("NLSPATH", path);
    free(path);
}

void chooseQualifier(const LgKitPaths &paths) {
    const char *chosen = getenv("QUALDIR");
    const Name name = isSet(chosen) ? Name(chosen) : Name(paths.nodeName, ".", paths.appServerName);
    snprintf(qualifierCopy, sizeof(qualifierCopy), "%s", name.get());
    // One log directory for each instance of a clustered database client.
    const char *instance = findCommandLineValue("-Doracle.ons.indexid=");
    if (instance != nullptr) {
        putEnvironment("QUALDIR", Name(qualifierCopy, ".", instance).get());
        const char *stored = getenv("QUALDIR");
        snprintf(qualifierCopy, sizeof(qualifierCopy), "%s", stored != nullptr ? stored : "");
    }
}

// The default is a place on one platform only; elsewhere it would lead below the server's working directory.
const char *defaultCommonDir(const LgKitPaths &paths) {
    if (*DEFAULT_COMMON_DIR == '/') {
        return DEFAULT_COMMON_DIR;
    }
    return isSet(paths.runtimeDir) ? paths.runtimeDir : paths.homeDir;
}

void chooseCommonDir(const LgKitPaths &paths) {
    const char *fromEnvironment = getenv("LGKIT_COMMON_DIR");
    const char *chosen = isSet(paths.lgkitCommonDir) ? paths.lgkitCommonDir
                         : isSet(fromEnvironment)    ? fromEnvironment
                                                     : defaultCommonDir(paths);
    snprintf(commonDir, sizeof(commonDir), "%s", chosen);
}

void fixLogFileName(LgkObject *handler) {
    int found = 0;
    char *name = api.getObjProp(handler, "fileName", &found);
    if (found == 0) {
        return;
    }
    const Name path(commonDir, "/ZYK/logs/", qualifierCopy, "/", isSet(name) ? name : "dc-native.log");
    snprintf(logFilePath, sizeof(logFilePath), "%s", path.get());
    api.memoryFree(name);
    api.setObjProp(handler, "fileName", logFilePath);
}

void fixFfdcBaseDir(LgkObject *handler) {
    Name base(commonDir, "/ZYK/");
    const char *configured = getenv("LGKIT_FFDC_BASEDIR");
    if (configured != nullptr) {
        base.add(configured);
    } else {
        char *own = api.getBaseDir(handler);
        base.add(isSet(own) ? own : "FFDC");
        api.memoryFree(own);
    }
    if (*qualifierCopy != '\0') {
        base.add("/").add(qualifierCopy);
    }
    api.setBaseDir(handler, base.get());
}

// Files below the common log directory are looked for in this server's own directory instead.
void addQualifiedFile(Name &list, const char *file, size_t length, const PathText &prefix) {
    const void *at = memmem(file, length, prefix.get(), prefix.size());
    const size_t head =
        at != nullptr ? static_cast<size_t>(static_cast<const char *>(at) - file) + prefix.size() : 0;
    list.add(file, head);
    if (at != nullptr) {
        list.add(qualifierCopy).add("/");
    }
    list.add(file + head, length - head).add(" ");
}

Name qualifiedFileList(const char *list) {
    const PathText prefix(commonDir, "/ZYK/logs/");
    Name result;
    int count = 0;
    for (list += strspn(list, ","); *list != '\0'; ++count) {
        if (count == MAX_FFDC_FILES) {
            fprintf(stderr, "Number of files sepcified exceeds the maximum limit %d\n", MAX_FFDC_FILES);
            break;
        }
        const size_t length = strcspn(list, ",");
        addQualifiedFile(result, list, length, prefix);
        list += length + strspn(list + length, ",");
    }
    return result;
}

void fixFfdcFileList(LgkObject *handler) {
    if (*qualifierCopy == '\0') {
        return;
    }
    char *list = api.getFiles(handler);
    if (list != nullptr) {
        api.setFiles(handler, qualifiedFileList(list).get());
        api.memoryFree(list);
    }
}

// ---------------------------------------------------------------- objects

// A file that is there and cannot be read is told of; one that is not there leaves it to the next place.
bool openToolkit(const char *path) {
    const char *fault = nullptr;
    FILE *file = openRegularFile(path, &fault, MAX_PROPERTY_BYTES);
    if (file == nullptr) {
        if (fault != nullptr) {
            printLine("## Cannot read %s: %s\n", path, fault);
        }
        return false;
    }
    fclose(file);
    return api.openToolkit(path) == 1;
}

bool openPropertyFile(const LgKitPaths &paths) {
    char path[MAX_NAME];
    if (paths.runtimeDir != nullptr) {
        snprintf(path, sizeof(path), "%.224s/%.30s", paths.runtimeDir, PROPERTY_FILE);
        if (openToolkit(path)) {
            return true;
        }
    }
    snprintf(path, sizeof(path), "%.219s/etc/%.30s", paths.toolkitDir, PROPERTY_FILE);
    if (openToolkit(path)) {
        return true;
    }
    char last[MAX_NAME];
    snprintf(last, sizeof(last), "%.219s/etc/%.30s", paths.homeDir, PROPERTY_FILE);
    printLine("WARN: Could not open Toolkit. please check if lgkit property file %s exists. Trying %s \n",
              path, last);
    if (openToolkit(last)) {
        return true;
    }
    printLine("ERROR: Could not open Toolkit. please check if lgkit property file %s exists. \n", last);
    return false;
}

// The logger and the tracers, in the order in which they are asked for.
struct LogSlot {
    Relaxed<LgkObject *> *object;
    const char *name;
    const char *kind;
    const char *messageName;
    const char **initialLevel; // where the level goes; null if it is not read
};

const LogSlot logSlots[] = {
    {&msgLogger, "logger.dc.msg", "logger", "DC_LOGGER", nullptr},
    {&naTracer, "logger.dc.na.trace", "tracer", "DC_NA_TRACER", &initialLevels[0]},
    {&eaTracer, "logger.dc.ea.trace", "tracer", "DC_EA_TRACER", &initialLevels[1]},
    {&caTracer, "logger.dc.ca.trace", "tracer", "DC_CA_TRACER", &initialLevels[2]},
    {&ccTracer, "logger.dc.cc.trace", "tracer", "DC_CC_TRACER", &initialLevels[3]},
    {&gcTracer, "logger.dc.gc.trace", "tracer", "DC_GC_TRACER", &initialLevels[4]},
    {&traceLogger, "logger.dc.trace", "tracer", "DC_TRACER", nullptr},
};
constexpr size_t LOG_SLOTS = std::size(logSlots);
using LogObjects = std::array<LgkObject *, LOG_SLOTS>; // as `logSlots`; null: not there

void readInitialLevel(LgkObject *tracer, const LogSlot &slot) {
    int found = 0;
    *slot.initialLevel = api.getObjProp(tracer, "level", &found);
    if (*slot.initialLevel == nullptr) {
        printLine("ERROR: Could not get the level of %s .\n", slot.messageName);
    }
}

// Stops at the first object that is missing: false, and the rest stay null. A missing `ccTracer` goes
// unnoticed: the test behind it looks at `caTracer` once more.
bool fetchLogObjects(LogObjects &objects) {
    for (size_t i = 0; i < LOG_SLOTS; ++i) {
        const LogSlot &slot = logSlots[i];
        objects[i] = api.getObject(slot.name, nullptr);
        if (objects[slot.object == &ccTracer ? i - 1 : i] == nullptr) {
            printLine("ERROR: Could not initialize %s '%s'\n", slot.kind, slot.messageName);
            return false;
        }
        if (slot.initialLevel != nullptr) {
            readInitialLevel(objects[i], slot);
        }
    }
    return true;
}

// From here on all threads log.
void publishLogObjects(const LogObjects &objects) {
    for (size_t i = 0; i < LOG_SLOTS; ++i) {
        *logSlots[i].object = objects[i];
    }
    noteTraceLevels();
}

void fixHandlers() {
    for (const char *name : {"handler.file.dc.msg", "handler.file.dc.trace"}) {
        LgkObject *handler = api.getObject(name, "lgk_filehandler");
        if (handler != nullptr) {
            fixLogFileName(handler);
        }
        api.releaseObject(handler);
    }
    LgkObject *ffdc = api.getObject("handler.ffdc.dc", nullptr);
    if (ffdc != nullptr) {
        fixFfdcBaseDir(ffdc);
        fixFfdcFileList(ffdc);
    }
    api.releaseObject(ffdc);
}

// The objects become visible last: a record that came before would go to a file name that is not yet fixed.
// So the handlers are fixed also when an object is missing, for those that are there. False if one is.
bool openLogObjects(const LgKitPaths &paths) {
    LogObjects objects{};
    const bool complete = fetchLogObjects(objects);
    setLogLevel(objects.back(), LGK_DEBUG_MAX);
    chooseCommonDir(paths);
    const char *named = getenv("PROBE_CATALOG_NAME");
    snprintf(catalog, sizeof(catalog), "%s", named != nullptr ? named : "zykprobeMessages");
    fixHandlers();
    publishLogObjects(objects);
    return complete;
}

} // namespace

void openLgKit(const LgKitPaths &paths) {
    if (lgkitOpen) {
        return;
    }
    extendCatalogPath(paths.toolkitDir);
    chooseQualifier(paths);
    if (!bindToolkit()) {
        return;
    }
    messageSetNumber = 1;
    api.initFFDCExtensions();
    char codeset[MAX_NAME];
    snprintf(codeset, sizeof(codeset), "%.247s/codeset", paths.toolkitDir);
    api.nlsSetDir(codeset);
    if (openPropertyFile(paths)) {
        lgkitOpen = openLogObjects(paths);
    }
}

int messageSet() {
    return messageSetNumber;
}

const char *catalogName() {
    return catalog;
}

const char *logQualifier() {
    return qualifierCopy;
}

bool getStatisticsEnabled() {
    return statisticsEnabled;
}

void setStatisticsEnabled(bool enabled) {
    statisticsEnabled = enabled;
}

void setLogLevel(LgkObject *object, int level) {
    if (object != nullptr) {
        api.setObjPropInt(object, "level", level);
        noteTraceLevels();
    }
}

void noteTraceLevels() {
    int lowest = LGK_INFO;
    for (LgkObject *tracer :
         {naTracer.get(), eaTracer.get(), caTracer.get(), ccTracer.get(), gcTracer.get()}) {
        for (const int level : {LGK_DEBUG_MIN, LGK_DEBUG_MID, LGK_DEBUG_MAX}) {
            lowest = LgkIsLoggable(tracer, level) ? std::min(lowest, level) : lowest;
        }
    }
    tracedFrom = lowest;
}

void traceText(const char *text) {
    LgkObject *sink = traceLogger;
    if (sink != nullptr) {
        lgkApi.text(sink, text, 0);
    } else {
        printf("%.499s", text);
    }
}

void traceFormat(const char *format, ...) {
    char text[1024];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    traceText(text);
}
