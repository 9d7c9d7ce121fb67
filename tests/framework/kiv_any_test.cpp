#include "framework/kiv_any.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

namespace {

TEST(KivAnyTest, EmptyAnyHasTypeVoidAndYieldsNothing) {
  kiv::Any any;
  EXPECT_TRUE(any.empty());
  EXPECT_EQ(any.type(), typeid(void));
  EXPECT_EQ(any.get<int>(), nullptr);
}

TEST(KivAnyTest, TypedAccessNeedsTheExactType) {
  kiv::Any any(new kiv::Holder<std::function<void(int*)>>([](int* p) { *p += 1; }));
  EXPECT_EQ(any.type(), typeid(std::function<void(int*)>));
  EXPECT_EQ(any.get<std::function<void(long*)>>(), nullptr);
  EXPECT_EQ(any.get<std::function<void(const int*)>>(), nullptr);
  auto* fn = any.get<std::function<void(int*)>>();
  ASSERT_NE(fn, nullptr);
  int value = 1;
  (*fn)(&value);
  EXPECT_EQ(value, 2);
}

TEST(KivAnyTest, CloneCopiesTheValue) {
  auto token = std::make_shared<int>(7);
  kiv::Holder<std::shared_ptr<int>> holder(token);
  EXPECT_EQ(holder.type(), typeid(std::shared_ptr<int>));
  std::unique_ptr<kiv::IHolder> copy(holder.clone());
  EXPECT_EQ(token.use_count(), 3);
  EXPECT_EQ(copy->type(), typeid(std::shared_ptr<int>));
  copy.reset();
  EXPECT_EQ(token.use_count(), 2);
}

TEST(KivAnyTest, CopyingAnAnyClonesAndReleaseEmptiesIt) {
  auto token = std::make_shared<int>(1);
  kiv::Any first(new kiv::Holder<std::shared_ptr<int>>(token));
  {
    kiv::Any second = first;
    EXPECT_EQ(token.use_count(), 3);
    EXPECT_NE(second.get<std::shared_ptr<int>>(), first.get<std::shared_ptr<int>>());
  }
  EXPECT_EQ(token.use_count(), 2);
  std::unique_ptr<kiv::IHolder> taken(first.release());
  EXPECT_TRUE(first.empty());
  EXPECT_EQ(token.use_count(), 2);
  taken.reset();
  EXPECT_EQ(token.use_count(), 1);
}

}  // namespace
