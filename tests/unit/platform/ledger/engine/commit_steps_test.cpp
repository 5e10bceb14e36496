// The steps of a commit for a host that stores in a thread of its own: what readers are told
// between them.
#include <gtest/gtest.h>

#include "platform/ledger/engine/commit.h"
#include "platform/ledger/engine/engine.h"
#include "platform/ledger_commit.h"
#include "platform/memory/ledger_controls.h"
#include "platform/status.h"
#include "tests/support/ledger_proposals.h"
#include "tests/support/sample_tree.h"

namespace ot::test {
namespace {

class ledger_commit_steps : public testing::Test {
 protected:
  void SetUp() override {
    ledger_control_reset();
    ASSERT_EQ(register_sample_tree(), 0);
  }
  void TearDown() override { ledger_control_reset(); }
};

int a_commit(ledger_engine& engine, void* /*argument*/) {
  const std::uint64_t before = engine.generation();
  std::vector<ledger_refusal> refusals;
  std::unique_ptr<ledger_commit_run> run;
  EXPECT_EQ(engine.begin_commit({set_number("/cfg/gl/sample/thing/x/a", 1)}, before, refusals, run),
            0);
  EXPECT_EQ(engine.generation(), before) << "nothing is stored yet";
  const int stored = run->store();
  const std::uint64_t seen = engine.generation();
  EXPECT_NE(seen, before) << "who has read some of it before has to know";
  EXPECT_EQ(engine.finish_commit(std::move(run), stored, refusals), 0);
  EXPECT_EQ(engine.generation(), seen) << "who has read it all since has it";
  return 0;
}

TEST_F(ledger_commit_steps, the_generation_is_another_one_as_soon_as_readers_see_what_is_stored) {
  EXPECT_EQ(ledger_enter_host(a_commit, nullptr), 0);
}

}  // namespace
}  // namespace ot::test
