// What the ledger's contract tests need of the platform they run on.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace ot::test {

// A ledger of its own for one test, empty at the start.
class ledger_test_bed {
 public:
  virtual ~ledger_test_bed() = default;
  // Runs `work` as the service that hosts the ledger does: on its thread.
  virtual void host(const std::function<void()>& work) = 0;
  // The service is started again: what was stored is there, what was registered is not.
  virtual void restart() = 0;
};

// The ways from a user to the ledger that the platform has; each test runs on every one.
std::vector<std::string> ledger_test_bed_ways();
std::unique_ptr<ledger_test_bed> make_ledger_test_bed(const std::string& way);

class ledger_contract : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    bed_ = make_ledger_test_bed(GetParam());
    ASSERT_NE(bed_, nullptr);
  }
  // What a call on the hosting thread returns.
  template <typename Work>
  auto hosted(Work work) {
    decltype(work()) result{};
    bed_->host([&] { result = work(); });
    return result;
  }

  std::unique_ptr<ledger_test_bed> bed_;
};

inline std::string ledger_way_name(const ::testing::TestParamInfo<std::string>& way) {
  return way.param;
}

}  // namespace ot::test
