#include "KnownString.h"

#include "RealJvm.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr int32_t LIMIT = 100;

class KnownStringTest : public testing::Test {
protected:
    KnownStringTest() : env(RealJvm::env()) { env->PushLocalFrame(16); }
    ~KnownStringTest() override { env->PopLocalFrame(nullptr); }

    jstring text(const std::string &bytes) const { return env->NewStringUTF(bytes.c_str()); }
    // As a place does with each string: true if it need not be read.
    bool meets(jstring string, const std::string &bytes, int32_t limit = LIMIT) {
        if (known.is(env, string, limit)) {
            EXPECT_EQ(bytes, std::string(known.bytes(), static_cast<size_t>(known.length())));
            return true;
        }
        known.learn(env, string, limit, bytes.data(), static_cast<int32_t>(bytes.size()));
        return false;
    }

    JNIEnv *env;
    KnownString known;
};

} // namespace

TEST_F(KnownStringTest, IsTheObjectThatCameTwiceWithItsLimit) {
    const jstring one = text("select 1");
    const jstring again = text("select 1");
    const jstring other = text("select 2");
    EXPECT_FALSE(meets(one, "select 1"));
    EXPECT_FALSE(meets(again, "select 1"));
    EXPECT_TRUE(meets(again, "select 1"));
    EXPECT_FALSE(meets(one, "select 1")) << "equal, but that would have to be read";
    EXPECT_TRUE(meets(one, "select 1")) << "that text had come before";
    EXPECT_FALSE(meets(one, "select", 7));
    EXPECT_FALSE(meets(one, "select", 7));
    EXPECT_TRUE(meets(one, "select", 7));
    EXPECT_FALSE(meets(other, "select 2"));
    EXPECT_FALSE(meets(one, "select 1")) << "forgotten";
}

TEST_F(KnownStringTest, RestsWhereItBringsNothing) {
    const jstring texts[] = {text("a"), text("b")};
    for (int i = 0; i < 17; ++i) {
        EXPECT_FALSE(meets(texts[i % 2], i % 2 == 0 ? "a" : "b"));
    }
    int passedOver = 0;
    while (!meets(texts[0], "a") && passedOver < 10000) {
        ++passedOver;
    }
    EXPECT_EQ(4096 + 2, passedOver);
    const std::string longText(2049, 'x');
    const jstring tooLong = text(longText);
    for (int i = 0; i < 4; ++i) {
        EXPECT_FALSE(meets(tooLong, longText, 4000));
    }
}
