// The in-memory probe service under the contract suite.
#include "tests/contract/probe_test_bed.h"

#include "platform/memory/controls.h"

namespace ot::contract {
namespace {

class memory_bed : public probe_test_bed {
 public:
  memory_bed() {
    field::reset();
    field::probe_table_gone();
  }
  ~memory_bed() override { field::reset(); }
  void start() override { field::probe_service_back(); }
  void end() override { field::probe_service_gone(); }
  void result(std::uint32_t op_id, std::uint32_t code, std::uint32_t milliseconds) override {
    field::probe_result(op_id, code, milliseconds);
  }
  void stop(std::uint32_t op_id) override { field::probe_stopped(op_id); }
};

}  // namespace

std::unique_ptr<probe_test_bed> make_probe_test_bed() {
  return std::make_unique<memory_bed>();
}

}  // namespace ot::contract
