#include "support/AllocFailure.h"

#include <gtest/gtest.h>

#include "pxEnv.h"

namespace pxtest {

AllocFailure::AllocFailure(long n) {
    pxEnvFailAllocationAfter(n);
}

AllocFailure::~AllocFailure() {
    pxEnvFailAllocationAfter(0);
}

int forEachAllocationFailure(const std::function<bool()> &call, const std::function<void()> &cleanup) {
    // Count the allocations of a successful call by failing ever later ones until the call succeeds.
    const long before = pxEnvLiveAllocations();
    for (int n = 1; n < 100000; ++n) {
        bool ok;
        {
            AllocFailure fail(n);
            ok = call();
        }
        if (ok) {
            cleanup();
            EXPECT_EQ(before, pxEnvLiveAllocations()) << "leak after success";
            return n - 1;
        }
        EXPECT_EQ(before, pxEnvLiveAllocations()) << "leak when allocation " << n << " failed";
        cleanup();
    }
    ADD_FAILURE() << "call never succeeded";
    return -1;
}

} // namespace pxtest
