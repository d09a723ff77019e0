#include "NamedObject.h"

#include "JVMTIUtils.h"
#include "ProbeLgKit.h"

#include <cstdlib>

namespace {
constexpr char OBJECT_LINE[] = "[%.90s (%.90s@%d)] %.90s \n";
} // namespace

NamedObject::NamedObject(const char *className) : name(dupString(className)) {}

NamedObject::~NamedObject() {
    free(name);
}

void NamedObject::info(const char *function, int line, const char *text) const {
    traceInfo(OBJECT_LINE, objectName(), function, line, text);
}

void NamedObject::warn(const char *function, int line, const char *text) const {
    traceWarn(OBJECT_LINE, objectName(), function, line, text);
}

void NamedObject::error(const char *function, int line, const char *text) const {
    traceError(OBJECT_LINE, objectName(), function, line, text);
}
