#include "RealJvm.h"
#include "cmdline.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

extern "C" {
JNIEXPORT jobjectArray JNICALL
Java_com_qel_morvex_norak_toolkit_ai_osutils_OsUtils_getArgumentVectorNative(JNIEnv *, jclass);
JNIEXPORT jobjectArray JNICALL
Java_com_qel_morvex_norak_toolkit_ai_osutils_OsUtils_getJVMParamsNative(JNIEnv *, jclass);
}

namespace {

std::vector<std::string> contentOf(JNIEnv *env, jobjectArray array) {
    std::vector<std::string> result;
    for (jsize i = 0; i < env->GetArrayLength(array); ++i) {
        const auto text = static_cast<jstring>(env->GetObjectArrayElement(array, i));
        const char *chars = env->GetStringUTFChars(text, nullptr);
        result.emplace_back(chars);
        env->ReleaseStringUTFChars(text, chars);
        env->DeleteLocalRef(text);
    }
    return result;
}

TEST(OsUtils, TellHowTheJvmWasStarted) {
    JNIEnv *env = RealJvm::env();
    env->PushLocalFrame(16);
    char **oldArgs = commandLineArgs;
    const int oldCount = commandLineArgCount;
    std::vector<std::string> words(500, "-Dx=\xC3\xA4");
    words[0] = "";
    std::vector<char *> pointers;
    for (std::string &word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    const auto natives = {Java_com_qel_morvex_norak_toolkit_ai_osutils_OsUtils_getArgumentVectorNative,
                          Java_com_qel_morvex_norak_toolkit_ai_osutils_OsUtils_getJVMParamsNative};
    commandLineArgs = pointers.data();
    commandLineArgCount = static_cast<int>(words.size());
    for (const auto native : natives) {
        EXPECT_EQ(words, contentOf(env, native(env, nullptr)));
    }
    commandLineArgs = nullptr;
    commandLineArgCount = 0;
    for (const auto native : natives) {
        EXPECT_EQ(nullptr, native(env, nullptr));
    }
    commandLineArgs = oldArgs;
    commandLineArgCount = oldCount;
    EXPECT_EQ(JNI_FALSE, env->ExceptionCheck());
    env->PopLocalFrame(nullptr);
}

} // namespace
