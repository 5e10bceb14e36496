// What the ledger's contract tests need of the platform they run on.
#pragma once

#include <gtest/gtest.h>

#include <memory>

namespace ot::test {

// A ledger of its own for one test, empty at the start; this thread is the hosting service's.
class ledger_bench {
 public:
  virtual ~ledger_bench() = default;
  // The service is started again: what was stored is there, what was registered is not.
  virtual void restart() = 0;
};
std::unique_ptr<ledger_bench> make_ledger_bench();

class LedgerContract : public ::testing::Test {
 protected:
  void SetUp() override {
    bench_ = make_ledger_bench();
    ASSERT_NE(bench_, nullptr);
  }
  std::unique_ptr<ledger_bench> bench_;
};

}  // namespace ot::test
