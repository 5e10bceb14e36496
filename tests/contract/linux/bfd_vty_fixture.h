// The engine on bfdd's vty socket under test, with a bfdd of the test on the same loop, and what
// the engine has reported, as text.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/bfd/frr_vty/engine.h"
#include "tests/contract/contract_test.h"
#include "tests/contract/linux/fake_vty.h"

namespace ot::testing {

class bfd_vty_fixture : public contract::contract_test, private bfd::engine::owner {
 protected:
  using texts = std::vector<std::string>;

  void SetUp() override;
  void TearDown() override;

  // A session towards 10.0.0.NUMBER on the interface vNUMBER, from 10.0.0.254.
  static bfd::session_config session(unsigned number, std::uint32_t interval = 50,
                                     std::uint32_t multiplier = 3);
  static vty_key key(unsigned number);
  // As somebody else has configured it, or an earlier run of this instance.
  void configure_peer(const vty_key& key, const std::string& profile = "");
  [[nodiscard]] std::string mark() const;

  // bfdd listens and the engine runs.
  void start();
  // The engine begins to work; bfdd may come later.
  void start_engine();
  void end_engine() { engine_.reset(); }
  // The engine waits for its answers, which the loop would give: so bfdd runs beside it, and first
  // of all does that. Nothing of the engine's is left.
  void end_beside_bfdd(const std::function<void()>& first = nullptr);
  // bfdd has the session, and it is up.
  void bring_up(unsigned number);
  // Waits until bfdd has that many peers.
  void wait_peers(std::size_t count);
  // Until nothing is to be done any more but what a second brings.
  void settle();

  // Since the last call: "runs", "away: REASON", "up 1", "down 1", "init 1", "admin 1", once for
  // each change of a session's state.
  texts reported();
  texts wait_reported(std::size_t count);
  [[nodiscard]] const bfdc_session_status& status(unsigned number);

  [[nodiscard]] fake_vty& bfdd() { return *bfdd_; }
  [[nodiscard]] bfd::vty_engine& engine() { return *engine_; }
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  void session_changed(const bfd::session_key& key,
                       const bfdc_session_status& now) noexcept override;
  void engine_changed() noexcept override;

  std::string path_;
  std::unique_ptr<fake_vty> bfdd_;
  std::unique_ptr<bfd::vty_engine> engine_;
  texts reported_;
  std::map<unsigned, bfdc_session_status> statuses_;
  bool ran_ = false;
};

}  // namespace ot::testing
