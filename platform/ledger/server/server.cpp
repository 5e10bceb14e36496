// The ledger in its process. The lock comes first, so that a second instance touches nothing; the
// socket comes last and is served only when the service says that it is ready. Connections over the
// cap wait in the kernel's queue until another one ends.
#include "platform/ledger/server/server.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/common/root_path.h"
#include "platform/ledger/messages.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/linux/process/boot.h"
#include "platform/linux/process/directories.h"
#include "platform/linux/unix_address.h"
#include "platform/messages.h"
#include "platform/status.h"

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

}  // namespace

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
  return lock_.take(run + "/ledger.lock", ret_error) ? status_ok : ledger_not_available;
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

}  // namespace ot
