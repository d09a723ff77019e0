#include "probesystem.h"

#include "ChildRun.h"
#include "ProbeContextPersister.h"
#include "ProbeMgr.h"
#include "PropertyMgr.h"
#include "RealJvm.h"
#include "RecordedLog.h"
#include "TempDir.h"
#include "jnihelp.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

extern "C" {
JNIEXPORT jboolean JNICALL Java_com_zykora_probe_ProbeSystem_initializeProbe(JNIEnv *, jclass);
JNIEXPORT void JNICALL Java_com_zykora_probe_ProbeSystem_stopNative(JNIEnv *, jclass);
}

namespace {

constexpr char TEXT[] = "Ljava/lang/String;";

class ProbeSystemTest : public testing::Test {
protected:
    ProbeSystemTest() : env(RealJvm::env()), oldFacts(serverFacts) {
        env->PushLocalFrame(64);
        ProbeMgr::initialize();
    }
    ~ProbeSystemTest() override {
        EXPECT_EQ(JNI_FALSE, env->ExceptionCheck());
        ProbeMgr::destroy();
        env->PopLocalFrame(nullptr);
        serverFacts = oldFacts;
        for (char *raw : {rawHome, rawNodeName, rawAppServer}) {
            raw[0] = '\0';
        }
    }

    jclass find(const std::string &name) {
        return env->FindClass(("amtest/host/PartialSystem$" + name).c_str());
    }
    void setText(jclass cls, const char *field, const char *text) {
        env->SetStaticObjectField(cls, env->GetStaticFieldID(cls, field, TEXT),
                                  text != nullptr ? env->NewStringUTF(text) : nullptr);
    }
    void setInt(jclass cls, const char *field, jint value) {
        env->SetStaticIntField(cls, env->GetStaticFieldID(cls, field, "I"), value);
    }
    jint getInt(jclass cls, const char *field) {
        return env->GetStaticIntField(cls, env->GetStaticFieldID(cls, field, "I"));
    }
    // Without what the JVM prints about exceptions on the way.
    template <typename Action>
    auto silently(Action action) {
        testing::internal::CaptureStderr();
        const auto result = action();
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(JNI_FALSE, env->ExceptionCheck());
        return result;
    }
    int settingsOf(jclass cls) {
        return silently([&] { return setSystemProperties(env, cls); });
    }
    bool initialize(jclass cls) {
        return silently(
            [&] { return Java_com_zykora_probe_ProbeSystem_initializeProbe(env, cls) == JNI_TRUE; });
    }

    JNIEnv *env;
    ServerFacts oldFacts;
};

TEST_F(ProbeSystemTest, TheFirstMissingFieldEndsTheRead) {
    const std::pair<const char *, const char *> cases[] = {{"None", "zykora_home"},
                                                           {"Home", "nodename"},
                                                           {"Node", "appname"},
                                                           {"Server", "method_hash_size"},
                                                           {"HashSize", "publishing_frequency"},
                                                           {"Frequency", "event_packet_size"},
                                                           {"PacketSize", "limit_per_event_queue"},
                                                           {"QueueLimit", "ps_retry_frequency"},
                                                           {"Retry", "wakeup_queuelength"},
                                                           {"Wakeup", "component_id"},
                                                           {"AgentId", "adminserverport"},
                                                           {"Port", "java_version"}};
    for (const auto &[cls, missing] : cases) {
        const RecordedLog log(LGK_DEBUG_MID);
        EXPECT_EQ(-1, settingsOf(find(cls))) << cls;
        EXPECT_EQ(std::string("exiting with error. ") + missing + " not defined", log.texts().back());
        EXPECT_FALSE(initialize(find(cls)));
        EXPECT_EQ("Exiting with error. SystemProperties not set. Native probe not initialized",
                  log.texts().back());
    }
    // What came before the gap was taken.
    EXPECT_STREQ("home", rawHome);
    EXPECT_STREQ("agent", serverFacts.componentId);
    EXPECT_EQ(17, serverFacts.adminServerPort);
    EXPECT_EQ(1, settingsOf(find("JvmVersion"))); // neither probeStdout, nor classes, nor a version
}

TEST_F(ProbeSystemTest, NullTextsCountAsMissingAndZeroMeansTheDefault) {
    const jclass whole = find("Whole");
    const std::pair<const char *, const char *> texts[] = {{"zykoraHome", "home"},
                                                           {"adminServerName", "node"},
                                                           {"appServerName", "server"},
                                                           {"commandAgentID", "agent"},
                                                           {"jvmVersion", "99"}};
    for (const auto &[field, text] : texts) {
        setText(whole, field, nullptr);
        EXPECT_EQ(-1, settingsOf(whole)) << field;
        setText(whole, field, text);
    }
    const struct {
        const char *name;
        int32_t &target;
        int32_t given, zeroBecomes;
    } numbers[] = {{"methodHashSize", systemSettings.methodHashSize, 11, 55511},
                   {"publishFrequency", systemSettings.publishFrequency, 12, 2000},
                   {"eventPacketSize", systemSettings.eventPacketSize, 13, 5000},
                   {"eventQueueSizeLimit", systemSettings.eventQueueSizeLimit, 14, 5000},
                   {"wakeupQueueLength", systemSettings.wakeupQueueLength, 16, 500},
                   {"adminServerPort", systemSettings.adminServerPort, 17, 0}};
    EXPECT_EQ(1, settingsOf(whole));
    EXPECT_EQ(15000000000, systemSettings.psRetryFrequency);
    for (const auto &number : numbers) {
        EXPECT_EQ(number.given, number.target) << number.name;
        setInt(whole, number.name, 0);
    }
    EXPECT_EQ(1, settingsOf(whole));
    for (const auto &number : numbers) {
        EXPECT_EQ(number.zeroBecomes, number.target) << number.name;
        setInt(whole, number.name, number.given);
    }
}

TEST_F(ProbeSystemTest, ProductVersion) {
    strcpy(serverFacts.appServerVersion, "0.0.0");
    for (const char *without : {"JvmVersion", "NullVersion", "ThrowingVersion"}) {
        EXPECT_EQ(1, settingsOf(find(without)));
        EXPECT_STREQ("0.0.0", serverFacts.appServerVersion) << without;
    }
    EXPECT_EQ(1, settingsOf(find("Whole")));
    EXPECT_STREQ("7.1.2", serverFacts.appServerVersion);
    ProbeMgr::destroy(); // the settings can come before the manager
    EXPECT_EQ(1, settingsOf(find("Whole")));
    EXPECT_TRUE(env->IsSameObject(systemSettings.object, env->FindClass("java/lang/Object")));
    EXPECT_EQ(nullptr, systemSettings.string);
}

TEST_F(ProbeSystemTest, AnswersInThreeFields) {
    const TempDir root;
    root.write("etc/am.mod", "2\n");
    contextPersister = new ProbeContextPersister(root.path.c_str(), root.path.c_str());
    probeLevel = 2;
    const RecordedLog log(LGK_DEBUG_MID);

    EXPECT_TRUE(initialize(find("Whole")));
    EXPECT_TRUE(log.has("Probe context filename not defined")); // nothing was read yet
    ASSERT_TRUE(contextPersister->ctx_direct(ProbeContextPersister::CTX_READ));
    const std::pair<const char *, const char *> incomplete[] = {
        {"JvmVersion", "processId"}, {"ProcessId", "probeLevel"}, {"Level", "contextFileName"}};
    for (const auto &[cls, missing] : incomplete) {
        EXPECT_FALSE(initialize(find(cls)));
        EXPECT_EQ(std::string("Exiting with error. ProbeSystem.") + missing + " not defined",
                  log.texts().back());
    }
    const jclass whole = find("Whole");
    setInt(whole, "probeLevel", 0);
    EXPECT_TRUE(initialize(whole));
    EXPECT_EQ(processId, getInt(whole, "processId"));
    EXPECT_EQ(2, getInt(whole, "probeLevel")); // the probe level, not the monitoring level
    const jstring path = static_cast<jstring>(
        env->GetStaticObjectField(whole, env->GetStaticFieldID(whole, "contextFileName", TEXT)));
    ASSERT_NE(nullptr, path);
    char *text = jniStringCopy(env, path);
    EXPECT_STREQ(contextPersister->getLastReadFilePath(), text);
    free(text);
    probeLevel = 0;
}

TEST(ProbeSystemStop, EndsTheProcessWithItsStatus) {
    if (inChild()) {
        Java_com_zykora_probe_ProbeSystem_stopNative(nullptr, nullptr);
    }
    EXPECT_EQ(12, runInChild({}).status);
}

} // namespace
