// The hosting service's side of the ledger's interface, over whichever engine the process has.
#include "platform/ledger/engine/host.h"

#include <new>

#include "platform/ledger/calls/connection.h"
#include "platform/ledger_config.h"
#include "platform/ledger_provider.h"
#include "platform/status.h"

namespace ot {
namespace {

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

int ledger_config_register(const char* root, std::span<const ledger_tree_node> nodes,
                           std::span<const ledger_registration> rows) noexcept {
  return on_engine([&](ledger_engine& engine) { return engine.register_tree(root, nodes, rows); });
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
