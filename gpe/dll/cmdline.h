// The argument vector of the process, the JVM's own options included.
// Filled once on the launching thread, read by all threads afterwards, never freed.
#pragma once

extern char **commandLineArgs;  // null-terminated; null until filled
extern int commandLineArgCount; // without the terminating null

// Fills both. Where the vector cannot be read the result is an empty, null-terminated array.
void getCommandLineArgs();

// The text after `prefix` in the first argument that begins with it and has more text behind it;
// null if there is none. The result points into `commandLineArgs`.
const char *findCommandLineValue(const char *prefix);

// The text of the last "-Dname=", the one that the JVM goes by; null if there is none. Points as above.
const char *findJvmProperty(const char *name);

// True if `word` stands anywhere in the agent's option text. The word is expected first, with a comma behind
// it: that many characters are dropped from the front, wherever it stood, if the text is longer.
bool takeOptionWord(const char *&text, const char *word);
