#include "lgkit/nlsm.h"
#include "lgkit_test_support.h"

#include <cstdlib>
#include <map>

using namespace lgkitTest;

class LgkitCatalogue : public LogTest {
protected:
    void SetUp() override {
        LogTest::SetUp();
        for (const char *variable : {"NLSPATH", "LC_ALL", "LC_MESSAGES", "LANG"}) {
            const char *value = getenv(variable);
            saved[variable] = value != nullptr ? value : "";
            unsetenv(variable);
        }
    }
    void TearDown() override {
        for (const auto &[variable, value] : saved) {
            value.empty() ? unsetenv(variable.c_str()) : setenv(variable.c_str(), value.c_str(), 1);
        }
        nls_set_dir("codeset");
        LogTest::TearDown();
    }

    static std::string lookUp(const std::string &path, const char *variable, const char *locale,
                              const char *catalog = "zykprobeMessages") {
        setenv("NLSPATH", path.c_str(), 1);
        setenv(variable, locale, 1);
        EXPECT_EQ(1, nls_set_dir("codeset"));
        unsetenv(variable); // must not be read later
        const std::string text = nls_message(catalog, 1, 1072, "default");
        unsetenv("NLSPATH");
        return text;
    }

    // Numbers and texts of a catalogue's source.
    static std::map<int, std::string> sourceOf(const std::string &language) {
        std::map<int, std::string> texts;
        std::ifstream in(LGKIT_ETC_DIR "/msg/" + language + "/zykprobeMessages.msg");
        for (std::string line; std::getline(in, line);) {
            const size_t quote = line.find(" \"");
            if (line[0] == '1' && quote != std::string::npos) {
                const std::string text = line.substr(quote + 2, line.size() - quote - 3);
                EXPECT_TRUE(texts.emplace(std::stoi(line), text).second) << line;
            }
        }
        return texts;
    }

    // "%d%ld" for a text with these two.
    static std::string conversionsOf(const std::string &text) {
        std::string found;
        for (size_t at = 0; (at = text.find('%', at)) != std::string::npos;) {
            const size_t end = text.find_first_of("dsx%", at + 1) + 1;
            found += text.substr(at, end - at);
            at = end;
        }
        return found;
    }

    std::map<std::string, std::string> saved;
};

TEST_F(LgkitCatalogue, foundAlongThePathForTheLocale) {
    const std::string built = LGKIT_MSG_DIR;
    const std::string good = built + "/%L/%N.cat";
    const struct {
        std::string path;
        const char *variable;
        const char *locale;
        const char *expected;
    } cases[] = {
        {good, "LANG", "de", "Thread Manager gestartet"},
        {good, "LC_MESSAGES", "de_AT", "Thread Manager gestartet"},
        {good, "LC_ALL", "de_DE.UTF-8@euro", "Thread Manager gestartet"},
        {good, "LANG", "en_US.UTF-8", "Thread Manager started"},
        {good, "LANG", "C", "default"},
        {good, "LANG", "", "default"},
        {good, "LANG", "../../x", "default"},
        {"/nowhere/%N;;:" + good, "LANG", "de_DE", "Thread Manager gestartet"},
        {built + "/%l/%N.cat", "LANG", "de_DE.UTF-8", "Thread Manager gestartet"},
        {built + "/de%%/%N.cat:" + built + "/%t/%c/%N.cat:" + built + "/en/%N.cat", "LANG", "de_DE.UTF-8",
         "Thread Manager started"},
        {good + "%", "LANG", "de", "default"},
        {"zykprobeMessages.cat", "LANG", "de", "default"},
        {"", "LANG", "de", "default"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(c.expected, lookUp(c.path, c.variable, c.locale)) << c.path << " " << c.locale;
    }
    EXPECT_EQ("default", lookUp(good, "LANG", "de", "otherMessages"));
    EXPECT_EQ(0, nls_set_dir(nullptr) + nls_set_dir(""));
}

TEST_F(LgkitCatalogue, brokenCatalogueGivesTheDefault) {
    writeFile("broken.cat", std::string("\xde\x12\x04\x95garbage\0garbage garbage", 27));
    writeFile("empty.cat", "");
    EXPECT_EQ("default", lookUp((directory / "%N.cat").string(), "LANG", "de", "broken"));
    EXPECT_EQ("default", lookUp((directory / "%N.cat").string(), "LANG", "de", "empty"));
    EXPECT_STREQ("default", nls_message("zykprobeMessages", 1, 1999, "default"));
    EXPECT_STREQ("default", nls_message("zykprobeMessages", 0, 1072, "default"));
    EXPECT_STREQ("default", nls_message(nullptr, 1, 1072, "default"));
    EXPECT_EQ(nullptr, nls_message("", 0, 0, nullptr));
}

TEST_F(LgkitCatalogue, loggedMessagesAreTranslatedByNumber) {
    LgkObject *logger = openLogger();
    lookUp(LGKIT_MSG_DIR "/%L/%N.cat", "LANG", "de_DE.UTF-8");
    LgkLogInfo(logger, "zykprobeMessages", 1, 1080, "Using probe level %d", LGK_ARG_INT, 2, 0);
    LgkLogWarn(logger, "zykprobeMessages", 1, 1999, "unknown %d", LGK_ARG_INT, 3, 0);
    LgkLogInfo(logger, "zykprobeMessages", 0, 1080, "before the open %d", LGK_ARG_INT, 4, 0);
    LgkLogInfo(logger, "", 0, 0, "untranslated %s", LGK_ARG_STRING, "text", 0);
    settle(logger);
    EXPECT_EQ(
        (std::vector<std::string>{"INFO 1080 Sondenstufe 2 wird verwendet", "WARN 1999 unknown 3",
                                  "INFO 1080 before the open 4", "INFO untranslated text", "ERROR settled"}),
        texts());
}

// A translator who drops or swaps a conversion would have wrong values printed.
TEST_F(LgkitCatalogue, translationsCarryTheSameNumbersAndConversions) {
    const std::map<int, std::string> english = sourceOf("en");
    const std::map<int, std::string> german = sourceOf("de");
    ASSERT_EQ(68u, english.size());
    ASSERT_EQ(english.size(), german.size());
    setenv("NLSPATH", LGKIT_MSG_DIR "/%L/%N.cat", 1);
    setenv("LANG", "de", 1);
    nls_set_dir("codeset");
    for (const auto &[number, text] : english) {
        ASSERT_EQ(1u, german.count(number)) << number;
        EXPECT_EQ(conversionsOf(text), conversionsOf(german.at(number))) << number;
        EXPECT_EQ(german.at(number), nls_message("zykprobeMessages", 1, number, "missing"));
    }
}
