// What the engine needs of the platform it runs on.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "platform/ledger_provider.h"

namespace ot {

class ledger_environment {
 public:
  virtual ~ledger_environment() = default;

  // A line for the operator's log.
  virtual void log(const std::string& line) = 0;

  // Tells the readers that data below `base` changed. 0 or a status code.
  virtual int notify(std::string_view base, std::span<const ledger_dpv_notification> entries) = 0;

  // Runs `body(argument)`, which calls into the service.
  virtual void in_service(void (*body)(void*), void* argument) { body(argument); }
};

// Runs a callback of the service and returns what it returned.
template <typename Body>
int ledger_in_service(ledger_environment& environment, Body body) {
  struct call {
    Body& body;
    int result;
  } state{body, 0};
  environment.in_service(
      [](void* argument) {
        auto& current = *static_cast<call*>(argument);
        current.result = current.body();
      },
      &state);
  return state.result;
}

}  // namespace ot
