// The in-memory ledger's insides, shared by its edge and its controls.
#pragma once

#include <array>
#include <memory>

#include "platform/ledger/engine/backlog.h"
#include "platform/ledger/engine/engine.h"
#include "platform/memory/ledger_controls.h"
#include "platform/memory/ledger_map_store.h"

namespace ot {

struct ledger_subscription {
  std::string path;
  ledger_backlog backlog;
};

// What the engine sees of its platform: logs and notifications are collected, and the service's
// callbacks run with allocation faults in force.
class ledger_memory_environment : public ledger_environment {
 public:
  void log(const std::string& line) override { lines.push_back(line); }
  int notify(std::string_view base, std::span<const ledger_dpv_notification> entries) override;
  void in_service(void (*body)(void*), void* argument) override;

  std::vector<std::string> lines;
  std::vector<std::vector<ledger_sent_notification>> batches;
  std::vector<ledger_subscription*> followers;
};

// The engine with the failures that a test asked for in front of it.
class ledger_memory_backend : public ledger_backend {
 public:
  explicit ledger_memory_backend(ledger_engine& engine) noexcept : engine_(engine) {}

  int bind(std::string_view path) override;
  int get(std::string_view path, ledger_value& ret) override;
  int set(std::string_view path, ledger_kind kind, std::span<const std::byte> value) override;
  int erase(std::string_view path) override;
  int page(std::string_view prefix, std::string_view after, std::vector<ledger_stored>& ret,
           bool& ret_more) override;
  int commit(std::span<const ledger_proposal> changes, std::vector<ledger_refusal>& ret) override;
  int list(const ledger_list_query& query, ledger_page& ret) override;
  int register_switch(std::string_view path, std::atomic<std::uint32_t>& word) override;
  std::uint64_t generation() override { return engine_.generation(); }

  void fail_next(ledger_operation operation, int code) noexcept;
  // The failure asked for, once; else 0.
  int take_failure(ledger_operation operation) noexcept;

 private:
  ledger_engine& engine_;
  std::array<int, 8> failures_{};
};

struct ledger_memory {
  ledger_map_store configuration;
  ledger_map_store operational;
  ledger_memory_environment environment;
  std::unique_ptr<ledger_engine> engine;
  std::unique_ptr<ledger_memory_backend> backend;
  bool library_readable = true;

  ledger_memory() { restart(); }
  void restart();
};

// The process's ledger, made at its first use.
ledger_memory& ledger_memory_instance();

}  // namespace ot
