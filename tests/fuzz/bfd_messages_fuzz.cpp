// Feeds arbitrary bytes to the BFD client as what an engine sends: through the framing, the JSON
// and the session table. What is then to be sent must be well-formed, since the engine is not.
//
// The first byte says in which portions the rest arrives. The framing is skipped when it is odd, so
// that the JSON is reached without guessing a header.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <span>
#include <string_view>

#include "platform/linux/bfd/frr_control/protocol.h"
#include "platform/linux/bfd/frr_control/session_table.h"

namespace ot::bfd {
namespace {

constexpr std::size_t requests_limit = 8192;  // of the table, whatever the engine says

void require(bool condition) noexcept {
  if (!condition) std::abort();
}

void require_peer(const engine_job& job) {
  const auto request = nlohmann::json::parse(job.payload);
  if (job.type == message_subscribe) {
    require(job.payload.size() == sizeof(std::uint64_t));
    return;
  }
  const char* list = job.type == message_add ? "ipv4" : "label";
  const auto& peer = request.at(list).at(0);
  require(request.size() == 1 && peer.is_object() && peer.at("label").is_string());
}

class engine_under_fuzz {
 public:
  engine_under_fuzz() {
    for (std::uint32_t number = 1; number <= 3; ++number) {
      table_.want({{interface_name{"eth0"}, number}, 0, 300, 3});
    }
    table_.engine_back();
    table_.next_job();
    table_.answered(1, true);
    for (unsigned refusal = 0; refusal < 2; ++refusal) {
      table_.next_job();
      table_.answered(2, false);
      table_.retry_refused();
    }
  }

  // What the session table asks for after all that, and that it ends.
  void finish() {
    std::size_t count = 0;
    while (const auto job = table_.next_job()) {
      require_peer(*job);
      require(++count < requests_limit);
    }
    table_.engine_lost([](const wanted_session&) {});
    require(!table_.next_job());
  }

  void take(std::string_view payload, std::uint8_t type) {
    bool accepted = false;
    engine_notification notification;
    if (type == message_response && read_response(payload, &accepted)) {
      table_.answered(static_cast<std::uint32_t>(payload.size() % 5), accepted);
    } else if (type == message_notification && read_notification(payload, &notification)) {
      table_.notified(notification);
    }
  }

  void stream(std::string_view bytes, std::size_t portion) {
    frame_reader reader;
    frame_view frame;
    auto found = frame_reader::found::nothing;
    while (!bytes.empty() && found != frame_reader::found::broken) {
      const std::span<char> room = reader.room();
      require(!room.empty());
      const std::size_t count = std::min({portion, bytes.size(), room.size()});
      std::memcpy(room.data(), bytes.data(), count);
      reader.received(count);
      bytes.remove_prefix(count);
      while ((found = reader.next(&frame)) == frame_reader::found::frame) {
        require(frame.payload.size() <= payload_limit);
        take(frame.payload, frame.type);
      }
    }
  }

 private:
  session_table table_{session_labels{1, 2}};
};

}  // namespace
}  // namespace ot::bfd

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view rest{reinterpret_cast<const char*>(data + 1), size - 1};
  ot::bfd::engine_under_fuzz engine;
  if (*data % 2 == 0) {
    engine.stream(rest, *data / 2 + 1U);
  } else {
    engine.take(rest, ot::bfd::message_response);
    engine.take(rest, ot::bfd::message_notification);
  }
  engine.finish();
  return 0;
}
