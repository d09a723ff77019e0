#include "zykora.h"

#include "GivenArguments.h"
#include "InstrumentJNI.h"
#include "ProbeState.h"
#include "RealJvm.h"
#include "RenamedClasses.h"
#include "jnihelp.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <string>

#define OS_UTILS(name) Java_com_qel_morvex_norak_toolkit_ai_osutils_OsUtils_##name

extern "C" {
JNIEXPORT jobjectArray JNICALL OS_UTILS(getArgumentVectorNative)(JNIEnv *, jclass);
JNIEXPORT jobjectArray JNICALL OS_UTILS(getJVMParamsNative)(JNIEnv *, jclass);
}

namespace {

constexpr char OUTER[] = "amtest/host/Bootstraps";

class Bootstrap : public testing::Test {
protected:
    Bootstrap() : env(RealJvm::env()), oldHook(disableToolkitHook), outer(nullptr) {
        env->PushLocalFrame(64);
        outer = env->FindClass(OUTER);
        bootstrapAllowed = true;
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

    // What is printed with the class of that kind as the bootstrap.
    std::string bootstrap(const std::string &kind) {
        bootstrapDone = false;
        const RenamedClasses renamed(env, {{BOOTSTRAP_CLASS, std::string(OUTER) + "$" + kind}});
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr(); // stack traces of the JVM
        const JVMPI_Event event{JVMPI_EVENT_JVM_INIT_DONE, env, nullptr, nullptr, nullptr};
        registerBcmBootstrapNative(&event);
        EXPECT_TRUE(bootstrapDone) << "the way is closed, however it went";
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(JNI_FALSE, env->ExceptionCheck());
        return testing::internal::GetCapturedStdout();
    }

    JNIEnv *env;
    bool (*oldHook)(JNIEnv *);
    jclass outer;
};

// What the Java half says when it is broken is seen on whole servers; here, what becomes of it.
TEST_F(Bootstrap, OnlyAWholeJavaHalfCanBeSwitchedOff) {
    for (const char *kind : {"NoSuchClass", "Refusing", "Mute", "WithoutNatives"}) {
        bootstrap(kind);
        EXPECT_FALSE(disableToolkit(env)) << kind;
        EXPECT_EQ(JNI_FALSE, env->ExceptionCheck()) << kind;
    }
    calls(0);
    EXPECT_EQ("", bootstrap("Good"));
    EXPECT_TRUE(disableToolkitHook.get()(env));
    EXPECT_EQ(11, calls());
}

TEST_F(Bootstrap, CommandLineIsGivenToJava) {
    bootstrap("Good");
    const jclass good = env->FindClass((std::string(OUTER) + "$Good").c_str());
    const jmethodID getArgs = env->GetStaticMethodID(good, "getJavaCommandLineArgs", "()[Ljava/lang/String;");
    const auto all = [&] {
        return std::array{static_cast<jobjectArray>(env->CallStaticObjectMethod(good, getArgs)),
                          OS_UTILS(getArgumentVectorNative)(env, nullptr),
                          OS_UTILS(getJVMParamsNative)(env, nullptr)};
    };
    std::vector<std::string> given(500, "-Dx=\xC3\xA4 y");
    given[0] = "";
    {
        const GivenArguments arguments(given);
        for (const jobjectArray array : all()) {
            std::vector<std::string> words;
            for (jsize i = 0; i < env->GetArrayLength(array); ++i) {
                const LocalRef<jobject> word(env, env->GetObjectArrayElement(array, i));
                char *text = jniStringCopy(env, static_cast<jstring>(word.get()));
                words.emplace_back(text);
                free(text);
            }
            EXPECT_EQ(given, words);
        }
    }
    const GivenArguments none({});
    commandLineArgs = nullptr;
    const auto [fromBootstrap, vector, parameters] = all();
    EXPECT_EQ(0, env->GetArrayLength(fromBootstrap));
    EXPECT_EQ(nullptr, vector);
    EXPECT_EQ(nullptr, parameters);
}

} // namespace
