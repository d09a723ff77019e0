// Tokens that tie a request to its continuation in another server: 32 bits, of which the topmost tell this
// collector (its region) and the others count. A file keeps the counter over restarts, ahead of the tokens
// that were given out, so that it is written but once in `gps.cushion` tokens.
#pragma once

#include <cstdint>
#include <jni.h>

// Region and counter, from the region's bits as a text of '0' and '1', the topmost bit first; null is empty.
// Only the first call of the process counts: before it, tokens start at 0 and are not unique.
void setupGpsOnce(JNIEnv *env, jstring regMask);

// The next token, of any thread.
uint32_t getToken();
// Moves the file on if `token` has passed what it covers. What cannot be written is only lost at a restart.
void saveGPSToken(uint32_t token);

// A token as 4 bytes, the most significant first; null when memory is out.
jbyteArray getGpsToken(JNIEnv *env);
