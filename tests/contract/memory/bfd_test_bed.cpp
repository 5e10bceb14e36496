// The in-memory BFD service under the contract suite.
#include "tests/contract/bfd_test_bed.h"

#include "platform/memory/bfd_controls.h"
#include "platform/memory/controls.h"

namespace ot::contract {
namespace {

class memory_bed : public bfd_test_bed {
 public:
  [[nodiscard]] std::uint32_t handle() const override { return handle_; }
  void start() override {
    running_ = true;
    field::bfd_engine_back();
  }
  void end() override {
    running_ = false;
    field::bfd_engine_away();
  }
  void answer(const char* address) override { field::bfd_peer_answers(bed_interface, address); }
  void fall_silent(const char* address) override { field::bfd_peer_silent(bed_interface, address); }
  std::size_t sessions() override { return running_ ? field::bfd_wanted_sessions().size() : 0; }

 private:
  std::uint32_t handle_ = field::interface_added(bed_interface);
  bool running_ = false;
};

}  // namespace

std::unique_ptr<bfd_test_bed> make_bfd_test_bed(evm* /*manager*/) {
  return std::make_unique<memory_bed>();
}

}  // namespace ot::contract
