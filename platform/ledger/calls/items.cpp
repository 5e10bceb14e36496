// Connections and items as the users of the ledger see them.
#include "platform/ledger/calls/call.h"

#include <atomic>
#include <cstring>
#include <new>
#include <string>

#include "platform/ledger.h"
#include "platform/ledger_commit.h"
#include "platform/ledger_status.h"

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

int ledger_item_get(ledger_conn* connection, const char* path, ledger_value* ret) noexcept {
  const ledger_full_path full{connection, path};
  return ledger_call([&](ledger_backend& backend) { return backend.get(full.view(), *ret); });
}

int ledger_item_set(ledger_conn* connection, const char* path, ledger_kind kind,
                    std::span<const std::byte> value) noexcept {
  const ledger_full_path full{connection, path};
  return ledger_call(
      [&](ledger_backend& backend) { return backend.set(full.view(), kind, value); });
}

int ledger_item_delete(ledger_conn* connection, const char* path) noexcept {
  const ledger_full_path full{connection, path};
  return ledger_call([&](ledger_backend& backend) { return backend.erase(full.view()); });
}

namespace {

// Items are fetched a page at a time and visited outside the call, so a visitor is free to use the
// ledger, and to change it.
int walk(std::string_view prefix, std::size_t base, ledger_visit visit, void* context) {
  std::string after;
  for (bool more = true; more;) {
    std::vector<ledger_stored> items;
    const int status = ledger_call(
        [&](ledger_backend& backend) { return backend.page(prefix, after, items, more); });
    if (status != status_ok) {
      return status;
    }
    for (const ledger_stored& item : items) {
      if (!visit(context, std::string_view{item.path}.substr(base), item.value)) {
        return status_ok;
      }
    }
    more = more && !items.empty();
    after = more ? std::move(items.back().path) : std::string{};
  }
  return status_ok;
}

}  // namespace

int ledger_item_walk(ledger_conn* connection, const char* path, ledger_visit visit,
                     void* context) noexcept {
  const ledger_full_path full{connection, path};
  try {
    std::string prefix{full.view()};
    if (!prefix.ends_with('/')) {
      prefix += '/';
    }
    return full.view().empty() || !ledger_base_path_valid(prefix)
               ? ledger_unknown_path
               : walk(prefix, ledger_conn_base(connection).size(), visit, context);
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
}

std::uint64_t ledger_config_generation() noexcept {
  std::uint64_t generation = 0;
  ledger_call([&](ledger_backend& backend) {
    generation = backend.generation();
    return status_ok;
  });
  return generation;
}

int ledger_switch_register(const char* path, std::atomic<std::uint32_t>* word) noexcept {
  return ledger_call([&](ledger_backend& backend) { return backend.register_switch(path, *word); });
}

int ledger_commit(ledger_conn* connection, std::span<const ledger_proposal> changes,
                  std::vector<ledger_refusal>* ret) {
  return ledger_commit_unless_changed(connection, 0, changes, ret);
}

int ledger_commit_unless_changed(ledger_conn* /*connection*/, std::uint64_t generation,
                                 std::span<const ledger_proposal> changes,
                                 std::vector<ledger_refusal>* ret) {
  std::vector<ledger_refusal> refusals;
  const int status = ledger_call(
      [&](ledger_backend& backend) { return backend.commit(changes, generation, refusals); });
  if (ret != nullptr) {
    *ret = std::move(refusals);
  }
  return status;
}

}  // namespace ot
