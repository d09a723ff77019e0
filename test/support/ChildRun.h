// Runs the current test once more in a fresh process: for what a process can do only once, and for what hangs
// on its environment, its command line or its end. The test's body decides by `inChild()` which one it is.
#pragma once

#include <map>
#include <string>
#include <vector>

struct ChildRun {
    std::vector<std::string> arguments;             // behind those of the test framework
    std::map<std::string, std::string> environment; // added to this process's own
    std::string programName;                        // argument 0; empty: as this process
};

struct ChildResult {
    int status; // exit status, or -1 if a signal ended it
    std::string out;
    std::string err; // both without what the test framework writes
};

bool inChild();
ChildResult runInChild(const ChildRun &run);

// For a test that wholly runs in a child: true, with the child's success checked, in this process.
bool leftToChild(const ChildRun &run = {});

// Ends the child at once with the test's result, without the checks for leaks at its end.
[[noreturn]] void endChild();
