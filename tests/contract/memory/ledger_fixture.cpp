// The in-memory platform's ledger for the contract tests.
#include "tests/contract/ledger_fixture.h"

#include "platform/memory/ledger_controls.h"

namespace ot::test {
namespace {

class memory_bench : public ledger_bench {
 public:
  memory_bench() { ledger_control_reset(); }
  void restart() override { ledger_control_restart(); }
};

}  // namespace

std::unique_ptr<ledger_bench> make_ledger_bench() {
  return std::make_unique<memory_bench>();
}

}  // namespace ot::test
