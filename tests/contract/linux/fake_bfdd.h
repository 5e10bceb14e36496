// A BFD engine for tests: the control socket with what the real one does for a request, on the
// loop of the test, and the means to do anything else instead.
#pragma once

#include <systemd/sd-event.h>

#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/evm.h"
#include "platform/linux/bfd/frr_control/protocol.h"

namespace ot::testing {

struct engine_request {
  std::uint8_t type = 0;
  std::uint16_t id = 0;
  std::string payload;

  [[nodiscard]] nlohmann::json peer(const char* list) const {
    return nlohmann::json::parse(payload).at(list).at(0);
  }
};

class fake_bfdd {
 public:
  fake_bfdd(evm* manager, std::string path);
  ~fake_bfdd();
  fake_bfdd(const fake_bfdd&) = delete;
  fake_bfdd& operator=(const fake_bfdd&) = delete;

  // --- The process -------------------------------------------------------------------------------

  void listen();
  // Dies: sessions and connections are lost, the socket's file stays.
  void die();
  // Closes the connection, or resets it with what is unread, and lives on.
  void hang_up();
  // Reads nothing any more.
  void stop_reading();

  // What to do with a request in place of answering it.
  using reaction = std::function<void(fake_bfdd& engine, const engine_request& request)>;
  void react(reaction instead) { reaction_ = std::move(instead); }
  // What it does by itself.
  void obey(const engine_request& request);

  // --- Talking -----------------------------------------------------------------------------------

  void respond(std::uint16_t id, bool accepted);
  void notify(const nlohmann::json& notification);
  void say(std::string_view bytes);
  // Of a session it has, by its label.
  void set_state(const std::string& label, const std::string& state);
  // Takes a session away and reports it.
  void drop(const std::string& label);

  // --- What it has seen --------------------------------------------------------------------------

  [[nodiscard]] const std::vector<engine_request>& requests() const { return requests_; }
  [[nodiscard]] std::vector<engine_request> requests(std::uint8_t type) const;
  [[nodiscard]] unsigned connections() const { return connections_; }
  [[nodiscard]] bool connected() const { return peer_ >= 0; }
  // Label to peer object, as asked for; what is put in here counts as made by somebody.
  std::map<std::string, nlohmann::json>& sessions() { return sessions_; }
  // The label of the session towards this address; empty when there is none.
  [[nodiscard]] std::string label_of(const std::string& address) const;

 private:
  static int on_connect(sd_event_source* source, int fd, std::uint32_t events, void* self);
  static int on_readable(sd_event_source* source, int fd, std::uint32_t events, void* self);
  void read();
  void take_requests();
  [[nodiscard]] bool add(const nlohmann::json& peer);

  evm* manager_;
  std::string path_;
  int listener_ = -1;
  int peer_ = -1;
  sd_event_source* accept_ = nullptr;
  sd_event_source* readable_ = nullptr;
  std::string unread_;
  unsigned connections_ = 0;
  reaction reaction_;
  std::vector<engine_request> requests_;
  std::map<std::string, nlohmann::json> sessions_;
};

}  // namespace ot::testing
