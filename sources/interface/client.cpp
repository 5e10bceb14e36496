// The interface manager connection, and the look-ups.

#include "sources/interface/client.h"

#include <cstdio>
#include <cstring>

#include "core/connections.h"
#include "core/debug.h"
#include "platform/err_string.h"
#include "platform/event_connections.h"
#include "platform/process.h"
#include "platform/status.h"

namespace ot {

ifc_conn_ctx ot_ifm_conn_ctx;

namespace {

constexpr std::uint32_t ifm_connection_kind = 3;
constexpr std::uint32_t bind_mode = 2;
constexpr const char* open_name = "ot_ifm_open_func";

std::uint32_t connection_id = 0;  // 0: no connection

// The two attributes and how messages call them.
struct attribute_row {
  std::uint16_t number;
  const char* label;
};
constexpr attribute_row attributes[] = {
    {ifc_attr_state, "state"},
    {ifc_attr_redundancy, "red"},
};

void report_init_failure(const char* text) noexcept {
  errmsg_log(&kor_msg_rec_ot_init_fail, kor_msg_rec_ot_init_fail.severity, text);
}

[[noreturn]] void fatal(const char* text) {
  report_init_failure(text);
  process_exit(1);
}

// A step that ends the open, with the operation's name for the operator.
std::uint32_t open_failed(const char* operation, int status) noexcept {
  char text[128];
  std::snprintf(text, sizeof text, "%s failed (%s)", operation, err_string(status));
  report_init_failure(text);
  OT_TRACE_ERROR("(%s) : object tracking %s failed (%s)", open_name, operation, err_string(status));
  return evm_no_connection;
}

// The server may refuse an attribute; the other one is still worth having. False: the call failed.
bool register_attribute(const attribute_row& row) {
  int server_status = status_ok;
  char text[128];
  const int status = ifc_attr_register(ot_ifm_conn_ctx, row.number, &server_status);
  if (status != status_ok) {
    std::snprintf(text, sizeof text, "ifc_attr_register API failed %s (%s)", row.label,
                  err_string(status));
    report_init_failure(text);
    OT_TRACE_ERROR("(%s) : object tracking ifc_attr_register API failed %s (%s)", open_name,
                   row.label, err_string(status));
    return false;
  }
  if (server_status != status_ok) {
    std::snprintf(text, sizeof text, "ifc_attr_register failed %s : %s (0x%x)", row.label,
                  err_string(server_status), static_cast<unsigned>(server_status));
    report_init_failure(text);
    OT_TRACE_ERROR("(%s) : object tracking ifc_attr_register %s failed (%s)", open_name, row.label,
                   err_string(server_status));
  }
  return true;
}

int first_failure(int api_status, int item_status) noexcept {
  return api_status != status_ok ? api_status : item_status;
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

std::uint32_t ot_ifm_open_func(void* manager) {
  OT_TRACE_DETAIL("(%s)", __func__);
  auto* loop = static_cast<evm*>(manager);
  ot_ifm_close();
  int status = ifc_control_server_bind(loop, bind_mode, &ot_ifm_conn_ctx);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : object tracking IFM Bind: Bind to IFM failed (%s)", __func__,
                   err_string(status));
    return evm_no_connection;
  }
  status = ifc_conn_ctx_to_connid(ot_ifm_conn_ctx, &connection_id);
  if (status != status_ok) {
    ifc_control_server_unbind(&ot_ifm_conn_ctx);
    return open_failed("ifc_conn_ctx_to_connid", status);
  }
  status = ifc_register_callback(ot_ifm_conn_ctx, "object-tracking", loop, ot_ifm_handler);
  if (status != status_ok) {
    return open_failed("ifc_register_callback", status);
  }
  for (const attribute_row& row : attributes) {
    if (!register_attribute(row)) {
      return evm_no_connection;
    }
  }
  note_connection(router_service::interface_manager, true);
  return connection_id;
}

void ot_ifm_close() noexcept {
  note_connection(router_service::interface_manager, false);
  if (connection_id != 0) {
    ifc_control_server_unbind(&ot_ifm_conn_ctx);
    connection_id = 0;
  }
}

int ot_dpv_get_ifhandle(const char* ifname, std::uint32_t* ret_ifhandle) noexcept {
  const ifc_name name{ifname};
  int item_status = status_ok;
  const int status = ifc_interface_find(ot_ifm_conn_ctx, name.c_str(), ret_ifhandle, &item_status);
  return first_failure(status, item_status);
}

int ot_dpv_get_ifname(char* buffer, std::uint32_t ifhandle) noexcept {
  ifc_name name;
  int item_status = status_ok;
  const int status = ifc_interface_name(ot_ifm_conn_ctx, ifhandle, &name, &item_status);
  OT_TRACE_DETAIL("(%s) : ifhandle %x, ifname %s", __func__, ifhandle, name.c_str());
  std::memcpy(buffer, name.c_str(), ifc_name::capacity);
  return first_failure(status, item_status);
}

int ot_ifc_state_query(std::uint32_t ifhandle, std::uint32_t flags,
                       std::uint32_t* ret_state) noexcept {
  int item_status = status_ok;
  const int status = ifc_state_query(ot_ifm_conn_ctx, ifhandle, flags, ret_state, &item_status);
  return first_failure(status, item_status);
}

}  // namespace ot
