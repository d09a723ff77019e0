#include "PropertyMgr.h"

#include "PlatformText.h"
#include "ProbeLgKit.h"
#include "ProbeState.h"
#include "cmdline.h"
#include "jnihelp.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

char rawHome[1024] = "";
char rawNorakHome[1024] = "";
char rawPlatform[100] = "";
char rawNodeName[1024] = "";
char rawAppServer[1024] = "";
char rawProfileName[1024] = "";
char rawUserHome[1024] = "";
char rawExtDirs[2000] = "";
char qualDir[1024] = "";

namespace {

// A fixed buffer and its size.
struct Buffer {
    template <size_t N>
    Buffer(char (&array)[N]) : text(array), room(N) {} // implicit: tables list plain arrays
    char *text;
    size_t room;

    bool isEmpty() const { return *text == '\0'; }
    void set(const char *value) const {
        const size_t length = strnlen(value, room - 1);
        memcpy(text, value, length);
        text[length] = '\0';
    }
};

struct NamedBuffer {
    const char *name;
    Buffer buffer;
};

constexpr char DEFINE_PREFIX[] = "-D";

// Property names as they may stand on the command line, with or without "-D".
const NamedBuffer COMMAND_LINE_NAMES[] = {
    {"am.home=", rawHome},
    {"am.nodename=", rawNodeName},
    {"am.appserver=", rawAppServer},
    {"am.profilename=", rawProfileName},
    {"am.ext.dirs=", rawExtDirs},
    {"norak61.home=", rawNorakHome},
    {"appserver.platform=", rawPlatform},
};

void takeArgument(const char *argument) {
    const size_t prefix = sizeof(DEFINE_PREFIX) - 1;
    const char *text = strncmp(argument, DEFINE_PREFIX, prefix) == 0 ? argument + prefix : argument;
    for (const NamedBuffer &entry : COMMAND_LINE_NAMES) {
        const size_t length = strlen(entry.name);
        if (strncmp(text, entry.name, length) == 0 && entry.buffer.isEmpty()) {
            entry.buffer.set(text + length);
            return;
        }
    }
}

} // namespace

void initCommandLineArgs() {
    if (commandLineArgCount == 0) {
        printf("Failed to retrieve command arguments for BRS\n");
        messageError(1074, "Failed to retrieve command arguments for BRS");
    }
    for (int i = 0; i < commandLineArgCount; ++i) {
        takeArgument(commandLineArgs[i]);
    }
}

namespace {

// What the JVM has taken from its command line is taken from there as well if it goes beyond ASCII: in the
// "C" locale nothing of it is left, and nowhere anything of broken characters.
void takeSystemProperty(JNIEnv *env, const NamedBuffer &entry) {
    const char *given = findJvmProperty(entry.name);
    if (given != nullptr && !isAscii(given)) {
        entry.buffer.set(given);
    } else {
        getJavaSystemProperty(env, entry.name, entry.buffer.text, entry.buffer.room);
    }
}

} // namespace

void PropertyMgr::readSystemProperties(JNIEnv *env) {
    const NamedBuffer wanted[] = {
        {"am.home", rawHome},
        {"norak61.home", rawNorakHome},
        {"appserver.platform", rawPlatform},
        {"am.nodename", rawNodeName},
        {"am.appserver", rawAppServer},
        {"AM_PROFILENAME", rawProfileName},
        {"user.home", rawUserHome},
        {"LGKIT_COMMON_DIR", facts.lgkitCommonDir},
        {"am.ext.dirs", rawExtDirs},
    };
    for (const NamedBuffer &entry : wanted) {
        takeSystemProperty(env, entry);
        if (initDebug) {
            printf("## PropertyMgr::initParam propName=%s\n", entry.name);
            printf("## PropertyMgr::initParam propValue=%s\n", entry.buffer.text);
        }
    }
}

// Each fact comes from the first of raw value, environment variable and default that there is.
void PropertyMgr::fillFacts() {
    struct Rule {
        Buffer field;
        const char *raw;
        const char *variable;
        const char *def;
        void (*complain)();
    };
    const Rule rules[] = {
        {facts.homeDir, rawHome, "am.home", "/zykora",
         [] { messageError(1006, "am.home system property is undefined"); }},
        {facts.lgkitCommonDir, "", "LGKIT_COMMON_DIR", "", nullptr},
        {facts.norakHome, rawNorakHome, nullptr, "", nullptr},
        {facts.profileName, rawProfileName, "AM_PROFILENAME", "", nullptr},
        {facts.nodeName, rawNodeName, "am.nodename", "defaultnode",
         [] { messageWarn(1008, "am.nodename system property is undefined"); }},
        {facts.appServerName, rawAppServer, "am.appserver", "appserver",
         [] { messageWarn(1010, "am.appserver system property is undefined"); }},
        {facts.userHome, rawUserHome, nullptr, "", nullptr},
    };
    for (const Rule &rule : rules) {
        if (*rule.raw != '\0') {
            rule.field.set(rule.raw);
        }
        const char *variable = rule.variable != nullptr ? getenv(rule.variable) : nullptr;
        if (rule.field.isEmpty() && variable != nullptr) {
            rule.field.set(variable);
        }
        if (rule.field.isEmpty()) {
            rule.field.set(rule.def);
            if (rule.complain != nullptr) {
                rule.complain();
            }
        }
    }
}

namespace {

// A path that is cut silently where it exceeds its buffer.
template <typename... Args>
void composePath(const Buffer &target, const char *format, Args... args) {
    if (snprintf(target.text, target.room, format, args...) < 0) {
        target.set("");
    }
}

} // namespace

// A directory that the runtime builder has named stands.
void PropertyMgr::findRuntimeDir() {
    if (*facts.norakHome == '\0' || *rawPlatform == '\0' || *facts.nodeName == '\0' ||
        *facts.appServerName == '\0') {
        if (initDebug) {
            printf("## Runtime dir not proper %s/%s/%s.%s.%s \n", facts.norakHome, "runtime", rawPlatform,
                   facts.nodeName, facts.appServerName);
        }
        return;
    }
    if (facts.runtimeDir == nullptr) {
        char path[256];
        composePath(path, "%.256s/%.10s/%.256s.%.256s.%.256s", facts.norakHome, "runtime", rawPlatform,
                    facts.nodeName, facts.appServerName);
        facts.runtimeDir = strdup(path); // null if memory is out: as if nobody knew it
    }
    composePath(facts.toolkitDir, "%.244s/%.10s", facts.norakHome, "toolkit");
    if (initDebug) {
        printf("## Runtime dir: %s Toolkit dir: %s \n", facts.runtimeDir != nullptr ? facts.runtimeDir : "",
               facts.toolkitDir);
    }
}

namespace {

template <size_t Room>
void copyName(char (&target)[Room], const char (&name)[Room]) {
    memcpy(target, name, Room);
}

} // namespace

// The initial records need the names also when this object is out of use.
void PropertyMgr::publishNames() const {
    copyName(serverFacts.nodeName, facts.nodeName);
    copyName(serverFacts.appServerName, facts.appServerName);
    copyName(serverFacts.profileName, facts.profileName);
}

void PropertyMgr::printFacts() const {
    const char *const lines[][2] = {
        {"qual_dir", qualDir},
        {"zykora_home", facts.homeDir},
        {"norak_home", facts.norakHome},
        {"plat_name", rawPlatform},
        {"profilename", facts.profileName},
        {"nodename", facts.nodeName},
        {"appname", facts.appServerName},
        {"user_home", facts.userHome},
        {"lgkitCommonDir_", facts.lgkitCommonDir},
        {"zykoraextdirs", rawExtDirs},
    };
    for (const auto &line : lines) {
        printf("%s = %s\n", line[0], line[1]);
    }
}

void PropertyMgr::setGlobalProperties(JNIEnv *env) {
    readSystemProperties(env);
    initCommandLineArgs();
    fillFacts();
    findRuntimeDir();
    publishNames();
    if (initDebug) {
        printFacts();
    }
}
