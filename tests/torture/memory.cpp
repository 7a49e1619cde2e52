// SPDX-License-Identifier: MIT
#include "tests/torture/memory.h"

#include <dlfcn.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

#include "tests/support/failingcalls.h"
#include "tests/torture/plan.h"

// The underlying allocator: the C library's under its second name, or the sanitizer's.
#ifdef KESTROVA_TORTURE_ASAN
#define BEHIND(name) __interceptor_##name
#else
#define BEHIND(name) __libc_##name
#endif
extern "C" {
void* BEHIND(malloc)(std::size_t size);
void* BEHIND(calloc)(std::size_t count, std::size_t size);
void* BEHIND(realloc)(void* memory, std::size_t size);
void* BEHIND(memalign)(std::size_t alignment, std::size_t size);
void BEHIND(free)(void* memory);

#ifdef KESTROVA_TORTURE_ASAN
/// Each run counts its memory itself, and the leak sanitizer would report memory that the dynamic
/// loader keeps. The sanitizer does not notice that a cancelled thread unwinds. With
/// detect_stack_use_after_return its frames are not on the stack, so that the next thread gets no
/// poisoned stack.
const char* __asan_default_options() {
    return "detect_leaks=0:detect_stack_use_after_return=1";
}
#endif
}

namespace torture {

namespace {

struct Piece {
    void* mMemory;
    void* mCaller;
};

constexpr std::size_t kSlots = 1U << 15U;
// Open addressing: a removed block leaves a mark, so that blocks after it are still found.
void* const kGone = reinterpret_cast<void*>(1);
Piece pieces[kSlots];
std::atomic<int> held{0};
std::atomic_flag busy = ATOMIC_FLAG_INIT;

class Lock {
public:
    Lock() {
        while (busy.test_and_set(std::memory_order_acquire)) {
        }
    }
    ~Lock() { busy.clear(std::memory_order_release); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
};

std::size_t firstSlot(const void* memory) {
    return (reinterpret_cast<std::uintptr_t>(memory) >> 4U) * 2654435761U % kSlots;
}

void list(void* memory, void* caller) {
    const Lock lock;
    for (std::size_t slot = firstSlot(memory);; slot = (slot + 1) % kSlots) {
        if (pieces[slot].mMemory == nullptr || pieces[slot].mMemory == kGone) {
            pieces[slot] = {memory, caller};
            ++held;
            return;
        }
    }
}

/// Returns whether the block was listed.
bool strike(const void* memory) {
    if (held == 0 || memory == nullptr) {
        return false;
    }
    const Lock lock;
    for (std::size_t slot = firstSlot(memory); pieces[slot].mMemory != nullptr;
         slot = (slot + 1) % kSlots) {
        if (pieces[slot].mMemory == memory) {
            pieces[slot].mMemory = kGone;
            --held;
            return true;
        }
    }
    return false;
}

void* noteTaken(void* memory, void* caller) {
    if (memory != nullptr && isInside()) {
        list(memory, caller);
    }
    return memory;
}

void* refuse() {
    errno = ENOMEM;
    return nullptr;
}

void* take(std::size_t size, void* caller) {
    return refusesMemory() ? refuse() : noteTaken(BEHIND(malloc)(size), caller);
}

void giveBack(void* memory) {
    if (memory != nullptr) {
        (void)strike(memory);
        BEHIND(free)(memory);
    }
}

void* takeOrThrow(std::size_t size, void* caller) {
    // Like the original: more than half of the address space is never available.
    void* const memory = size <= PTRDIFF_MAX ? take(size != 0 ? size : 1, caller) : nullptr;
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

int piecesHeld() {
    return held;
}

std::string describePieces() {
    const failingcalls::Exempt exempt;
    std::string text;
    for (const Piece& piece : pieces) {
        if (piece.mMemory == nullptr || piece.mMemory == kGone || text.size() > 400) {
            continue;
        }
        Dl_info info = {};
        char line[160];
        (void)::dladdr(piece.mCaller, &info);
        const char* const slash =
            info.dli_fname != nullptr ? std::strrchr(info.dli_fname, '/') : nullptr;
        (void)std::snprintf(line, sizeof(line), " %s+0x%zx", slash != nullptr ? slash + 1 : "?",
                            static_cast<std::size_t>(static_cast<char*>(piece.mCaller) -
                                                     static_cast<char*>(info.dli_fbase)));
        text += line;
    }
    return text;
}

}  // namespace torture

#define CALLER __builtin_return_address(0)

extern "C" {

void* malloc(std::size_t size) noexcept {
    return torture::take(size, CALLER);
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    return torture::refusesMemory() ? torture::refuse()
                                    : torture::noteTaken(BEHIND(calloc)(count, size), CALLER);
}

void* realloc(void* memory, std::size_t size) noexcept {
    if (torture::refusesMemory()) {
        return torture::refuse();
    }
    // Before the call, because another thread may get the address afterwards.
    const bool listed = torture::strike(memory);
    void* const moved = BEHIND(realloc)(memory, size);
    if (listed && moved == nullptr && size != 0) {
        torture::list(memory, CALLER);
    } else if (listed && moved != nullptr) {
        torture::list(moved, CALLER);
    }
    return listed ? moved : torture::noteTaken(moved, CALLER);
}

void* memalign(std::size_t alignment, std::size_t size) noexcept {
    return torture::refusesMemory() ? torture::refuse()
                                    : torture::noteTaken(BEHIND(memalign)(alignment, size), CALLER);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    return memalign(alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) noexcept {
    *memory = memalign(alignment, size);
    return *memory != nullptr ? 0 : ENOMEM;
}

void free(void* memory) noexcept {
    torture::giveBack(memory);
}

}  // extern "C"

void* operator new(std::size_t size) {
    return torture::takeOrThrow(size, CALLER);
}

void* operator new[](std::size_t size) {
    return torture::takeOrThrow(size, CALLER);
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return torture::take(size, CALLER);
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return torture::take(size, CALLER);
}

void operator delete(void* memory) noexcept {
    torture::giveBack(memory);
}

void operator delete[](void* memory) noexcept {
    torture::giveBack(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    torture::giveBack(memory);
}

void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    torture::giveBack(memory);
}

void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
    torture::giveBack(memory);
}

void operator delete[](void* memory, const std::nothrow_t& /*tag*/) noexcept {
    torture::giveBack(memory);
}
