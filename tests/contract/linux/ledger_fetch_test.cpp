// Reading one item without waiting: what is said while the service has not come to it, and in the
// end.
#include "platform/ledger_fetch.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <memory>
#include <optional>
#include <span>

#include "platform/ledger_status.h"
#include "platform/status.h"
#include "tests/contract/linux/ledger_place.h"

namespace ot::test {
namespace {

struct ending {
  void operator()(ledger_fetch* fetch) const noexcept { ledger_fetch_end(fetch); }
};
using fetch_handle = std::unique_ptr<ledger_fetch, ending>;

fetch_handle begin(const char* path) {
  ledger_fetch* made = nullptr;
  EXPECT_EQ(ledger_fetch_begin(path, &made), status_ok);
  return fetch_handle{made};
}

// What it ends with, once the descriptor says that there is something to take.
int end_of(const fetch_handle& fetch, ledger_value& ret) {
  int code = ledger_fetch_take(fetch.get(), &ret);
  while (code == ledger_no_answer) {
    pollfd ready{.fd = ledger_fetch_fd(fetch.get()), .events = POLLIN, .revents = 0};
    if (poll(&ready, 1, 20'000) != 1) {
      return code;
    }
    code = ledger_fetch_take(fetch.get(), &ret);
  }
  return code;
}

class ledger_fetches : public ::testing::Test {
 protected:
  ledger_place place_;
};

TEST_F(ledger_fetches, an_item_comes_and_so_does_that_there_is_none) {
  threaded_service service;
  service.run([] {
    ledger_conn* conn = nullptr;
    ASSERT_EQ(ledger_bind("/oper/gl/", &conn), 0);
    const std::uint32_t number = 7;
    EXPECT_EQ(ledger_item_set(conn, "here", ledger_kind::u32, std::as_bytes(std::span{&number, 1})),
              0);
    ledger_unbind(conn);
  });
  ledger_value value;
  EXPECT_EQ(end_of(begin("/oper/gl/here"), value), status_ok);
  EXPECT_EQ(value.as_u32(), 7U);
  EXPECT_EQ(end_of(begin("/oper/gl/nowhere"), value), ledger_no_data);
  EXPECT_EQ(value.as_u32(), 7U);
}

TEST_F(ledger_fetches, nothing_waits_for_a_service_that_does_not_go_on) {
  threaded_service service;
  fetch_handle fetch;
  ledger_value value;
  service.run([&] {  // on the service's own thread, which so cannot answer
    fetch = begin("/oper/gl/nowhere");
    for (int again = 0; again < 100; ++again) {
      EXPECT_EQ(ledger_fetch_take(fetch.get(), &value), ledger_no_answer);
    }
  });
  EXPECT_EQ(end_of(fetch, value), ledger_no_data);
}

TEST_F(ledger_fetches, without_a_service_nothing_begins) {
  ledger_fetch* made = nullptr;
  EXPECT_EQ(ledger_fetch_begin("/oper/gl/nowhere", &made), ledger_unreachable);
  EXPECT_EQ(made, nullptr);
}

TEST_F(ledger_fetches, the_end_of_the_service_is_told) {
  std::optional<direct_service> service{std::in_place};
  const fetch_handle fetch = begin("/oper/gl/nowhere");
  ledger_value value;
  EXPECT_EQ(ledger_fetch_take(fetch.get(), &value), ledger_no_answer);
  service.reset();
  EXPECT_EQ(end_of(fetch, value), ledger_busy);
}

}  // namespace
}  // namespace ot::test
