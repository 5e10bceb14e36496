// The one ledger of the service's process: stores, engine and socket. The lock comes first, so that
// a second instance touches nothing; the socket comes last and is served only when the service says
// that it is ready.
#include "platform/ledger/server/server.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <new>
#include <string>

#include "platform/common/root_path.h"
#include "platform/err_string.h"
#include "platform/ledger/calls/call.h"
#include "platform/ledger/engine/engine.h"
#include "platform/ledger/server/clients.h"
#include "platform/ledger/server/commit_queue.h"
#include "platform/ledger/server/configuration_copy.h"
#include "platform/ledger/server/configuration_store.h"
#include "platform/ledger/server/instance_lock.h"
#include "platform/ledger/server/lmdb_store.h"
#include "platform/ledger/server/store_check.h"
#include "platform/ledger_status.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/linux/process/boot.h"
#include "platform/linux/process/directories.h"
#include "platform/linux/unique_fd.h"
#include "platform/messages.h"

namespace ot {
namespace {

constexpr std::size_t configuration_kb = 20'480;
constexpr std::size_t operational_kb = 4'096;
constexpr std::size_t map_kb_least = 128;

constexpr errmsg_record ledger_log{"OT", "SERVICES", "LEDGER", "%s", 4, 1, {0, 0, 0}, nullptr};

// The size of a map in bytes; a test makes both smaller.
std::size_t map_bytes(std::size_t usual_kb) noexcept {
  const char* wanted = secure_getenv("OT_LEDGER_MAP_KB");
  const std::size_t kb = wanted == nullptr ? 0 : std::strtoul(wanted, nullptr, 10);
  return (kb == 0 ? usual_kb : std::max(kb, map_kb_least)) * 1024;
}

class ledger_server : public ledger_environment {
 public:
  ledger_server();
  ~ledger_server() override;

  // 0 or a status code with a text for the operator.
  int open(evm* manager, std::string& ret_error);
  void serve() noexcept {
    configuration_.unmap_pages();  // the start has read all of it
    clients_.serve();
  }
  // Ends what a handler left to be done in one go.
  void flush() noexcept;

  [[nodiscard]] ledger_engine& engine() noexcept { return engine_; }

  void log(const std::string& line) override;
  int notify(std::string_view base, std::span<const ledger_dpv_notification> entries) override;

 private:
  int open_operational(std::string& ret_error);
  int open_stores(std::string& ret_error);

  unique_fd lock_;
  lmdb_store configuration_;
  lmdb_store operational_;
  configuration_keeper keeper_{configuration_};
  ledger_engine engine_;
  ledger_commit_queue commits_{engine_};
  ledger_clients clients_{engine_, commits_};
};

ledger_server::ledger_server() : engine_(configuration_, operational_, *this) {}

ledger_server::~ledger_server() {
  commits_.close();
  keeper_.finish();
}

int ledger_server::open(evm* manager, std::string& ret_error) {
  lock_ = take_instance_lock(ret_error);
  if (!lock_.valid()) {
    return ledger_not_available;
  }
  if (const int status = open_stores(ret_error); status != status_ok) {
    return status;
  }
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  engine_.begin_generations(static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000U +
                            static_cast<std::uint64_t>(now.tv_nsec));
  sd_event* loop = evm_sd_event(manager);
  if (keeper_.start(loop) != 0 || commits_.open(loop) != 0) {
    return no_memory;
  }
  const int error = clients_.open(loop, ret_error);
  return error == 0 ? status_ok : error == ENOMEM ? no_memory : ledger_storage_failure;
}

int ledger_server::open_stores(std::string& ret_error) {
  if (make_directory(root_path("/var/lib/object_tracking"), 0700, ret_error) != 0) {
    return ledger_storage_failure;
  }
  if (const int status = open_configuration(configuration_, map_bytes(configuration_kb), ret_error);
      status != status_ok) {
    return status;
  }
  if (!configuration_.has_its_space()) {
    log(configuration_path() +
        ": the disk has no room for all of it; changes are refused while the disk is full");
  }
  return open_operational(ret_error);
}

// What is published can be published again, so a store that is no good is replaced.
int ledger_server::open_operational(std::string& ret_error) {
  const std::string path = root_path("/run/object_tracking/operational.mdb");
  const std::string aside = path + ".damaged";
  const lmdb_options options{.path = path,
                             .map_bytes = map_bytes(operational_kb),
                             .durability = lmdb_durability::batched,
                             .stamp = read_boot_id(),
                             .aside = aside};
  std::string fault;
  if (check_store(options.path, options.map_bytes, false, fault) == store_state::faulty) {
    if (std::rename(options.path.c_str(), aside.c_str()) != 0) {
      ret_error = options.path + ": " + fault + ", and it cannot be set aside";
      return ledger_storage_failure;
    }
    log(options.path + ": " + fault + "; it is kept as " + aside +
        ", and the states are published anew");
  }
  const int code = operational_.open(options);
  if (code != 0) {
    ret_error = operational_.open_error(code);
    if (code == ENOSPC) {
      ret_error += ": it needs " + std::to_string(options.map_bytes >> 10) +
                   " kB, and 1024 kB are left to others";
    }
  }
  return code == 0 ? status_ok : code == ENOMEM ? no_memory : ledger_storage_failure;
}

void ledger_server::log(const std::string& line) {
  errmsg_log(&ledger_log, ledger_log.severity, line.c_str());
}

int ledger_server::notify(std::string_view base, std::span<const ledger_dpv_notification> entries) {
  clients_.notify(base, entries);
  return status_ok;
}

void ledger_server::flush() noexcept {
  if (const int status = operational_.flush(); status != status_ok) {
    errmsg_log(&ledger_log, ledger_log.severity, err_string(status));
  }
  keeper_.look();
}

std::unique_ptr<ledger_server> hosted;

// Registered once a manager, for as long as it lives; the server may be gone by then.
void flush_hosted(void* /*argument*/) {
  if (hosted) {
    hosted->flush();
  }
}

}  // namespace

int ledger_server_open(evm* manager, char* error, unsigned size) noexcept {
  std::string text;
  int status = no_memory;
  try {
    auto server = std::make_unique<ledger_server>();
    status = hosted ? ledger_not_available : server->open(manager, text);
    if (status == status_ok) {
      status = evm_add_flush(manager, evm_flush_stage::stores, flush_hosted, nullptr);
    }
    if (status == status_ok) {
      hosted = std::move(server);
      ledger_install_local(&hosted->engine());
    }
  } catch (const std::bad_alloc&) {
    status = no_memory;
  }
  if (status != status_ok) {
    std::snprintf(error, size, "%s", text.empty() ? err_string(status) : text.c_str());
  }
  return status;
}

void ledger_server_serve() noexcept {
  if (hosted) {
    hosted->serve();
  }
}

int ledger_server_restore(char* text, unsigned size) noexcept {
  std::string said;
  int status = no_memory;
  try {
    status = restore_configuration(map_bytes(configuration_kb), said);
  } catch (const std::bad_alloc&) {
    status = no_memory;
  }
  std::snprintf(text, size, "%s", said.empty() ? err_string(status) : said.c_str());
  return status;
}

void ledger_server_close() noexcept {
  ledger_install_local(nullptr);
  hosted.reset();
}

int ledger_enter_host(int (*body)(ledger_engine& engine, void* argument), void* argument) {
  return hosted ? body(hosted->engine(), argument) : ledger_unreachable;
}

}  // namespace ot
