// Drives allocation failures through the environment library's allocator.
#pragma once

#include <functional>

namespace pxtest {

// Makes the n-th allocation from now fail (1 = the next one) while the object lives.
class AllocFailure {
  public:
    explicit AllocFailure(long n);
    ~AllocFailure();
    AllocFailure(const AllocFailure &) = delete;
    AllocFailure &operator=(const AllocFailure &) = delete;
};

// Runs `call` once for every allocation it makes, making that allocation fail, and checks each time that
// the call reports failure (returns false) and that the live allocation count returns to where it was
// after `cleanup` ran. Returns the number of allocations the successful call made; a test asserts > 0.
// `call` returns true on success; `cleanup` releases whatever a successful call produced.
int forEachAllocationFailure(const std::function<bool()> &call, const std::function<void()> &cleanup);

} // namespace pxtest
