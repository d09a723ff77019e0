// The registry of classes and their methods: what a receiver needs to turn ids into names, and which classes
// are traced at all. A record is filled by one thread before others see it. The table holds the records that
// are registered, and every event the one that it tells of: the last of them to let go deletes it.
#pragma once

#include <atomic>
#include <cstdint>

struct jclass_t;

struct jmethod_t {
    jmethod_t() = default;
    ~jmethod_t();
    jmethod_t(const jmethod_t &) = delete;
    jmethod_t &operator=(const jmethod_t &) = delete;

    char *name = nullptr;      // owned
    char *signature = nullptr; // owned; empty where none was given
    uint32_t id = 0;           // given by the Java side; the key of the method table
    jclass_t *cls = nullptr;   // not owned
    jmethod_t *next = nullptr; // in a chain of the method table
    int32_t state = -1;        // 0 once filled
};

struct jclass_t {
    jclass_t() = default;
    jclass_t(const jclass_t &) = delete;
    jclass_t &operator=(const jclass_t &) = delete;

    // Puts the methods, then the class into the tables, which hold it from then on.
    void doRegister();
    void unregister();

    // A new one is held by its maker.
    void hold() { holders.fetch_add(1, std::memory_order_relaxed); }
    // Null is accepted. The last one deletes it; if it still stands in the tables, it leaves them.
    static void release(jclass_t *cls);

    uint32_t id = 0;
    char *name = nullptr; // owned, in slash form
    uint32_t sequence = 0;
    int32_t deleteWithEvent = 0; // set: its event takes the table's place as its holder
    int32_t filtered = 0;        // what the class filter says of `name`
    int32_t state = 0;           // -1 once it is being destroyed
    int32_t methodCount = 0;
    jmethod_t *methods = nullptr; // owned, `methodCount` long
    jclass_t *next = nullptr;     // in the class table
    bool registered = false;      // the class stands in the tables

private:
    ~jclass_t();
    void addToClassTable();
    void removeFromClassTable();
    void unRegisterMethods();

    std::atomic<int32_t> holders{1};
};

// Make the locks, once; nothing is registered before. False when memory is out.
bool initMethodLocks();
bool initClassTableLock();
bool initClassSequenceLock();
// Buckets of the method table, which is made by the first registration; 0 and what is out of range give
// 55511.
void setMethodHashSize(int32_t size);

// Null gives null. The class that was registered first, of those there are, is never found. The record may go
// with its unload; who wants to keep it takes it.
jclass_t *getClassForName(const char *class_name);
// The same, held by the caller in the place of the tables, once; null for a class that was taken before.
jclass_t *takeClassForUnload(const char *class_name);

// The first one is 1, and no two are the same until the next reset.
uint32_t getNextClassSequence();
void resetClassSequence();

// Whether a class, in slash form, is traced: 0 yes, 1 no, 2 always. Null gives 0.
int isClassFiltered(const char *name);
// Asks again for every class in the table.
void reapplyFilter();
// Replaces both lists: null-terminated arrays of texts, from malloc, owned from now on; null is empty. Of an
// entry all characters but the last are compared with the beginning of a name.
void replaceClassFilter(char **include, char **exclude);

// In place; null gives null.
char *dotToSlash(char *buffer);
char *slashToDot(char *buffer);
