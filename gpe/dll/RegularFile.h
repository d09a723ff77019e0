// Opens the files of the configuration. What stands under their names is not always a file: a pipe would keep
// the server waiting for its other end, a device has no end. So nothing is waited for, and only regular files
// are opened. Callable from any thread and before the JVM is up.
#pragma once

#include <cstdio>

constexpr long MAX_CONFIGURATION_BYTES = 1 << 20;

// A stream for reading from the start. Null if there is none to be had: `*fault`, which may be a null
// pointer, then says why, and is null where nothing stands under the name. A file of more than `limit` bytes
// is refused; one that still grows is the reader's business.
FILE *openRegularFile(const char *path, const char **fault, long limit = MAX_CONFIGURATION_BYTES);

// A stream for writing an empty file, which is made if it is missing. Null, with `*fault` as above, if that
// fails.
FILE *createRegularFile(const char *path, const char **fault);
