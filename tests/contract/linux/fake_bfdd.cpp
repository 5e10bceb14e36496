// The engine of the tests. It frames with its own code, not the client's.
#include "tests/contract/linux/fake_bfdd.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/linux/loop/sd_event.h"
#include "platform/linux/unix_address.h"

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

fake_bfdd::fake_bfdd(evm* manager, std::string path) : manager_(manager), path_(std::move(path)) {}

fake_bfdd::~fake_bfdd() {
  die();
}

void fake_bfdd::listen() {
  unlink(path_.c_str());
  sockaddr_un address;
  ASSERT_TRUE(unix_address(path_, &address));
  listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  ASSERT_EQ(bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(::listen(listener_, 5), 0);
  ASSERT_GE(sd_event_add_io(evm_sd_event(manager_), &accept_, listener_, EPOLLIN, on_connect, this),
            0);
}

void fake_bfdd::die() {
  hang_up();
  accept_ = sd_event_source_disable_unref(accept_);
  if (listener_ >= 0) {
    close(listener_);
  }
  listener_ = -1;
  sessions_.clear();
}

void fake_bfdd::hang_up() {
  readable_ = sd_event_source_disable_unref(readable_);
  if (peer_ >= 0) {
    close(peer_);
  }
  peer_ = -1;
  unread_.clear();
}

void fake_bfdd::stop_reading() {
  readable_ = sd_event_source_disable_unref(readable_);
}

int fake_bfdd::on_connect(sd_event_source* /*source*/, int fd, std::uint32_t /*events*/,
                          void* self) {
  auto* engine = static_cast<fake_bfdd*>(self);
  engine->hang_up();
  engine->peer_ = accept4(fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  EXPECT_GE(engine->peer_, 0);
  ++engine->connections_;
  EXPECT_GE(sd_event_add_io(evm_sd_event(engine->manager_), &engine->readable_, engine->peer_,
                            EPOLLIN, on_readable, self),
            0);
  return 0;
}

int fake_bfdd::on_readable(sd_event_source* /*source*/, int /*fd*/, std::uint32_t /*events*/,
                           void* self) {
  static_cast<fake_bfdd*>(self)->read();
  return 0;
}

void fake_bfdd::read() {
  char bytes[65536];
  const ssize_t length = recv(peer_, bytes, sizeof bytes, MSG_DONTWAIT);
  if (length <= 0) {
    if (length == 0 || errno != EAGAIN) {
      hang_up();
    }
    return;
  }
  // The real engine stops for everybody when a header comes without its payload.
  unread_.append(bytes, static_cast<std::size_t>(length));
  take_requests();
}

void fake_bfdd::take_requests() {
  while (unread_.size() >= 8) {
    std::uint32_t length = 0;
    std::memcpy(&length, unread_.data(), sizeof length);
    length = ntohl(length);
    ASSERT_EQ(unread_[7], 1) << "version";
    ASSERT_GE(unread_.size(), 8 + length) << "a request in pieces";
    engine_request request;
    std::memcpy(&request.id, &unread_[4], sizeof request.id);
    request.type = static_cast<std::uint8_t>(unread_[6]);
    request.payload = unread_.substr(8, length);
    unread_.erase(0, 8 + length);
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

void fake_bfdd::say(std::string_view bytes) {
  if (peer_ >= 0) {
    send(peer_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }
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
