#include "ProtocolVisitor.h"

#include "GivenArguments.h"
#include "PropertyMgr.h"
#include "RealJvm.h"
#include "RecordedTrace.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <string>

extern "C" void Java_com_qel_morvex_norak_dc_networkagent_NativeNetworkAgentImpl_setTrace(JNIEnv *env,
                                                                                          jclass cls,
                                                                                          jbyte flag);
extern "C" jobjectArray
Java_com_qel_morvex_norak_toolkit_ai_osutils_OsUtils_getArgumentVectorNative(JNIEnv *env, jclass cls);

namespace {

constexpr char NETWORK_AGENT_CLASS[] = "com/qel/morvex/norak/dc/networkagent/NativeNetworkAgentImpl";

class RecordTraceTest : public ::testing::Test {
protected:
    RecordTraceTest() : env(RealJvm::env()), oldLevel(probeLevel) {
        probeLevel = 2;
        installTrace(env, false);
    }
    ~RecordTraceTest() override {
        setTrace(0);
        takeTrace(env);
        probeLevel = oldLevel;
    }

    void setTrace(jbyte flag) {
        const LocalRef<jclass> cls(env, env->FindClass(NETWORK_AGENT_CLASS));
        Java_com_qel_morvex_norak_dc_networkagent_NativeNetworkAgentImpl_setTrace(env, cls.get(), flag);
    }

    ProtocolVisitor visitor(size_t room) { return ProtocolVisitor(area, area, area + room, env); }

    JNIEnv *env;
    uint32_t oldLevel;
    char area[4096];
};

TEST_F(RecordTraceTest, ShowsTypeThreadDepthAndBytesOfEachFinishedRecord) {
    setTrace(1);
    ProtocolVisitor traced = visitor(sizeof(area));
    traced.addPacketHeaderRecord(2);
    EXPECT_EQ("0 0 0 00000000027F7F\n", takeTrace(env));

    JCAEvent nested(Event::SUB_END);
    nested.threadId = 0xFFFFFFFE;
    nested.requestDepth = 0x1FF;
    nested.addToBuffer(&traced);
    EXPECT_EQ("38 -2 -1 26FFFFFFFEFF00000000000000000000000000000000027F7F\n", takeTrace(env));

    TraceEvent without;
    without.threadId = 9;
    without.requestDepth = 9;
    without.addToBuffer(&traced);
    EXPECT_EQ("8 0 0 0800000000000000000000027F7F\n", takeTrace(env));

    GCEvent noDepth(Event::SUB_START);
    noDepth.threadId = 9;
    noDepth.addToBuffer(&traced);
    EXPECT_EQ("13 9 0 0D0000000900000000000000007F7F\n", takeTrace(env));

    traced.addInitRecord();
    EXPECT_EQ(0u, takeTrace(env).rfind("-48 0 0 000007D064", 0));
    traced.addJ2EEInitRecord(env);
    EXPECT_EQ(0u, takeTrace(env).rfind("101 0 0 65C8", 0));
}

TEST_F(RecordTraceTest, KeepsSilentWhereItShould) {
    JCAEvent plain(Event::SUB_START);
    ProtocolVisitor traced = visitor(sizeof(area)), tooSmall = visitor(26);
    ProtocolVisitor withoutEnv(area, area, area + sizeof(area), nullptr);
    setTrace(1);
    GPSEvent(Event::SUB_START).addToBuffer(&traced);
    CommonEvent(Event::SUB_START).addToBuffer(&traced);
    plain.addToBuffer(&tooSmall);
    plain.addToBuffer(&withoutEnv);
    for (const jbyte off : {0, 2, -1}) {
        setTrace(off);
        plain.addToBuffer(&traced);
    }
    EXPECT_EQ("", takeTrace(env));
}

TEST_F(RecordTraceTest, FailingListenerLeavesNoExceptionAndNoReference) {
    installTrace(env, true);
    setTrace(1);
    for (int i = 0; i < 100; ++i) {
        ProtocolVisitor traced = visitor(sizeof(area));
        traced.addPacketHeaderRecord(1);
        ASSERT_EQ(JNI_FALSE, env->ExceptionCheck());
        ASSERT_FALSE(traced.hasOverflowed());
    }
    EXPECT_NE("", takeTrace(env));
}

// ---------------------------------------------------------------- names of the server

// A server of which both halves know version, node, name and profile. The native half was told by a manager
// that is gone.
class KnownServer {
public:
    KnownServer(const char *version, const std::string &node, const std::string &server,
                const std::string &profile) {
        set(version, node, server, profile);
        snprintf(serverFacts.appServerVersion, sizeof(serverFacts.appServerVersion), "%s", version);
        PropertyMgr *oldManager = propertyMgr;
        PropertyMgr().setGlobalProperties(RealJvm::env());
        propertyMgr = oldManager;
        propertyMgrInstance = oldManager;
    }
    ~KnownServer() {
        serverFacts = oldFacts;
        set("", "", "", "");
        for (char *raw : {rawNodeName, rawAppServer, rawProfileName}) {
            *raw = '\0';
        }
    }

private:
    static void set(const std::string &version, const std::string &node, const std::string &server,
                    const std::string &profile) {
        const std::pair<const char *, const std::string &> properties[] = {{"appserver.version", version},
                                                                           {"am.nodename", node},
                                                                           {"am.appserver", server},
                                                                           {"AM_PROFILENAME", profile}};
        for (const auto &[name, value] : properties) {
            setJavaSystemProperty(RealJvm::env(), name, value.c_str());
        }
    }

    const ServerFacts oldFacts = serverFacts;
};

std::string lengthAndText(const std::string &text) {
    return std::string{static_cast<char>(text.size() >> 8), static_cast<char>(text.size())} + text;
}

std::string initialNames(JNIEnv *env) {
    char area[2048];
    ProtocolVisitor visitor(area, area, area + sizeof(area), nullptr);
    visitor.addJ2EEInitRecord(env);
    const size_t fixed = 5 + 2 + strlen(serverFacts.componentId) + 2 + 17;
    return std::string(area + fixed, visitor.getCursor() - 6);
}

// The server's name by Java and by the native half, which must agree, also on where the profile is found.
TEST(ServerNames, AreTheSameFromJavaAndFromTheConfiguration) {
    JNIEnv *env = RealJvm::env();
    const LocalRef<jclass> osUtils(env, env->FindClass("com/qel/morvex/norak/toolkit/ai/osutils/OsUtils"));
    char name[] = "getArgumentVectorNative";
    char signature[] = "()[Ljava/lang/String;";
    const JNINativeMethod native = {
        name, signature,
        reinterpret_cast<void *>(
            Java_com_qel_morvex_norak_toolkit_ai_osutils_OsUtils_getArgumentVectorNative)};
    ASSERT_EQ(JNI_OK, env->RegisterNatives(osUtils.get(), &native, 1)) << "no agent is loaded that has it";
    const std::string wide(255, 'w');
    const struct {
        const char *version;
        std::string server, profile;
        const char *word; // on the command line
        std::string expected;
    } cases[] = {{"6.0.0", "srv", "prof", "", "srv(prof)"},
                 {"10.1.2", "srv", "prof", "", "srv(prof)"},
                 {"5.9.9", "srv", "prof", "", "srv"},
                 {"beta", "srv", "prof", "", "srv"},
                 {"8", "srv", "prof", "", "srv(prof)"},
                 {"8.0.0", "srv", "", "", "srv"},
                 {"8.0.0", wide, "prof", "", wide},
                 {"8.0.0", wide.substr(0, 252), "prof", "", wide.substr(0, 252) + "(pr"},
                 {"8.0.0", "srv", "property", "-Dam.profilename=word", "srv(property)"},
                 {"8.0.0", "srv", "", "-Dam.profilename=word", "srv(word)"},
                 {"8.0.0", "srv", "", "am.profilename=word", "srv(word)"},
                 {"8.0.0", "srv", "", "-Dam.profilename=", "srv"},
                 {"8.0.0", "srv", "", "AM_PROFILENAME=word", "srv"},
                 {"8.0.0", "srv", "", "xam.profilename=word", "srv"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.version) + " " + c.word + " " + c.expected);
        const GivenArguments given({"java", c.word});
        const KnownServer known(c.version, "node-1", c.server, c.profile);
        const std::string expected = lengthAndText("node-1") + lengthAndText(c.expected);
        EXPECT_EQ(expected, initialNames(nullptr));
        EXPECT_EQ(expected, initialNames(env));
    }
    env->UnregisterNatives(osUtils.get());
}

TEST(ServerNames, LongestInitialBlockHas818Bytes) {
    const std::string wide(300, 'w');
    const KnownServer known("8.0.0", wide, wide, wide);
    snprintf(serverFacts.componentId, sizeof(serverFacts.componentId), "%s", wide.c_str());
    char area[818];
    ProtocolVisitor visitor(area, area, area + sizeof(area), nullptr);
    visitor.addInitRecord();
    visitor.addJ2EEInitRecord(nullptr);
    EXPECT_FALSE(visitor.hasOverflowed());
    EXPECT_EQ(area + sizeof(area), visitor.getCursor());
}

} // namespace
