#include "JavaPath.h"

#include "PlatformText.h"
#include "jnihelp.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>

namespace {

constexpr size_t MAX_PATH = 1024;
constexpr mode_t NEW_DIRECTORY = 0777; // less the process's own mask

// A JVM that was started in the "C" locale names files in ASCII, and none has names for broken characters.
bool isSpelledByJava(JNIEnv *env, const char *path) {
    if (isAscii(path)) {
        return true;
    }
    char encoding[32];
    getJavaSystemProperty(env, "sun.jnu.encoding", encoding, sizeof(encoding));
    return strcasecmp(encoding, "UTF-8") == 0 && isUtf8(path);
}

// With all directories above it; what fails is seen when it is opened.
void makeDirectory(const char *path) {
    char part[MAX_PATH];
    snprintf(part, sizeof(part), "%s", path);
    for (char *slash = strchr(part + 1, '/'); slash != nullptr; slash = strchr(slash + 1, '/')) {
        *slash = '\0';
        mkdir(part, NEW_DIRECTORY);
        *slash = '/';
    }
    mkdir(part, NEW_DIRECTORY);
}

} // namespace

void pathForJava(JNIEnv *env, const char *path, char *name, size_t room) {
    snprintf(name, room, "%s", path);
    if (isSpelledByJava(env, path) || strlen(path) >= MAX_PATH) {
        return;
    }
    makeDirectory(path);
    const int directory = open(path, O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        snprintf(name, room, "/proc/self/fd/%d", directory);
    }
}
