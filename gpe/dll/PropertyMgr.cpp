#include "PropertyMgr.h"

#include "JVMTIUtils.h"
#include "ProbeLgKit.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <strings.h>
#include <utility>

Relaxed<PropertyMgr *> propertyMgr(nullptr);
Relaxed<PropertyMgr *> propertyMgrInstance(nullptr);

namespace {

constexpr int TABLE_SIZE = 21;
constexpr int BLANK = 32;
constexpr int DECIMAL = 10;
constexpr char GET_PROPERTY[] = "PropertyMgr::getProperty( const char * key )";

bool isSpace(char byte) {
    return static_cast<signed char>(byte) <= BLANK;
}

bool isDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

// Text behind the digits is ignored, no digits at all give 0, as do null and empty texts.
int32_t parseNumber(const char *text) {
    const long long value = text == nullptr ? 0 : strtoll(text, nullptr, DECIMAL);
    return static_cast<int32_t>(std::clamp<long long>(value, INT32_MIN, INT32_MAX));
}

bool parseBool(const char *key, const char *text, bool def) {
    if (text != nullptr && strcasecmp(text, "false") == 0) {
        return false;
    }
    if (text != nullptr && strcasecmp(text, "true") == 0) {
        return true;
    }
    AM_TRACE(ccTracer, LGK_DEBUG_MID, "PropertyMgr::getBoolProperty( const char * key, bool def )",
             "Bad boolean value key = %s ", key);
    return def;
}

// Digits with exactly one point among them.
bool isFraction(const char *text) {
    int points = 0;
    for (; *text != '\0'; ++text) {
        if (*text == '.') {
            ++points;
        } else if (!isDigit(*text)) {
            return false;
        }
    }
    return points == 1;
}

void traceExit(const char *signature, int32_t value) {
    AM_TRACE(ccTracer, LGK_DEBUG_MID, signature, "exit: %d", value);
}

void traceExit(const char *signature, long value) {
    AM_TRACE(ccTracer, LGK_DEBUG_MID, signature, "exit: %ld", value);
}

void traceExit(const char *signature, const char *value) {
    AM_TRACE(ccTracer, LGK_DEBUG_MID, signature, "exit: %s", value);
}

// The toolkit has no argument type for fractions.
void traceExit(const char *signature, float value) {
    if (LgkIsLoggable(ccTracer, LGK_DEBUG_MID)) {
        char text[64];
        snprintf(text, sizeof(text), "exit: %lf", static_cast<double>(value));
        AM_TRACE(ccTracer, LGK_DEBUG_MID, signature, "%s", text);
    }
}

void traceExit(const char *signature, bool value) {
    traceExit(signature, static_cast<int32_t>(value));
}

} // namespace

char *strtrim(char *str) {
    if (str == nullptr) {
        return nullptr;
    }
    char *end = str + strlen(str);
    while (end > str && isSpace(end[-1])) {
        --end;
    }
    *end = '\0';
    while (str < end && isSpace(*str)) {
        ++str;
    }
    return str;
}

float getFloat(const char *text, float def) {
    if (text == nullptr || !isFraction(text)) {
        traceWarn("Wrong float value in datacollector.properties. Using default\n");
        return def;
    }
    double whole = 0;
    for (; *text != '.'; ++text) {
        whole = whole * DECIMAL + (*text - '0');
    }
    double fraction = 0;
    double power = 1;
    for (++text; *text != '\0'; ++text) {
        fraction = fraction * DECIMAL + (*text - '0');
        power *= DECIMAL;
    }
    return static_cast<float>(whole + fraction / power);
}

// The pointers come first: whatever the tables need while they are built already finds the object.
PropertyMgr::PropertyMgr() : NamedObject("PropertyMgr") {
    propertyMgr = this;
    propertyMgrInstance = this;
    propList.reset(new (std::nothrow) ZykList<char *>(false));
    internalProps.reset(new (std::nothrow) Table(TABLE_SIZE, true, false));
    table2.reset(new (std::nothrow) Table(TABLE_SIZE, true, false));
    table3.reset(new (std::nothrow) Table(TABLE_SIZE, true, false));
    lock.reset(new (std::nothrow) ZykLock(false));
}

bool PropertyMgr::isWhole() const {
    return propList && internalProps && table2 && table3 && lock;
}

PropertyMgr::~PropertyMgr() {
    propertyMgr = nullptr;
    propertyMgrInstance = nullptr;
    freeEntries(internalProps.get());
    freeEntries(table2.get());
    freeEntries(table3.get());
    free(facts.runtimeDir);
}

void PropertyMgr::destroy() {
    static PropertyMgr *retired = nullptr; // some thread may be reading in it, even while the process ends
    PropertyMgr *manager = propertyMgr;
    if (manager != nullptr) {
        delete std::exchange(retired, manager);
        propertyMgr = nullptr;
        propertyMgrInstance = nullptr;
    }
}

bool PropertyMgr::start() {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MIN, "PropertyMgr::start()");
    if (lock) {
        const ZykLockGuard guard(*lock);
    }
    return true;
}

// Where memory is out for the list of keys, the entries stay.
void PropertyMgr::freeEntries(Table *table) {
    const std::unique_ptr<const char *[]> keys(table != nullptr ? table->keys() : nullptr);
    for (const char **key = keys.get(); key != nullptr && *key != nullptr; ++key) {
        char *value = table->get(*key);
        table->remove(*key);
        free(value);
        free(const_cast<char *>(*key));
    }
}

// ---------------------------------------------------------------- settings

const char *PropertyMgr::getInternalProp(const char *key) {
    return internalProps ? internalProps->get(key) : nullptr;
}

bool PropertyMgr::putInternalProp(const char *key, const char *val) {
    if (!isWhole()) {
        return false;
    }
    char *value = dupString(val);
    if (key == nullptr || (val != nullptr && value == nullptr)) {
        free(value);
        return false;
    }
    const ZykLockGuard guard(*lock);
    char *oldValue = internalProps->get(key);
    if (internalProps->contains(key)) {
        internalProps->put(key, value);
        free(oldValue);
        return true;
    }
    char *ownKey = dupString(key);
    if (ownKey == nullptr || !internalProps->put(ownKey, value)) {
        free(ownKey);
        free(value);
        return false;
    }
    return true;
}

void PropertyMgr::parseProperty(char *str, bool nullValsOK) {
    if (str == nullptr || *str == '#') {
        return;
    }
    const bool startsWithKey = *str != '=';
    char *rest = nullptr;
    const char *key = strtrim(strtok_r(str, "=", &rest));
    if (key == nullptr || *key == '\0') {
        return;
    }
    const char *value = strtrim(strtok_r(nullptr, "=", &rest));
    // What stands alone behind an "=" is a value without a key.
    if (value == nullptr && !(nullValsOK && startsWithKey)) {
        return;
    }
    putInternalProp(key, value);
}

template <typename T, typename Parse>
T PropertyMgr::readTyped(const char *signature, const char *key, T def, Parse parse) {
    AM_TRACE(ccTracer, LGK_DEBUG_MID, signature, "entry");
    const bool there = key != nullptr && internalProps && internalProps->contains(key);
    const T value = there ? parse(internalProps->get(key)) : def;
    traceExit(signature, value);
    return value;
}

const char *PropertyMgr::getProperty(const char *key) {
    AM_TRACE(ccTracer, LGK_DEBUG_MID, GET_PROPERTY, "entry");
    if (key == nullptr) {
        AM_TRACE(ccTracer, LGK_DEBUG_MID, GET_PROPERTY, "exit: missing key");
        return nullptr;
    }
    const char *value = getInternalProp(key);
    traceExit(GET_PROPERTY, value);
    return value;
}

const char *PropertyMgr::getStringProperty(const char *key, const char *def) {
    return readTyped("PropertyMgr::getStringProperty( const char * key, const char * def )", key, def,
                     [](const char *text) { return text; });
}

int32_t PropertyMgr::getIntProperty(const char *key, int32_t def) {
    return readTyped("PropertyMgr::getIntProperty( const char * key, int def )", key, def, parseNumber);
}

int32_t PropertyMgr::getLongProperty(const char *key, int32_t def) {
    return static_cast<int32_t>(
        readTyped<long>("PropertyMgr::getLongProperty( const char * key, long def )", key, def, parseNumber));
}

float PropertyMgr::getFloatProperty(const char *key, float def) {
    return readTyped("PropertyMgr::getFloatProperty( const char * key, float def )", key, def,
                     [def](const char *text) {
                         const float value = getFloat(text, def);
                         return value >= 0.0F && value <= 1.0F ? value : def;
                     });
}

bool PropertyMgr::getBoolProperty(const char *key, bool def) {
    return readTyped("PropertyMgr::getBoolProperty( const char * key, bool def )", key, def,
                     [key, def](const char *text) { return parseBool(key, text, def); });
}

// ---------------------------------------------------------------- callers without a manager

namespace {

template <typename T>
T readProperty(T (PropertyMgr::*getter)(const char *, T), const char *key, T def) {
    PropertyMgr *manager = propertyMgr;
    return manager != nullptr ? (manager->*getter)(key, def) : def;
}

} // namespace

int32_t intProperty(const char *key, int32_t def) {
    return readProperty(&PropertyMgr::getIntProperty, key, def);
}

int32_t longProperty(const char *key, int32_t def) {
    return readProperty(&PropertyMgr::getLongProperty, key, def);
}

bool boolProperty(const char *key, bool def) {
    return readProperty(&PropertyMgr::getBoolProperty, key, def);
}

float floatProperty(const char *key, float def) {
    return readProperty(&PropertyMgr::getFloatProperty, key, def);
}

const char *stringProperty(const char *key, const char *def) {
    const char *value = readProperty(&PropertyMgr::getStringProperty, key, def);
    return value == nullptr && def != nullptr ? "" : value;
}
