// Building and sending session requests; create and delete differ in the call and one text.

#include "sources/bfd/sessions.h"

#include <memory>
#include <new>

#include "core/debug.h"
#include "platform/status.h"
#include "sources/bfd/table.h"

namespace ot {

std::uint32_t is_ot_bfd_connection_up = 0;
std::atomic<std::uint32_t> is_ot_bfd_bind_done{0};
std::atomic<track_name*> ot_bfd_ctx{nullptr};

namespace {

constexpr std::uint32_t request_kind = 1;

struct session_call {
  const char* who;
  const char* call_failed;  // trace format: who, error text
  int (*send)(const bfdc_session_request& request, bfdc_session_answer* ret) noexcept;
  void (*sent)(const bfdc_session_request& request, const bfdc_session_answer& answer) noexcept;
};

// What was given up before is not the session as it is from now on.
void note_creation(const bfdc_session_request& request,
                   const bfdc_session_answer& answer) noexcept {
  if (bfdprb_entry* entry = hash_db_get_bfdprb_item(request.ifhandle, request.destination)) {
    entry->created_by = answer.sequence;
  }
}

constexpr session_call create_call = {"ot_bfd_create_single_session",
                                      "(%s) bfd session creation failed:: %s\n",
                                      bfdc_session_create_nb, note_creation};
constexpr session_call delete_call = {"ot_bfd_delete_single_session",
                                      "(%s) bfd session deletion failed:: %s\n",
                                      bfdc_session_delete_unconfig_nb, nullptr};

void fill(const bfd_object& session, bfdc_session_request& request) noexcept {
  request.kind = request_kind;
  request.ifhandle = session.ifhandle;
  request.interface.assign(session.interface.view());
  request.interface.assign(session.interface.view());
  request.destination = ipv4_bfd_address(session.destination);
  request.source = ipv4_bfd_address(0);
  request.rate = session.rate;
  request.debounce_count = session.debounce_count;
  request.context = ot_bfd_ctx.load();
}

int send(const session_call& call, const char* name, bfd_object* session) noexcept {
  const std::unique_ptr<bfdc_session_request> request{new (std::nothrow) bfdc_session_request{}};
  if (request == nullptr) {
    OT_TRACE_ERROR("(%s) calloc failed with %s\n", call.who, err_string(no_memory));
    return no_memory;
  }
  if (track_name* context = ot_bfd_ctx.load()) {
    context->assign(name);
  }
  fill(*session, *request);
  bfdc_session_answer answer;
  const int status = call.send(*request, &answer);
  if (status != status_ok) {
    OT_TRACE_ERROR(call.call_failed, call.who, err_string(status));
    return status;
  }
  if (answer.result != status_ok) {
    // The same words for both calls.
    OT_TRACE_ERROR("(%s) bfd session creation failed:: %s\n", call.who, err_string(answer.result));
    return answer.result;
  }
  session->session_id = answer.session_id;
  if (call.sent != nullptr) {
    call.sent(*request, answer);
  }
  return status_ok;
}

}  // namespace

int ot_bfd_create_single_session(const char* name, bfd_object* session) noexcept {
  return send(create_call, name, session);
}

int ot_bfd_delete_single_session(const char* name, bfd_object* session) noexcept {
  return send(delete_call, name, session);
}

}  // namespace ot
