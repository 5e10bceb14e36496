// The front-end entry and the interface manager connection.

#include "core/main.h"

#include <cstdio>
#include <cstring>

#include "core/debug.h"
#include "platform/process.h"
#include "platform/status.h"
#include "show/show.h"
#include "sources/interface/ifm_client.h"

namespace ot {
namespace {

constexpr std::uint32_t ifm_connection_kind = 3;

[[noreturn]] void fatal(const char* text) {
  errmsg_log(&kor_msg_rec_ot_init_fail, kor_msg_rec_ot_init_fail.severity, text);
  process_exit(1);
}

}  // namespace

int main(int argc, char** argv) {
  if (ot_debug_init(nullptr) != 0) {
    std::fputs("failed to setup init debug info!", stderr);
    process_exit(1);
  }
  if (argc > 1 && std::strcmp(argv[1], "show") == 0) {
    ot_show(argc, argv);
  }
  return 0;
}

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
