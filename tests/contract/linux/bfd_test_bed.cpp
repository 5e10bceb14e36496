// The Linux BFD client under the contract suite: bfdd's control socket as the tests' own engine
// serves it.
#include "tests/contract/bfd_test_bed.h"

#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

#include "tests/contract/linux/fake_bfdd.h"

namespace ot::contract {
namespace {

using testing::engine_request;
using testing::fake_bfdd;

constexpr std::uint8_t add_peers = 2;

std::string socket_path() {
  const std::string folder = std::string(std::getenv("OT_ROOT")) + "/run/frr";
  std::filesystem::create_directories(folder);
  return folder + "/bfdd.sock";
}

class linux_bed : public bfd_test_bed {
 public:
  explicit linux_bed(evm* manager) : engine_(manager, socket_path()) {
    setenv("OT_BFD_ENGINE", "frr", 1);
    engine_.react([this](fake_bfdd& engine, const engine_request& request) {
      engine.obey(request);
      if (request.type == add_peers) {
        report_if_answered(request.peer("ipv4").at("peer-address"));
      }
    });
  }
  ~linux_bed() override { unsetenv("OT_BFD_ENGINE"); }
  // bfdd names interfaces itself; to the client the number is only a name.
  [[nodiscard]] std::uint32_t handle() const override { return 101; }
  void start() override { engine_.listen(); }
  void end() override { engine_.die(); }
  void answer(const char* address) override {
    answering_.insert(address);
    report_if_answered(address);
  }
  void fall_silent(const char* address) override {
    answering_.erase(address);
    report(address, "down");
  }
  std::size_t sessions() override { return engine_.sessions().size(); }

 private:
  void report_if_answered(const std::string& address) {
    if (answering_.contains(address)) {
      report(address, "up");
    }
  }
  void report(const std::string& address, const char* state) {
    if (const std::string label = engine_.label_of(address); !label.empty()) {
      engine_.set_state(label, state);
    }
  }

  fake_bfdd engine_;
  std::set<std::string> answering_;
};

}  // namespace

std::unique_ptr<bfd_test_bed> make_bfd_test_bed(evm* manager) {
  return std::make_unique<linux_bed>(manager);
}

}  // namespace ot::contract
