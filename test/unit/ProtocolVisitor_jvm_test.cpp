#include "ProtocolVisitor.h"

#include "PropertyMgr.h"
#include "RealJvm.h"
#include "jnihelp.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <string>

extern "C" void Java_com_qel_morvex_norak_dc_networkagent_NativeNetworkAgentImpl_setTrace(JNIEnv *env,
                                                                                          jclass cls,
                                                                                          jbyte flag);

namespace {

constexpr char NETWORK_AGENT_CLASS[] = "com/qel/morvex/norak/dc/networkagent/NativeNetworkAgentImpl";

class RecordTraceTest : public ::testing::Test {
protected:
    RecordTraceTest()
        : env(RealJvm::env()), recorder(env, env->FindClass("amtest/RecordedTrace")), oldLevel(probeLevel) {
        probeLevel = 2;
        install(false);
    }
    ~RecordTraceTest() override {
        setTrace(0);
        take();
        probeLevel = oldLevel;
    }

    void install(bool failing) {
        env->CallStaticVoidMethod(recorder.get(), env->GetStaticMethodID(recorder.get(), "install", "(Z)V"),
                                  static_cast<jboolean>(failing));
        clearException(env);
    }

    void setTrace(jbyte flag) {
        const LocalRef<jclass> cls(env, env->FindClass(NETWORK_AGENT_CLASS));
        Java_com_qel_morvex_norak_dc_networkagent_NativeNetworkAgentImpl_setTrace(env, cls.get(), flag);
    }

    std::string take() {
        const jmethodID method = env->GetStaticMethodID(recorder.get(), "take", "()Ljava/lang/String;");
        const LocalRef<jobject> lines(env, env->CallStaticObjectMethod(recorder.get(), method));
        clearException(env);
        char *copy = jniStringCopy(env, static_cast<jstring>(lines.get()));
        std::string result(copy);
        free(copy);
        return result;
    }

    ProtocolVisitor visitor(size_t room) { return ProtocolVisitor(area, area, area + room, env); }

    JNIEnv *env;
    LocalRef<jclass> recorder;
    uint32_t oldLevel;
    char area[4096];
};

TEST_F(RecordTraceTest, ShowsTypeThreadDepthAndBytesOfEachFinishedRecord) {
    setTrace(1);
    ProtocolVisitor traced = visitor(sizeof(area));
    traced.addPacketHeaderRecord(2);
    EXPECT_EQ("0 0 0 00000000027F7F\n", take());

    JCAEvent nested(Event::SUB_END);
    nested.threadId = 0xFFFFFFFE;
    nested.requestDepth = 0x1FF;
    nested.addToBuffer(&traced);
    EXPECT_EQ("38 -2 -1 26FFFFFFFEFF00000000000000000000000000000000027F7F\n", take());

    TraceEvent without;
    without.threadId = 9;
    without.requestDepth = 9;
    without.addToBuffer(&traced);
    EXPECT_EQ("8 0 0 0800000000000000000000027F7F\n", take());

    GCEvent noDepth(Event::SUB_START);
    noDepth.threadId = 9;
    noDepth.addToBuffer(&traced);
    EXPECT_EQ("13 9 0 0D0000000900000000000000007F7F\n", take());

    PortalMethodConstantEvent unwritten;
    unwritten.addToBuffer(&traced);
    traced.addInitRecord();
    EXPECT_EQ(0u, take().rfind("-48 0 0 000007D064", 0));
    traced.addJ2EEInitRecord(env);
    EXPECT_EQ(0u, take().rfind("101 0 0 65C8", 0));
}

TEST_F(RecordTraceTest, KeepsSilentWhereItShould) {
    GPSEvent token(Event::SUB_START);
    CommonEvent common(Event::SUB_START);
    JCAEvent plain(Event::SUB_START);
    setTrace(1);
    ProtocolVisitor traced = visitor(sizeof(area));
    token.addToBuffer(&traced);
    common.addToBuffer(&traced);
    ProtocolVisitor tooSmall = visitor(26);
    plain.addToBuffer(&tooSmall);
    ProtocolVisitor withoutEnv(area, area, area + sizeof(area), nullptr);
    plain.addToBuffer(&withoutEnv);
    for (const jbyte off : {0, 2, -1}) {
        setTrace(off);
        plain.addToBuffer(&traced);
    }
    EXPECT_EQ("", take());
    setTrace(1);
    plain.addToBuffer(&traced);
    EXPECT_NE("", take());
}

TEST_F(RecordTraceTest, FailingListenerLeavesNoExceptionAndNoReference) {
    install(true);
    setTrace(1);
    for (int i = 0; i < 100; ++i) {
        ProtocolVisitor traced = visitor(sizeof(area));
        traced.addPacketHeaderRecord(1);
        ASSERT_EQ(JNI_FALSE, env->ExceptionCheck());
        ASSERT_FALSE(traced.hasOverflowed());
    }
    EXPECT_NE("", take());
}

// ---------------------------------------------------------------- names of the server

// A property manager that knows a node, a server and a profile, and is the one in force.
class KnownServer {
public:
    KnownServer(JNIEnv *env, const std::string &node, const std::string &server, const std::string &profile)
        : jniEnv(env), old(propertyMgr) {
        set(node, server, profile);
        manager.setGlobalProperties(env);
        propertyMgr = &manager;
    }
    ~KnownServer() {
        propertyMgr = old;
        set("", "", "");
        for (char *raw : {rawNodeName, rawAppServer, rawProfileName}) {
            *raw = '\0';
        }
    }

private:
    void set(const std::string &node, const std::string &server, const std::string &profile) {
        setJavaSystemProperty(jniEnv, "am.nodename", node.c_str());
        setJavaSystemProperty(jniEnv, "am.appserver", server.c_str());
        setJavaSystemProperty(jniEnv, "AM_PROFILENAME", profile.c_str());
    }

    JNIEnv *jniEnv;
    PropertyMgr *old;
    PropertyMgr manager;
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

TEST(ServerNames, ComeFromJavaOrElseFromTheConfiguration) {
    JNIEnv *env = RealJvm::env();
    const ServerFacts old = serverFacts;
    const std::string wide(255, 'w');
    const struct {
        const char *version;
        std::string server;
        std::string profile;
        std::string expected;
    } cases[] = {{"6.0.0", "srv", "prof", "srv(prof)"},
                 {"5.9.9", "srv", "prof", "srv"},
                 {"8.0.0", "srv", "", "srv"},
                 {"8.0.0", wide, "prof", wide},
                 {"8.0.0", wide.substr(0, 252), "prof", wide.substr(0, 252) + "(pr"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.version + (" " + c.expected));
        const KnownServer known(env, "node-1", c.server, c.profile);
        snprintf(serverFacts.appServerVersion, sizeof(serverFacts.appServerVersion), "%s", c.version);
        EXPECT_EQ(lengthAndText("node-1") + lengthAndText(c.expected), initialNames(nullptr));

        char fromJava[256] = {};
        ASSERT_EQ(0, getFullAppServerName(fromJava, sizeof(fromJava), env));
        EXPECT_EQ(lengthAndText("node-1") + lengthAndText(fromJava), initialNames(env));
    }
    serverFacts = old;
}

TEST(ServerNames, LongestInitialBlockHas818Bytes) {
    JNIEnv *env = RealJvm::env();
    const ServerFacts old = serverFacts;
    const std::string wide(300, 'w');
    const KnownServer known(env, wide, wide, wide);
    snprintf(serverFacts.componentId, sizeof(serverFacts.componentId), "%s", wide.c_str());
    char area[818];
    ProtocolVisitor visitor(area, area, area + sizeof(area), nullptr);
    visitor.addInitRecord();
    visitor.addJ2EEInitRecord(nullptr);
    EXPECT_FALSE(visitor.hasOverflowed());
    EXPECT_EQ(area + sizeof(area), visitor.getCursor());
    serverFacts = old;
}

} // namespace
