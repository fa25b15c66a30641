// Memory of the environment library: allocators, the allocation-failure hook and the live-block count.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "pxEnv.h"
#include "support/AllocFailure.h"

namespace {

TEST(PxEnvMemory, InitZeroAllocatesZeroFilledBlock) {
    const long before = pxEnvLiveAllocations();
    void *block = nullptr;
    ASSERT_EQ(1, pxMallocInitZero(&block, 1000));
    ASSERT_NE(nullptr, block);
    EXPECT_EQ(before + 1, pxEnvLiveAllocations());
    const unsigned char *bytes = static_cast<const unsigned char *>(block);
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(0, bytes[i]) << i;
    EXPECT_EQ(1, pxMallocFree(&block));
    EXPECT_EQ(nullptr, block);
    EXPECT_EQ(before, pxEnvLiveAllocations());
}

TEST(PxEnvMemory, NoInitAllocatesWritableBlock) {
    const long before = pxEnvLiveAllocations();
    void *block = nullptr;
    ASSERT_EQ(1, pxMallocNoInit(&block, 64));
    ASSERT_NE(nullptr, block);
    std::memset(block, 0xAB, 64);
    EXPECT_EQ(before + 1, pxEnvLiveAllocations());
    pxMallocFree(&block);
    EXPECT_EQ(before, pxEnvLiveAllocations());
}

TEST(PxEnvMemory, ZeroBytesGiveAMinimalBlock) {
    void *a = nullptr;
    void *b = nullptr;
    ASSERT_EQ(1, pxMallocInitZero(&a, 0));
    ASSERT_EQ(1, pxMallocNoInit(&b, 0));
    EXPECT_NE(nullptr, a);
    EXPECT_NE(nullptr, b);
    pxMallocFree(&a);
    pxMallocFree(&b);
}

TEST(PxEnvMemory, FreeOfNullIsFine) {
    const long before = pxEnvLiveAllocations();
    void *none = nullptr;
    EXPECT_EQ(1, pxMallocFree(&none));
    EXPECT_EQ(1, pxMallocFree(nullptr));
    EXPECT_EQ(before, pxEnvLiveAllocations());
}

TEST(PxEnvMemory, NullOutputPointerFails) {
    EXPECT_EQ(0, pxMallocInitZero(nullptr, 8));
    EXPECT_EQ(0, pxMallocNoInit(nullptr, 8));
}

TEST(PxEnvMemory, NthAllocationFails) {
    const long before = pxEnvLiveAllocations();
    void *blocks[4] = {};
    pxEnvFailAllocationAfter(3);
    EXPECT_EQ(1, pxMallocNoInit(&blocks[0], 8));
    EXPECT_EQ(1, pxMallocInitZero(&blocks[1], 8));
    blocks[2] = reinterpret_cast<void *>(1);
    EXPECT_EQ(0, pxMallocInitZero(&blocks[2], 8));
    EXPECT_EQ(nullptr, blocks[2]);
    EXPECT_EQ(1, pxMallocNoInit(&blocks[3], 8)) << "the hook fires once";
    EXPECT_EQ(before + 3, pxEnvLiveAllocations());
    for (void *&block : blocks)
        pxMallocFree(&block);
    EXPECT_EQ(before, pxEnvLiveAllocations());
}

TEST(PxEnvMemory, ZeroDisarmsTheHook) {
    pxEnvFailAllocationAfter(1);
    pxEnvFailAllocationAfter(0);
    void *block = nullptr;
    EXPECT_EQ(1, pxMallocNoInit(&block, 8));
    pxMallocFree(&block);
    pxEnvFailAllocationAfter(-5);
    EXPECT_EQ(1, pxMallocNoInit(&block, 8));
    pxMallocFree(&block);
}

TEST(PxEnvMemory, CountsStayExactAcrossThreads) {
    const long before = pxEnvLiveAllocations();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([] {
            for (int i = 0; i < 1000; ++i) {
                void *block = nullptr;
                ASSERT_EQ(1, pxMallocNoInit(&block, 32));
                pxMallocFree(&block);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(before, pxEnvLiveAllocations());
}

TEST(PxEnvMemory, HookFailsExactlyOneAllocationAcrossThreads) {
    constexpr int THREADS = 4;
    constexpr int PER_THREAD = 100;
    std::atomic<int> failures{0};
    pxEnvFailAllocationAfter(150);
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t)
        threads.emplace_back([&failures] {
            for (int i = 0; i < PER_THREAD; ++i) {
                void *block = nullptr;
                if (!pxMallocInitZero(&block, 8))
                    ++failures;
                pxMallocFree(&block);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    pxEnvFailAllocationAfter(0);
    EXPECT_EQ(1, failures.load());
}

TEST(PxEnvMemory, AllocFailureSupportDrivesEveryAllocation) {
    void *blocks[2] = {};
    const int count = pxtest::forEachAllocationFailure(
        [&] {
            if (!pxMallocInitZero(&blocks[0], 16))
                return false;
            if (!pxMallocNoInit(&blocks[1], 16)) {
                pxMallocFree(&blocks[0]);
                return false;
            }
            return true;
        },
        [&] {
            pxMallocFree(&blocks[0]);
            pxMallocFree(&blocks[1]);
        });
    EXPECT_EQ(2, count);
}

} // namespace
