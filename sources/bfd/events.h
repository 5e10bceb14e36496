// The callbacks of the BFD client. They run on the BFD thread, copy what they are told, and hand it
// to the main thread, which alone touches tracks, tables and timers; what comes first is applied
// first.
#pragma once

#include "platform/bfd_client.h"

namespace ot {

// The loop the events are handed to. Before the thread starts.
void ot_bfd_set_main_loop(evm* manager) noexcept;
// Forgets what was handed over and not applied yet. After the thread has ended.
void ot_bfd_drop_events() noexcept;

void ot_bfd_bind_handler(const bfdc_bind_result* result);
void ot_bfd_conn_handler(const bfdc_connection_status* status);
void ot_bfd_req_handler(const bfdc_request_result* result);
void ot_bfd_scn_handler(const bfdc_event* event);

}  // namespace ot
