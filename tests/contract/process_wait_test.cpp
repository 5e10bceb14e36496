// Waiting, at the start, for what comes through the loop.
#include "platform/process.h"
#include "tests/contract/contract_test.h"

namespace ot::contract {
namespace {

int handlers_run = 0;

class process_wait_contract : public contract_test {
 protected:
  void SetUp() override {
    contract_test::SetUp();
    handlers_run = 0;
    for (int i = 0; i < 2; ++i) {
      ASSERT_EQ(evm_post(
                    manager(), [](void*) { ++handlers_run; }, nullptr),
                0);
    }
  }
};

TEST_F(process_wait_contract, what_is_ready_runs_no_handler) {
  process_wait(manager(), [] { return true; });
  EXPECT_EQ(handlers_run, 0);
}

TEST_F(process_wait_contract, handlers_run_until_what_they_do_is_enough) {
  process_wait(manager(), [] { return handlers_run == 2; });
  EXPECT_EQ(handlers_run, 2);
}

}  // namespace
}  // namespace ot::contract
