// Connections: binding, unbinding and the process's own one.
#include "platform/ledger/calls/connection.h"

#include <atomic>
#include <cstring>

#include "platform/ledger/calls/call.h"

namespace ot {

std::string_view ledger_conn_base(const ledger_conn* connection) noexcept {
  return connection == nullptr ? std::string_view{}
                               : std::string_view{connection->base.data(), connection->length};
}

ledger_full_path::ledger_full_path(const ledger_conn* connection, const char* relative) noexcept {
  const std::string_view base = ledger_conn_base(connection);
  const std::size_t added = relative == nullptr ? 0 : std::strlen(relative);
  if (base.empty() || relative == nullptr || base.size() + added > ledger_path_max) {
    return;
  }
  std::memcpy(text_.data(), base.data(), base.size());
  std::memcpy(text_.data() + base.size(), relative, added);
  length_ = base.size() + added;
}

int ledger_bind(const char* path, ledger_conn** ret) noexcept {
  if (path == nullptr || !ledger_base_path_valid(path)) {
    return ledger_unknown_path;
  }
  return ledger_call([&](ledger_backend& backend) {
    if (const int status = backend.bind(path); status != status_ok) {
      return status;
    }
    auto* connection = new (std::nothrow) ledger_conn;
    if (connection == nullptr) {
      return no_memory;
    }
    connection->length = std::strlen(path);
    std::memcpy(connection->base.data(), path, connection->length);
    *ret = connection;
    return status_ok;
  });
}

void ledger_unbind(ledger_conn* connection) noexcept {
  delete connection;
}

ledger_conn* ledger_get_default_conn() noexcept {
  static std::atomic<ledger_conn*> shared{nullptr};
  ledger_conn* connection = shared.load(std::memory_order_acquire);
  if (connection != nullptr) {
    return connection;
  }
  ledger_conn* fresh = nullptr;
  if (ledger_bind("/", &fresh) != status_ok) {
    return nullptr;
  }
  if (!shared.compare_exchange_strong(connection, fresh, std::memory_order_acq_rel)) {
    ledger_unbind(fresh);  // another thread was first
    return connection;
  }
  return fresh;
}

}  // namespace ot
