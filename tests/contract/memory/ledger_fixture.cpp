// The in-memory platform's ledger for the contract tests: there is one thread and no socket.
#include "tests/contract/ledger_fixture.h"

#include "platform/memory/ledger_controls.h"

namespace ot::test {
namespace {

class memory_bed : public ledger_test_bed {
 public:
  memory_bed() { ledger_control_reset(); }
  void host(const std::function<void()>& work) override { work(); }
  void restart() override { ledger_control_restart(); }
};

}  // namespace

std::vector<std::string> ledger_test_bed_ways() {
  return {"direct"};
}

std::unique_ptr<ledger_test_bed> make_ledger_test_bed(const std::string& /*way*/) {
  return std::make_unique<memory_bed>();
}

}  // namespace ot::test
