// Ownership of the images in a container: destruction, copies, transfers, Release, Set, initForGrab.
#include <gtest/gtest.h>

#include "container/ContainerTestUtil.h"
#include "support/AllocFailure.h"
#include "support/LogCapture.h"

namespace {

using pxtest::grab;
using pxtest::makeImage;
using pxtest::pixel;
using pxtest::TestContainer;

tag_pxImage *image(int seed) {
    return makeImage(SHORT, 4, 3, 0, [seed](int x, int y) { return seed * 100 + y * 4 + x; });
}

class ContainerOwnership : public ::testing::Test {
  protected:
    void SetUp() override { baseline_ = pxEnvLiveAllocations(); }
    void TearDown() override { EXPECT_EQ(baseline_, pxEnvLiveAllocations()) << "leak"; }
    long baseline_ = 0;
};

TEST_F(ContainerOwnership, NewContainerIsEmpty) {
    TestContainer c;
    EXPECT_EQ(0u, c.GetCount());
    EXPECT_EQ(0u, c.GetId());
    EXPECT_EQ(0, c.GetType());
    EXPECT_EQ(u"", c.GetDir());
    for (int e = 0; e < 3; ++e) {
        EXPECT_EQ(0u, c.setNum(e));
        EXPECT_EQ(0u, c.oldSetNum(e));
    }
}

TEST_F(ContainerOwnership, DestructorDestroysEveryImage) {
    {
        PxImageContainer c;
        c.Add(image(1)).Add(nullptr).Add(image(2));
        EXPECT_EQ(3u, c.GetCount());
        EXPECT_LT(baseline_, pxEnvLiveAllocations());
    }
}

TEST_F(ContainerOwnership, DestructEmptiesTheSlots) {
    PxImageContainer c;
    c.Add(image(1)).Add(image(2));
    c.Destruct();
    EXPECT_EQ(0u, c.GetCount());
    EXPECT_EQ(baseline_, pxEnvLiveAllocations());
}

TEST_F(ContainerOwnership, AnImageHeldTwiceIsDestroyedOnce) {
    PxImageContainer c;
    tag_pxImage *shared = image(1);
    c.Add(shared).Add(shared);
    c.Destruct();
}

TEST_F(ContainerOwnership, GetAndIndexReturnTheSlotOrNullPastTheEnd) {
    PxImageContainer c;
    tag_pxImage *a = image(1);
    c.Add(a).Add(nullptr);
    const PxImageContainer &constant = c;
    EXPECT_EQ(a, c.Get(0));
    EXPECT_EQ(a, c[0]);
    EXPECT_EQ(a, constant.Get(0));
    EXPECT_EQ(a, constant[0]);
    EXPECT_EQ(nullptr, c.Get(1));
    EXPECT_EQ(nullptr, c.Get(2));
    EXPECT_EQ(nullptr, constant[7]);
}

TEST_F(ContainerOwnership, ReleaseHandsTheImagesBack) {
    tag_pxImage *a = image(1);
    {
        PxImageContainer c;
        c.Add(a);
        c.Release();
        EXPECT_EQ(0u, c.GetCount());
    }
    EXPECT_EQ(101, pixel(a, 1, 0));
    pxImageDestruct(&a);
}

TEST_F(ContainerOwnership, AssignmentCopiesFieldsAndDeepCopiesImages) {
    TestContainer source;
    source.SetPrefix(7, grab(24), 9, 3, 0).SetPrefixOld(grab(24), 5, 6).SetDir(u"src");
    source.Add(image(1)).Add(nullptr).Add(
        makeImage(FLOAT, 2, 2, 3, [](int x, int y) { return 0.5 * x + y; }));
    TestContainer target;
    target.SetDir(u"dst");
    target.Add(image(2));
    target = source;

    EXPECT_EQ(7u, target.GetId());
    EXPECT_EQ(24, target.GetType());
    EXPECT_EQ(9u, target.setNum(0));
    EXPECT_EQ(3u, target.setNum(1));
    EXPECT_EQ(10u, target.setNum(2));
    EXPECT_EQ(5u, target.oldSetNum(0));
    EXPECT_EQ(6u, target.oldSetNum(1));
    EXPECT_EQ(0u, target.oldSetNum(2)) << "OldSetNum2 is not copied";
    EXPECT_EQ(u"dst", target.GetDir()) << "the directory is not copied";

    ASSERT_EQ(4u, target.GetCount()) << "copies are appended to the images held";
    EXPECT_EQ(200, pixel(target[0], 0, 0));
    ASSERT_NE(nullptr, target[1]);
    EXPECT_NE(source[0], target[1]);
    EXPECT_EQ(SHORT, target[1]->type);
    EXPECT_EQ(111, pixel(target[1], 3, 2));
    EXPECT_EQ(nullptr, target[2]);
    ASSERT_NE(nullptr, target[3]);
    EXPECT_EQ(FLOAT, target[3]->type);
    EXPECT_EQ(0, target[3]->border) << "copies have no border, so every pixel is copied";
    EXPECT_EQ(1.5, pixel(target[3], 1, 1));
    EXPECT_EQ(3u, source.GetCount());
}

TEST_F(ContainerOwnership, CopyConstructorCopiesLikeAssignment) {
    TestContainer source;
    source.SetPrefix(3, grab(5), 1, 2, 0).SetDir(u"src");
    source.Add(image(4));
    PxImageContainer copy(source);
    EXPECT_EQ(3u, copy.GetId());
    EXPECT_EQ(5, copy.GetType());
    EXPECT_EQ(u"", copy.GetDir());
    ASSERT_EQ(1u, copy.GetCount());
    EXPECT_NE(source[0], copy[0]);
    EXPECT_EQ(400, pixel(copy[0], 0, 0));
}

TEST_F(ContainerOwnership, SelfAssignmentChangesNothing) {
    PxImageContainer c;
    tag_pxImage *a = image(1);
    c.Add(a);
    PxImageContainer &alias = c;
    c = alias;
    ASSERT_EQ(1u, c.GetCount());
    EXPECT_EQ(a, c[0]);
    c << alias;
    ASSERT_EQ(1u, c.GetCount());
    EXPECT_EQ(a, c[0]);
}

TEST_F(ContainerOwnership, AssignmentFreesEverythingWhenAnAllocationFails) {
    PxImageContainer source;
    source.Add(image(1)).Add(image(2)).Add(image(3));
    PxImageContainer target;
    const int allocations = pxtest::forEachAllocationFailure(
        [&] {
            target = source;
            return target.GetCount() == 3;
        },
        [&] { target.Destruct(); });
    EXPECT_GT(allocations, 0);
}

TEST_F(ContainerOwnership, AssignmentThatFailsChangesNothing) {
    TestContainer source;
    source.SetPrefix(7, grab(24), 9, 3, 0);
    source.Add(image(1));
    TestContainer target;
    {
        pxtest::AllocFailure fail(1);
        target = source;
    }
    EXPECT_EQ(0u, target.GetCount());
    EXPECT_EQ(0u, target.GetId());
    EXPECT_EQ(0, target.GetType());
}

TEST_F(ContainerOwnership, TransferThenReleaseLeavesOneOwner) {
    TestContainer source;
    source.SetPrefix(7, grab(23), 9, 3, 4).SetPrefixOld(grab(23), 5, 6);
    tag_pxImage *a = image(1);
    tag_pxImage *b = image(2);
    source.Add(a).Add(b);
    TestContainer target;
    target.Add(image(3));
    target << source;
    source.Release();

    EXPECT_EQ(7u, target.GetId());
    EXPECT_EQ(23, target.GetType());
    EXPECT_EQ(4u, target.setNum(2));
    EXPECT_EQ(6u, target.oldSetNum(1));
    EXPECT_EQ(0u, target.oldSetNum(2));
    ASSERT_EQ(2u, target.GetCount()) << "its own images were destroyed";
    EXPECT_EQ(a, target[0]);
    EXPECT_EQ(b, target[1]);
    EXPECT_EQ(0u, source.GetCount());
}

TEST_F(ContainerOwnership, TransferKeepsTheSourcePointersUntilRelease) {
    PxImageContainer source;
    tag_pxImage *a = image(1);
    source.Add(a);
    PxImageContainer target;
    target << source;
    EXPECT_EQ(a, source[0]);
    EXPECT_EQ(a, target[0]);
    source.Release();
}

TEST_F(ContainerOwnership, TransferKeepsAnOwnImageThatTheSourceAlsoHolds) {
    tag_pxImage *a = image(1);
    PxImageContainer source;
    source.Add(a);
    PxImageContainer target;
    target.Add(a);
    target << source;
    source.Release();
    ASSERT_EQ(1u, target.GetCount());
    EXPECT_EQ(101, pixel(target[0], 1, 0));
}

TEST_F(ContainerOwnership, SetSlotDestroysTheOldImage) {
    PxImageContainer c;
    c.Add(image(1)).Add(image(2));
    tag_pxImage *replacement = image(3);
    EXPECT_TRUE(c.Set(1, replacement));
    EXPECT_EQ(replacement, c[1]);
    EXPECT_TRUE(c.Set(1, replacement)) << "storing the same image again keeps it";
    EXPECT_EQ(300, pixel(c[1], 0, 0));
    EXPECT_TRUE(c.Set(0, nullptr));
    EXPECT_EQ(nullptr, c[0]);
}

TEST_F(ContainerOwnership, SetSlotKeepsAnImageHeldInAnotherSlot) {
    PxImageContainer c;
    tag_pxImage *a = image(1);
    c.Add(a).Add(a);
    EXPECT_TRUE(c.Set(0, image(2)));
    EXPECT_EQ(101, pixel(c[1], 1, 0));
}

TEST_F(ContainerOwnership, SetSlotPastTheEndIsRefused) {
    PxImageContainer c;
    c.Add(nullptr);
    tag_pxImage *a = image(1);
    pxtest::LogCapture log;
    EXPECT_FALSE(c.Set(1, a));
    EXPECT_TRUE(log.has(5, 0xC43D0003u, "PxImageContainer", "Slot 1 of 1 does not exist"));
    EXPECT_EQ(1u, c.GetCount());
    pxImageDestruct(&a);
}

TEST_F(ContainerOwnership, SetThreeReplacesAllImages) {
    PxImageContainer c;
    tag_pxImage *kept = image(1);
    c.Add(image(9)).Add(kept).Add(image(8)).Add(image(7));
    tag_pxImage *b = image(2);
    c.Set(kept, b, nullptr);
    ASSERT_EQ(3u, c.GetCount());
    EXPECT_EQ(kept, c[0]);
    EXPECT_EQ(b, c[1]);
    EXPECT_EQ(nullptr, c[2]);
    EXPECT_EQ(101, pixel(kept, 1, 0));
}

TEST_F(ContainerOwnership, SetArrayReplacesAllImages) {
    PxImageContainer c;
    c.Add(image(9));
    tag_pxImage *list[] = {image(1), image(2), image(3), image(4)};
    EXPECT_TRUE(c.Set(list, 4));
    ASSERT_EQ(4u, c.GetCount());
    for (size_t i = 0; i < 4; ++i)
        EXPECT_EQ(list[i], c[i]);
    EXPECT_TRUE(c.Set(nullptr, 0));
    EXPECT_EQ(0u, c.GetCount());
}

TEST_F(ContainerOwnership, SetArrayRefusesANullList) {
    PxImageContainer c;
    tag_pxImage *a = image(1);
    c.Add(a);
    pxtest::LogCapture log;
    EXPECT_FALSE(c.Set(nullptr, 2));
    EXPECT_TRUE(log.has(5, 0xC43D0003u, "PxImageContainer", "No image list for 2 images"));
    ASSERT_EQ(1u, c.GetCount());
    EXPECT_EQ(a, c[0]);
}

TEST_F(ContainerOwnership, InitForGrabSizesTheSlots) {
    PxImageContainer c;
    c.SetType(grab(55)).initForGrab();
    EXPECT_EQ(9u, c.GetCount());
    for (size_t i = 0; i < 9; ++i)
        EXPECT_EQ(nullptr, c[i]);
    EXPECT_TRUE(c.Set(0, image(1)));
    EXPECT_TRUE(c.Set(4, image(2)));
    c.SetType(grab(1)).initForGrab();
    ASSERT_EQ(3u, c.GetCount()) << "the image in slot 4 is destroyed";
    EXPECT_EQ(100, pixel(c[0], 0, 0));
    c.SetType(grab(5)).initForGrab();
    EXPECT_EQ(6u, c.GetCount());
    EXPECT_EQ(100, pixel(c[0], 0, 0));
}

} // namespace
