// The library's own memory operators, hidden from the process. A failed allocation gives null and passes
// through no exception: the runtime's forms throw and catch one, for which there may be no memory either.
// The throwing forms are used nowhere in this library.
#include <cstdlib>
#include <new>

void *operator new(size_t size, const std::nothrow_t &) noexcept {
    return malloc(size != 0 ? size : 1);
}

void *operator new[](size_t size, const std::nothrow_t &) noexcept {
    return malloc(size != 0 ? size : 1);
}

void operator delete(void *block) noexcept {
    free(block);
}

void operator delete[](void *block) noexcept {
    free(block);
}

void operator delete(void *block, size_t) noexcept {
    free(block);
}

void operator delete[](void *block, size_t) noexcept {
    free(block);
}

void operator delete(void *block, const std::nothrow_t &) noexcept {
    free(block);
}

void operator delete[](void *block, const std::nothrow_t &) noexcept {
    free(block);
}
