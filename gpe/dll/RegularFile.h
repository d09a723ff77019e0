// Opens the files of the configuration. What stands under their names is not always a file: a pipe would keep
// the server waiting for its other end, a device has no end. So nothing is waited for, and only regular files
// are opened. Callable from any thread and before the JVM is up.
#pragma once

#include <cstdio>

// A stream for reading from the start. Null if there is none to be had: `*fault`, which may be a null
// pointer, then says why, and is null where nothing stands under the name. Without bound: the caller limits
// what it reads.
FILE *openRegularFile(const char *path, const char **fault);

// A stream for writing an empty file, which is made if it is missing. Null, with `*fault` as above, if that
// fails.
FILE *createRegularFile(const char *path, const char **fault);
