// Where the agent is (home, node, server, runtime directory) and how it is configured (typed settings).
// Filled on the VM init thread before other users exist; from then on read by all threads without a lock.
// Owns every string that it hands out: they stay valid after `destroy`, as does the object itself for threads
// that are still reading. It also opens logging, in the midst of its own start, so until then it speaks
// through
// "##" lines on standard output.
#pragma once

#include "NamedObject.h"
#include "Relaxed.h"
#include "ZykHashTable.h"
#include "ZykList.h"
#include "ZykLock.h"

#include <cstdint>
#include <initializer_list>
#include <jni.h>
#include <memory>

class PropertyMgr : public virtual NamedObject {
public:
    PropertyMgr();
    ~PropertyMgr() override;

    // Loads everything and opens logging. `propDir` is the text left of the agent's options, null counts as
    // empty. False if the environment properties could not be loaded or memory is out: the Java half is then
    // switched off.
    bool initialize(JNIEnv *env, const char *propDir);

    // Makes the lock's monitor; always true.
    bool start();

    // Takes the one object out of use: the pointers are null afterwards. Its memory goes when the next object
    // is destroyed, so never in a process that makes only one.
    static void destroy();

    // Settings. A null key counts as absent. A key that exists without a value is not absent: it gives a null
    // string and the number 0; as a boolean or a fraction it is a bad value and gives `def`.
    const char *getProperty(const char *key); // null if absent
    const char *getStringProperty(const char *key, const char *def);
    int32_t getIntProperty(const char *key, int32_t def);  // not a number: 0; held to 32 bits
    int32_t getLongProperty(const char *key, int32_t def); // likewise
    float getFloatProperty(const char *key, float def);    // 0.0 to 1.0, with a point
    bool getBoolProperty(const char *key, bool def);       // true or false in any case

    // The table itself. `putInternalProp` copies both texts and replaces an older value; `val` may be null.
    // False for a null key or when memory is out.
    const char *getInternalProp(const char *key);
    bool putInternalProp(const char *key, const char *val);

    // Reads one "key=value" line, which is cut up on the way. Comments, lines without a key and, unless
    // `nullValsOK`, lines without a value are skipped; a value ends at its first further "=".
    void parseProperty(char *str, bool nullValsOK);

    // Facts; never null but `runtimeDir`, which is null if nobody knows it.
    const char *homeDir() const { return facts.homeDir; }
    const char *norakHome() const { return facts.norakHome; }
    const char *toolkitDir() const { return facts.toolkitDir; }
    const char *runtimeDir() const { return facts.runtimeDir; }
    const char *nodeName() const { return facts.nodeName; }
    const char *appServerName() const { return facts.appServerName; }
    const char *userHome() const { return facts.userHome; }
    const char *lgkitCommonDir() const { return facts.lgkitCommonDir; }
    const char *profileName() const { return facts.profileName; }

    // Fills the facts from `raw*` buffers, environment and defaults. Part of `initialize`.
    void setGlobalProperties(JNIEnv *env);

private:
    using Table = ZykHashTable<const char *, char *>;

    struct Facts {
        char homeDir[256] = "";
        char norakHome[256] = "";
        char toolkitDir[256] = "";
        char *runtimeDir = nullptr;
        char nodeName[256] = "";
        char appServerName[256] = "";
        char userHome[256] = "";
        char lgkitCommonDir[256] = "";
        char profileName[256] = "";
    };

    // Loading from Java: each answers true if the Java half did, whatever it had to say.
    class LineSource;
    void askRuntimeBuilder(JNIEnv *env, char **dir);
    const char *forJava(JNIEnv *env, const char *dir);
    bool loadEnvironmentProperties(JNIEnv *env, const char *dir);
    bool loadEnvProperties(JNIEnv *env, bool nullValsOK);
    bool loadJavaProperties(JNIEnv *env, const char *dir);
    bool loadDataCollectorProperties(JNIEnv *env);
    bool loadProperties(JNIEnv *env, bool nullValsOK);
    bool loadProperties(JNIEnv *env, const char *mask, const char *mgrName, bool nullValsOK);
    bool loadLines(JNIEnv *env, const LineSource &source, std::initializer_list<const char *> arguments,
                   bool nullValsOK);
    void parsePropsFromJavaArray(JNIEnv *env, jobjectArray array, bool nullValsOK);
    void moveSettingsToEnvironment();
    void switchJavaHalfOff(JNIEnv *env);

    // Global properties.
    void readSystemProperties(JNIEnv *env);
    void fillFacts();
    void findRuntimeDir();
    void publishNames() const;
    void printFacts() const;

    bool isWhole() const; // false if memory was out when it was made: it then has no settings and takes none
    static void freeEntries(Table *table);
    // `parse` of the stored text, which may be null, or `def` if the key is absent; traced.
    template <typename T, typename Parse>
    T readTyped(const char *signature, const char *key, T def, Parse parse);

    Facts facts;
    std::unique_ptr<ZykList<char *>> propList; // stays empty, as do the two further tables
    std::unique_ptr<Table> internalProps;      // the settings; keys and values are owned
    std::unique_ptr<Table> table2;
    std::unique_ptr<Table> table3;
    std::unique_ptr<ZykLock> lock; // guards `putInternalProp`
    char propFileBuffer[256] = ""; // the path or directory now being handed to Java
    char nativeDir[1024] = "";     // the directory that `forJava` was last asked for, and its answer
    char javaDir[1024] = "";
};

// The one object, null until up. Both always hold the same value.
extern Relaxed<PropertyMgr *> propertyMgr;
extern Relaxed<PropertyMgr *> propertyMgrInstance;

// The getters for callers that may run with no manager: they then give `def`.
// `stringProperty` gives null only if `def` is null: a key without a value is an empty text otherwise.
int32_t intProperty(const char *key, int32_t def);
int32_t longProperty(const char *key, int32_t def);
bool boolProperty(const char *key, bool def);
float floatProperty(const char *key, float def);
const char *stringProperty(const char *key, const char *def);

// Values as they came from system properties and the command line. `rawHome`, `rawNodeName` and
// `rawAppServer` are filled a second time when the Java half describes the server.
extern char rawHome[1024];
extern char rawNorakHome[1024];
extern char rawPlatform[100];
extern char rawNodeName[1024];
extern char rawAppServer[1024];
extern char rawProfileName[1024];
extern char rawUserHome[1024];
extern char rawExtDirs[2000];
extern char qualDir[1024]; // always empty

// Fills the raw buffers that are still empty from the JVM's command line.
void initCommandLineArgs();

// Cuts white space at both ends, in place. White space is every byte up to the blank and every byte above
// 127, so a value loses non-ASCII characters at its ends. Null gives null.
char *strtrim(char *str);

// A fraction in plain notation ("0.75", ".5"); anything else, a missing point too, gives `def`.
float getFloat(const char *text, float def);
