#include "ProtocolVisitor.h"

#include "ProbeLgKit.h"
#include "jnihelp.h"
#include "platform.h"

#include <cstdio>

namespace {

constexpr int INIT_RECORD = 2000;
constexpr int INIT_VERSION = 100;
constexpr int INIT_FORMAT = 1;
constexpr int J2EE_INIT_RECORD = 101;
constexpr int J2EE_INIT_VERSION = 200;
constexpr char NO_CLUSTER_NAME[] = "<NO CLUSTER NAME>";
constexpr int FIRST_MAJOR_WITH_PROFILES = 6;

// Room of a name in the initial block, the NUL included.
constexpr size_t NAME_ROOM = 256;
using Name = char[NAME_ROOM];

struct Version {
    int major = 0;
    int minor = 0;
    int revision = 0;
};

// Numbers that the text lacks are 0.
Version parseVersion(const char *text) {
    Version version;
    sscanf(text, "%d.%d.%d", &version.major, &version.minor, &version.revision);
    return version;
}

void append(Name &name, const char *text) {
    const size_t used = strlen(name);
    snprintf(name + used, NAME_ROOM - used, "%s", text);
}

// The name by configuration, for a Java half that cannot tell it.
void configuredServerName(Name &name, const ServerFacts &facts, int majorVersion) {
    name[0] = '\0';
    append(name, facts.appServerName);
    if (majorVersion >= FIRST_MAJOR_WITH_PROFILES && *facts.profileName != '\0') {
        append(name, "(");
        append(name, facts.profileName);
        append(name, ")");
    }
}

void fullServerName(Name &name, const ServerFacts &facts, int majorVersion, JNIEnv *env) {
    memset(name, 0, NAME_ROOM);
    if (env == nullptr || getFullAppServerName(name, NAME_ROOM, env) != 0) {
        configuredServerName(name, facts, majorVersion);
    }
}

} // namespace

void ProtocolVisitor::addInitRecord() {
    uint32_t sec = 0;
    uint32_t usec = 0;
    getCurrentTime(&sec, &usec);
    // Receivers expect the low 32 bits of the milliseconds only.
    const uint32_t millis = sec * 1000 + usec / 1000;

    const Record record{cursor, INIT_RECORD, 0, 0};
    addU32(INIT_RECORD);
    addU8(INIT_VERSION);
    addU8(getPlatformId());
    addU8(INIT_FORMAT);
    addU64(millis);
    close(record);
}

void ProtocolVisitor::addJ2EEInitRecord(JNIEnv *jniEnv) {
    AM_TRACE_SCOPE(naTracer, LGK_DEBUG_MID, "ProtocolVisitor::addJ2EEInitRecord( JNIEnv *env )");
    const ServerFacts facts = readServerFacts();
    const Version version = parseVersion(facts.appServerVersion);
    Name serverName;
    fullServerName(serverName, facts, version.major, jniEnv);

    const Record record = openBare(J2EE_INIT_RECORD);
    addU8(J2EE_INIT_VERSION);
    addU8(version.major);
    addU8(version.minor);
    addU8(version.revision);
    addString(facts.componentId);
    addString(NO_CLUSTER_NAME);
    addString(facts.nodeName);
    addString(serverName);
    addU32(facts.adminServerPort);
    close(record);
}

void ProtocolVisitor::addPacketHeaderRecord(int packet_record_count) {
    const Record record = openBare(0);
    addU32(packet_record_count);
    close(record);
}
