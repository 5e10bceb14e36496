// Waiting for what never comes, in real time.
#include <chrono>

#include "platform/process.h"
#include "tests/contract/contract_test.h"

namespace ot::contract {
namespace {

using namespace std::chrono_literals;
using process_wait_limit = contract_test;

TEST_F(process_wait_limit, is_two_seconds) {
  const auto begin = std::chrono::steady_clock::now();
  process_wait(manager(), [] { return false; });
  const auto waited = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(waited, 2s);
  EXPECT_LT(waited, 10s);
  // The loop goes on as if nothing had been.
  bool ran = false;
  ASSERT_EQ(evm_post(
                manager(), [](void* flag) { *static_cast<bool*>(flag) = true; }, &ran),
            0);
  EXPECT_TRUE(run_until([&ran] { return ran; }));
}

}  // namespace
}  // namespace ot::contract
