// The ledger: the router's database of configuration and operational data, kept by the service and
// read and changed by everybody (platform/ledger*.h). This folder's engine is the ledger itself,
// without files, sockets or clocks: stores, trees, data providers and switches. Around it:
//
//   users -> calls/ -> the engine directly, in the thread that hosts it
//                   -> client/ == socket ==> server/ -> the engine, for everyone else
//
//   calls/      the public functions, each one call on a ledger_backend: the engine or the socket
//   client/     libledger.so's way: sd-bus without a bus, one blocking call with a deadline
//   server/     hosting: socket, peers with their rights, and the stores in LMDB files
//   item.h      what paths and values may be
//   messages.h  what both ends of the socket write and read
//
// A request is read by the server's peer, whose bounds are in peer.cpp: rights first, then its row
// of requests.cpp asks the engine and answers. An item below "/cfg/" is read from the configuration
// store; any other from the data provider of its branch or, when there is none, from the
// operational store. A commit (commit.cpp) is planned, verified, stored durably, and only then
// applied; the first step that fails refuses all of it, but an error of an apply function is
// answered and undoes nothing. The host stores in a thread of its own, and its loop goes on. At
// start the stored configuration is replayed as create events (replay.cpp), in an order that ends
// in what the running service had.
//
// The engine runs on the main thread only, inside handlers of the event loop, and calls the service
// back there: verify, apply, get, list. Clients have the whole process's one link, under a mutex; a
// subscriber has a link of its own. The hosting process owns stores, environment and engine, in
// this order; registered tables belong to the service and live as long as the process.
//
// Refused are: configuration other than by a commit, paths that no tree or root knows, values of
// another kind, a commit within a commit, new items in a store that is half full, and more than one
// hosting process for a root (the server's lock).
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ledger/calls/backend.h"
#include "platform/ledger/engine/commit.h"
#include "platform/ledger/engine/environment.h"
#include "platform/ledger/engine/providers.h"
#include "platform/ledger/engine/staged_items.h"
#include "platform/ledger/engine/tree.h"

namespace ot {

// Main thread.
class ledger_engine : public ledger_backend {
 public:
  // Knows the ledger's own tree (tree.h) from the start. What is handed in stays
  // the caller's and outlives the engine.
  ledger_engine(ledger_store& configuration, ledger_store& operational,
                ledger_environment& environment);

  int bind(std::string_view path) override;
  int get(std::string_view path, ledger_value& ret) override;
  int set(std::string_view path, ledger_kind kind, std::span<const std::byte> value) override;
  int erase(std::string_view path) override;
  int page(std::string_view prefix, std::string_view after, std::vector<ledger_stored>& ret,
           bool& ret_more) override;
  int commit(std::span<const ledger_proposal> changes, std::uint64_t generation,
             std::vector<ledger_refusal>& ret) override;
  int list(const ledger_list_query& query, ledger_page& ret) override;
  int register_switch(std::string_view path, std::atomic<std::uint32_t>& word) override;
  // Another one as soon as readers see what a commit has stored, before it is applied.
  std::uint64_t generation() override { return first_generation_ + configuration_.version(); }

  // `commit` in three steps, for a host that stores beside its loop: `begin_commit` checks and
  // verifies, and what may be stored is in `ret_run` then, if there is anything; run->store() comes
  // next, in any thread; `finish_commit` applies what was stored (`stored` is what store()
  // returned) and ends the run. Until then every other commit is ledger_not_available. May throw
  // bad_alloc.
  int begin_commit(std::vector<ledger_proposal> changes, std::uint64_t generation,
                   std::vector<ledger_refusal>& ret, std::unique_ptr<ledger_commit_run>& ret_run);
  int finish_commit(std::unique_ptr<ledger_commit_run> run, int stored,
                    std::vector<ledger_refusal>& ret);

  // The generations of a host's later start are to be others: `first` tells them apart.
  void begin_generations(std::uint64_t first) noexcept { first_generation_ = first; }

  // As ledger_config_register, ledger_config_replay, ledger_dpv_register and
  // ledger_dpv_generate_notifications describe them.
  int register_tree(std::string_view root, std::span<const ledger_tree_node> nodes,
                    std::span<const ledger_registration> rows, void (*forget)() noexcept = nullptr);
  int replay(std::string_view root);
  int register_providers(std::string_view root, std::span<const ledger_dpv_provider> rows);
  int notify(std::string_view base, std::span<const ledger_dpv_notification> entries);

 private:
  struct switched {
    std::string path;
    std::atomic<std::uint32_t>* word;
  };

  int write(const ledger_write& write, std::uint32_t switch_value);
  [[nodiscard]] switched* find_switch(std::string_view path) noexcept;

  ledger_store& configuration_;
  ledger_store& operational_;
  ledger_environment& environment_;
  ledger_trees trees_;
  ledger_providers providers_;
  std::vector<switched> switches_;
  std::uint64_t first_generation_ = 1;
  bool busy_ = false;                      // a commit or a replay is running
  ledger_staged_items* staged_ = nullptr;  // while a commit is verified
};

// Sets a value for as long as this lives.
template <typename Value>
class ledger_while_set {
 public:
  ledger_while_set(Value& place, Value value) noexcept : place_(place), before_(place) {
    place_ = value;
  }
  ~ledger_while_set() { place_ = before_; }
  ledger_while_set(const ledger_while_set&) = delete;
  ledger_while_set& operator=(const ledger_while_set&) = delete;

 private:
  Value& place_;
  Value before_;
};

// What only the process that hosts the ledger can do. Runs `body(engine, argument)` with the engine
// that this process hosts, under the platform's pause; ledger_unreachable when it hosts none.
int ledger_enter_host(int (*body)(ledger_engine& engine, void* argument), void* argument);

}  // namespace ot
