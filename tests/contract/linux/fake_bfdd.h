// A BFD engine for tests: the control socket with what the real one does for a request, on the
// loop of the test, and the means to do anything else instead.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tests/contract/linux/fake_daemon.h"

namespace ot::testing {

struct engine_request {
  std::uint8_t type = 0;
  std::uint16_t id = 0;
  std::string payload;

  [[nodiscard]] nlohmann::json peer(const char* list) const {
    return nlohmann::json::parse(payload).at(list).at(0);
  }
};

class fake_bfdd final : public fake_daemon {
 public:
  using fake_daemon::fake_daemon;
  ~fake_bfdd() override { die(); }

  // --- The process -------------------------------------------------------------------------------

  // Sessions and connections are lost, the socket's file stays.
  void die();

  // What to do with a request in place of answering it.
  using reaction = std::function<void(fake_bfdd& engine, const engine_request& request)>;
  void react(reaction instead) { reaction_ = std::move(instead); }
  // What it does by itself.
  void obey(const engine_request& request);

  // --- Talking -----------------------------------------------------------------------------------

  void respond(std::uint16_t id, bool accepted);
  void notify(const nlohmann::json& notification);
  // Of a session it has, by its label.
  void set_state(const std::string& label, const std::string& state);
  // Takes a session away and reports it.
  void drop(const std::string& label);

  // --- What it has seen --------------------------------------------------------------------------

  [[nodiscard]] const std::vector<engine_request>& requests() const { return requests_; }
  [[nodiscard]] std::vector<engine_request> requests(std::uint8_t type) const;
  // Label to peer object, as asked for; what is put in here counts as made by somebody.
  std::map<std::string, nlohmann::json>& sessions() { return sessions_; }
  // The label of the session towards this address; empty when there is none.
  [[nodiscard]] std::string label_of(const std::string& address) const;

 private:
  void take(std::string& unread) override;
  [[nodiscard]] bool add(const nlohmann::json& peer);

  reaction reaction_;
  std::vector<engine_request> requests_;
  std::map<std::string, nlohmann::json> sessions_;
};

}  // namespace ot::testing
