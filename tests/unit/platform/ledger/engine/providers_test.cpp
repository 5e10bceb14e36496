// What the engine makes of a provider's answer: pages.
#include "platform/ledger/engine/providers.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/ledger_provider.h"
#include "platform/status.h"

namespace ot {
namespace {

class plain_environment : public ledger_environment {
 public:
  void log(const std::string& /*line*/) override {}
  int notify(std::string_view /*base*/,
             std::span<const ledger_dpv_notification> /*entries*/) override {
    return status_ok;
  }
  void in_service(void (*body)(void*), void* argument) override { body(argument); }
};

constexpr std::size_t most_of_a_page = ledger_page_bytes_max / 5 * 3;

int three_large_values(ledger_dpv_datalist_request* request) {
  request->handle = ledger_dpv_datalist_create();
  const std::vector<std::byte> value(most_of_a_page);
  for (const char* name : {"a", "b", "c"}) {
    EXPECT_EQ(ledger_dpv_datalist_add(request->handle, name, 7, 0, value.data(), value.size()), 0);
  }
  return status_ok;
}

constexpr ledger_dpv_provider large[] = {{"large", nullptr, nullptr, three_large_values}};

TEST(ledger_providers, a_page_is_cut_before_it_holds_too_many_bytes) {
  plain_environment environment;
  ledger_providers providers{environment};
  ASSERT_EQ(providers.add("/oper/sample/", large), 0);
  ledger_page page;
  ASSERT_EQ(
      providers.list({.path = "/oper/sample/large", .marker = "", .page_size = 10, .values = true},
                     page),
      0);
  EXPECT_EQ(page.entries.size(), 1U);
  EXPECT_TRUE(page.has_continuation);
  EXPECT_EQ(page.continuation, "a");
}

}  // namespace
}  // namespace ot
