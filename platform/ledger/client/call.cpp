// Which ledger serves a call: this process's own engine for the thread that hosts it, the socket
// for everyone else, with one call through it for each operation. The pointer to the engine lives
// here, in the library, and nowhere else.
#include "platform/ledger/calls/call.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "platform/common/root_path.h"
#include "platform/ledger/calls/backend.h"
#include "platform/ledger/client/link.h"
#include "platform/ledger/messages.h"
#include "platform/ledger_status.h"
#include "platform/process.h"

namespace ot {
namespace {

// The ledger at the other end of the socket.
class remote_backend : public ledger_backend {
 public:
  int bind(std::string_view path) override;
  int get(std::string_view path, ledger_value& ret) override;
  int set(std::string_view path, ledger_kind kind, std::span<const std::byte> value) override;
  int erase(std::string_view path) override;
  int page(std::string_view prefix, std::string_view after, std::vector<ledger_stored>& ret,
           bool& ret_more) override;
  int commit(std::span<const ledger_proposal> changes, std::uint64_t generation,
             std::vector<ledger_refusal>& ret) override;
  int list(const ledger_list_query& query, ledger_page& ret) override;
  // Looks the present value up, if the ledger can be reached.
  int register_switch(std::string_view path, std::atomic<std::uint32_t>& word) override;
  std::uint64_t generation() override;

 private:
  ledger_link link_;
};

ledger_writer one_path(std::string_view path) {
  ledger_writer request;
  request.text(path);
  return request;
}

ledger_writer no_changes() {
  ledger_writer request;
  ledger_put_proposals(request, {});
  return request;
}

int read_to_its_end(const ledger_reader& reader, int status) noexcept {
  return status == status_ok && !reader.finished() ? ledger_bad_message : status;
}

int remote_backend::bind(std::string_view path) {
  ledger_reply reply;
  return link_.call(ledger_member::bind, one_path(path), reply);
}

int remote_backend::get(std::string_view path, ledger_value& ret) {
  ledger_reply reply;
  if (const int status = link_.call(ledger_member::get, one_path(path), reply);
      status != status_ok) {
    return status;
  }
  return ledger_read_value(reply, ret);
}

int remote_backend::set(std::string_view path, ledger_kind kind, std::span<const std::byte> value) {
  ledger_writer request = one_path(path);
  ledger_put_value(request, kind, value);
  ledger_reply reply;
  return link_.call(ledger_member::set, request, reply);
}

int remote_backend::erase(std::string_view path) {
  ledger_reply reply;
  return link_.call(ledger_member::erase, one_path(path), reply);
}

int remote_backend::page(std::string_view prefix, std::string_view after,
                         std::vector<ledger_stored>& ret, bool& ret_more) {
  ledger_writer request = one_path(prefix);
  request.text(after);
  ledger_reply reply;
  if (const int status = link_.call(ledger_member::page, request, reply); status != status_ok) {
    return status;
  }
  ledger_reader reader{reply.body};
  ret_more = reader.u8() != 0;
  return read_to_its_end(reader, ledger_take_stored(reader, ret));
}

std::uint64_t remote_backend::generation() {
  ledger_reply reply;
  if (link_.call(ledger_member::generation, {}, reply) != status_ok) {
    return 0;
  }
  ledger_reader reader{reply.body};
  const std::uint64_t generation = reader.u64();
  return reader.finished() ? generation : 0;
}

int remote_backend::commit(std::span<const ledger_proposal> changes, std::uint64_t generation,
                           std::vector<ledger_refusal>& ret) {
  ledger_writer request;
  ledger_put_proposals(request, changes);
  if (generation != 0) {
    request.u64(generation);
  }
  ledger_reply reply;
  if (request.data().size() > ledger_message_max) {
    // Only those who may write are heard to the end of it.
    if (const int status = link_.call(ledger_member::commit, no_changes(), reply);
        status != status_ok) {
      return status;
    }
  }
  const int status = link_.call(ledger_member::commit, request, reply);
  if (!reply.body.empty()) {
    ledger_reader reader{reply.body};
    ret = ledger_take_refusals(reader);
    return read_to_its_end(reader, status);
  }
  return status;
}

int remote_backend::list(const ledger_list_query& query, ledger_page& ret) {
  ledger_writer request;
  ledger_put_query(request, query);
  ledger_reply reply;
  if (const int status = link_.call(ledger_member::list, request, reply); status != status_ok) {
    return status;
  }
  ledger_reader reader{reply.body};
  ledger_take_page(reader, ret);
  return read_to_its_end(reader, status_ok);
}

int remote_backend::register_switch(std::string_view path, std::atomic<std::uint32_t>& word) {
  ledger_value value;
  if (get(path, value) == status_ok) {
    word.store(value.as_u32(), std::memory_order_relaxed);
  }
  return status_ok;
}

struct local_ledger {
  std::atomic<ledger_backend*> backend{nullptr};
  std::thread::id owner;
};

local_ledger& local() noexcept {
  static local_ledger hosted;
  return hosted;
}

struct remote_ledger {
  std::mutex mutex;
  remote_backend backend;
};

// Never destroyed: a call may come from another object's destructor at the process's end.
remote_ledger& remote() {
  static auto* const shared = new remote_ledger;
  return *shared;
}

// The stores' maps are not for a child.
void forget_in_child() noexcept {
  local().backend.store(nullptr, std::memory_order_relaxed);
}

}  // namespace

void ledger_install_local(ledger_backend* backend) noexcept {
  static const int registered = pthread_atfork(nullptr, nullptr, forget_in_child);
  (void)registered;
  local().owner = std::this_thread::get_id();
  local().backend.store(backend, std::memory_order_release);
}

int ledger_enter(int (*body)(ledger_backend& backend, void* argument), void* argument) {
  ledger_backend* const hosted = local().backend.load(std::memory_order_acquire);
  if (hosted != nullptr && local().owner == std::this_thread::get_id()) {
    return body(*hosted, argument);
  }
  remote_ledger& shared = remote();
  const std::lock_guard lock{shared.mutex};
  return body(shared.backend, argument);
}

bool ledger_library_readable() noexcept {
  try {
    return access(pkg_path("/pkg/lib/libledger.so").c_str(), R_OK) == 0;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace ot
