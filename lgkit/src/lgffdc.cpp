#include "lgkit/lgffdc.h"

#include "Incident.h"

namespace {

// Null for an empty value too: a handler that names nothing has no list and no directory.
char *nonEmptyProperty(LgkObject *handler, const char *property) {
    char *value = LgkGetObjProp(handler, property, nullptr);
    if (value != nullptr && *value == '\0') {
        LgkMemoryFree(value);
        return nullptr;
    }
    return value;
}

} // namespace

int LgkInitFFDCExtensions(void) {
    LgkSetIncidentFunction(lgffdc::recordIncident);
    return 1;
}

char *LgkFileCopyHandlerGetFiles(LgkObject *handler) {
    return nonEmptyProperty(handler, "files");
}

int LgkFileCopyHandlerSetFiles(LgkObject *handler, const char *list) {
    return LgkSetObjProp(handler, "files", list);
}

char *LgkFFDCTriggerHandlerGetBaseDir(LgkObject *handler) {
    return nonEmptyProperty(handler, "baseDir");
}

int LgkFFDCTriggerHandlerSetBaseDir(LgkObject *handler, const char *directory) {
    return LgkSetObjProp(handler, "baseDir", directory);
}
