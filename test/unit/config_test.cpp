#include "config.h"

#include "TempDir.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

InstrumentationConfig &config = instrumentationConfig;

// The keys' common beginning stands for "@" at the start of a line.
std::string expanded(const std::string &text) {
    std::string whole;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool starts = text[i] == '@' && (i == 0 || strchr("\r\n\t ", text[i - 1]) != nullptr);
        whole += starts ? "com.qel.morvex.kvor." : std::string(1, text[i]);
    }
    return whole;
}

bool parse(const std::string &text) {
    std::string buffer = expanded(text);
    return parseConfig(buffer.data());
}

TEST(Config, DefaultsAreThoseOfNoFile) {
    setenv("DSRVKVOR_PROPS", "", 1);
    ASSERT_TRUE(getConfig(""));
    EXPECT_STREQ(config.hookClassName, "com.qel.morvex.kvor.injector.JVMPIClassLoadHook");
    ASSERT_EQ(config.filters.count, 11);
    EXPECT_STREQ(config.filters.items[0].value, "java/");
    EXPECT_EQ(config.filters.items[10].isInclude, 1);
    EXPECT_EQ(config.filters.items[10].length, 0);
    ASSERT_EQ(config.classLoaderMethods.count, 7);
    ASSERT_EQ(config.proxyMethods.count, 2);
    const DefineClassMethod &first = config.classLoaderMethods.items[0];
    EXPECT_STREQ(first.className, "java/lang/ClassLoader");
    EXPECT_EQ(first.classNameLength, 21);
    EXPECT_STREQ(first.methodName, "defineClass0");
    EXPECT_STREQ(first.signature,
                 "(Ljava/lang/String;[BIILjava/security/ProtectionDomain;[Ljava/security/cert/"
                 "Certificate;[B)Ljava/lang/Class;");
    EXPECT_EQ(first.arguments[4], 4);
    EXPECT_TRUE(config.loggingException && config.instrumentDefineClass && !config.statistics);
}

TEST(Config, LinesAreReadInEveryShape) {
    for (const char *line :
         {"@jvmpi.dumpPath=a", "@jvmpi.dumpPath:a", "@jvmpi.dumpPath a", "@jvmpi.dumpPath = a b",
          "  @jvmpi.dumpPath\t:\ta\r\n", "# x\n\n!y\r\n@jvmpi.dumpPath=a", "@other=1\n@jvmpi.dumpPath a"}) {
        EXPECT_TRUE(parse("@jvmpi.dumpPath=old") && parse(line)) << line;
        EXPECT_STREQ(config.dumpPath, "a") << line;
    }
    EXPECT_TRUE(parse("") && parse("# only") && parse("@jvmpi.dumpPath  \t"));
    EXPECT_STREQ(config.dumpPath, "");
    EXPECT_TRUE(parse("com.other.jvmpi.dumpPath=x\n@jvmpi.DumpPath=x\ndumpPath=x"));
    EXPECT_STREQ(config.dumpPath, "");
}

TEST(Config, ValuesGoWhereTheyBelong) {
    EXPECT_TRUE(parse("@jvmpi.statistics=true\n@jvmpi.dumpClasses=true\n@jvmpi.loggingException=x"));
    EXPECT_TRUE(config.statistics && config.dumpClasses && config.loggingException);
    EXPECT_TRUE(
        parse("@jvmpi.statistics=TRUE\n@jvmpi.logging.loggingException=false\n@jvmpi.delegateTo=system"));
    EXPECT_FALSE(config.statistics || config.loggingException);
    EXPECT_EQ(config.delegateTo, DELEGATE_SYSTEM);
    EXPECT_TRUE(
        parse("@jvmpi.instrumentDefineClass=false\n@jvmpi.delegateTo=@my.Loader\n@jvmpi.delegateTo=none"));
    EXPECT_STREQ(config.delegateClassLoader, "my/Loader");
    EXPECT_EQ(config.delegateClassLoaderLength, 9);
    EXPECT_TRUE(config.delegateTo == DELEGATE_NAMED && config.instrumentDefineClass);
    const int filters = config.filters.count;
    EXPECT_TRUE(parse(
        "@jvmpi.include=org.foo.\n@jvmpi.exclude=org.\n@jvmpi.classpath=a.jar\n@jvmpi.classpath=b.jar"));
    EXPECT_STREQ(config.filters.items[filters].value, "org/foo/");
    EXPECT_EQ(config.filters.items[filters + 1].isInclude, 0);
    EXPECT_STREQ(config.classPath.items[1], "b.jar");
    EXPECT_TRUE(parse("@jvmpi.proxy=a.A:b.B:m:(I)V:1:2:3:4:-5"));
    EXPECT_EQ(config.proxyMethods.items[config.proxyMethods.count - 1].arguments[4], -5);
    EXPECT_FALSE(parse("@jvmpi.classLoader=a.A:b.B:m:(I)V:1:2:3:4\n@jvmpi.dumpPath=behind"));
    EXPECT_FALSE(parse("@jvmpi.proxy="));
    EXPECT_STRNE(config.dumpPath, "behind");
}

TEST(Config, EscapesBecomeUtf8AndBadOnesCostTheFile) {
    const struct {
        const char *given, *expected; // null: refused
    } cases[] = {{"a\\u00e9\\u20AC\\u0041\\u0000b", "a\xC3\xA9\xE2\x82\xAC"
                                                    "A b"},
                 {"\\x\\\\u0041\xE9", "\\x\\A\xE9"},
                 {"\\u00g0", nullptr},
                 {"\\u00", nullptr},
                 {"\\", "\\"}};
    for (const auto &c : cases) {
        std::string buffer = c.given;
        EXPECT_EQ(convert8859_1ToUTF8(buffer.data()), c.expected != nullptr) << c.given;
        if (c.expected != nullptr) {
            EXPECT_STREQ(buffer.c_str(), c.expected);
        }
    }
    const TempDir directory;
    EXPECT_FALSE(
        getConfig(directory.write("a", expanded("@jvmpi.dumpPath=\\u00e9\n@jvmpi.proxy=bad\n")).c_str()));
    EXPECT_TRUE(
        getConfig(directory.write("b", expanded("@jvmpi.dumpPath=x\n@jvmpi.proxy=bad \\u00\n")).c_str()))
        << "counts as not read";
    EXPECT_STREQ(config.dumpPath, "\xC3\xA9");
    EXPECT_TRUE(getConfig(directory.path.c_str())) << "no file";
    unsetenv("DSRVKVOR_PROPS");
}

} // namespace
