// Descriptions of loaded classes and their methods, as the receiver needs them to turn ids into names.
// A record is filled by one thread before others see it; whoever holds it as its own deletes it.
#pragma once

#include <cstdint>
#include <cstdlib>

struct jclass_t;

struct jmethod_t {
    jmethod_t() = default;
    ~jmethod_t() {
        free(name);
        free(signature);
    }
    jmethod_t(const jmethod_t &) = delete;
    jmethod_t &operator=(const jmethod_t &) = delete;

    char *name = nullptr;      // owned
    char *signature = nullptr; // owned; empty where none was given
    uint32_t id = 0;           // given by the Java side
    jclass_t *cls = nullptr;   // not owned
    jmethod_t *next = nullptr; // in a chain of the method table
    int32_t state = -1;        // 0 once filled
};

struct jclass_t {
    jclass_t() = default;
    ~jclass_t() {
        free(name);
        delete[] methods;
    }
    jclass_t(const jclass_t &) = delete;
    jclass_t &operator=(const jclass_t &) = delete;

    uint32_t id = 0;
    char *name = nullptr; // owned, in slash form
    uint32_t sequence = 0;
    int32_t deleteWithEvent = 0; // set: the event that carries this record deletes it
    int32_t filtered = 0;        // what the class filter says of `name`
    int32_t state = 0;
    int32_t methodCount = 0;
    jmethod_t *methods = nullptr; // owned, `methodCount` long
    jclass_t *next = nullptr;     // in the class table
    bool registered = false;      // the class stands in the tables
};
