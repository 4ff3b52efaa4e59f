// The owner of one reference.
#include "com/ComPtr.h"

#include <gtest/gtest.h>

namespace {

// What an interface has that its owners use.
struct CountedInterface {
  void AddRef() { ++references; }
  void Release() { --references; }
  int references = 0;
};

using Owner = ComPtr<CountedInterface>;

class OwnedReference : public ::testing::Test {
 protected:
  CountedInterface first;
  CountedInterface second;
};

TEST_F(OwnedReference, IsTakenBySharingAndReleasedAtTheEnd) {
  {
    const Owner owner(&first);
    EXPECT_EQ(owner.Get(), &first);
    EXPECT_EQ(first.references, 1);
  }
  EXPECT_EQ(first.references, 0);
}

TEST_F(OwnedReference, OfNothingIsNone) {
  Owner nothing(nullptr);
  EXPECT_FALSE(nothing);
  nothing.Reset();
  EXPECT_EQ(nothing.Detach(), nullptr);
}

TEST_F(OwnedReference, IsTakenAgainByACopy) {
  const Owner owner(&first);
  {
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): the copy is what this is about
    const Owner copy(owner);
    EXPECT_EQ(copy.Get(), &first);
    EXPECT_EQ(first.references, 2);
  }
  EXPECT_EQ(first.references, 1);
}

TEST_F(OwnedReference, GoesOverToWhoeverItIsMovedTo) {
  Owner owner(&first);
  const Owner moved(std::move(owner));
  EXPECT_FALSE(owner);  // NOLINT(bugprone-use-after-move): it is empty, and may be used again
  EXPECT_EQ(moved.Get(), &first);
  EXPECT_EQ(first.references, 1);
}

TEST_F(OwnedReference, IsReplacedByAssignment) {
  const Owner owner(&first);
  Owner other(&second);
  other = owner;
  EXPECT_EQ(other.Get(), &first);
  EXPECT_EQ(first.references, 2);
  EXPECT_EQ(second.references, 0);
  other = Owner();
  EXPECT_FALSE(other);
  EXPECT_EQ(first.references, 1);
}

TEST_F(OwnedReference, IsReleasedOnceByAReset) {
  Owner owner(&first);
  owner.Reset();
  EXPECT_FALSE(owner);
  EXPECT_EQ(first.references, 0);
  owner.Reset();
  EXPECT_EQ(first.references, 0);
}

TEST_F(OwnedReference, IsReleasedBeforeAnotherIsPutInItsPlace) {
  Owner owner(&first);
  CountedInterface** const place = owner.Put();
  EXPECT_EQ(first.references, 0);
  second.AddRef();
  *place = &second;
  EXPECT_EQ(owner.Get(), &second);
}

TEST_F(OwnedReference, IsTheCallersOnceItIsDetached) {
  Owner owner(&first);
  EXPECT_EQ(owner.Detach(), &first);
  EXPECT_FALSE(owner);
  owner.Reset();
  EXPECT_EQ(first.references, 1);
}

}  // namespace
