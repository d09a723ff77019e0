#include "GPSTokenUtils.h"

#include "ProbeLgKit.h"
#include "ProbeState.h"
#include "PropertyMgr.h"
#include "RegularFile.h"
#include "Relaxed.h"
#include "ZykLock.h"
#include "jnihelp.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr char COUNTER_FILE[] = "zykoraGpsCounter.txt";
constexpr int32_t DEFAULT_CUSHION = 200;

StaticZykLock tokenLock;   // guards currentToken
StaticZykLock counterLock; // guards the file, and lastSavedToken against other writers

std::atomic<bool> gpsIsSetUp{false};
uint32_t currentToken = 0; // the next one, region included
Relaxed<uint32_t> regionId{0};
Relaxed<uint32_t> gpsMask{0};        // the bits that count
Relaxed<uint32_t> lastSavedToken{0}; // up to here the file covers them
Relaxed<int32_t> gpsCushion{DEFAULT_CUSHION};
char counterFileName[1024] = ""; // under counterLock

// ---------------------------------------------------------------- the file

// False if there is no such file; one without a number counts as 0.
bool readCounter(uint32_t *counter) {
    FILE *file = openRegularFile(counterFileName, nullptr);
    if (file == nullptr) {
        return false;
    }
    char text[32] = "";
    const size_t length = fread(text, 1, sizeof(text) - 1, file);
    text[length] = '\0';
    fclose(file);
    *counter = static_cast<uint32_t>(strtoul(text, nullptr, 10));
    return true;
}

bool writeCounter(uint32_t counter) {
    FILE *file = createRegularFile(counterFileName, nullptr);
    if (file == nullptr) {
        return false;
    }
    const bool written = fprintf(file, "%u", counter) > 0;
    return fclose(file) == 0 && written;
}

void buildCounterFileName() {
    const PropertyMgr *properties = propertyMgr;
    const char *directory = properties != nullptr ? properties->runtimeDir() : nullptr;
    if (directory != nullptr) {
        snprintf(counterFileName, sizeof(counterFileName), "%.1002s/%.20s", directory, COUNTER_FILE);
    }
    AM_TRACE(caTracer, LGK_DEBUG_MIN, "GPSTokenUtils::initGPSCounterFile()", "counter file is: %s",
             static_cast<const char *>(counterFileName));
    if (initDebug) {
        printf("GPSTokenUtils.buildCounterFileName: %s \n", static_cast<const char *>(counterFileName));
    }
}

void initGPSCounterFile() {
    { const ZykLockGuard guard(tokenLock); } // their monitors exist before the first request arrives
    const ZykLockGuard counterGuard(counterLock);
    buildCounterFileName();
    uint32_t counterFromFile = 0;
    if (!readCounter(&counterFromFile) && !writeCounter(0)) {
        AM_TRACE(caTracer, LGK_DEBUG_MIN, "GPSTokenUtils::initGPSCounterFile()",
                 "counterFp = NULL for writing");
        return;
    }
    const ZykLockGuard tokenGuard(tokenLock);
    currentToken = (gpsMask & counterFromFile) | regionId;
    lastSavedToken = currentToken;
}

// ---------------------------------------------------------------- the region

// A mask of more than 32 characters begins at the top again.
void setUpGps(const char *regMask) {
    constexpr char SIGNATURE[] = "GPSTokenUtils::setUpGps( JNIEnv *env, jstring regMask )";
    uint32_t region = 0;
    uint32_t length = 0;
    for (; regMask[length] != '\0'; ++length) {
        if (regMask[length] == '1') {
            region |= 0x80000000U >> (length & 31);
        }
    }
    AM_TRACE(caTracer, LGK_DEBUG_MID, SIGNATURE, "regMask: 0x%X", region);
    regionId = region;
    AM_TRACE(caTracer, LGK_DEBUG_MID, SIGNATURE, "regionId: 0x%X", regionId.get());
    gpsMask = 0xFFFFFFFFU >> (length & 31);
    AM_TRACE(caTracer, LGK_DEBUG_MID, SIGNATURE, "gpsMask: 0x%X", gpsMask.get());
    gpsCushion = intProperty("gps.cushion", DEFAULT_CUSHION);
    initGPSCounterFile();
}

} // namespace

void setupGpsOnce(JNIEnv *env, jstring regMask) {
    if (gpsIsSetUp.exchange(true)) {
        return;
    }
    char *mask = jniStringCopy(env, regMask);
    setUpGps(mask != nullptr ? mask : "");
    free(mask);
}

// ---------------------------------------------------------------- tokens

uint32_t getToken() {
    const ZykLockGuard guard(tokenLock);
    return currentToken++;
}

void saveGPSToken(uint32_t token) {
    constexpr char SIGNATURE[] = "GPSTokenUtils::saveGPSToken( unsigned int token )";
    if (token <= lastSavedToken) {
        AM_TRACE(caTracer, LGK_DEBUG_MIN, SIGNATURE,
                 "Current token is smaller than last one; don't have to save");
        return;
    }
    const ZykLockGuard guard(counterLock);
    const uint32_t old = lastSavedToken;
    const auto cushion = static_cast<uint32_t>(gpsCushion.get());
    lastSavedToken = old + cushion;
    if (!writeCounter((gpsMask & old) + cushion)) {
        AM_TRACE(caTracer, LGK_DEBUG_MIN, SIGNATURE, "counterFp is NULL for writing");
    }
}

jbyteArray getGpsToken(JNIEnv *env) {
    jbyteArray array = env->NewByteArray(4);
    if (clearException(env) || array == nullptr) {
        return nullptr;
    }
    const uint32_t token = getToken();
    const uint8_t bytes[4] = {static_cast<uint8_t>(token >> 24), static_cast<uint8_t>(token >> 16),
                              static_cast<uint8_t>(token >> 8), static_cast<uint8_t>(token)};
    AM_TRACE(caTracer, LGK_DEBUG_MIN, "GPSTokenUtils::getGpsToken( JNIEnv *env )",
             "GPS Token in getGpsToken %02x,%02x,%02x,%02x", bytes[0], bytes[1], bytes[2], bytes[3]);
    saveGPSToken(token);
    env->SetByteArrayRegion(array, 0, 4, reinterpret_cast<const jbyte *>(bytes));
    return array;
}
