// A test of the contract suite: a fresh router and one event manager.
#pragma once

#include <gtest/gtest.h>

#include "platform/event_manager.h"
#include "tests/contract/driver.h"

namespace ot::contract {

class contract_test : public testing::Test {
 protected:
  void SetUp() override {
    start();
    ASSERT_EQ(evm_create(&manager_), 0);
  }
  void TearDown() override {
    finish();
    evm_destroy(manager_);
  }

  [[nodiscard]] evm* manager() const { return manager_; }
  bool run_until(const std::function<bool()>& condition) {
    return contract::run_until(manager_, condition);
  }

 private:
  evm* manager_ = nullptr;
};

}  // namespace ot::contract
