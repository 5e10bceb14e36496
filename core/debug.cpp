// The three trace flags and the catalogue of system messages.

#include "core/debug.h"

#include <array>

namespace ot {

dbg_flag ot_debug[ot_debug_count];

namespace {

constexpr std::array<const char*, ot_debug_count> flag_names = {"detail", "error", "notification"};
constexpr std::uint32_t flag_level = 7;

// Held by the platform to keep back repeats of a failing ledger.
std::uint32_t ledger_fail_state = 0;

int init_failed(const char* what) noexcept {
  errmsg_log(&kor_msg_rec_ot_init_fail, kor_msg_rec_ot_init_fail.severity, what);
  return 1;
}

}  // namespace

errmsg_record kor_msg_rec_ot_init_fail = {"OT", "SERVICES", "INIT_FAIL", "%s",
                                          3,    0x11eb0000, {0, 0, 0},   nullptr};
errmsg_record kor_msg_rec_ot_ledger_fail = {"OT", "SERVICES", "LEDGER_FAIL", "%s : %s",
                                            7,    0x11eb0001, {1, 1, 1},     &ledger_fail_state};
errmsg_record kor_msg_rec_ot_track_info = {"OT", "SERVICES", "TRACK_INFO", "%s",
                                           6,    0x11eb0002, {0, 0, 0},    nullptr};
errmsg_record kor_msg_rec_ot_unknown_bfd_event = {"OT", "SERVICES", "UNKNOWN_BFD_EVENT", "%s : %u",
                                                  4,    0x11eb0003, {0, 0, 0},           nullptr};

int ot_debug_init(evm* manager) noexcept {
  for (std::uint32_t i = 0; i < ot_debug_count; ++i) {
    if (dbg_init_event(ot_debug, i, flag_level, flag_names[i], 1) != 0) {
      return init_failed("debug_init_event failed");
    }
  }
  if (dbg_register("/debug/track/", ot_debug, ot_debug_count, manager) != 0) {
    return init_failed("debug_register failed");
  }
  return 0;
}

}  // namespace ot
