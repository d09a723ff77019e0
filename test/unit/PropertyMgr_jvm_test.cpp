#include "PropertyMgr.h"

#include "GivenArguments.h"
#include "ProbeState.h"
#include "RealJvm.h"
#include "RenamedClasses.h"
#include "TempDir.h"
#include "jnihelp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>

namespace fs = std::filesystem;

namespace {

constexpr char BUILDER[] = "com/qel/morvex/norak/toolkit/ai/runtimebuilder/RuntimeBuilder";
constexpr char MANAGER[] = "com/qel/morvex/norak/toolkit/ai/bcm/bootstrap/PropertyManager";
constexpr char MISSING[] = "amtest/NoSuchClass";

constexpr char NO_BUILDER_LINE[] = "## PropertyMgr::initialize() Could not load RuntimeBuilder Class; "
                                   "Dynamic Runtime Build will not be attempted\n";
constexpr char CALLING_LINE[] = "## PropertyMgr::initialize() Calling  defineEnvMethodId.......\n";
constexpr char LOADED_LINE[] = "## PropertyMgr::initialize() loaded Environment Variables\n";
constexpr char FAILED_LINES[] = "## loadEnvProperties failed.\n"
                                "## PropertyMgr::initialize() could not load Environment Variables\n"
                                "## PropertyMgr::initialize() error during initialization\n"
                                "## PropertyMgr::initialize() NORAK will be disabled\n";

int toolkitsDisabled = 0;

// A fresh manager in a JVM whose system properties, command line and environment say nothing about us.
class PropertyMgrJvmTest : public testing::Test {
protected:
    PropertyMgrJvmTest() : env(RealJvm::env()), oldFacts(serverFacts) {
        for (const char *name : PROPERTIES) {
            clearProperty(name);
        }
        setProperty("LGKIT_COMMON_DIR", root.path / "common");
        toolkitsDisabled = 0;
        disableToolkitHook = [](JNIEnv *) { return ++toolkitsDisabled > 0; };
        new PropertyMgr;
    }

    ~PropertyMgrJvmTest() override {
        EXPECT_FALSE(env->ExceptionCheck());
        PropertyMgr::destroy();
        disableToolkitHook = nullptr;
        for (const char *name : PROPERTIES) {
            clearProperty(name);
        }
        for (const char *name : {"am.home", "am.nodename", "AM_TEST_ODD", "AM_TEST_FILE"}) {
            unsetenv(name);
        }
        for (char *buffer : {rawHome, rawNorakHome, rawPlatform, rawNodeName, rawAppServer, rawProfileName,
                             rawUserHome, rawExtDirs}) {
            *buffer = '\0';
        }
        serverFacts = oldFacts;
    }

    // What `initialize` prints up to the opening of the log; its result is checked.
    std::string initialize(const char *dir, bool expected, std::map<std::string, std::string> names = {}) {
        const RenamedClasses renamed(env, std::move(names));
        testing::internal::CaptureStdout();
        const bool result = propertyMgr->initialize(env, dir);
        const std::string printed = testing::internal::GetCapturedStdout();
        EXPECT_EQ(result, expected);
        return printed.substr(0, std::min(printed.find("WARN: "), printed.find("## Could not open library")));
    }

    // A manager is filled once only.
    static void renew() {
        PropertyMgr::destroy();
        new PropertyMgr;
    }

    void setProperty(const char *name, const std::string &value) {
        setJavaSystemProperty(env, name, value.c_str());
    }
    std::string property(const char *name) {
        char value[1024];
        getJavaSystemProperty(env, name, value, sizeof(value));
        return value;
    }
    void clearProperty(const char *name) {
        const LocalRef<jclass> system(env, env->FindClass("java/lang/System"));
        const jmethodID clear =
            findStaticMethod(env, system.get(), "clearProperty", "(Ljava/lang/String;)Ljava/lang/String;");
        const LocalRef<jstring> key(env, env->NewStringUTF(name));
        const LocalRef<jobject> old(env, env->CallStaticObjectMethod(system.get(), clear, key.get()));
        clearException(env);
    }

    static constexpr const char *PROPERTIES[] = {
        "am.home",     "norak61.home",     "appserver.platform", "am.nodename",           "am.appserver",
        "am.ext.dirs", "LGKIT_COMMON_DIR", "AM_PROFILENAME",     "internal.memory.limit", "NORAK_DC_ENABLED"};

    JNIEnv *env;
    TempDir root;

private:
    const ServerFacts oldFacts;
    const GivenArguments noArguments{{"java"}};
};

TEST_F(PropertyMgrJvmTest, FailingEnvironmentSwitchesTheJavaHalfOff) {
    const std::string noMethod =
        "## PropertyMgr::initialize() Error getting static method id - getEnvVariables\n";
    const std::string badCall =
        "## PropertyMgr::initialize() Error calling static method - getEnvVariables\n";
    const struct {
        const char *manager;
        std::string lines;
    } cases[] = {
        {MISSING, ""},
        {"amtest/ConfigHelpers$NoMethods", noMethod},
        {"amtest/ConfigHelpers$Throwing", CALLING_LINE + badCall},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.manager);
        clearProperty("NORAK_DC_ENABLED");
        toolkitsDisabled = 0;
        EXPECT_EQ(initialize("/none", false, {{BUILDER, MISSING}, {MANAGER, c.manager}}),
                  NO_BUILDER_LINE + c.lines + FAILED_LINES);
        EXPECT_EQ(property("NORAK_DC_ENABLED"), "false");
        EXPECT_EQ(toolkitsDisabled, 1);
        EXPECT_EQ(propertyMgr->runtimeDir(), nullptr);
        EXPECT_EQ(intProperty("internal.memory.limit", 60), 60);
    }
    disableToolkitHook = nullptr;
    initialize(nullptr, false, {{BUILDER, MISSING}, {MANAGER, MISSING}});
}

TEST_F(PropertyMgrJvmTest, TakesLinesOfEveryKind) {
    initialize(
        "/some/dir", true,
        {{BUILDER, "amtest/ConfigHelpers$AgreeingBuilder"}, {MANAGER, "amtest/ConfigHelpers$OddLines"}});
    PropertyMgr *manager = propertyMgr;
    EXPECT_STREQ(getenv("AM_TEST_ODD"), "a");
    EXPECT_STREQ(getenv("AM_TEST_FILE"), "/some/dir/dc.env.properties");
    EXPECT_EQ(getenv("AM_TEST_ODD_NULL"), nullptr);
    EXPECT_EQ(manager->getProperty("AM_TEST_ODD"), nullptr) << "the environment's lines are no settings";
    EXPECT_STREQ(manager->getProperty("sys.directory"), "/some/dir");
    EXPECT_EQ(manager->getStringProperty("sys.null", "def"), nullptr);
    EXPECT_EQ(manager->getStringProperty("sys.word", "def"), nullptr);
    EXPECT_STREQ(manager->getProperty("both"), "file");
    EXPECT_STREQ(manager->getStringProperty("refused", "def"), "def");
    EXPECT_STREQ(manager->getProperty("args"), "/some/dir|datacollector*.properties|ZYK");
    EXPECT_EQ(manager->getIntProperty("line.2999", -1), 2999);
}

TEST_F(PropertyMgrJvmTest, AsksForNoFileWithoutADirectory) {
    for (const char *dir : {"", static_cast<const char *>(nullptr)}) {
        renew();
        EXPECT_EQ(initialize(dir, true, {{BUILDER, MISSING}, {MANAGER, "amtest/ConfigHelpers$OddLines"}}),
                  std::string(NO_BUILDER_LINE) + CALLING_LINE + LOADED_LINE);
        EXPECT_EQ(getenv("AM_TEST_FILE"), nullptr);
    }
}

TEST_F(PropertyMgrJvmTest, BuilderNamesTheRuntimeDirectory) {
    const std::string changed =
        "## PropertyMgr::initialize() A RuntimeBuilder helper class has changed the runtime directory name\n"
        "## PropertyMgr::initialize() originally specified parameter=/given, new value "
        "used=/renamed/by/the/builder\n";
    const struct {
        const char *builder;
        const char *runtimeDir;
        std::string line;
    } cases[] = {
        {"amtest/ConfigHelpers$AgreeingBuilder", "/given", ""},
        {"amtest/ConfigHelpers$RenamingBuilder", "/renamed/by/the/builder", changed},
        {"amtest/ConfigHelpers$SilentBuilder", "/norak/runtime/plat.node.server", ""},
        {"amtest/ConfigHelpers$NoMethods", "/norak/runtime/plat.node.server", ""},
        {"amtest/ConfigHelpers$Throwing", "/norak/runtime/plat.node.server", ""},
        {MISSING, "/norak/runtime/plat.node.server", NO_BUILDER_LINE},
    };
    setProperty("norak61.home", "/norak");
    setProperty("appserver.platform", "plat");
    setProperty("am.nodename", "node");
    setProperty("am.appserver", "server");
    for (const auto &c : cases) {
        SCOPED_TRACE(c.builder);
        EXPECT_EQ(initialize("/given", true,
                             {{BUILDER, c.builder}, {MANAGER, "amtest/ConfigHelpers$ThrowingLater"}}),
                  c.line + CALLING_LINE + LOADED_LINE);
        EXPECT_STREQ(propertyMgr->runtimeDir(), c.runtimeDir);
        EXPECT_STREQ(propertyMgr->toolkitDir(), "/norak/toolkit");
    }
}

// The Java half that is shipped, real files, every layer once.
TEST_F(PropertyMgrJvmTest, FilesOverrideSystemPropertiesAndFillTheEnvironment) {
    root.write("dc.env.properties",
               "# for the process\nAM_TEST_FILE = from the file\nam.nodename=file-node\n");
    root.write("datacollector.properties",
               "internal.url.limit=1\nturbo.mem.ulimit=0.9\ninternal.sql.limit=77\n");
    root.write("datacollector_site.properties", "internal.url.limit=2\nlog.statistics=TRUE\n");
    root.write("other.properties", "internal.url.limit=3\n");
    setProperty("internal.memory.limit", "99");
    const std::string printed = initialize(root.path.c_str(), true);
    EXPECT_EQ(printed, std::string(CALLING_LINE) + LOADED_LINE);
    EXPECT_STREQ(getenv("AM_TEST_FILE"), "from the file");
    EXPECT_EQ(stringProperty("AM_TEST_FILE", nullptr), nullptr);
    EXPECT_EQ(longProperty("internal.memory.limit", 60), 99);
    EXPECT_EQ(longProperty("internal.url.limit", 1000), 2);
    EXPECT_EQ(longProperty("internal.sql.limit", 5000), 77);
    EXPECT_FLOAT_EQ(floatProperty("turbo.mem.ulimit", 0.75F), 0.9F);
    EXPECT_TRUE(boolProperty("log.statistics", false));
    EXPECT_EQ(propertyMgr->runtimeDir(), root.path);
    EXPECT_STREQ(propertyMgr->nodeName(), "file-node") << "the file comes before the variables are read";
}

// Beyond ASCII, beyond the basic plane, and bytes that are no characters: native and Java half read and make
// one directory, and texts from its files become the platform's bytes again.
TEST_F(PropertyMgrJvmTest, BothHalvesFindADirectoryOfAnyName) {
    for (const char *name : {"caf\xC3\xA9", "d-\xF0\x9F\x98\x80", "i-\xFF\xC3"}) {
        SCOPED_TRACE(name);
        renew();
        root.write(fs::path("home/etc/datacollector.properties"),
                   "internal.probe.javacoredir=/\xF0\x9F\x98\x80/x\n");
        setProperty("am.home", root.path / "home");
        const fs::path directory = root.path / "new" / name;
        initialize(directory.c_str(), true);
        EXPECT_STREQ(propertyMgr->runtimeDir(), directory.c_str());
        EXPECT_TRUE(fs::exists(directory / "datacollector.properties"));
        EXPECT_STREQ(stringProperty("internal.probe.javacoredir", "absent"), "/\xF0\x9F\x98\x80/x");
    }
    EXPECT_EQ(3, std::distance(fs::directory_iterator(root.path / "new"), {})) << "and no other";
    const GivenArguments given({"-DLGKIT_COMMON_DIR=/first", "-DLGKIT_COMMON_DIR=/\xFF\xF0\x9F\x98\x80"});
    propertyMgr->setGlobalProperties(env);
    EXPECT_STREQ(propertyMgr->lgkitCommonDir(), "/\xFF\xF0\x9F\x98\x80");
}

TEST_F(PropertyMgrJvmTest, FactsFallBackInTheirOrder) {
    PropertyMgr *manager = propertyMgr;
    setProperty("am.home", "/property");
    setenv("am.home", "/variable", 1);
    setenv("am.nodename", "variable-node", 1);
    const GivenArguments given({"-Dam.home=/command", "am.appserver=command-server"});
    manager->setGlobalProperties(env);
    EXPECT_STREQ(manager->homeDir(), "/property");
    EXPECT_STREQ(manager->nodeName(), "variable-node");
    EXPECT_STREQ(manager->appServerName(), "command-server");
    EXPECT_EQ(manager->lgkitCommonDir(), root.path / "common");
    EXPECT_EQ(manager->userHome(), property("user.home"));
    EXPECT_STREQ(manager->profileName(), "");
    EXPECT_EQ(manager->runtimeDir(), nullptr) << "nobody named a product home";
    EXPECT_STREQ(manager->toolkitDir(), "");
}

TEST_F(PropertyMgrJvmTest, FactsHaveDefaultsAndAreCutAtTheirBuffers) {
    const std::string longName(400, 'n');
    setProperty("norak61.home", "/" + longName);
    setProperty("appserver.platform", longName);
    PropertyMgr *manager = propertyMgr;
    manager->setGlobalProperties(env);
    EXPECT_STREQ(manager->homeDir(), "/zykora");
    EXPECT_STREQ(manager->nodeName(), "defaultnode");
    EXPECT_STREQ(manager->appServerName(), "appserver");
    EXPECT_EQ(std::string(manager->norakHome()), "/" + longName.substr(0, 254));
    EXPECT_EQ(std::string(rawPlatform), longName.substr(0, 99));
    EXPECT_EQ(std::string(manager->runtimeDir()), manager->norakHome());
    EXPECT_EQ(std::string(manager->toolkitDir()), "/" + longName.substr(0, 243) + "/toolkit");
}

} // namespace
