#include "ProbeLgKit.h"

#include "ChildRun.h"
#include "RecordedLog.h"
#include "TempDir.h"
#include "cmdline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <dlfcn.h>
#include <jni.h>
#include <sstream>
#include <sys/stat.h>

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

// Files of one installation; the child finds them by the variable that `child` sets.
class Installation {
public:
    void add(const std::string &directory, const std::string &properties) const {
        files.write(directory + "/zyk-lgkit.properties", properties);
    }
    // A child that finds the toolkit on the library path.
    ChildRun child(std::map<std::string, std::string> environment = {},
                   std::vector<std::string> arguments = {}) const {
        const fs::path libraries = fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "lib";
        environment.insert({{"LD_LIBRARY_PATH", libraries.string()}, {"AM_TEST_ROOT", root.string()}});
        return {std::move(arguments), std::move(environment), ""};
    }
    fs::path logDirectory(const std::string &qualifier) const { return root / "common/ZYK/logs" / qualifier; }

    TempDir files;
    const fs::path root = files.path;
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
        EXPECT_THAT(TempDir::read(logs / "dc-msg.log"), HasSubstr("a message 5"));
        const std::string trace = TempDir::read(logs / "dc-native.log"); // its fileName was empty
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

// What stands in the toolkit's places and cannot be had costs one line, and the start does not wait for it.
TEST(Toolkit, WhatIsMissingOrNoFileIsTold) {
    if (inChild()) {
        openInChild();
        messageInfo(1001, "a message");
        return;
    }
    Installation installation;
    const std::string root = installation.root;
    fs::create_directories(installation.root / "none");
    EXPECT_EQ("## Could not open library libnlsm_64.so, nothing will be logged\n",
              runInChild(installation.child({{"LD_LIBRARY_PATH", root + "/none"}})).out);
    installation.add("toolkit/etc", MESSAGE_LOG + TRACERS + TRACE_LOG);
    for (const char *pipe : {"runtime/zyk-lgkit.properties", "toolkit/msg/C/zykprobeMessages.cat",
                             "common/ZYK/logs/mine/dc-msg.log"}) {
        fs::create_directories((installation.root / pipe).parent_path());
        ASSERT_EQ(0, mkfifo((installation.root / pipe).c_str(), 0600));
    }
    const ChildResult child =
        runInChild(installation.child({{"QUALDIR", "mine"}, {"LC_ALL", "C"}, {"NLSPATH", ""}}));
    EXPECT_EQ("## Cannot read " + root + "/runtime/zyk-lgkit.properties: it is no regular file\n", child.out);
    EXPECT_EQ(0, child.status) << child.err;
    fs::remove(installation.root / "runtime/zyk-lgkit.properties");
    installation.add("runtime", std::string(1000001, '#'));
    EXPECT_EQ("## Cannot read " + root + "/runtime/zyk-lgkit.properties: it is too long\n",
              runInChild(installation.child()).out);
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
    const struct {
        const std::string properties;
        const std::map<std::string, std::string> environment;
        fs::path log;
    } rows[] = {{MESSAGE_LOG + TRACE_LOG, none, "common/ZYK/logs/mine/dc-msg.log"},
                {MESSAGE_LOG + TRACERS + TRACE_LOG, empty, "runtime/ZYK/logs/mine/dc-msg.log"}};
    for (const auto &row : rows) {
        const Installation installation;
        installation.add("runtime", row.properties);
        EXPECT_EQ(0, runInChild(installation.child(row.environment)).status);
        EXPECT_THAT(TempDir::read(installation.root / row.log), HasSubstr("a message"));
        EXPECT_TRUE(fs::is_empty(installation.root / "work"));
    }
}

TEST(Toolkit, FirstFailureFilesFollowTheServer) {
    if (inChild()) {
        openInChild();
        printf("%s|%s", property("handler.ffdc.dc", "baseDir").c_str(),
               property("handler.ffdc.dc", "files").c_str());
        return;
    }
    const Installation installation;
    const std::string zyk = (installation.root / "common/ZYK").string();
    std::string many, first255;
    for (int i = 0; i < 1000; ++i) {
        many += "f,";
        first255 += i < 127 ? "f " : i == 127 ? "f" : "";
    }
    const std::string some = zyk + "/logs/dc-msg.log,,relative.log,/etc/x";
    const std::string placed = zyk + "/logs/node.server/dc-msg.log relative.log /etc/x ";
    const struct {
        std::string properties;
        const char *named; // by the environment
        std::string expected;
        const char *told;
    } cases[] = {
        {".baseDir=own\nhandler.ffdc.dc.files=" + some, nullptr, zyk + "/own/node.server|" + placed, ""},
        {".baseDir=own\nhandler.ffdc.dc.files=" + some, "named", zyk + "/named/node.server|" + placed, ""},
        {".files=,," + many + ",", nullptr, zyk + "/FFDC/node.server|" + first255, ""},
        {".files=,," + many + ",f", nullptr, zyk + "/FFDC/node.server|" + first255,
         "Number of files sepcified exceeds the maximum limit 1000\n"},
    };
    for (const auto &c : cases) {
        installation.add("runtime", MESSAGE_LOG + TRACERS + TRACE_LOG +
                                        "handler.ffdc.dc.type=lgk_ffdchandler\nhandler.ffdc.dc" +
                                        c.properties + "\n");
        std::map<std::string, std::string> environment = {{"QUALDIR", ""}};
        if (c.named != nullptr) {
            environment["LGKIT_FFDC_BASEDIR"] = c.named;
        }
        const ChildResult child = runInChild(installation.child(environment));
        EXPECT_EQ(c.expected, child.out);
        EXPECT_EQ(c.told, child.err);
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
    const struct {
        int given;
        const char *levels;
        bool statistics;
    } cases[] = {{19999, "19999 1000 2000 3000 4000 3000 1000 ", true},
                 {20000, "19999 0 0 0 0 3000 1000 ", false},
                 {21000, "19999 1000 1000 1000 1000 3000 1000 ", true},
                 {22999, "19999 2999 2999 2999 2999 3000 1000 ", true},
                 {23000, "19999 3000 3000 3000 3000 3000 1000 ", false}};
    for (const auto &c : cases) {
        setLevel(c.given);
        EXPECT_EQ(c.levels, levels());
        EXPECT_EQ(c.statistics, getStatisticsEnabled()) << c.given;
    }
}

} // namespace
