// The Linux platform's ledger for the contract tests: called directly by the thread that hosts it,
// and through the socket by another.
#include "tests/contract/ledger_fixture.h"

#include <optional>

#include "tests/contract/linux/ledger_place.h"

namespace ot::test {
namespace {

class direct_bed : public ledger_test_bed {
 public:
  direct_bed() { service_.emplace(); }
  void host(const std::function<void()>& work) override { work(); }
  void restart() override {
    service_.reset();
    service_.emplace();
  }

 private:
  ledger_place place_;
  std::optional<direct_service> service_;
};

class socket_bed : public ledger_test_bed {
 public:
  socket_bed() { service_.emplace(); }
  void host(const std::function<void()>& work) override { service_->run(work); }
  void restart() override {
    service_.reset();
    service_.emplace();
  }

 private:
  ledger_place place_;
  std::optional<threaded_service> service_;
};

}  // namespace

std::vector<std::string> ledger_test_bed_ways() {
  return {"direct", "socket"};
}

std::unique_ptr<ledger_test_bed> make_ledger_test_bed(const std::string& way) {
  if (way == "direct") {
    return std::make_unique<direct_bed>();
  }
  return std::make_unique<socket_bed>();
}

}  // namespace ot::test
