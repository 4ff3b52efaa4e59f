// Tests of ComPtr.
#include "com/ComPtr.h"

#include <gtest/gtest.h>

namespace {

// An interface that counts references.
struct CountedInterface {
  void AddRef() { ++references; }
  void Release() { --references; }
  int references = 0;
};

using Owner = ComPtr<CountedInterface>;

class OwningPointer : public ::testing::Test {
 protected:
  CountedInterface first;
  CountedInterface second;
};

TEST_F(OwningPointer, AddsAReferenceWhenSharedAndReleasesItAtTheEnd) {
  {
    const Owner owner(&first);
    EXPECT_EQ(owner.Get(), &first);
    EXPECT_EQ(first.references, 1);
  }
  EXPECT_EQ(first.references, 0);
}

TEST_F(OwningPointer, OfNullHoldsNothing) {
  Owner nothing(nullptr);
  EXPECT_FALSE(nothing);
  nothing.Reset();
  EXPECT_EQ(nothing.Detach(), nullptr);
}

TEST_F(OwningPointer, AddsAReferenceWhenCopied) {
  const Owner owner(&first);
  {
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): under test
    const Owner copy(owner);
    EXPECT_EQ(copy.Get(), &first);
    EXPECT_EQ(first.references, 2);
  }
  EXPECT_EQ(first.references, 1);
}

TEST_F(OwningPointer, TransfersTheReferenceWhenMoved) {
  Owner owner(&first);
  const Owner moved(std::move(owner));
  EXPECT_FALSE(owner);  // NOLINT(bugprone-use-after-move): under test
  EXPECT_EQ(moved.Get(), &first);
  EXPECT_EQ(first.references, 1);
}

TEST_F(OwningPointer, ReplacesTheReferenceWhenAssigned) {
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

TEST_F(OwningPointer, ReleasesOnceWhenReset) {
  Owner owner(&first);
  owner.Reset();
  EXPECT_FALSE(owner);
  EXPECT_EQ(first.references, 0);
  owner.Reset();
  EXPECT_EQ(first.references, 0);
}

TEST_F(OwningPointer, ReleasesBeforePut) {
  Owner owner(&first);
  CountedInterface** const place = owner.Put();
  EXPECT_EQ(first.references, 0);
  second.AddRef();
  *place = &second;
  EXPECT_EQ(owner.Get(), &second);
}

TEST_F(OwningPointer, KeepsTheReferenceWhenDetached) {
  Owner owner(&first);
  EXPECT_EQ(owner.Detach(), &first);
  EXPECT_FALSE(owner);
  owner.Reset();
  EXPECT_EQ(first.references, 1);
}

}  // namespace
