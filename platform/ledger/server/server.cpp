// The one ledger of the service's process: stores, engine and socket. The lock comes first, so that
// a second instance touches nothing; the socket comes last and is served only when the service says
// that it is ready. Connections over the cap wait in the kernel's queue until another one ends.
#include "platform/ledger/server/server.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "platform/common/root_path.h"
#include "platform/err_string.h"
#include "platform/ledger/calls/call.h"
#include "platform/ledger/engine/engine.h"
#include "platform/ledger/messages.h"
#include "platform/ledger/server/lmdb_store.h"
#include "platform/ledger/server/peer.h"
#include "platform/ledger_status.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/linux/process/boot.h"
#include "platform/linux/process/directories.h"
#include "platform/linux/unique_fd.h"
#include "platform/linux/unix_address.h"
#include "platform/messages.h"

namespace ot {
namespace {

constexpr std::size_t peers_max = 64;
constexpr std::size_t configuration_kb = 16'384;
constexpr std::size_t operational_kb = 4'096;
constexpr std::size_t map_kb_least = 128;

constexpr errmsg_record ledger_log{"OT", "SERVICES", "LEDGER", "%s", 4, 1, {0, 0, 0}, nullptr};

// The size of a map in bytes; a test makes both smaller.
std::size_t map_bytes(std::size_t usual_kb) noexcept {
  const char* wanted = std::getenv("OT_LEDGER_MAP_KB");
  const std::size_t kb = wanted == nullptr ? 0 : std::strtoul(wanted, nullptr, 10);
  return (kb == 0 ? usual_kb : std::max(kb, map_kb_least)) * 1024;
}

int failed(std::string& ret_error, const std::string& path, int error) {
  ret_error = path + ": " + strerrordesc_np(error);
  return error == ENOMEM ? no_memory : ledger_storage_failure;
}

// Takes the lock that keeps a second instance out: a file in the run directory, which names the
// process that holds it for whoever is refused. It is held as long as the descriptor is open,
// however the process ends. Not valid when another process has it, or when it cannot be made:
// `ret_error` says which.
unique_fd take_instance_lock(const std::string& path, std::string& ret_error) {
  unique_fd file{::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640)};
  if (!file.valid()) {
    ret_error = path + ": " + strerrordesc_np(errno);
    return {};
  }
  char text[32] = {};
  if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    const bool taken = errno == EWOULDBLOCK;
    const ssize_t length = pread(file.get(), text, sizeof text - 1, 0);
    ret_error = !taken ? path + ": " + strerrordesc_np(errno)
                       : "another instance runs already: process " +
                             std::to_string(length > 0 ? std::atol(text) : 0) + " holds " + path;
    return {};
  }
  const int length = std::snprintf(text, sizeof text, "%ld\n", static_cast<long>(getpid()));
  if (ftruncate(file.get(), 0) != 0 ||
      pwrite(file.get(), text, static_cast<std::size_t>(length), 0) != length) {
    ret_error = path + ": " + strerrordesc_np(errno);
    return {};
  }
  return file;
}

class ledger_server : public ledger_environment, public ledger_peer_owner {
 public:
  ledger_server();
  ~ledger_server() override;

  // 0 or a status code with a text for the operator.
  int open(evm* manager, std::string& ret_error);
  void serve() noexcept;
  // Ends what a handler left to be done in one go.
  void flush() noexcept;

  [[nodiscard]] ledger_engine& engine() noexcept { return engine_; }

  void log(const std::string& line) override;
  int notify(std::string_view base, std::span<const ledger_dpv_notification> entries) override;
  void peer_ended(ledger_peer& peer) noexcept override;

 private:
  static int on_connection(sd_event_source* source, int fd, std::uint32_t events,
                           void* userdata) noexcept;

  int open_places(std::string& ret_error);
  int open_store(lmdb_store& store, const lmdb_options& options, std::string& ret_error);
  int listen(evm* manager, std::string& ret_error);
  void accept_one(int listener) noexcept;
  void adjust_accepting() noexcept;

  unique_fd lock_;
  gid_t members_;
  lmdb_store configuration_;
  lmdb_store operational_;
  ledger_engine engine_;
  sd_event* event_ = nullptr;
  unique_fd listener_;
  std::string socket_path_;
  event_source accepting_;
  bool serving_ = false;
  std::vector<std::unique_ptr<ledger_peer>> peers_;
};

ledger_server::ledger_server()
    : members_(service_group()), engine_(configuration_, operational_, *this) {}

ledger_server::~ledger_server() {
  if (listener_.valid()) {
    unlink(socket_path_.c_str());
  }
}

int ledger_server::open(evm* manager, std::string& ret_error) {
  if (const int status = open_places(ret_error); status != status_ok) {
    return status;
  }
  int status = open_store(configuration_,
                          {.path = root_path("/var/lib/object_tracking/configuration.mdb"),
                           .map_bytes = map_bytes(configuration_kb),
                           .durability = lmdb_durability::synced,
                           .stamp = {}},
                          ret_error);
  if (status == status_ok) {
    status = open_store(operational_,
                        {.path = root_path("/run/object_tracking/operational.mdb"),
                         .map_bytes = map_bytes(operational_kb),
                         .durability = lmdb_durability::batched,
                         .stamp = read_boot_id()},
                        ret_error);
  }
  return status == status_ok ? listen(manager, ret_error) : status;
}

int ledger_server::open_places(std::string& ret_error) {
  const std::string run = root_path("/run/object_tracking");
  const std::string lib = root_path("/var/lib/object_tracking");
  if (const int error = make_directory(run, 0750); error != 0) {
    return failed(ret_error, run, error);
  }
  if (const int error = make_directory(lib, 0700); error != 0) {
    return failed(ret_error, lib, error);
  }
  lock_ = take_instance_lock(run + "/ledger.lock", ret_error);
  return lock_.valid() ? status_ok : ledger_not_available;
}

int ledger_server::open_store(lmdb_store& store, const lmdb_options& options,
                              std::string& ret_error) {
  const int code = store.open(options);
  if (code == 0) {
    return status_ok;
  }
  ret_error = options.path + ": " + lmdb_store::lmdb_text(code);
  return code == ENOMEM ? no_memory : ledger_storage_failure;
}

int ledger_server::listen(evm* manager, std::string& ret_error) {
  socket_path_ = root_path(ledger_socket_path);
  sockaddr_un address{};
  if (!unix_address(socket_path_, &address)) {
    return failed(ret_error, socket_path_, ENAMETOOLONG);
  }
  unlink(socket_path_.c_str());  // of an instance that crashed: the lock says that it is gone
  listener_ = unique_fd{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
  if (!listener_.valid() ||
      bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener_.get(), SOMAXCONN) != 0) {
    return failed(ret_error, socket_path_, errno);
  }
  if (const int error = share_with_group(socket_path_, 0660); error != 0) {
    return failed(ret_error, socket_path_, error);
  }
  event_ = evm_sd_event(manager);
  sd_event_source* source = nullptr;
  if (sd_event_add_io(event_, &source, listener_.get(), EPOLLIN, on_connection, this) < 0) {
    return no_memory;
  }
  accepting_.reset(source);
  adjust_accepting();
  return status_ok;
}

void ledger_server::serve() noexcept {
  serving_ = true;
  adjust_accepting();
}

void ledger_server::adjust_accepting() noexcept {
  const bool accepting = serving_ && peers_.size() < peers_max;
  sd_event_source_set_enabled(accepting_.get(), accepting ? SD_EVENT_ON : SD_EVENT_OFF);
}

int ledger_server::on_connection(sd_event_source* /*source*/, int fd, std::uint32_t /*events*/,
                                 void* userdata) noexcept {
  static_cast<ledger_server*>(userdata)->accept_one(fd);
  return 0;
}

void ledger_server::accept_one(int listener) noexcept {
  unique_fd socket{accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)};
  if (!socket.valid()) {
    return;
  }
  try {
    peers_.reserve(peers_.size() + 1);
    auto peer =
        std::make_unique<ledger_peer>(*this, engine_, ledger_rights_of(socket.get(), members_));
    if (peer->start(event_, std::move(socket)) >= 0) {
      peers_.push_back(std::move(peer));
    }
  } catch (const std::bad_alloc&) {
    // The socket is closed, and the client sees that it is not served.
  }
  adjust_accepting();
}

void ledger_server::peer_ended(ledger_peer& peer) noexcept {
  std::erase_if(peers_, [&peer](const auto& candidate) { return candidate.get() == &peer; });
  adjust_accepting();
}

void ledger_server::log(const std::string& line) {
  errmsg_log(&ledger_log, ledger_log.severity, line.c_str());
}

int ledger_server::notify(std::string_view base, std::span<const ledger_dpv_notification> entries) {
  for (const auto& peer : peers_) {
    peer->notify(base, entries);
  }
  return status_ok;
}

void ledger_server::flush() noexcept {
  if (const int status = operational_.flush(); status != status_ok) {
    errmsg_log(&ledger_log, ledger_log.severity, err_string(status));
  }
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
      status = evm_add_flush(manager, flush_hosted, nullptr);
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

void ledger_server_close() noexcept {
  ledger_install_local(nullptr);
  hosted.reset();
}

int ledger_enter_host(int (*body)(ledger_engine& engine, void* argument), void* argument) {
  return hosted ? body(hosted->engine(), argument) : ledger_unreachable;
}

}  // namespace ot
