#include "platform/ledger/engine/interface_services.h"

#include "platform/ledger_interface_services.h"
#include "platform/status.h"

namespace ot {
namespace {

ledger_apply_fn follower = nullptr;

}  // namespace

int ledger_interface_service_verify(const ledger_change& /*change*/,
                                    ledger_verdict& /*verdict*/) noexcept {
  return status_ok;
}

int ledger_interface_service_apply(const ledger_change& change) {
  return follower == nullptr ? status_ok : follower(change);
}

void ledger_follow_interface_services(ledger_apply_fn changed) noexcept {
  follower = changed;
}

}  // namespace ot
