#include "cmdline.h"

#include "RegularFile.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

char **commandLineArgs = nullptr;
int commandLineArgCount = 0;

namespace {

// The whole file as one heap block, terminated by an extra NUL; null if it cannot be read.
char *readWholeFile(const char *path, size_t *length) {
    FILE *file = openRegularFile(path, nullptr);
    if (file == nullptr) {
        return nullptr;
    }
    size_t used = 0;
    size_t room = 4096;
    char *text = static_cast<char *>(malloc(room));
    while (text != nullptr) {
        used += fread(text + used, 1, room - used - 1, file);
        if (used + 1 < room) {
            break;
        }
        room *= 2;
        char *larger = static_cast<char *>(realloc(text, room));
        if (larger == nullptr) {
            free(text);
        }
        text = larger;
    }
    fclose(file);
    if (text != nullptr) {
        text[used] = '\0';
        *length = used;
    }
    return text;
}

int countArguments(const char *text, size_t length) {
    int count = 0;
    for (size_t at = 0; at < length; at += strlen(text + at) + 1) {
        ++count;
    }
    return count;
}

} // namespace

// The pieces stay in the block that was read: neither is ever freed.
void getCommandLineArgs() {
    size_t length = 0;
    char *text = readWholeFile("/proc/self/cmdline", &length);
    const int count = text == nullptr ? 0 : countArguments(text, length);
    char **args = static_cast<char **>(calloc(static_cast<size_t>(count) + 1, sizeof(char *)));
    commandLineArgCount = args == nullptr ? 0 : count;
    for (int i = 0; i < commandLineArgCount; ++i) {
        args[i] = text;
        text += strlen(text) + 1;
    }
    commandLineArgs = args;
}

const char *findCommandLineValue(const char *prefix) {
    const size_t length = strlen(prefix);
    for (int i = 0; i < commandLineArgCount; ++i) {
        if (strncmp(commandLineArgs[i], prefix, length) == 0 && commandLineArgs[i][length] != '\0') {
            return commandLineArgs[i] + length;
        }
    }
    return nullptr;
}

const char *findJvmProperty(const char *name) {
    const size_t length = strlen(name);
    for (int i = commandLineArgCount; i-- > 0;) {
        const char *word = commandLineArgs[i];
        if (strncmp(word, "-D", 2) == 0 && strncmp(word + 2, name, length) == 0 && word[length + 2] == '=') {
            return word + length + 3;
        }
    }
    return nullptr;
}

bool takeOptionWord(const char *&text, const char *word) {
    if (strstr(text, word) == nullptr) {
        return false;
    }
    const size_t skipped = strlen(word) + 1;
    if (strlen(text) > skipped) {
        text += skipped;
    }
    return true;
}
