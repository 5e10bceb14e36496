// The operations on single items: which store a path belongs to, what a provider answers in its
// place, and the switches that follow an item. Commits and replay are in commit.cpp.
#include "platform/ledger/engine/engine.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "platform/ledger/calls/call.h"
#include "platform/ledger/item.h"
#include "platform/ledger_config.h"
#include "platform/ledger_provider.h"
#include "platform/ledger_status.h"

namespace ot {
namespace {

// Items of a page; with every path and value at its longest still below a message's size.
constexpr std::size_t page_items = 128;

constexpr std::string_view configuration_root = "/cfg/";

bool is_operational(std::string_view path) noexcept {
  return path.starts_with("/oper/") || path.starts_with("/debug/");
}

template <typename Body>
int on_engine(Body body) {
  try {
    return ledger_enter_host([](ledger_engine& engine,
                                void* argument) { return (*static_cast<Body*>(argument))(engine); },
                             &body);
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
}

}  // namespace

ledger_engine::ledger_engine(ledger_store& configuration, ledger_store& operational,
                             ledger_environment& environment)
    : configuration_(configuration),
      operational_(operational),
      environment_(environment),
      providers_(environment) {
  ledger_add_builtin_trees(trees_);
}

int ledger_engine::bind(std::string_view path) {
  return ledger_base_path_valid(path) ? status_ok : ledger_unknown_path;
}

int ledger_engine::get(std::string_view path, ledger_value& ret) {
  if (!ledger_item_path_valid(path)) {
    return ledger_unknown_path;
  }
  if (ledger_path_is_configuration(path)) {
    return staged_ != nullptr ? staged_->get(path, ret) : configuration_.get(path, ret);
  }
  return providers_.serves(path) ? providers_.get(path, ret) : operational_.get(path, ret);
}

ledger_engine::switched* ledger_engine::find_switch(std::string_view path) noexcept {
  const auto found = std::find_if(switches_.begin(), switches_.end(),
                                  [path](const switched& item) { return item.path == path; });
  return found == switches_.end() ? nullptr : &*found;
}

int ledger_engine::write(const ledger_write& write, std::uint32_t switch_value) {
  const int status = operational_.write({&write, 1});
  if (status == status_ok && write.path.starts_with("/debug/")) {
    if (const switched* item = find_switch(write.path)) {
      item->word->store(switch_value, std::memory_order_relaxed);
    }
  }
  return status;
}

int ledger_engine::set(std::string_view path, ledger_kind kind, std::span<const std::byte> value) {
  if (ledger_path_is_configuration(path)) {
    return invalid_argument;  // configuration changes by a commit only
  }
  const bool is_switch = path.starts_with("/debug/");
  if (!ledger_item_path_valid(path) || !is_operational(path) || providers_.serves(path) ||
      (!is_switch && path.size() > ledger_operational_path_max)) {
    return ledger_unknown_path;
  }
  if ((is_switch && kind != ledger_kind::u32) || value.size() > ledger_operational_value_max ||
      ledger_value_fault(kind, value) != nullptr) {
    return ledger_wrong_kind;
  }
  std::uint32_t number = 0;
  if (is_switch) {
    std::memcpy(&number, value.data(), sizeof number);
  }
  return write({.path = path, .kind = kind, .value = value}, number);
}

int ledger_engine::erase(std::string_view path) {
  if (ledger_path_is_configuration(path)) {
    return invalid_argument;
  }
  if (!ledger_item_path_valid(path)) {
    return ledger_unknown_path;
  }
  return write({.path = path, .remove = true}, 0);
}

// Every configuration path stands before every other one, so the stores follow each other.
int ledger_engine::page(std::string_view prefix, std::string_view after,
                        std::vector<ledger_stored>& ret, bool& ret_more) {
  const std::size_t before = ret.size();
  const std::size_t end = before + page_items;
  int status = status_ok;
  if (prefix.starts_with(configuration_root) || configuration_root.starts_with(prefix)) {
    status = configuration_.page(std::max(prefix, configuration_root), after, page_items, ret);
  }
  if (status == status_ok && ret.size() < end && !prefix.starts_with(configuration_root)) {
    status = operational_.page(prefix, after, end - ret.size(), ret);
  }
  ret_more = ret.size() >= end;
  return status;
}

int ledger_engine::list(const ledger_list_query& query, ledger_page& ret) {
  return providers_.list(query, ret);
}

int ledger_engine::register_switch(std::string_view path, std::atomic<std::uint32_t>& word) {
  if (!ledger_item_path_valid(path) || !path.starts_with("/debug/")) {
    return ledger_unknown_path;
  }
  if (switched* known = find_switch(path)) {
    known->word = &word;
  } else {
    switches_.push_back({std::string{path}, &word});
  }
  ledger_value stored;
  const int status = operational_.get(path, stored);
  if (status == status_ok) {
    word.store(stored.as_u32(), std::memory_order_relaxed);
  }
  return status == ledger_no_data ? status_ok : status;
}

int ledger_engine::register_tree(std::string_view root, std::span<const ledger_tree_node> nodes,
                                 std::span<const ledger_registration> rows,
                                 void (*forget)() noexcept) {
  return trees_.add(root, nodes, rows, forget);
}

int ledger_engine::register_providers(std::string_view root,
                                      std::span<const ledger_dpv_provider> rows) {
  return providers_.add(root, rows);
}

int ledger_engine::notify(std::string_view base, std::span<const ledger_dpv_notification> entries) {
  return environment_.notify(base, entries);
}

// --- The hosting service's side of the ledger's interface
// ------------------------------------------

int ledger_config_register(const char* root, std::span<const ledger_tree_node> nodes,
                           std::span<const ledger_registration> rows,
                           void (*forget)() noexcept) noexcept {
  return on_engine(
      [&](ledger_engine& engine) { return engine.register_tree(root, nodes, rows, forget); });
}

int ledger_config_replay(const char* root) {
  int failures = -1;
  on_engine([&](ledger_engine& engine) {
    failures = engine.replay(root);
    return status_ok;
  });
  return failures;
}

int ledger_dpv_register(const char* root, std::span<const ledger_dpv_provider> rows) noexcept {
  return on_engine([&](ledger_engine& engine) { return engine.register_providers(root, rows); });
}

int ledger_dpv_generate_notifications(ledger_conn* connection,
                                      const ledger_dpv_notification* entries,
                                      std::uint32_t count) noexcept {
  return on_engine([&](ledger_engine& engine) {
    return engine.notify(ledger_conn_base(connection), {entries, count});
  });
}

}  // namespace ot
