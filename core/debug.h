// The service's trace flags and system messages. Traces are tested before they are formatted; each
// begins with its function's own name.
#pragma once

#include "platform/evm.h"
#include "platform/messages.h"
#include "platform/trace.h"

namespace ot {

enum ot_debug_index : unsigned {
  ot_debug_detail,
  ot_debug_error,
  ot_debug_notification,
  ot_debug_count
};

// The flags "detail", "error" and "notification" below "/debug/track/".
extern dbg_flag ot_debug[ot_debug_count];

inline bool ot_debug_on(ot_debug_index index) noexcept {
  return ot_debug[index].enabled.load(std::memory_order_relaxed) != 0;
}

// Macros, so that nothing is evaluated while the flag is off.
#define OT_TRACE(index, ...)                                     \
  do {                                                           \
    if (::ot::ot_debug_on(index)) {                              \
      ::ot::dbg_print(::ot::ot_debug[index], 0, 0, __VA_ARGS__); \
    }                                                            \
  } while (false)
#define OT_TRACE_DETAIL(...) OT_TRACE(::ot::ot_debug_detail, __VA_ARGS__)
#define OT_TRACE_ERROR(...) OT_TRACE(::ot::ot_debug_error, __VA_ARGS__)
#define OT_TRACE_ENTRY() OT_TRACE_DETAIL("Entering (%s) : ", __func__)

extern errmsg_record kor_msg_rec_ot_init_fail;
extern errmsg_record kor_msg_rec_ot_ledger_fail;
extern errmsg_record kor_msg_rec_ot_track_info;
extern errmsg_record kor_msg_rec_ot_unknown_bfd_event;

// Initialises and registers the flags; with a null manager for the short-lived front-end. 0, or 1
// after an INIT_FAIL message.
int ot_debug_init(evm* manager) noexcept;

}  // namespace ot
