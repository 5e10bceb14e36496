// Start and body of the BFD thread, which does nothing but wait for the BFD client's callbacks, and
// the session requests of the main thread; create and delete differ in the call and one text.

#include "sources/bfd/client.h"

#include <pthread.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>

#include "core/debug.h"
#include "platform/err_string.h"
#include "platform/event_manager.h"
#include "platform/process.h"
#include "platform/status.h"
#include "sources/bfd/table.h"

namespace ot {

std::atomic<std::uint32_t> is_ot_bfd_init_done{0};
std::atomic<std::uint32_t> is_ot_bfd_bind_done{0};
std::uint32_t is_ot_bfd_connection_up = 0;
std::atomic<track_name*> ot_bfd_ctx{nullptr};

namespace {

constexpr std::uint32_t client_id = 199;
constexpr std::uint32_t client_version = 9;
constexpr int trace_line = 1;

pthread_t ot_bfd_tid{};
bool started = false;        // the thread is to be joined
evm* thread_loop = nullptr;  // also of a later thread: the client stays bound to it
std::atomic<bool> stopping{false};
std::atomic<bool> ended{true};

void require(bool ok, const char* who, int line, const char* what) {
  if (!ok) {
    std::fprintf(stderr, "%s: %d %s -- assertion failed\n", who, line, what);
    std::abort();
  }
}

// The new thread inherits the mask.
void block_signals() {
  sigset_t signals;
  require(sigemptyset(&signals) == 0, "ot_bfd_init", __LINE__, "sigemptyset");
  require(sigaddset(&signals, SIGRTMIN + 6) == 0, "ot_bfd_init", __LINE__, "sigaddset");
  require(sigaddset(&signals, SIGRTMIN + 10) == 0, "ot_bfd_init", __LINE__, "sigaddset");
  require(pthread_sigmask(SIG_BLOCK, &signals, nullptr) == 0, "ot_bfd_init", __LINE__,
          "pthread_sigmask");
}

void report(const char* text) noexcept {
  errmsg_log(&kor_msg_rec_ot_init_fail, kor_msg_rec_ot_init_fail.severity, text);
}

bool make_context() noexcept {
  if (ot_bfd_ctx.load() == nullptr) {
    ot_bfd_ctx = new (std::nothrow) track_name{};
  }
  if (ot_bfd_ctx.load() != nullptr) {
    return true;
  }
  OT_TRACE_ERROR("%s: calloc failed for ctx::%s\n", "ot_bfd_thread", err_string(no_memory));
  char text[128];
  std::snprintf(text, sizeof text, "Calloc failed for ot_bfd_ctx:: %s\n", err_string(no_memory));
  report(text);
  return false;
}

bool bound_or_binds(evm* manager) noexcept {
  const int status = is_ot_bfd_bind_done.load() != 0 ? status_ok : ot_bfd_bind(manager);
  if (status != status_ok) {
    OT_TRACE_ERROR("%s:error during bfd_bind:: %s\n", "ot_bfd_thread", err_string(status));
    report("Failed binding with BFD server");
  }
  return status == status_ok;
}

void run_loop(evm* manager) {
  while (!stopping.load()) {
    const int status = evm_block(manager);
    if (status == status_ok) {
      evm_dispatch(manager);
    } else if (status != EINTR) {
      OT_TRACE_ERROR("event block failed");
      return;
    }
  }
}

void join_thread() noexcept {
  if (started) {
    pthread_join(ot_bfd_tid, nullptr);
    started = false;
  }
}

// The thread's own loop, unless there is nobody to hand events to.
int make_loop(evm* main_loop) noexcept {
  ot_bfd_set_main_loop(main_loop);
  return main_loop == nullptr || thread_loop != nullptr ? status_ok : evm_create(&thread_loop);
}

// --- Requests -----------------------------------------------------------------------------------

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

int ot_bfd_init(evm* manager) noexcept {
  if (is_ot_bfd_init_done.load() != 0) {
    return status_ok;
  }
  join_thread();
  int status = make_loop(manager);
  if (status != status_ok) {
    return status;
  }
  block_signals();
  stopping = false;
  ended = false;
  status = pthread_create(&ot_bfd_tid, nullptr, ot_bfd_thread, thread_loop);
  started = status == 0;
  if (!started) {
    ended = true;
  }
  if (!started) {
    OT_TRACE_ERROR("%s:pthread_create error:%s\n", __func__, err_string(status));
    report("Failed to create ot_bfd thread");
  }
  return status;
}

bool ot_bfd_ended() noexcept {
  return ended.load();
}

void ot_bfd_stop() noexcept {
  stopping = true;
  if (thread_loop != nullptr) {
    evm_post(
        thread_loop, [](void*) {}, nullptr);  // ends the wait
  }
  join_thread();
  bfdc_unbind();
  evm_destroy(thread_loop);
  thread_loop = nullptr;
  ot_bfd_drop_events();
  delete ot_bfd_ctx.exchange(nullptr);
  is_ot_bfd_connection_up = 0;
  is_ot_bfd_bind_done = 0;
}

void* ot_bfd_thread(void* manager) {
  thread_name_set("ot_bfd");
  auto* loop = static_cast<evm*>(manager);
  if (make_context() && bound_or_binds(loop)) {
    is_ot_bfd_init_done = 1;
    run_loop(loop);
    is_ot_bfd_init_done = 0;
  }
  ended = true;
  thread_name_set("");
  return nullptr;
}

int ot_bfd_bind(evm* manager) noexcept {
  OT_TRACE_DETAIL("Enter::(%s) : ", __func__);
  if (manager == nullptr) {
    OT_TRACE_ERROR("(%s) : NULL evm", __func__);
    return invalid_argument;
  }
  bfdc_bind_record record;
  record.manager = manager;
  record.client_name.assign("object_tracking");
  record.client_id = client_id;
  record.version = client_version;
  record.state_changed = ot_bfd_scn_handler;
  record.bound = ot_bfd_bind_handler;
  record.connection = ot_bfd_conn_handler;
  record.request_done = ot_bfd_req_handler;
  const int status = bfdc_bind_nb(record, ot_bfd_ctx.load());
  if (status != status_ok) {
    OT_TRACE_ERROR("(%d::%s) : bfdc_bind_nb failed: %s", trace_line, __func__, err_string(status));
  }
  return status;
}

int ot_bfd_create_single_session(const char* name, bfd_object* session) noexcept {
  return send(create_call, name, session);
}

int ot_bfd_delete_single_session(const char* name, bfd_object* session) noexcept {
  return send(delete_call, name, session);
}

}  // namespace ot
