#include "jnihelp.h"

#include "ChildRun.h"
#include "RealJvm.h"
#include "RenamedClasses.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
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

// A Java text and its bytes in the JVM's own encoding, character by character.
struct Text {
    std::u16string java;
    std::vector<std::string> characters;

    // As many whole characters as fit.
    std::string within(size_t room) const {
        std::string result;
        for (const std::string &bytes : characters) {
            if (result.size() + bytes.size() > room) {
                break;
            }
            result += bytes;
        }
        return result;
    }
};

Text repeated(const Text &text, int times) {
    Text result;
    for (int i = 0; i < times; ++i) {
        result.java += text.java;
        result.characters.insert(result.characters.end(), text.characters.begin(), text.characters.end());
    }
    return result;
}

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
    std::u16string unitsOf(jstring text) const {
        std::u16string units(static_cast<size_t>(env->GetStringLength(text)), u'#');
        env->GetStringRegion(text, 0, env->GetStringLength(text), reinterpret_cast<jchar *>(units.data()));
        return units;
    }
    void expectCutAtEveryLimit(const Text &text) {
        const jstring java = newString(env, text.java);
        const std::string whole = text.within(SIZE_MAX);
        EXPECT_EQ(whole, freed(jniStringCopy(env, java)));
        const int32_t size = static_cast<int32_t>(whole.size()) + 1;
        for (int32_t limit = 1; limit <= size + 2;
             limit += size > 400 && limit > 20 && limit < size - 10 ? 37 : 1) {
            const size_t room = static_cast<size_t>(limit) - 1;
            int32_t kept = 0;
            EXPECT_EQ(whole.substr(0, room),
                      freed(jniStringCopyLimited(env, java, limit, CutAt::AnyByte, &kept)));
            EXPECT_EQ(std::min(limit, size), kept);
            const std::string expected = text.within(room);
            EXPECT_EQ(expected, freed(jniStringCopyLimited(env, java, limit, CutAt::Character, &kept)));
            EXPECT_EQ(static_cast<int32_t>(expected.size()) + 1, kept);
        }
    }
    JNIEnv *env;
};

// One-, two- and three-byte characters, an embedded NUL, a surrogate pair, a lone surrogate, and lengths on
// both sides of the scratch buffer, cut at every byte.
TEST_F(JniHelp, TextsAreCutAtEveryLimit) {
    const Text euro{u"\u20AC", {"\xE2\x82\xAC"}};
    const Text mixed{
        u"a\u00E4\u20AC\U0001F600" + std::u16string(1, u'\0') + char16_t(0xD83D),
        {"a", "\xC3\xA4", "\xE2\x82\xAC", "\xED\xA0\xBD", "\xED\xB8\x80", "\xC0\x80", "\xED\xA0\xBD"}};
    const Text ascii{u"letters\x7F", {"l", "e", "t", "t", "e", "r", "s", "\x7F"}};
    for (const bool byUnits : {false, true}) {
        stringsByUnits = byUnits;
        for (const Text &text : {Text(), mixed, repeated(euro, 40), repeated(euro, 341), repeated(euro, 342),
                                 repeated(mixed, 300), repeated(ascii, 17)}) {
            expectCutAtEveryLimit(text);
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

// Bytes of the platform, what Java makes of them, and the way back.
TEST_F(JniHelp, PlatformTextsComeBackAsTheyWent) {
    const struct {
        std::string bytes;
        std::u16string java;
    } cases[] = {
        {"", u""},
        {"/plain", u"/plain"},
        {"gr\xC3\xBC\xE2\x82\xAC", u"gr\u00FC\u20AC"},
        {"\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF\xEF\xBF\xBF", u"\U0001F600\U0010FFFF\uFFFF"},
        {"\xC0\x80", {0xDCC0, 0xDC80}},                           // overlong
        {"\xED\xA0\xBD", {0xDCED, 0xDCA0, 0xDCBD}},               // a surrogate
        {"\xF4\x90\x80\x80", {0xDCF4, 0xDC90, 0xDC80, 0xDC80}},   // beyond the last character
        {"\xF0\x9F\x98", {0xDCF0, 0xDC9F, 0xDC98}},               // cut
        {"a\xFF\x80z\xC3", {u'a', 0xDCFF, 0xDC80, u'z', 0xDCC3}}, // out of place
    };
    for (const auto &c : cases) {
        const jstring text = newPlatformString(env, c.bytes.c_str());
        ASSERT_NE(nullptr, text);
        EXPECT_EQ(c.java, unitsOf(text)) << c.bytes;
        EXPECT_EQ(c.bytes, freed(platformCopy(env, text)));
    }
    EXPECT_EQ(nullptr, newPlatformString(env, nullptr));
    EXPECT_EQ("", freed(platformCopy(env, nullptr)));
    // What no bytes stand for: a NUL, lone surrogates.
    EXPECT_EQ("a\xC0\x80\xEF\xBF\xBD"
              "b\xEF\xBF\xBD",
              freed(platformCopy(env, newString(env, {u'a', 0, 0xD83D, u'b', 0xDC00}))));
    const std::string longText(100000, 'x');
    EXPECT_EQ(longText, freed(platformCopy(env, newPlatformString(env, longText.c_str()))));
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

// The JVM that checks its interface warns of the first reference too many.
TEST_F(JniHelp, NoLocalReferenceStays) {
    const std::pair<const char *, void (*)(JNIEnv *)> steps[] = {
        {"string",
         [](JNIEnv *own) {
             const LocalRef<jstring> text(own, own->NewStringUTF("text"));
             free(jniStringCopy(own, text.get()));
         }},
        {"global class", [](JNIEnv *own) { own->DeleteGlobalRef(findGlobalClass(own, TEST_TOOLS)); }},
        {"get property",
         [](JNIEnv *own) {
             char value[64];
             getJavaSystemProperty(own, "java.version", value, sizeof(value));
         }},
        {"set property", [](JNIEnv *own) { setJavaSystemProperty(own, "am.test.host", "x"); }},
        {"server name",
         [](JNIEnv *own) {
             char value[64];
             getFullAppServerName(value, sizeof(value), own);
         }},
        {"array",
         [](JNIEnv *own) {
             char word[] = "word";
             char *const words[] = {word, word, word};
             own->DeleteLocalRef(newStringArray(own, words, 3));
         }},
        {"call", [](JNIEnv *own) { callStaticVoidInt(own, TEST_TOOLS, "receive", 1); }},
        {"failing call", [](JNIEnv *own) { callStaticVoid(own, TEST_TOOLS, "refuse"); }},
    };
    for (const auto &[name, step] : steps) {
        testing::internal::CaptureStdout();
        RealJvm::onJavaThread([run = step](JNIEnv *own) {
            for (int i = 0; i < 200; ++i) {
                run(own);
            }
        });
        EXPECT_EQ(std::string::npos, testing::internal::GetCapturedStdout().find("exceeds capacity")) << name;
    }
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
