#include "zykora.h"

#include "GivenArguments.h"
#include "InstrumentJNI.h"
#include "ProbeState.h"
#include "RealJvm.h"
#include "RecordedLog.h"
#include "RenamedClasses.h"
#include "jnihelp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <unistd.h>

#define OS_UTILS(name) Java_com_qel_morvex_norak_toolkit_ai_osutils_OsUtils_##name

extern "C" {
JNIEXPORT jobjectArray JNICALL OS_UTILS(getArgumentVectorNative)(JNIEnv *, jclass);
JNIEXPORT jobjectArray JNICALL OS_UTILS(getJVMParamsNative)(JNIEnv *, jclass);
}

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char OUTER[] = "amtest/host/Bootstraps";
constexpr char REGISTERED[] = "Successfully registered defineNativeMethodsForClassNative for "
                              "com.zykora.bcm.bootstrap.BcmBootstrap.class";

class Bootstrap : public testing::Test {
protected:
    Bootstrap() : env(RealJvm::env()), oldHook(disableToolkitHook), outer(nullptr) {
        env->PushLocalFrame(64);
        outer = env->FindClass(OUTER);
        calls(0);
        bootstrapAllowed = true;
        bootstrapDone = false;
    }
    ~Bootstrap() override {
        EXPECT_EQ(JNI_FALSE, env->ExceptionCheck());
        env->PopLocalFrame(nullptr);
        bootstrapAllowed = false;
        bootstrapDone = false;
        disableToolkitHook = oldHook;
    }

    int calls() { return env->GetStaticIntField(outer, env->GetStaticFieldID(outer, "calls", "I")); }
    void calls(int value) {
        env->SetStaticIntField(outer, env->GetStaticFieldID(outer, "calls", "I"), value);
    }

    // Runs `action` with the class of that kind as the bootstrap; returns what was printed.
    template <typename Action>
    std::string with(const std::string &kind, Action action) {
        const RenamedClasses renamed(env, {{BOOTSTRAP_CLASS, std::string(OUTER) + "$" + kind}});
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr(); // stack traces of the JVM
        action();
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(JNI_FALSE, env->ExceptionCheck());
        return testing::internal::GetCapturedStdout();
    }
    std::string bootstrap(const std::string &kind) {
        return with(kind, [&] {
            const JVMPI_Event event{JVMPI_EVENT_JVM_INIT_DONE, env, nullptr, nullptr, nullptr};
            registerBcmBootstrapNative(&event);
        });
    }

    JNIEnv *env;
    bool (*oldHook)(JNIEnv *);
    jclass outer;
};

TEST_F(Bootstrap, StartsTheJavaHalf) {
    const RecordedLog log(LGK_DEBUG_MID);
    EXPECT_EQ("", bootstrap("Good"));
    EXPECT_EQ(1, calls());
    EXPECT_TRUE(bootstrapDone);
    EXPECT_THAT(log.numbers(), ElementsAre(1082));
    EXPECT_TRUE(log.has(REGISTERED));
    EXPECT_TRUE(log.has("Initialized BcmBootstrap"));
    EXPECT_TRUE(disableToolkit(env));
    EXPECT_EQ(11, calls());
    EXPECT_EQ("NORAK Toolkit has been disabled", log.texts().back());
    bool (*hook)(JNIEnv *) = disableToolkitHook;
    ASSERT_NE(nullptr, hook);
    EXPECT_TRUE(hook(env));
}

// However the Java half fails: no exception is left, the way is closed, and Java code goes on.
TEST_F(Bootstrap, FailuresAreTold) {
    struct Case {
        const char *kind;
        const char *printed;
        int calls;
        std::vector<int> messages;
        std::vector<std::string> traced;
        const char *disabling; // what disabling prints then
    };
    constexpr char THROWN[] = "zykora: ExceptionOccurred\n";
    const Case cases[] = {
        {"NoSuchClass", "", 0, {1083}, {}, ""},
        {"Refusing",
         "## zykora: Datacollector is disabled. Check value of the NORAK_DC_ENABLED property\n",
         1,
         {1082},
         {"Call failed for com.zykora.bcm.bootstrap.BcmBootstrap.staticInit()",
          "Datacollector will now be disabled. Check value of NORAK_DC_ENABLED property"},
         THROWN},
        {"Mute",
         THROWN,
         0,
         {1082},
         {"Unable to resolve com.zykora.bcm.bootstrap.BcmBootstrap.staticInit()"},
         THROWN},
        {"WithoutNatives", "zykora: ExceptionOccurred\nzykora: RegisterNatives rc=-1\n", 0, {}, {}, THROWN},
    };
    for (const Case &c : cases) {
        calls(0);
        bootstrapDone = false;
        const RecordedLog log(LGK_INFO);
        EXPECT_EQ(c.printed, bootstrap(c.kind)) << c.kind;
        EXPECT_EQ(c.calls, calls()) << c.kind;
        EXPECT_EQ(c.messages, log.numbers()) << c.kind;
        for (const std::string &line : c.traced) {
            EXPECT_TRUE(log.has(line)) << line;
        }
        EXPECT_TRUE(bootstrapDone);
        EXPECT_EQ(c.disabling, with(c.kind, [&] { EXPECT_FALSE(disableToolkit(env)); })) << c.kind;
    }
}

// ---------------------------------------------------------------- natives, as Java calls them

class BootstrapNatives : public Bootstrap {
protected:
    void SetUp() override {
        bootstrap("Good");
        good = env->FindClass((std::string(OUTER) + "$Good").c_str());
    }
    jmethodID method(const char *name, const char *signature) {
        return env->GetStaticMethodID(good, name, signature);
    }
    template <typename T>
    T checked(T result) {
        EXPECT_EQ(JNI_FALSE, env->ExceptionCheck());
        return result;
    }
    // "(null)" for a Java null.
    std::string text(jobject string) {
        if (string == nullptr) {
            return "(null)";
        }
        const char *chars = env->GetStringUTFChars(static_cast<jstring>(string), nullptr);
        const std::string result = chars;
        env->ReleaseStringUTFChars(static_cast<jstring>(string), chars);
        return result;
    }
    std::string variable(const char *name) {
        const jmethodID getEnv = method("getEnvNative", "(Ljava/lang/String;)Ljava/lang/String;");
        const jstring javaName = name != nullptr ? env->NewStringUTF(name) : nullptr;
        return text(checked(env->CallStaticObjectMethod(good, getEnv, javaName)));
    }
    jlong cpuTime() {
        return checked(env->CallStaticLongMethod(good, method("getCurrentThreadCPUTime", "()J")));
    }

    jclass good = nullptr;
};

TEST_F(BootstrapNatives, Answer) {
    setenv("AM_TEST_VARIABLE", "val\xC3\xBC", 1);
    setenv("AM_TEST_EMPTY", "", 1);
    EXPECT_EQ("val\xC3\xBC", variable("AM_TEST_VARIABLE"));
    EXPECT_EQ("", variable("AM_TEST_EMPTY"));
    EXPECT_EQ("(null)", variable("AM_TEST_UNSET"));
    EXPECT_EQ("(null)", variable(nullptr));
    EXPECT_EQ(getpid(), checked(env->CallStaticIntMethod(good, method("getCurrentProcessIdNative", "()I"))));
    EXPECT_EQ(JNI_TRUE,
              checked(env->CallStaticBooleanMethod(good, method("isProcessAliveNative", "(I)Z"), -1)));
    const jmethodID setFile = method("setFileReadWriteNative", "(Ljava/lang/String;)I");
    EXPECT_EQ(0, checked(env->CallStaticIntMethod(good, setFile, nullptr)));
    unsetenv("AM_TEST_VARIABLE");
    unsetenv("AM_TEST_EMPTY");
}

TEST_F(BootstrapNatives, CommandLine) {
    std::vector<std::string> words(500, "-Dx=\xC3\xA4 y");
    words[0] = "";
    const jmethodID getArgs = method("getJavaCommandLineArgs", "()[Ljava/lang/String;");
    const auto fromBootstrap = [&] { return env->CallStaticObjectMethod(good, getArgs); };
    const auto contentOf = [&](jobject array) {
        std::vector<std::string> result;
        for (jsize i = 0; i < env->GetArrayLength(static_cast<jobjectArray>(array)); ++i) {
            const LocalRef<jobject> word(env,
                                         env->GetObjectArrayElement(static_cast<jobjectArray>(array), i));
            result.push_back(text(word.get()));
        }
        return result;
    };
    {
        const GivenArguments given(words);
        EXPECT_EQ(words, contentOf(checked(fromBootstrap())));
        EXPECT_EQ(words, contentOf(checked(OS_UTILS(getArgumentVectorNative)(env, nullptr))));
        EXPECT_EQ(words, contentOf(checked(OS_UTILS(getJVMParamsNative)(env, nullptr))));
    }
    const GivenArguments none({});
    commandLineArgs = nullptr;
    EXPECT_THAT(contentOf(checked(fromBootstrap())), IsEmpty());
    EXPECT_EQ(nullptr, checked(OS_UTILS(getArgumentVectorNative)(env, nullptr)));
    EXPECT_EQ(nullptr, checked(OS_UTILS(getJVMParamsNative)(env, nullptr)));
}

} // namespace
