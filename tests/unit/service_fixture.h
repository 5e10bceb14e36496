// A running service on a fresh in-memory router: what a unit test of the service starts from. The
// test acts on the router through platform/memory/controls.h and on the configuration as a client
// of the ledger.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/track.h"
#include "platform/event_subscriber.h"
#include "platform/evm.h"
#include "platform/ledger_commit.h"
#include "tests/support/ledger_proposals.h"

namespace ot::test {

// Paths of a track's configuration items.
std::string track_path(const std::string& track, const std::string& item);
// The items that make a track follow an interface, in the order an operator's tool writes them.
std::vector<ledger_proposal> interface_track(const std::string& track,
                                             const std::string& interface);

// The wanted lines stand in these ones in this order, whatever is between them.
MATCHER_P(contains_in_order, wanted, "") {
  auto next = wanted.begin();
  for (const std::string& line : arg) {
    if (next != wanted.end() && line == *next) {
      ++next;
    }
  }
  if (next != wanted.end()) {
    *result_listener << "without \"" << *next << "\" in its place";
  }
  return next == wanted.end();
}
using text_lines = std::vector<std::string>;

class service_fixture : public testing::Test {
 protected:
  // The router is up, the service is not.
  service_fixture();
  // Stops a running service.
  ~service_fixture() override;

  // Runs the start-up; its result.
  int start(std::uint32_t start_count = 1);
  // The service's process ends; what the ledger has stored stays.
  void stop();

  // Ends and starts again, as the second start of the same boot.
  int restart();

  // Switches all trace flags and forgets what was traced and logged so far.
  void trace(bool on = true);
  void forget_output();

  // Commits and runs what follows of it at once. The result, and the refusals in `refusals`.
  int commit(const std::vector<ledger_proposal>& changes);
  // Deletes everything that is configured for the track, its existence last; the commit's result.
  int delete_track(const std::string& name);
  // The published item of a track, as a reader of the ledger sees it.
  std::optional<std::uint32_t> published(const std::string& track);
  // The notifications sent so far, as "<track> set 1" and "<track> delete 0".
  std::vector<std::string> take_notifications();
  // The events published since the last call, as "<track> 1"; the first call only subscribes.
  std::vector<std::string> take_events();

  ot_track& track(const std::string& name);

  evm* manager = nullptr;
  std::vector<ledger_refusal> refusals;

 private:
  evdl_subscriber* subscriber_ = nullptr;
};

// A fixture that starts the service.
class running_service : public service_fixture {
 protected:
  void SetUp() override;
};

}  // namespace ot::test
