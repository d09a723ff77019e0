// Keeps the monitoring level and its suppress flags in a one-line text file, "am.mod", so that they survive
// a restart: level digit, then the letters "D", "S", "R" for each flag that is set. The base file of the
// installation is only read; the bound file in the server's runtime directory is made from it on first use
// and rewritten at every change. Each operation holds the object's own lock, and goes on without it where
// there is no JVM to lock with. A read or write by `ctx_direct` that fails closes that way until a read with
// CTX_READ or a reset works.
#pragma once

#include "NamedObject.h"
#include "ZykLock.h"

#include <cstdint>
#include <cstdio>

class ProbeContextPersister : public virtual NamedObject {
public:
    enum Direction { CTX_READ = 0, CTX_WRITE = 1, CTX_READ_SYNCH = 2, CTX_RESET = 3 };
    enum Element {
        ctx_api_ProbeLevel = 1, // 1 to 3
        ctx_api_ProbeLevelIsDefault = 2,
        ctx_api_SuppressL3Collection = 3,
        ctx_api_SuppressGCEventCollection = 4
    };

    // Directories of the base file's "etc" and of the bound file; the first form takes them from the
    // `PropertyMgr`. Where one is null or empty its path stays empty, and nothing is read or written there.
    ProbeContextPersister();
    ProbeContextPersister(const char *homeDir, const char *runtimeDir);
    ~ProbeContextPersister() override;

    // The gateway: one of `Direction`; false for any other value and while the way is closed.
    bool ctx_direct(int direction);

    bool ctx_read();  // bound file, else base file and a new bound file; false if neither could be had
    bool ctx_write(); // bound file

    // An element's value, as a flag or as a number; unknown elements give false and 0.
    bool ctx_get(int element) const;
    int32_t ctx_getEnum(int element) const;
    bool ctx_getDefault(int element) const;
    int32_t ctx_getDefaultEnum(int element) const;

    // Change one element and write the bound file; false if that failed, or, with nothing written, for an
    // unknown element and for a level that is out of range. `ctx_set` of the level puts its default back.
    bool ctx_set(int element, bool value);
    bool ctx_setEnum(int element, int32_t value);

    // A new array of the four values, the caller deletes it with delete[]; null when memory is out.
    int32_t *ctx_getElems() const;
    static int32_t ctx_getElemCount() { return elementCount; }

    // The file that the values were last read from, owned by this object; null until a read succeeded.
    const char *getLastReadFilePath() const;

private:
    struct Values {
        int32_t probeLevel = 1;
        bool isDefault = false;
        bool suppressL3 = false;
        bool suppressGC = false;

        int32_t element(int id) const; // 0 for unknown elements
        bool *flag(int id);            // null for the level and for unknown elements
    };

    void initDefaultNames();
    void initFileNames(const char *homeDir, const char *runtimeDir);
    void closeFiles();
    bool ctx_read_bound();
    bool ctx_read_base();
    bool ctx_write_bound();
    bool readFile(FILE *&file, const char *path);
    bool unpackCtxBuffer();
    bool packCtxBuffer();
    void dumpCtxState(const char *locator) const;

    mutable ZykLock lock; // re-entrant: operations use one another
    bool ctxAccessible = false;
    bool readOk = false;
    bool namesOk = false;
    FILE *boundFile = nullptr; // both streams are open only within a call
    FILE *baseFile = nullptr;
    const char *pathSeparator = nullptr;
    const char *defaultNode = nullptr;
    const char *defaultServer = nullptr;
    const char *defaultProfile = nullptr;
    const char *contextDir = nullptr;
    const char *fileName = nullptr;
    char ctxBoundContextFilePath[1024] = "";
    char ctxBaseContextFilePath[1024] = "";
    const char *ctxLastReadFilePath = nullptr; // one of the two paths above
    Values values;
    static constexpr int32_t levelMin = 1;
    static constexpr int32_t levelMax = 3;
    static constexpr char levelDigits[] = "0123456789";
    static constexpr char letterDefault = 'D';
    static constexpr char letterSuppressL3 = 'S';
    static constexpr char letterSuppressGC = 'R';
    static constexpr int32_t elementCount = 4; // also the size of the line read, which thus sees three bytes
    char buffer[5] = "";
    int bufferLength = 0;
};
