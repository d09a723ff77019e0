// Where native and Java half have to open one and the same directory.
#pragma once

#include <cstddef>
#include <jni.h>

// Writes the name under which Java finds the directory `path`: `path` itself if the JVM's encoding of file
// names can spell it. Else the directory is made if it is missing, and the name is that of a descriptor,
// which stays open for the life of the process. Where that fails, too, `path` again. Cut to `room - 1` bytes.
void pathForJava(JNIEnv *env, const char *path, char *name, size_t room);
