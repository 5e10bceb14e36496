// The engine of the tests. It frames with its own code, not the client's.
#include "tests/contract/linux/fake_bfdd.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>

namespace ot::testing {
namespace {

using nlohmann::json;

std::string framed(std::uint8_t type, std::uint16_t id, const std::string& payload) {
  const std::uint32_t length = htonl(static_cast<std::uint32_t>(payload.size()));
  std::string bytes(8, '\0');
  std::memcpy(&bytes[0], &length, sizeof length);
  std::memcpy(&bytes[4], &id, sizeof id);
  bytes[6] = static_cast<char>(type);
  bytes[7] = 1;
  return bytes + payload;
}

json notification_of(const char* operation, const std::string& label, const json& peer) {
  return {{"op", operation},
          {"ipv6", false},
          {"multihop", false},
          {"peer-address", peer.value("peer-address", "")},
          {"local-interface", peer.value("local-interface", "")},
          {"label", label}};
}

// A session without an interface is on every one.
bool overlap(const std::string& one, const std::string& other) {
  return one.empty() || other.empty() || one == other;
}

bool same_place(const json& one, const json& other) {
  return one.value("peer-address", "") == other.value("peer-address", "") &&
         overlap(one.value("local-interface", ""), other.value("local-interface", ""));
}

}  // namespace

void fake_bfdd::die() {
  fake_daemon::die();
  sessions_.clear();
}

// The real engine stops for everybody when a header comes without its payload.
void fake_bfdd::take(std::string& unread) {
  while (unread.size() >= 8) {
    std::uint32_t length = 0;
    std::memcpy(&length, unread.data(), sizeof length);
    length = ntohl(length);
    ASSERT_EQ(unread[7], 1) << "version";
    ASSERT_GE(unread.size(), 8 + length) << "a request in pieces";
    engine_request request;
    std::memcpy(&request.id, &unread[4], sizeof request.id);
    request.type = static_cast<std::uint8_t>(unread[6]);
    request.payload = unread.substr(8, length);
    unread.erase(0, 8 + length);
    requests_.push_back(request);
    if (reaction_) {
      reaction_(*this, request);
    } else {
      obey(request);
    }
  }
}

bool fake_bfdd::add(const json& peer) {
  for (const auto& [label, session] : sessions_) {
    if (label == peer.value("label", "") || same_place(session, peer)) {
      return false;  // always asked with "create-only"
    }
  }
  sessions_[peer.at("label")] = peer;
  return true;
}

// As the real engine: the response first, then the notifications of what was done.
void fake_bfdd::obey(const engine_request& request) {
  if (request.type == 4) {
    respond(request.id, true);
    for (const auto& [label, session] : sessions_) {
      notify(notification_of("add", label, session));
      set_state(label, session.value("state", "down"));
    }
  } else if (request.type == 2 && request.payload == "{}") {
    respond(request.id, true);  // nothing to add
  } else if (request.type == 2) {
    const json peer = request.peer("ipv4");
    const bool added = add(peer);
    respond(request.id, added);
    if (added) {
      notify(notification_of("add", peer.at("label"), peer));
    }
  } else {
    const std::string label = request.peer("label").at("label");
    respond(request.id, sessions_.count(label) != 0);
    drop(label);
  }
}

void fake_bfdd::drop(const std::string& label) {
  const auto found = sessions_.find(label);
  if (found == sessions_.end()) {
    return;
  }
  const json session = found->second;
  sessions_.erase(found);
  notify(notification_of("delete", label, session));
  if (session.value("state", "down") == "up") {
    json status = notification_of("status", label, session);
    status["state"] = "down";
    notify(status);
  }
}

void fake_bfdd::set_state(const std::string& label, const std::string& state) {
  json& session = sessions_.at(label);
  session["state"] = state;
  json status = notification_of("status", label, session);
  status.update({{"id", 1}, {"remote-id", 1}, {"state", state}, {"diagnostics", 0}});
  notify(status);
}

void fake_bfdd::respond(std::uint16_t id, bool accepted) {
  json response = {{"status", accepted ? "ok" : "error"}};
  if (!accepted) {
    response["error"] = "request add failed";
  }
  say(framed(1, id, response.dump()));
}

void fake_bfdd::notify(const json& notification) {
  say(framed(4, 0, notification.dump()));
}

std::vector<engine_request> fake_bfdd::requests(std::uint8_t type) const {
  std::vector<engine_request> found;
  for (const engine_request& request : requests_) {
    if (request.type == type) {
      found.push_back(request);
    }
  }
  return found;
}

std::string fake_bfdd::label_of(const std::string& address) const {
  for (const auto& [label, session] : sessions_) {
    if (session.value("peer-address", "") == address) {
      return label;
    }
  }
  return {};
}

}  // namespace ot::testing
