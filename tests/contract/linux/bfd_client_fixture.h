// A BFD client under test: bound to a loop of its own, with an engine of the test on the same loop,
// and what the client was notified of, as text.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/bfd_status.h"
#include "tests/contract/contract_test.h"
#include "tests/contract/linux/fake_bfdd.h"

namespace ot::testing {

using reported_list = std::vector<std::string>;

class bfd_client_fixture : public contract::contract_test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // The engine listens and runs the client's sessions.
  void start();
  // Runs the loop until the engine runs the sessions, or does not.
  void wait_engine(bool running);
  // Asks for a session towards "10.0.0.N" over interface "vN"; the call's own result.
  static int create(unsigned number, std::uint32_t rate = 300, std::uint32_t debounce = 3);
  static int remove(unsigned number);
  // The session is asked for and acknowledged, and the engine has it; and it is up.
  void make(unsigned number);
  void bring_up(unsigned number);

  // Since the last call: "bound", "connection 1", "created 1", "refused 1: TEXT", "gone 1", "up 1",
  // "down 1", the numbers being the sessions'.
  reported_list reported();
  // Runs the loop until `count` things have been reported; what was reported.
  reported_list wait_reported(std::size_t count);

  [[nodiscard]] fake_bfdd& engine() { return *engine_; }
  [[nodiscard]] static std::string address(unsigned number);
  [[nodiscard]] std::string label(unsigned number) const {
    return engine_->label_of(address(number));
  }

 private:
  std::string directory_;
  std::unique_ptr<fake_bfdd> engine_;
};

}  // namespace ot::testing
