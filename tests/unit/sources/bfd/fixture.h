// A running service that follows BFD sessions of the in-memory engine over the interface "Gi1".
#pragma once

#include <string>

#include "platform/memory/bfd_controls.h"
#include "platform/memory/controls.h"
#include "sources/bfd/client.h"
#include "sources/bfd/table.h"
#include "sources/bfd/track.h"
#include "tests/support/ip_address.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {

class bfd_service : public service_fixture {
 protected:
  static constexpr const char* peer = "10.0.0.2";

  void SetUp() override {
    gi1 = field::interface_added("Gi1");
    field::bfd_engine_back();
    ASSERT_EQ(start(), 0);
  }

  // Rate 300 and debounce count 3.
  static std::string session_item(const std::string& track, const std::string& interface = "Gi1") {
    return track_path(track, "type/bfdprb/0x9/rate/0x12c/debounce_count/0x3/Interface/" +
                                 interface + "/destaddress");
  }
  // The commit's result.
  int configure(const std::string& track, const char* address = peer) {
    return commit({set_tuple(session_item(track), {ip(address)})});
  }

  [[nodiscard]] bfdprb_entry* entry(const char* address = peer) const {
    return hash_db_get_bfdprb_item(gi1, ipv4_bfd_address(ip(address)));
  }
  static text_lines followers(const bfdprb_entry* session) {
    text_lines names;
    for (const auto* node = session == nullptr ? nullptr : session->tracks; node != nullptr;
         node = node->next) {
      names.emplace_back(node->name.view());
    }
    return names;
  }

  static void engine_away() {
    field::bfd_engine_away();
    field::run_pending();
  }
  static void engine_back() {
    field::bfd_engine_back();
    field::run_pending();
  }
  static void peer_answers(const char* address = peer) {
    field::bfd_peer_answers("Gi1", address);
    field::run_pending();
  }
  static void peer_silent(const char* address = peer) {
    field::bfd_peer_silent("Gi1", address);
    field::run_pending();
  }

  std::uint32_t gi1 = 0;  // its handle
};

}  // namespace ot::test
