#include "jnihelp.h"

#include "ChildRun.h"
#include "RealJvm.h"
#include "RenamedClasses.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr char TOOLS[] = "com/qel/morvex/norak/toolkit/ai/bcm/utility/CcTools";
constexpr char TEST_TOOLS[] = "amtest/host/ThrowingTools";

jstring newString(JNIEnv *env, const std::u16string &text) {
    return env->NewString(reinterpret_cast<const jchar *>(text.data()), static_cast<jsize>(text.size()));
}

std::string freed(char *copy) {
    const std::string result = copy;
    free(copy);
    return result;
}

// The JVM's own encoding, character by character: what a text must be cut from.
std::vector<std::string> encoded(const std::u16string &text) {
    std::vector<std::string> result;
    for (const char16_t c : text) {
        std::string bytes;
        if (c >= 0x80 || c == 0) {
            bytes = c >= 0x800 ? std::string{static_cast<char>(0xE0 | (c >> 12)),
                                             static_cast<char>(0x80 | ((c >> 6) & 63))}
                               : std::string{static_cast<char>(0xC0 | (c >> 6))};
            bytes += static_cast<char>(0x80 | (c & 63));
        } else {
            bytes = static_cast<char>(c);
        }
        result.push_back(bytes);
    }
    return result;
}

std::string joined(const std::vector<std::string> &characters) {
    std::string result;
    for (const std::string &bytes : characters) {
        result += bytes;
    }
    return result;
}

std::string wholeCharacters(const std::vector<std::string> &characters, size_t room) {
    std::string result;
    for (const std::string &bytes : characters) {
        if (result.size() + bytes.size() > room) {
            break;
        }
        result += bytes;
    }
    return result;
}

std::u16string repeated(const std::u16string &text, int times) {
    std::u16string result;
    for (int i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

// Counts the local references that this thread's environment gives out and takes back while it lives.
class CountedReferences {
public:
    explicit CountedReferences(JNIEnv *jniEnv) : env(jniEnv), table(*jniEnv->functions) {
        real = env->functions;
        held = 0;
        table.FindClass = [](JNIEnv *e, const char *name) { return given(real->FindClass(e, name)); };
        table.NewStringUTF = [](JNIEnv *e, const char *text) { return given(real->NewStringUTF(e, text)); };
        table.NewObjectArray = [](JNIEnv *e, jsize size, jclass cls, jobject first) {
            return given(real->NewObjectArray(e, size, cls, first));
        };
        table.CallStaticObjectMethodV = [](JNIEnv *e, jclass cls, jmethodID method, va_list args) {
            return given(real->CallStaticObjectMethodV(e, cls, method, args));
        };
        table.DeleteLocalRef = [](JNIEnv *e, jobject ref) {
            held -= ref != nullptr ? 1 : 0;
            real->DeleteLocalRef(e, ref);
        };
        env->functions = &table;
    }
    ~CountedReferences() { env->functions = real; }

    static inline int held = 0;

private:
    template <typename T>
    static T given(T ref) {
        held += ref != nullptr ? 1 : 0;
        return ref;
    }
    static inline const JNINativeInterface_ *real = nullptr;
    JNIEnv *env;
    JNINativeInterface_ table;
};

class JniHelp : public testing::Test {
protected:
    JniHelp() : env(RealJvm::env()) {
        env->PushLocalFrame(64);
        testing::internal::CaptureStderr(); // where the JVM describes exceptions
    }
    ~JniHelp() override {
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(JNI_FALSE, env->ExceptionCheck());
        env->PopLocalFrame(nullptr);
    }
    JNIEnv *env;
};

// One-, two- and three-byte characters, an embedded NUL, a surrogate pair, a lone surrogate, and lengths on
// both sides of the scratch buffer, cut at every byte.
TEST_F(JniHelp, TextsAreCutAtEveryLimit) {
    const std::u16string mixed =
        u"a\u00E4\u20AC\U0001F600z" + std::u16string(1, u'\0') + u"\u00DF" + char16_t(0xD83D);
    const std::u16string texts[] = {u"",
                                    u"plain",
                                    mixed,
                                    repeated(u"\u20AC", 40),
                                    repeated(u"\u20AC", 341),
                                    repeated(u"\u20AC", 342),
                                    repeated(mixed, 300)};
    for (const std::u16string &text : texts) {
        const jstring java = newString(env, text);
        const std::vector<std::string> characters = encoded(text);
        const std::string whole = joined(characters);
        EXPECT_EQ(whole, freed(jniStringCopy(env, java)));
        const int32_t size = static_cast<int32_t>(whole.size()) + 1;
        for (int32_t limit = 1; limit <= size + 2;
             limit += size > 400 && limit > 20 && limit < size - 10 ? 37 : 1) {
            const size_t room = static_cast<size_t>(limit) - 1;
            int32_t kept = 0;
            EXPECT_EQ(whole.substr(0, room),
                      freed(jniStringCopyLimited(env, java, limit, CutAt::AnyByte, &kept)));
            EXPECT_EQ(std::min(limit, size), kept);
            const std::string expected = wholeCharacters(characters, room);
            EXPECT_EQ(expected, freed(jniStringCopyLimited(env, java, limit, CutAt::Character, &kept)));
            EXPECT_EQ(static_cast<int32_t>(expected.size()) + 1, kept);
        }
    }
}

TEST_F(JniHelp, OddTextsAndLimits) {
    int32_t kept = -7;
    EXPECT_EQ("", freed(jniStringCopy(env, nullptr)));
    EXPECT_EQ("", freed(jniStringCopyLimited(env, nullptr, 5, CutAt::Character, &kept)));
    EXPECT_EQ(-7, kept);
    const jstring text = env->NewStringUTF("text");
    for (const int32_t limit : {0, -1, INT32_MIN}) {
        EXPECT_EQ("", freed(jniStringCopyLimited(env, text, limit, CutAt::AnyByte, nullptr)));
    }
    EXPECT_EQ("text", freed(jniStringCopyLimited(env, text, INT32_MAX, CutAt::Character, nullptr)));
    const jstring huge = newString(env, std::u16string(10000000, u'h'));
    EXPECT_EQ(10000000U, freed(jniStringCopy(env, huge)).size());
    EXPECT_EQ(std::string(9, 'h'), freed(jniStringCopyLimited(env, huge, 10, CutAt::Character, nullptr)));
}

TEST_F(JniHelp, FixedBuffers) {
    char buffer[8];
    const auto filled = [&](const char *text, size_t room) {
        memset(buffer, '#', sizeof(buffer));
        jniStringToBuffer(env, text != nullptr ? env->NewStringUTF(text) : nullptr, buffer, room);
        return std::string(buffer, sizeof(buffer));
    };
    EXPECT_EQ("########", filled(nullptr, 8));
    EXPECT_STREQ("", filled("", 8).c_str());
    EXPECT_STREQ("seven77", filled("seven77", 8).c_str());
    EXPECT_STREQ("seven77", filled("seven77-and-more", 8).c_str());
    EXPECT_EQ(std::string("ab\0#####", 8), filled("abcdef", 3));
    EXPECT_EQ(std::string("\0#######", 8), filled("abcdef", 1));
}

TEST_F(JniHelp, WhatIsMissingOrThrowsIsClearedAndAnsweredWithNothing) {
    EXPECT_EQ(nullptr, findGlobalClass(env, "amtest/host/NoSuchClass"));
    EXPECT_EQ(nullptr, findStaticMethod(env, nullptr, "receive", "(I)V"));
    const jclass tools = findGlobalClass(env, TEST_TOOLS);
    ASSERT_NE(nullptr, tools);
    EXPECT_EQ(nullptr, findStaticMethod(env, tools, "receive", "(J)V"));
    env->DeleteGlobalRef(tools);
    EXPECT_TRUE(callStaticVoidInt(env, TEST_TOOLS, "receive", -9));
    const jclass cls = env->FindClass(TEST_TOOLS);
    EXPECT_EQ(-9, env->GetStaticIntField(cls, env->GetStaticFieldID(cls, "received", "I")));
    EXPECT_FALSE(callStaticVoidInt(nullptr, TEST_TOOLS, "receive", 1));
    EXPECT_FALSE(callStaticVoidInt(env, "amtest/host/NoSuchClass", "receive", 1));
    EXPECT_FALSE(callStaticVoid(env, TEST_TOOLS, "receive")); // not with this signature
    EXPECT_FALSE(callStaticVoid(env, TEST_TOOLS, "refuse"));
    EXPECT_FALSE(clearException(env));
}

TEST_F(JniHelp, NoLocalReferenceStays) {
    const jstring text = env->NewStringUTF("text");
    char word[] = "word";
    char *const words[] = {word, word, word};
    char value[64];
    const std::pair<const char *, std::function<void()>> steps[] = {
        {"string", [&] { free(jniStringCopy(env, text)); }},
        {"global class", [&] { env->DeleteGlobalRef(findGlobalClass(env, TEST_TOOLS)); }},
        {"get property", [&] { getJavaSystemProperty(env, "java.version", value, sizeof(value)); }},
        {"set property", [&] { setJavaSystemProperty(env, "am.test.host", "x"); }},
        {"server name", [&] { getFullAppServerName(value, sizeof(value), env); }},
        {"call", [&] { callStaticVoidInt(env, TEST_TOOLS, "receive", 1); }},
        {"failing call", [&] { callStaticVoid(env, TEST_TOOLS, "refuse"); }},
    };
    for (const auto &[name, step] : steps) {
        step(); // what Java loads on the way takes references of its own
        const CountedReferences counted(env);
        step();
        EXPECT_EQ(0, CountedReferences::held) << name;
    }
    const CountedReferences counted(env);
    newStringArray(env, words, 3);
    EXPECT_EQ(1, CountedReferences::held); // the array
}

// ---------------------------------------------------------------- system properties

std::string property(JNIEnv *env, const char *name, size_t room = 64) {
    std::vector<char> value(room + 1, '#');
    getJavaSystemProperty(env, name, value.data(), room);
    EXPECT_EQ('#', value[room]);
    return value.data();
}

TEST_F(JniHelp, PropertiesGoBothWays) {
    setJavaSystemProperty(env, "am.test.host", "twelve-chars");
    EXPECT_EQ("twelve-chars", property(env, "am.test.host"));
    EXPECT_EQ("twelve-chars", property(env, "am.test.host", 13));
    EXPECT_EQ("twelve-char", property(env, "am.test.host", 12));
    EXPECT_EQ("t", property(env, "am.test.host", 2));
    EXPECT_EQ("", property(env, "am.test.host", 1));
    EXPECT_EQ("", property(env, "am.test.no.such.property"));
    setJavaSystemProperty(env, "", "Java throws for an empty name");
    EXPECT_EQ("", property(env, ""));
}

// Which way a process takes is settled by its first question.
TEST_F(JniHelp, PropertiesWithoutTheToolsOfTheJavaHalf) {
    struct Case {
        const char *tools;
        const char *expected;
    };
    const Case cases[] = {{"amtest/host/NoSuchClass", "gr\xC3\xBC\xC3\x9F"}, {TEST_TOOLS, ""}};
    if (!inChild()) {
        for (const Case &c : cases) {
            leftToChild({{}, {{"AM_TEST_TOOLS", c.tools}, {"AM_TEST_EXPECTED", c.expected}}, ""});
        }
        return;
    }
    const RenamedClasses renamed(env, {{TOOLS, getenv("AM_TEST_TOOLS")}});
    const std::string expected = getenv("AM_TEST_EXPECTED");
    setJavaSystemProperty(env, "am.test.host", "gr\xC3\xBC\xC3\x9F");
    EXPECT_EQ(expected, property(env, "am.test.host"));
    EXPECT_EQ(expected.substr(0, 3), property(env, "am.test.host", 4));
    EXPECT_EQ("", property(env, "am.test.no.such.property"));
    EXPECT_EQ("", property(env, ""));
}

// ---------------------------------------------------------------- server name

TEST_F(JniHelp, ServerName) {
    struct Case {
        const char *cls;
        size_t room;
        int result;
        const char *expected;
    };
    const Case cases[] = {{"LongName", 32, 0, "a-server-with-a-long-name"},
                          {"LongName", 9, 0, "a-server"},
                          {"NullName", 32, 0, "unchanged"},
                          {"ThrowingName", 32, 1, "unchanged"},
                          {"None", 32, 1, "unchanged"},
                          {"NoSuchClass", 32, 1, "unchanged"}};
    for (const Case &c : cases) {
        char buffer[32] = "unchanged";
        const RenamedClasses renamed(
            env, {{PROBE_SYSTEM_CLASS, std::string("amtest/host/PartialSystem$") + c.cls}});
        EXPECT_EQ(c.result, getFullAppServerName(buffer, c.room, env)) << c.cls;
        EXPECT_STREQ(c.expected, buffer) << c.cls;
        EXPECT_EQ(JNI_FALSE, env->ExceptionCheck());
    }
}

} // namespace
