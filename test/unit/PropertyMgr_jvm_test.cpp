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

// A fresh manager in a JVM whose system properties, command line and environment say nothing about us.
class PropertyMgrJvmTest : public testing::Test {
protected:
    PropertyMgrJvmTest() : env(RealJvm::env()), oldFacts(serverFacts) {
        for (const char *name : PROPERTIES) {
            clearProperty(name);
        }
        setProperty("LGKIT_COMMON_DIR", root.path / "common");
        new PropertyMgr;
    }

    ~PropertyMgrJvmTest() override {
        EXPECT_FALSE(env->ExceptionCheck());
        PropertyMgr::destroy();
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

    // Without what it prints.
    void initialize(const char *dir, std::map<std::string, std::string> names = {}) {
        const RenamedClasses renamed(env, std::move(names));
        testing::internal::CaptureStdout();
        EXPECT_TRUE(propertyMgr->initialize(env, dir));
        testing::internal::GetCapturedStdout();
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

TEST_F(PropertyMgrJvmTest, TakesLinesOfEveryKind) {
    initialize("/some/dir", {{BUILDER, "amtest/ConfigHelpers$AgreeingBuilder"},
                             {MANAGER, "amtest/ConfigHelpers$OddLines"}});
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

TEST_F(PropertyMgrJvmTest, AsksForNoFileAndMakesNoDirectoryWithoutAName) {
    for (const char *dir : {"", static_cast<const char *>(nullptr)}) {
        renew();
        initialize(dir, {{BUILDER, MISSING}, {MANAGER, "amtest/ConfigHelpers$OddLines"}});
        EXPECT_EQ(getenv("AM_TEST_FILE"), nullptr);
    }
}

// Whatever the builder does: the directory has the name that the facts give it.
TEST_F(PropertyMgrJvmTest, FactsNameTheRuntimeDirectoryWithoutABuilder) {
    setProperty("norak61.home", "/norak");
    setProperty("appserver.platform", "plat");
    setProperty("am.nodename", "node");
    setProperty("am.appserver", "server");
    for (const char *builder : {"SilentBuilder", "NoMethods", "Throwing"}) {
        initialize("/given", {{BUILDER, std::string("amtest/ConfigHelpers$") + builder},
                              {MANAGER, "amtest/ConfigHelpers$ThrowingLater"}});
        EXPECT_STREQ(propertyMgr->runtimeDir(), "/norak/runtime/plat.node.server") << builder;
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
    initialize(root.path.c_str());
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

TEST_F(PropertyMgrJvmTest, FactsFallBackInTheirOrder) {
    PropertyMgr *manager = propertyMgr;
    setProperty("am.home", "/property");
    setenv("am.home", "/variable", 1);
    setenv("am.nodename", "variable-node", 1);
    const GivenArguments given({"-Dam.home=/command", "-Dam.appserver=", "am.appserver=command-server",
                                "-Dam.appserver=second", "-D-Dam.ext.dirs=/x",
                                "-Dappserver.platform=" + std::string(500, 'p')});
    manager->setGlobalProperties(env);
    EXPECT_STREQ(manager->homeDir(), "/property");
    EXPECT_STREQ(manager->nodeName(), "variable-node");
    EXPECT_STREQ(manager->appServerName(), "command-server");
    EXPECT_STREQ(rawExtDirs, "");
    EXPECT_EQ(std::string(rawPlatform), std::string(99, 'p'));
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
