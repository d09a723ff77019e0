#include "NetworkAgentMgr.h"

#include "RealJvm.h"
#include "RecordedTrace.h"
#include "net_test_support.h"

using namespace net_test;

extern "C" {
JNIEXPORT jint JNICALL
Java_com_qel_morvex_norak_dc_networkagent_NativeNetworkAgentImpl_getNetAgentCountNative(JNIEnv *, jclass);
JNIEXPORT void JNICALL
Java_com_qel_morvex_norak_dc_networkagent_NativeNetworkAgentImpl_startThreadNative(JNIEnv *, jclass, jint);
JNIEXPORT void JNICALL
Java_com_qel_morvex_norak_dc_networkagent_NativeNetworkAgentImpl_stopThreadNative(JNIEnv *, jclass, jint);
JNIEXPORT void JNICALL
Java_com_qel_morvex_norak_dc_networkagent_NativeNetworkAgentImpl_setNetworkTrace(JNIEnv *, jclass, jbyte);
}

namespace {

class NetworkJvmTest : public ::testing::Test {
protected:
    NetworkJvmTest() : env(RealJvm::env()) {
        properties.set("networkagent.publish.frequency", "2");
        properties.set("networkagent.ps.reconnect.frequency", "0");
        mgr = NetworkAgentMgr::getInstance();
    }
    ~NetworkJvmTest() override {
        NetworkAgentMgr::destroy();
        setServer("", "", "");
        EXPECT_FALSE(env->ExceptionCheck());
    }
    void setServer(const char *host, const char *port, const char *buffer) {
        setJavaSystemProperty(env, "publish.server.host", host);
        setJavaSystemProperty(env, "publish.server.port", port);
        setJavaSystemProperty(env, "publish.server.sendbuffer", buffer);
    }
    bool lookUp(int failuresSoFar = 0) {
        return mgr->getPSDetailsFromKernel(env, failuresSoFar, nullptr, details);
    }
    PSDetails details;
    RealVmSkin skin;
    RecordedLog log;
    JNIEnv *env;
    Properties properties;
    NetworkAgentMgr *mgr;
};

} // namespace

TEST_F(NetworkJvmTest, LookupTakesHostPortAndBufferFromJava) {
    const std::string longHost(250, 'h');
    const struct {
        const char *host, *port, *buffer;
        std::string expectedHost;
        int expectedPort, expectedBuffer;
    } rows[] = {
        {"collector.example", "4711", "8192", "collector.example", 4711, 8192},
        {longHost.c_str(), "1", "1", std::string(199, 'h'), 1, 1},
    };
    for (const auto &row : rows) {
        setServer(row.host, row.port, row.buffer);
        for (const char *when : {"asked", "remembered"}) {
            ASSERT_TRUE(lookUp()) << when;
            EXPECT_EQ(row.expectedHost, details.host);
            EXPECT_EQ(row.expectedPort, details.port);
            EXPECT_EQ(row.expectedBuffer, details.sendBuffSize);
            setServer("other", "99", "99"); // not looked at while the first answer is good
        }
        mgr->notifyPSConnectStatus(nullptr, false); // nobody is connected
    }
}

TEST_F(NetworkJvmTest, FailingLookupIsToldInTurnAndTriedAgain) {
    setServer("", "", "");
    for (const int failures : {0, 5, 6, 7}) {
        EXPECT_FALSE(lookUp(failures));
    }
    EXPECT_EQ(2, log.messages(1058));
    setServer("collector.example", "4711", "8192");
    EXPECT_TRUE(lookUp());
    EXPECT_TRUE(mgr->setThreadPriority(env, 7));
}

// The whole road on a Java thread, with the buffer trace on and its listener failing halfway.
TEST_F(NetworkJvmTest, AgentOnAJavaThreadFindsTheServerAndTracesItsBuffers) {
#define NATIVE(name) Java_com_qel_morvex_norak_dc_networkagent_NativeNetworkAgentImpl_##name
    PeerServer server;
    setServer(LOOPBACK, std::to_string(server.port()).c_str(), "65536");
    const LocalRef<jclass> owner(
        env, env->FindClass("com/qel/morvex/norak/dc/networkagent/NativeNetworkAgentImpl"));
    ASSERT_TRUE(owner);
    NATIVE(setNetworkTrace)(env, owner.get(), 1);
    installTrace(env, false);
    mgr->start();
    EXPECT_EQ(1, NATIVE(getNetAgentCountNative)(env, owner.get()));
    std::thread agent([] {
        RealJvm::onJavaThread([](JNIEnv *own) { NATIVE(startThreadNative)(own, nullptr, 0); });
    });
    NetworkClient client;
    const auto sendAndSee = [&](const std::string &packet, const std::string &traced) {
        EXPECT_TRUE(
            eventually([&] { return mgr->send(&client, packet.data(), static_cast<int>(packet.size())); }));
        EXPECT_TRUE(eventually([&] {
            return afterInitialBlock(server.bytes(0)).find(packet) != std::string::npos;
        })) << packet;
        EXPECT_EQ(traced, takeTrace(env));
    };
    sendAndSee("first", "[first]");
    installTrace(env, true);
    sendAndSee("second", "[second]");
    NATIVE(setNetworkTrace)(env, owner.get(), 0);
    sendAndSee("third", "");
    EXPECT_TRUE(mgr->isClassDataSent());
    NATIVE(stopThreadNative)(env, owner.get(), 0);
    agent.join();
    EXPECT_EQ(1, log.count("Network Agent Thread Stopped"));
#undef NATIVE
}
