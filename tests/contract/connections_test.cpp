// Event connections: opening, trying again, and what happens when one ends.
#include <vector>

#include "platform/event_connections.h"
#include "tests/contract/contract_test.h"

namespace ot::contract {
namespace {

using namespace std::chrono_literals;

// An open routine that fails as often as the test says.
struct opener {
  int failures = 0;
  int calls = 0;
  std::uint32_t next_id = 7;

  static std::uint32_t open(void* context) {
    auto* self = static_cast<opener*>(context);
    ++self->calls;
    return self->failures-- > 0 ? evm_no_connection : self->next_id++;
  }
};

std::vector<std::uint32_t>* reported = nullptr;

class connections_contract : public contract_test {
 protected:
  void SetUp() override {
    contract_test::SetUp();
    reported = &reported_;
    ASSERT_EQ(evm_conn_create(manager(), opener::open, &opener_, 3, &connection_), 0);
    ASSERT_EQ(evm_conn_setretry(connection_, 0, 1), 0);
    ASSERT_EQ(evm_conn_notify(connection_, evm_conn_closed | evm_conn_failed,
                              [](evm_conn*, std::uint32_t event) { reported->push_back(event); }),
              0);
  }

  opener opener_;
  evm_conn* connection_ = nullptr;
  std::vector<std::uint32_t> reported_;
};

TEST_F(connections_contract, opening_calls_the_routine_once) {
  EXPECT_EQ(evm_conn_open(connection_), 0);
  let_pass(manager(), 50ms);
  EXPECT_EQ(opener_.calls, 1);
}

TEST_F(connections_contract, a_failed_opening_is_in_progress_and_tried_again) {
  opener_.failures = 2;
  EXPECT_EQ(evm_conn_open(connection_), open_in_progress);
  EXPECT_EQ(opener_.calls, 1);
  EXPECT_TRUE(run_until([this] { return opener_.calls == 3; }));
  let_pass(manager(), 50ms);
  EXPECT_EQ(opener_.calls, 3);
}

TEST_F(connections_contract, the_first_delay_is_waited_for) {
  ASSERT_EQ(evm_conn_setretry(connection_, 1, 1), 0);
  opener_.failures = 1;
  EXPECT_EQ(evm_conn_open(connection_), open_in_progress);
  let_pass(manager(), 500ms);
  EXPECT_EQ(opener_.calls, 1);
  EXPECT_TRUE(run_until([this] { return opener_.calls == 2; }));
}

TEST_F(connections_contract, an_end_is_reported_and_the_connection_opened_again) {
  ASSERT_EQ(evm_conn_open(connection_), 0);
  evm_conn_ended(manager(), 7, evm_conn_closed);
  EXPECT_TRUE(run_until([this] { return opener_.calls == 2; }));
  EXPECT_EQ(reported_, (std::vector<std::uint32_t>{evm_conn_closed}));
}

TEST_F(connections_contract, events_outside_the_mask_are_not_reported) {
  ASSERT_EQ(evm_conn_notify(connection_, evm_conn_failed,
                            [](evm_conn*, std::uint32_t event) { reported->push_back(event); }),
            0);
  ASSERT_EQ(evm_conn_open(connection_), 0);
  evm_conn_ended(manager(), 7, evm_conn_closed);
  EXPECT_TRUE(run_until([this] { return opener_.calls == 2; }));
  EXPECT_TRUE(reported_.empty());
}

TEST_F(connections_contract, an_unknown_id_is_ignored) {
  ASSERT_EQ(evm_conn_open(connection_), 0);
  evm_conn_ended(manager(), 12345, evm_conn_closed);
  evm_conn_ended(manager(), evm_no_connection, evm_conn_closed);
  let_pass(manager(), 50ms);
  EXPECT_EQ(opener_.calls, 1);
  EXPECT_TRUE(reported_.empty());
}

TEST_F(connections_contract, an_id_of_before_is_unknown_after_the_reopening) {
  ASSERT_EQ(evm_conn_open(connection_), 0);
  evm_conn_ended(manager(), 7, evm_conn_failed);
  ASSERT_TRUE(run_until([this] { return opener_.calls == 2; }));
  evm_conn_ended(manager(), 7, evm_conn_failed);
  let_pass(manager(), 50ms);
  EXPECT_EQ(opener_.calls, 2);
  EXPECT_EQ(reported_, (std::vector<std::uint32_t>{evm_conn_failed}));
}

}  // namespace
}  // namespace ot::contract
