#include "ProbeLgKit.h"

#include "ChildRun.h"
#include "RecordedLog.h"
#include "cmdline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <jni.h>
#include <sstream>

extern "C" JNIEXPORT void JNICALL
Java_com_zykora_probe_log_ProbeLogger_setNativeProbeLoggingLevel(JNIEnv *, jclass, jint level);

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace fs = std::filesystem;

namespace {

// ---------------------------------------------------------------- the calls

int evaluations = 0;
int evaluated(int value) {
    ++evaluations;
    return value;
}

void tracedFunction(bool early) {
    AM_TRACE_SCOPE(eaTracer, LGK_DEBUG_MIN, "tracedFunction( bool early )");
    if (early) {
        return;
    }
    AM_TRACE(eaTracer, LGK_DEBUG_MAX, "tracedFunction( bool early )", "value %d", evaluated(5));
}

TEST(LogCalls, AreSilentBeforeTheToolkitIsOpen) {
    evaluations = 0;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    tracedFunction(false);
    messageInfo(1081, "text %s", static_cast<const char *>(nullptr));
    messageFatal(1002, "text");
    traceInfo("text");
    setLogLevel(msgLogger, 1000);
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    EXPECT_EQ(0, evaluations);
    EXPECT_EQ(0, messageSet());
    EXPECT_STREQ("", catalogName());
}

TEST(LogCalls, PlainLinesAreCutAndPrintedBeforeTheOpen) {
    testing::internal::CaptureStdout();
    traceText(std::string(600, 'x').c_str());
    EXPECT_EQ(std::string(499, 'x'), testing::internal::GetCapturedStdout());
    testing::internal::CaptureStdout();
    traceFormat("%d%%|%s", 7, std::string(5000, 'y').c_str());
    EXPECT_EQ("7%|" + std::string(496, 'y'), testing::internal::GetCapturedStdout());
    const RecordedLog log;
    traceFormat("a %d\n", 1);
    EXPECT_THAT(log.texts(), ElementsAre("a 1\n"));
}

TEST(LogCalls, PassTheGateOfTheirModule) {
    evaluations = 0;
    {
        const RecordedLog log(LGK_DEBUG_MIN);
        tracedFunction(true);
        tracedFunction(false);
        EXPECT_THAT(log.texts(), ElementsAre("entry", "exit", "entry", "exit"));
        EXPECT_EQ(0, evaluations);
    }
    const RecordedLog log(LGK_DEBUG_MAX);
    tracedFunction(false);
    EXPECT_THAT(log.texts(), ElementsAre("entry", "value 5", "exit"));
    EXPECT_EQ(LGK_DEBUG_MIN, log.lines()[0].level);
    EXPECT_EQ(LGK_DEBUG_MAX, log.lines()[1].level);
    eaTracer = nullptr; // the sink alone is not enough
    tracedFunction(false);
    EXPECT_EQ(3U, log.lines().size());
}

// ---------------------------------------------------------------- the toolkit itself

const std::string MESSAGE_LOG =
    "logger.dc.msg.level=4000\nlogger.dc.msg.handlers=handler.file.dc.msg\n"
    "handler.file.dc.msg.type=lgk_filehandler\nhandler.file.dc.msg.fileName=dc-msg.log\n";
const std::string TRACE_LOG = "logger.dc.trace.level=6000\nlogger.dc.trace.handlers=handler.file.dc.trace\n"
                              "handler.file.dc.trace.type=lgk_filehandler\nhandler.file.dc.trace.fileName=\n";
const std::string TRACERS = "logger.dc.na.trace.level=1000\nlogger.dc.ea.trace.level=2000\n"
                            "logger.dc.ca.trace.level=3000\nlogger.dc.cc.trace.level=4000\n"
                            "logger.dc.gc.trace.level=3000\n";

std::string contentOf(const fs::path &file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

// Files of one installation; the child finds them by the variable that `child` sets.
class Installation {
public:
    Installation() {
        std::string name = (fs::temp_directory_path() / "am-lgkit-XXXXXX").string();
        root = mkdtemp(name.data());
    }
    ~Installation() { fs::remove_all(root); }

    void add(const std::string &directory, const std::string &properties) const {
        fs::create_directories(root / directory);
        std::ofstream(root / directory / "zyk-lgkit.properties") << properties;
    }
    // A child that finds the toolkit on the library path.
    ChildRun child(std::map<std::string, std::string> environment = {},
                   std::vector<std::string> arguments = {}) const {
        const fs::path libraries = fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "lib";
        environment.insert({{"LD_LIBRARY_PATH", libraries.string()}, {"AM_TEST_ROOT", root.string()}});
        return {std::move(arguments), std::move(environment), ""};
    }
    fs::path logDirectory(const std::string &qualifier) const { return root / "common/ZYK/logs" / qualifier; }

    fs::path root;
};

void openInChild(const char *node = "node", const char *server = "server") {
    const std::string root = getenv("AM_TEST_ROOT");
    const std::string runtime = root + "/runtime", toolkit = root + "/toolkit", home = root + "/home";
    const std::string common = root + "/common";
    const bool fromEnvironment = getenv("LGKIT_COMMON_DIR") != nullptr;
    getCommandLineArgs();
    openLgKit({runtime.c_str(), toolkit.c_str(), home.c_str(), node, server,
               fromEnvironment ? nullptr : common.c_str()});
}

std::string property(const char *object, const char *name) {
    void *library = dlopen("liblgkit_64.so", RTLD_NOW);
    const auto getObject =
        reinterpret_cast<LgkObject *(*)(const char *, const char *)>(dlsym(library, "LgkGetObject"));
    const auto getProperty =
        reinterpret_cast<char *(*)(LgkObject *, const char *, int *)>(dlsym(library, "LgkGetObjProp"));
    char *value = getProperty(getObject(object, nullptr), name, nullptr);
    const std::string result = value != nullptr ? value : "(none)";
    free(value);
    return result;
}

TEST(Toolkit, WritesBelowTheCommonDirectoryOfTheServer) {
    if (inChild()) {
        openInChild();
        openLgKit({"", "", "", "", "", ""}); // a second time is nothing
        printf("%s %d %s %s", logQualifier(), messageSet(), catalogName(), getenv("NLSPATH"));
        messageInfo(1001, "a message %d", 5);
        AM_TRACE(naTracer, LGK_DEBUG_MAX, "f()", "traced %s", "finely");
        AM_TRACE(eaTracer, LGK_DEBUG_MAX, "f()", "not let through");
        traceText("plain line\n");
        return;
    }
    struct Case {
        std::map<std::string, std::string> environment;
        std::vector<std::string> arguments;
        std::string qualifier, nlsBefore, catalog;
    };
    const Case cases[] = {
        {{{"QUALDIR", ""}, {"NLSPATH", "/old/%N"}}, {}, "node.server", "/old/%N;", "zykprobeMessages"},
        {{{"QUALDIR", "mine"}, {"PROBE_CATALOG_NAME", "other"}, {"NLSPATH", ""}}, {}, "mine", ";", "other"},
        {{{"QUALDIR", "mine"}, {"NLSPATH", ""}},
         {"-Doracle.ons.indexid=", "-Doracle.ons.indexid=7", "-Doracle.ons.indexid=8"},
         "mine.7",
         ";",
         "zykprobeMessages"},
    };
    for (const Case &c : cases) {
        const Installation installation;
        installation.add("runtime", MESSAGE_LOG + TRACERS + TRACE_LOG);
        const ChildResult child = runInChild(installation.child(c.environment, c.arguments));
        const std::string own = (installation.root / "toolkit/msg/%L/%N.cat").string();
        EXPECT_EQ(0, child.status) << child.out << child.err;
        EXPECT_EQ(c.qualifier + " 1 " + c.catalog + " " + c.nlsBefore + own, child.out);
        EXPECT_EQ("", child.err);
        const fs::path logs = installation.logDirectory(c.qualifier);
        EXPECT_THAT(contentOf(logs / "dc-msg.log"), HasSubstr("a message 5"));
        const std::string trace = contentOf(logs / "dc-native.log"); // its fileName was empty
        EXPECT_THAT(trace, HasSubstr("traced finely"));
        EXPECT_THAT(trace, HasSubstr("plain line"));
        EXPECT_THAT(trace, testing::Not(HasSubstr("not let through")));
    }
}

// Names at their limits: everything is cut to what fits, nothing is written beyond.
TEST(Toolkit, LongNamesAreCut) {
    const std::string longName(254, 'n');
    if (inChild()) {
        openInChild(longName.c_str(), longName.c_str());
        printf("%s", logQualifier());
        EXPECT_EQ(255U, property("handler.file.dc.msg", "fileName").size());
        return;
    }
    const Installation installation;
    installation.add("runtime", MESSAGE_LOG + TRACERS + TRACE_LOG);
    const ChildResult child = runInChild(installation.child({{"QUALDIR", ""}}));
    EXPECT_EQ(0, child.status) << child.out << child.err;
    EXPECT_EQ(longName + ".", child.out);
    ChildRun withInstance = installation.child({{"QUALDIR", longName}}, {"-Doracle.ons.indexid=77"});
    EXPECT_EQ(longName + ".", runInChild(withInstance).out);
}

TEST(Toolkit, LooksForItsPropertyFileInThreePlaces) {
    if (inChild()) {
        openInChild();
        printf("%s %d", msgLogger != nullptr ? "open" : "closed", messageSet());
        messageInfo(1001, "harmless");
        return;
    }
    const Installation installation;
    const std::string toolkitFile = (installation.root / "toolkit/etc/zyk-lgkit.properties").string();
    const std::string homeFile = (installation.root / "home/etc/zyk-lgkit.properties").string();
    const std::string warning = "WARN: Could not open Toolkit. please check if lgkit property file " +
                                toolkitFile + " exists. Trying " + homeFile + " \n";
    const std::string error =
        "ERROR: Could not open Toolkit. please check if lgkit property file " + homeFile + " exists. \n";
    const std::string properties = MESSAGE_LOG + TRACERS + TRACE_LOG;
    EXPECT_EQ(warning + error + "closed 1", runInChild(installation.child()).out);
    installation.add("home/etc", properties);
    EXPECT_EQ(warning + "open 1", runInChild(installation.child()).out);
    installation.add("toolkit/etc", properties);
    EXPECT_EQ("open 1", runInChild(installation.child()).out);
    fs::remove_all(installation.root / "toolkit");
    installation.add("runtime", properties);
    EXPECT_EQ("open 1", runInChild(installation.child()).out);
}

// The first object that is missing ends the opening; what came before stays usable.
TEST(Toolkit, MissingObjects) {
    if (inChild()) {
        openInChild();
        for (LgkObject *object : {msgLogger.get(), naTracer.get(), eaTracer.get(), caTracer.get(),
                                  ccTracer.get(), gcTracer.get(), traceLogger.get()}) {
            printf("%d", object != nullptr);
        }
        messageInfo(1001, "harmless");
        AM_TRACE(naTracer, LGK_INFO, "f()", "harmless");
        AM_TRACE(ccTracer, LGK_INFO, "f()", "harmless");
        return;
    }
    struct Case {
        std::string missing, expected;
    };
    const Case cases[] = {
        {"logger.dc.msg", "ERROR: Could not initialize logger 'DC_LOGGER'\n0000000"},
        {"logger.dc.na.trace", "ERROR: Could not initialize tracer 'DC_NA_TRACER'\n1000000"},
        {"logger.dc.ea.trace", "ERROR: Could not initialize tracer 'DC_EA_TRACER'\n1100000"},
        {"logger.dc.ca.trace", "ERROR: Could not initialize tracer 'DC_CA_TRACER'\n1110000"},
        {"logger.dc.cc.trace", "ERROR: Could not get the level of DC_CC_TRACER .\n1111011"}, // goes unnoticed
        {"logger.dc.gc.trace", "ERROR: Could not initialize tracer 'DC_GC_TRACER'\n1111100"},
        {"logger.dc.trace", "ERROR: Could not initialize tracer 'DC_TRACER'\n1111110"},
        {"nothing", "1111111"},
    };
    for (const Case &c : cases) {
        const Installation installation;
        std::istringstream all(MESSAGE_LOG + TRACERS + TRACE_LOG);
        std::string properties;
        for (std::string line; std::getline(all, line);) {
            if (line.rfind(c.missing + ".", 0) != 0) {
                properties += line + "\n";
            }
        }
        installation.add("runtime", properties);
        const ChildResult child = runInChild(installation.child());
        EXPECT_EQ(0, child.status) << c.missing << child.err;
        EXPECT_EQ(c.expected, child.out) << c.missing;
    }
}

// What is still there when an object is missing writes where it belongs; so does what has no directory named.
TEST(Toolkit, NeverWritesIntoTheWorkingDirectory) {
    if (inChild()) {
        fs::create_directory(fs::path(getenv("AM_TEST_ROOT")) / "work");
        fs::current_path(fs::path(getenv("AM_TEST_ROOT")) / "work");
        openInChild();
        messageInfo(1001, "a message");
        return;
    }
    const std::map<std::string, std::string> none = {{"QUALDIR", "mine"}};
    const std::map<std::string, std::string> empty = {{"QUALDIR", "mine"}, {"LGKIT_COMMON_DIR", ""}};
    const fs::path byDefault = "work/C:/Program Files/qel/morvex/common/ZYK/logs/mine/dc-msg.log";
    const struct {
        const std::string properties;
        const std::map<std::string, std::string> environment;
        fs::path log;
    } rows[] = {{MESSAGE_LOG + TRACE_LOG, none, "common/ZYK/logs/mine/dc-msg.log"},
                {MESSAGE_LOG + TRACERS + TRACE_LOG, empty, byDefault}};
    for (const auto &row : rows) {
        const Installation installation;
        installation.add("runtime", row.properties);
        EXPECT_EQ(0, runInChild(installation.child(row.environment)).status);
        EXPECT_THAT(contentOf(installation.root / row.log), HasSubstr("a message"));
        EXPECT_FALSE(fs::exists(installation.root / "work/dc-msg.log"));
    }
}

// Without any, or with a part of, the three libraries logging is silent; beside the program they are found.
TEST(Toolkit, IsBoundBesideTheProgramOrNotAtAll) {
    if (inChild()) {
        openInChild();
        messageError(1002, "harmless");
        AM_TRACE(ccTracer, LGK_ERROR, "f()", "harmless");
        printf("%s", msgLogger != nullptr ? "open" : "closed");
        return;
    }
    const Installation installation;
    installation.add("runtime", MESSAGE_LOG + TRACERS + TRACE_LOG);
    ChildRun run = installation.child();
    const fs::path libraries = run.environment["LD_LIBRARY_PATH"];
    run.environment["LD_LIBRARY_PATH"] = "";
    run.programName = (installation.root / "beside").string();
    for (const char *library : {"libnlsm_64.so", "liblgkit_64.so", "liblgffdc_64.so"}) {
        const ChildResult child = runInChild(run);
        EXPECT_EQ("closed", child.out);
        EXPECT_EQ("", child.err);
        fs::create_symlink(libraries / library, installation.root / library);
    }
    EXPECT_EQ("open", runInChild(run).out);
}

TEST(Toolkit, FirstFailureFilesFollowTheServer) {
    if (inChild()) {
        openInChild();
        printf("%s|%s", property("handler.ffdc.dc", "baseDir").c_str(),
               property("handler.ffdc.dc", "files").c_str());
        return;
    }
    const std::string handler = "handler.ffdc.dc.type=lgk_ffdchandler\n";
    std::string justEnough;
    for (int i = 0; i < 1000; ++i) {
        justEnough += "f,";
    }
    for (const bool named : {false, true}) {
        const Installation installation;
        const std::string zyk = (installation.root / "common/ZYK").string();
        const std::string qualified = zyk + "/logs/node.server/dc-msg.log";
        const std::string properties = MESSAGE_LOG + TRACERS + TRACE_LOG + handler;
        const std::map<std::string, std::string> base = {{"QUALDIR", ""}};
        installation.add("runtime", properties + "handler.ffdc.dc.baseDir=own\nhandler.ffdc.dc.files=" + zyk +
                                        "/logs/dc-msg.log,,relative.log,/etc/x\n");
        std::map<std::string, std::string> environment = base;
        if (named) {
            environment["LGKIT_FFDC_BASEDIR"] = "named";
        }
        const ChildResult child = runInChild(installation.child(environment));
        EXPECT_EQ(zyk + (named ? "/named" : "/own") + "/node.server|" + qualified + " relative.log /etc/x ",
                  child.out);
        EXPECT_EQ("", child.err);

        std::string first255;
        while (first255.size() < 255) {
            first255 += first255.size() % 2 == 0 ? 'f' : ' ';
        }
        for (const bool tooMany : {false, true}) {
            installation.add("runtime", properties + "handler.ffdc.dc.files=,," + justEnough +
                                            (tooMany ? ",f" : ",") + "\n");
            const ChildResult cut = runInChild(installation.child(base));
            EXPECT_EQ(tooMany ? "Number of files sepcified exceeds the maximum limit 1000\n" : "", cut.err);
            EXPECT_EQ(zyk + "/FFDC/node.server|" + first255, cut.out);
        }
    }
}

TEST(Toolkit, LevelsChangeWhileItRuns) {
    const Installation installation;
    installation.add("runtime", MESSAGE_LOG + TRACERS + TRACE_LOG);
    if (leftToChild(installation.child())) {
        return;
    }
    const auto setLevel = [](int level) {
        Java_com_zykora_probe_log_ProbeLogger_setNativeProbeLoggingLevel(nullptr, nullptr, level);
    };
    const auto levels = [] {
        std::string text;
        for (const char *name :
             {"msg", "na.trace", "ea.trace", "ca.trace", "cc.trace", "gc.trace", "trace"}) {
            text += property((std::string("logger.dc.") + name).c_str(), "level") + " ";
        }
        return text;
    };
    setLevel(21000); // before the open: nothing to set but the statistics
    EXPECT_TRUE(getStatisticsEnabled());
    openInChild();
    EXPECT_EQ("4000 1000 2000 3000 4000 3000 1000 ", levels());
    setLevel(19999);
    EXPECT_EQ("19999 1000 2000 3000 4000 3000 1000 ", levels());
    EXPECT_TRUE(getStatisticsEnabled());
    struct Case {
        int given;
        const char *tracers;
        bool statistics;
    };
    const Case cases[] = {{20000, "0 0 0 0 ", false},
                          {21000, "1000 1000 1000 1000 ", true},
                          {22999, "2999 2999 2999 2999 ", true},
                          {23000, "3000 3000 3000 3000 ", false}};
    for (const Case &c : cases) {
        setLevel(c.given);
        EXPECT_EQ(std::string("19999 ") + c.tracers + "3000 1000 ", levels());
        EXPECT_EQ(c.statistics, getStatisticsEnabled()) << c.given;
    }
}

} // namespace
