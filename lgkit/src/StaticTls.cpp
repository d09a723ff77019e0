// Puts the library's thread-local words, those of the C++ runtime's exceptions among them, into the static
// block of every thread. Words of the other kind are allocated at a thread's first access, which a failed
// allocation, thrown as an exception, would need just when there is no memory: the process is then ended.

namespace {

thread_local char anchor = 0; // accessed by an offset that only the static block has

__attribute__((used)) char *access() {
    return &anchor;
}

} // namespace
