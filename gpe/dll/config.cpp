#include "config.h"

#include "RegularFile.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

InstrumentationConfig instrumentationConfig;

namespace {

#define AM_CERTIFICATES "Ljava/security/ProtectionDomain;[Ljava/security/cert/Certificate;[B"
#define AM_LOADER "java.lang.ClassLoader:java.lang.ClassLoader:"
#define AM_PROXY "java.lang.reflect.Proxy:java.lang.reflect.Proxy:defineClass0:(Ljava/lang/ClassLoader;"
#define AM_RESULT ")Ljava/lang/Class;:0:1:2:3:4"

constexpr char HOOK_CLASS[] = "com.qel.morvex.kvor.injector.JVMPIClassLoadHook";
constexpr const char *LOADER_METHODS[] = {
    AM_LOADER "defineClass0:(Ljava/lang/String;[BII" AM_CERTIFICATES AM_RESULT,
    AM_LOADER "defineClass0:(Ljava/lang/String;[BIILjava/security/ProtectionDomain;" AM_RESULT,
    AM_LOADER "defineClass0:(Ljava/lang/String;[BII" AM_RESULT,
    AM_LOADER "defineClassImpl:(Ljava/lang/String;[BII" AM_RESULT,
    AM_LOADER "defineClassImpl:(Ljava/lang/String;[BII" AM_CERTIFICATES AM_RESULT,
    AM_LOADER "defineClassImpl:(Ljava/lang/String;[BIILjava/security/ProtectionDomain;" AM_RESULT,
    AM_LOADER "defineClassImpl:(Ljava/lang/String;[BIILjava/lang/Object;" AM_RESULT,
};
constexpr const char *PROXY_METHODS[] = {
    AM_PROXY "Ljava/lang/String;[BIILjava/lang/Object;[Ljava/lang/Object;Ljava/lang/Object;" AM_RESULT,
    AM_PROXY "Ljava/lang/String;[BII" AM_RESULT,
};
constexpr const char *EXCLUDED[] = {
    "java.",        "sun.",      "com.qel.jvm.", "com.sun.rsajca.", "com.qel.morvex.kvor.",
    "COM.jrockit.", "weblogic.", "com.bea.",     "com.beasys.",     "com.weblogic."};

// ---------------------------------------------------------------- values

char *slashForm(const char *text) {
    char *copy = strdup(text);
    if (copy != nullptr) {
        std::replace(copy, copy + strlen(copy), '.', '/');
    }
    return copy;
}

// Takes over `copy`; false if it is null.
bool replaceText(char *&field, char *copy) {
    if (copy == nullptr) {
        return false;
    }
    free(field);
    field = copy;
    return true;
}

bool addFilter(bool isInclude, const char *value) {
    char *copy = slashForm(value);
    if (copy == nullptr) {
        return false;
    }
    const Filter filter = {copy, static_cast<int32_t>(strlen(copy)), isInclude ? 1 : 0};
    if (!instrumentationConfig.filters.add(filter)) {
        free(copy);
        return false;
    }
    return true;
}

// Cuts `value` at each `splitChar`; the parts stay its own.
GrowingArray<char *> split(char *value, char splitChar) {
    GrowingArray<char *> parts;
    for (char *part = value; part != nullptr;) {
        char *end = strchr(part, splitChar);
        if (end != nullptr) {
            *end = '\0';
        }
        parts.add(part);
        part = end != nullptr ? end + 1 : nullptr;
    }
    return parts;
}

constexpr int32_t PARTS = 9;

bool fillMethod(DefineClassMethod &method, char *const *parts) {
    method.className = slashForm(parts[0]);
    method.declaringClassName = slashForm(parts[1]);
    method.methodName = slashForm(parts[2]);
    method.signature = slashForm(parts[3]);
    for (int i = 0; i < 5; ++i) {
        method.arguments[i] = static_cast<int16_t>(atoi(parts[4 + i]));
    }
    if (method.className == nullptr || method.declaringClassName == nullptr || method.methodName == nullptr ||
        method.signature == nullptr) {
        return false;
    }
    method.classNameLength = static_cast<int32_t>(strlen(method.className));
    method.declaringClassNameLength = static_cast<int32_t>(strlen(method.declaringClassName));
    return true;
}

// "class:declaring class:method:signature:0:1:2:3:4"; false unless there are 9 parts.
bool parseDefineClassValue(DefineClassMethod &method, const char *value) {
    char *copy = strdup(value);
    GrowingArray<char *> parts = copy != nullptr ? split(copy, ':') : GrowingArray<char *>();
    const bool isGood = parts.count == PARTS && fillMethod(method, parts.items);
    free(static_cast<void *>(parts.items));
    free(copy);
    return isGood;
}

bool addMethod(GrowingArray<DefineClassMethod> &methods, const char *value) {
    DefineClassMethod method{};
    return parseDefineClassValue(method, value) && methods.add(method);
}

bool setDelegate(const char *value) {
    constexpr const char *NAMES[] = {"boot", "extension", "system"};
    InstrumentationConfig &config = instrumentationConfig;
    if (*value == '@') {
        config.delegateTo = DELEGATE_NAMED;
        config.instrumentDefineClass = true;
        const bool stored = replaceText(config.delegateClassLoader, slashForm(value + 1));
        config.delegateClassLoaderLength =
            stored ? static_cast<int32_t>(strlen(config.delegateClassLoader)) : 0;
        return stored;
    }
    for (int i = 0; i < 3; ++i) {
        if (strcmp(value, NAMES[i]) == 0) {
            config.delegateTo = static_cast<DelegateTo>(i);
        }
    }
    return true;
}

// ---------------------------------------------------------------- keys

constexpr char PREFIX[] = "com.qel.morvex.kvor.";

struct Key {
    const char *name; // behind the prefix
    bool (*store)(const char *value);
};

template <bool InstrumentationConfig::*FIELD>
bool storeFlag(const char *value) {
    instrumentationConfig.*FIELD = strcmp(value, "true") == 0;
    return true;
}

template <char *InstrumentationConfig::*FIELD>
bool storeText(const char *value) {
    return replaceText(instrumentationConfig.*FIELD, strdup(value));
}

const Key KEYS[] = {
    {"injector.IJVMPIClassLoadHook", storeText<&InstrumentationConfig::hookClassName>},
    {"jvmpi.classpath",
     [](const char *value) {
         char *copy = strdup(value);
         return copy != nullptr && instrumentationConfig.classPath.add(copy);
     }},
    {"jvmpi.include", [](const char *value) { return addFilter(true, value); }},
    {"jvmpi.exclude", [](const char *value) { return addFilter(false, value); }},
    {"jvmpi.instrumentDefineClass", storeFlag<&InstrumentationConfig::instrumentDefineClass>},
    {"jvmpi.delegateTo", setDelegate},
    {"jvmpi.includeInterfaces", storeFlag<&InstrumentationConfig::includeInterfaces>},
    {"jvmpi.statistics", storeFlag<&InstrumentationConfig::statistics>},
    {"jvmpi.logging.loggingEntryExit", storeFlag<&InstrumentationConfig::loggingEntryExit>},
    {"jvmpi.logging.loggingException", storeFlag<&InstrumentationConfig::loggingException>},
    {"jvmpi.logging.loggingMessage", storeFlag<&InstrumentationConfig::loggingMessage>},
    {"jvmpi.logging.loggingText", storeFlag<&InstrumentationConfig::loggingText>},
    {"jvmpi.logging.logFile", storeText<&InstrumentationConfig::logFile>},
    {"jvmpi.dumpClasses", storeFlag<&InstrumentationConfig::dumpClasses>},
    {"jvmpi.dumpPath", storeText<&InstrumentationConfig::dumpPath>},
    {"jvmpi.classLoader",
     [](const char *value) { return addMethod(instrumentationConfig.classLoaderMethods, value); }},
    {"jvmpi.proxy", [](const char *value) { return addMethod(instrumentationConfig.proxyMethods, value); }},
};

// Unknown keys are ignored.
bool store(const char *key, const char *value) {
    constexpr size_t LENGTH = sizeof(PREFIX) - 1;
    if (strncmp(key, PREFIX, LENGTH) != 0) {
        return true;
    }
    const auto *found = std::find_if(std::begin(KEYS), std::end(KEYS),
                                     [=](const Key &known) { return strcmp(key + LENGTH, known.name) == 0; });
    return found == std::end(KEYS) || found->store(value);
}

// ---------------------------------------------------------------- lines

constexpr char BLANKS[] = " \t";
constexpr char LINE_ENDS[] = "\r\n";

char *skipBlanks(char *at) {
    return at + strspn(at, BLANKS);
}

char *skipComments(char *at) {
    at = skipBlanks(at);
    while (*at == '#' || *at == '!' || *at == '\r' || *at == '\n') {
        at += strcspn(at, LINE_ENDS);
        at = skipBlanks(at + strspn(at, LINE_ENDS));
    }
    return at;
}

// The value of a line whose key is cut off in front of it. It ends at the first blank.
char *cutValue(char *line) {
    char *at = line + strcspn(line, "=: \t");
    const bool isBlank = *at == ' ' || *at == '\t';
    if (*at != '\0') {
        *at++ = '\0';
    }
    if (isBlank) {
        at = skipBlanks(at);
        at += *at == '=' || *at == ':' ? 1 : 0;
    }
    at = skipBlanks(at);
    at[strcspn(at, BLANKS)] = '\0';
    return at;
}

// ---------------------------------------------------------------- the file

int hexDigit(char c) {
    constexpr char DIGITS[] = "0123456789abcdef";
    const char lower = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
    const char *found = lower != '\0' ? strchr(DIGITS, lower) : nullptr;
    return found != nullptr ? static_cast<int>(found - DIGITS) : -1;
}

// -1 for a bad digit, the end of the text included.
int hexCode(const char *digits) {
    int code = 0;
    for (int i = 0; i < 4; ++i) {
        const int digit = hexDigit(digits[i]);
        if (digit < 0) {
            return -1;
        }
        code = code * 16 + digit;
    }
    return code;
}

char *writeUtf8(char *out, int code) {
    if (code == 0) {
        *out++ = ' ';
    } else if (code < 0x80) {
        *out++ = static_cast<char>(code);
    } else if (code < 0x800) {
        *out++ = static_cast<char>(0xC0 | code >> 6);
        *out++ = static_cast<char>(0x80 | (code & 0x3F));
    } else {
        *out++ = static_cast<char>(0xE0 | code >> 12);
        *out++ = static_cast<char>(0x80 | (code >> 6 & 0x3F));
        *out++ = static_cast<char>(0x80 | (code & 0x3F));
    }
    return out;
}

// The whole file with a NUL behind it, for the caller to free; null if there is none to be had. NULs within
// become blanks.
char *readConfig(const char *filename) {
    FILE *file = openRegularFile(filename, nullptr);
    if (file == nullptr) {
        return nullptr;
    }
    auto *buffer = static_cast<char *>(malloc(MAX_CONFIGURATION_BYTES + 1));
    if (buffer != nullptr) {
        const size_t length = fread(buffer, 1, MAX_CONFIGURATION_BYTES, file);
        std::replace(buffer, buffer + length, '\0', ' ');
        buffer[length] = '\0';
    }
    fclose(file);
    return buffer;
}

bool addAll(GrowingArray<DefineClassMethod> &methods, const char *const *values, size_t count) {
    return std::all_of(values, values + count, [&](const char *value) { return addMethod(methods, value); });
}

} // namespace

bool initConfig() {
    InstrumentationConfig &config = instrumentationConfig;
    return replaceText(config.hookClassName, strdup(HOOK_CLASS)) &&
           addAll(config.classLoaderMethods, LOADER_METHODS, std::size(LOADER_METHODS)) &&
           addAll(config.proxyMethods, PROXY_METHODS, std::size(PROXY_METHODS)) &&
           std::all_of(std::begin(EXCLUDED), std::end(EXCLUDED),
                       [](const char *prefix) { return addFilter(false, prefix); }) &&
           addFilter(true, "");
}

// In place: nothing gets longer.
bool convert8859_1ToUTF8(char *buffer) {
    char *out = buffer;
    for (const char *in = buffer; *in != '\0';) {
        if (in[0] != '\\' || in[1] != 'u') {
            *out++ = *in++;
            continue;
        }
        const int code = hexCode(in + 2);
        if (code < 0) {
            return false;
        }
        out = writeUtf8(out, code);
        in += 6;
    }
    *out = '\0';
    return true;
}

bool parseConfig(char *buffer) {
    for (char *line = skipComments(buffer); *line != '\0';) {
        char *end = line + strcspn(line, LINE_ENDS);
        char *next = end + strspn(end, LINE_ENDS);
        *end = '\0';
        const char *value = cutValue(line);
        if (!store(line, value)) {
            return false;
        }
        line = skipComments(next);
    }
    return true;
}

bool getConfig(const char *filename) {
    const bool isSound = initConfig();
    const char *named = getenv("DSRVKVOR_PROPS");
    const char *path = named != nullptr && *named != '\0' ? named : filename;
    char *buffer = path != nullptr && *path != '\0' ? readConfig(path) : nullptr;
    const bool isRead = buffer != nullptr && convert8859_1ToUTF8(buffer);
    const bool result = isRead ? parseConfig(buffer) : isSound;
    free(buffer);
    return result;
}
