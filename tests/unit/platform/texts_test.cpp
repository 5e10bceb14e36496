// The texts of the status codes.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <thread>

#include "platform/brec.h"
#include "platform/err_string.h"
#include "platform/event_connections.h"
#include "platform/fib_client.h"
#include "platform/ledger_status.h"

namespace ot {
namespace {

TEST(error_texts, refusals_say_what_is_wrong) {
  struct {
    std::uint32_t code;
    const char* text;
  } const rows[] = {
      {0xa64c8200, "The track already has another type"},
      {0xa64c8400, "The route mask is not contiguous"},
      {0xa64c8600, "The probe package is not available"},
      {0xa64c8800, "The probe operation is already tracked"},
      {0xa64c8a00, "A list cannot name itself as a member"},
      {0xa64c8c00, "Maximum number of tracks reached"},
      {0xa64c8e00, "Threshold Up value should be > Threshold Down Value"},
  };
  for (const auto& row : rows) {
    EXPECT_STREQ(err_string(status_code(row.code)), row.text);
  }
}

TEST(error_texts, errno_values_have_the_system_s_texts) {
  for (const int code : {0, not_found_errno, no_memory, invalid_argument, duplicate_key}) {
    EXPECT_STREQ(err_string(code), std::strerror(code));
  }
}

TEST(error_texts, every_platform_code_has_a_text_of_its_own) {
  const int codes[] = {open_in_progress,
                       ledger_no_data,
                       ledger_list_end,
                       ledger_provider_failure,
                       ledger_library_missing,
                       ledger_unreachable,
                       ledger_unknown_path,
                       ledger_wrong_kind,
                       ledger_denied,
                       ledger_full,
                       ledger_storage_failure,
                       ledger_bad_message,
                       ledger_not_available,
                       ledger_no_answer,
                       ledger_busy,
                       ledger_read_only,
                       ledger_changed,
                       fib_already_registered,
                       record_bad_descriptor,
                       record_malformed,
                       record_unknown_type};
  std::set<std::string> texts;
  for (const int code : codes) {
    const std::string text = err_string(code);
    EXPECT_EQ(text.find("Unknown code"), std::string::npos) << std::hex << code;
    EXPECT_TRUE(texts.insert(text).second) << text << " stands for two codes";
  }
}

TEST(error_texts, an_unknown_code_is_named) {
  EXPECT_STREQ(err_string(status_code(0xdeadbeef)), "Unknown code 0xdeadbeef");
  EXPECT_STREQ(err_string(-1), "Unknown code 0xffffffff");
  EXPECT_STREQ(err_string(4096), "Unknown code 0x00001000");
}

TEST(error_texts, the_text_of_an_unknown_code_is_the_thread_s_own) {
  const char* ours = err_string(5000);
  std::thread([] { err_string(6000); }).join();
  EXPECT_STREQ(ours, "Unknown code 0x00001388");
}

}  // namespace
}  // namespace ot
