// Memory of the environment library: calloc/malloc behind a test hook that makes a chosen allocation fail,
// and a count of the blocks handed out and not yet freed.
#include "pxEnv.h"

#include <atomic>
#include <cstdlib>

namespace {

// Allocations left until the armed failure (0: disarmed). The allocation that brings it from 1 to 0 fails.
std::atomic<long> allocationsUntilFailure{0};
std::atomic<long> liveAllocations{0};

// True when the hook says this allocation must fail; consumes one step of an armed countdown.
bool injectedFailure() {
    long left = allocationsUntilFailure.load();
    while (left > 0) {
        if (allocationsUntilFailure.compare_exchange_weak(left, left - 1))
            return left == 1;
    }
    return false;
}

// Common path of both allocators: stores the block (or null) and counts it.
int allocate(void **pointer, size_t size, bool zero) {
    if (!pointer)
        return 0;
    *pointer = nullptr;
    if (injectedFailure())
        return 0;
    const size_t bytes = size ? size : 1;
    void *block = zero ? std::calloc(1, bytes) : std::malloc(bytes);
    if (!block)
        return 0;
    liveAllocations.fetch_add(1);
    *pointer = block;
    return 1;
}

} // namespace

extern "C" {

int pxMallocInitZero(void **pointer, size_t size) {
    return allocate(pointer, size, true);
}

int pxMallocNoInit(void **pointer, size_t size) {
    return allocate(pointer, size, false);
}

int pxMallocFree(void **pointer) {
    if (!pointer || !*pointer)
        return 1;
    std::free(*pointer);
    *pointer = nullptr;
    liveAllocations.fetch_sub(1);
    return 1;
}

void pxEnvFailAllocationAfter(long n) {
    allocationsUntilFailure.store(n > 0 ? n : 0);
}

long pxEnvLiveAllocations(void) {
    return liveAllocations.load();
}

} // extern "C"
