// The event connection to the interface manager. The service is of no use without one, so a failure
// that the manager does not retry ends the process.

#include "core/debug.h"
#include "core/start/main.h"
#include "platform/process.h"
#include "platform/status.h"
#include "sources/interface/client.h"

namespace ot {
namespace {

constexpr std::uint32_t ifm_connection_kind = 3;

[[noreturn]] void fatal(const char* text) {
  errmsg_log(&kor_msg_rec_ot_init_fail, kor_msg_rec_ot_init_fail.severity, text);
  process_exit(1);
}

}  // namespace

int ot_init(evm* manager) {
  OT_TRACE_DETAIL("(%s)", __func__);
  evm_conn* connection = nullptr;
  if (evm_conn_create(manager, ot_ifm_open_func, manager, ifm_connection_kind, &connection) !=
      status_ok) {
    fatal("event_conn_create failed");
  }
  const int status = evm_conn_open(connection);
  if (status != status_ok && status != open_in_progress) {
    fatal("event_conn_open failed");
  }
  return status;
}

}  // namespace ot
