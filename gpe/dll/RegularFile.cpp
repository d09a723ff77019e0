#include "RegularFile.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char NO_FILE[] = "it is no regular file";
constexpr mode_t NEW_FILE = 0666; // less the process's own mask

void tell(const char **fault, const char *text) {
    if (fault != nullptr) {
        *fault = text;
    }
}

// Null where nothing stands under the name. A pipe without a reader refuses to be opened.
const char *reasonOf(int error) {
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        return nullptr;
    case ENXIO:
        return NO_FILE;
    default:
        return strerror(error);
    }
}

// Takes over the descriptor, -1 included.
FILE *regularStream(int file, const char *mode, long limit, const char **fault) {
    struct stat status {};
    if (file < 0 || fstat(file, &status) != 0) {
        tell(fault, reasonOf(errno));
    } else if (!S_ISREG(status.st_mode)) {
        tell(fault, NO_FILE);
    } else if (status.st_size > limit) {
        tell(fault, "it is too long");
    } else if (*mode == 'w' && ftruncate(file, 0) != 0) {
        tell(fault, strerror(errno));
    } else if (FILE *stream = fdopen(file, mode)) {
        tell(fault, nullptr);
        return stream;
    } else {
        tell(fault, strerror(errno));
    }
    if (file >= 0) {
        close(file);
    }
    return nullptr;
}

constexpr int CAREFUL = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

} // namespace

FILE *openRegularFile(const char *path, const char **fault, long limit) {
    return regularStream(open(path, O_RDONLY | CAREFUL), "r", limit, fault);
}

// Emptied only when it has turned out to be a file.
FILE *createRegularFile(const char *path, const char **fault) {
    return regularStream(open(path, O_WRONLY | O_CREAT | CAREFUL, NEW_FILE), "w", LONG_MAX, fault);
}
