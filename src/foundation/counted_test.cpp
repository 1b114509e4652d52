#include "foundation/counted.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

struct Node : LCountedObject {
  explicit Node(int* destroyed) : destroyed(destroyed) {}
  ~Node() override { ++*destroyed; }
  int* destroyed;
  LCountedPtr<Node> next;
};

}  // namespace

TEST(CountedPtr, LastHandleDestroys) {
  int destroyed = 0;
  {
    LCountedPtr<Node> a(new Node(&destroyed));
    LCountedPtr<Node> b = a;
    EXPECT_EQ(a->GetRefCount(), 2u);
    a.Reset();
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(b->GetRefCount(), 1u);
  }
  EXPECT_EQ(destroyed, 1);
}

TEST(CountedPtr, AssigningAPartOfTheOldObjectKeepsItAlive) {
  int destroyed = 0;
  LCountedPtr<Node> head(new Node(&destroyed));
  head->next = LCountedPtr<Node>(new Node(&destroyed));
  Node* tail = head->next.Get();
  // The tail is held only through the head, which this assignment frees.
  head = head->next;
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(head.Get(), tail);
  EXPECT_EQ(head->GetRefCount(), 1u);
}

TEST(CountedPtr, TwoThreadsCopyingAndDroppingKeepTheCount) {
  int destroyed = 0;
  LCountedPtr<Node> shared(new Node(&destroyed));
  auto churn = [&shared] {
    for (int i = 0; i < 200000; ++i) {
      LCountedPtr<Node> copy = shared;
    }
  };
  std::thread t1(churn), t2(churn);
  t1.join();
  t2.join();
  EXPECT_EQ(shared->GetRefCount(), 1u);
  EXPECT_EQ(destroyed, 0);
}
