// What the toolkit needs to throw and catch an exception while memory is out: the runtime ends the process if
// it finds no room for an exception object, so these have a reserve that nothing else takes from.
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): the linker gives these names

extern "C" {
void *__real_malloc(size_t size) noexcept;
void __real_free(void *block) noexcept;
void *__wrap_malloc(size_t size) noexcept;
void __wrap_free(void *block) noexcept;
}

namespace {

constexpr size_t blockBytes = 512;
constexpr size_t blockCount = 128; // exceptions under way at once

struct Block {
    alignas(std::max_align_t) char bytes[blockBytes];
};

Block reserve[blockCount];
std::atomic<bool> taken[blockCount];

void *takeBlock(size_t size) {
    for (size_t i = 0; size <= blockBytes && i < blockCount; ++i) {
        if (!taken[i].exchange(true, std::memory_order_acquire)) {
            return &reserve[i];
        }
    }
    return nullptr;
}

} // namespace

// The linker leads every `malloc` and `free` of the library and of the runtime inside it here.
void *__wrap_malloc(size_t size) noexcept {
    void *block = __real_malloc(size);
    return block != nullptr ? block : takeBlock(size);
}

void __wrap_free(void *block) noexcept {
    auto *own = static_cast<Block *>(block);
    if (own >= reserve && own < reserve + blockCount) {
        taken[own - reserve].store(false, std::memory_order_release);
    } else {
        __real_free(block);
    }
}

// Everything else goes past the reserve.
void *operator new(size_t size) {
    if (void *block = __real_malloc(size != 0 ? size : 1)) {
        return block;
    }
    throw std::bad_alloc();
}

void *operator new[](size_t size) {
    return operator new(size);
}

void operator delete(void *block) noexcept {
    __real_free(block);
}

void operator delete[](void *block) noexcept {
    __real_free(block);
}

void operator delete(void *block, size_t) noexcept {
    __real_free(block);
}

void operator delete[](void *block, size_t) noexcept {
    __real_free(block);
}

// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
