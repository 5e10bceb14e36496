// The one ledger of the service's process: what the process framework opens, serves and closes, and
// what the hosting side of the ledger's interface finds.
#include <cstdio>
#include <memory>
#include <new>
#include <string>

#include "platform/ledger/client/local.h"
#include "platform/ledger/engine/host.h"
#include "platform/ledger/server/hosting.h"
#include "platform/ledger/server/server.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/status.h"

namespace ot {
namespace {

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
