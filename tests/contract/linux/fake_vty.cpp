// The tests' bfdd. A command that is unknown in its node is tried in those above, and one that
// succeeds there stays there, as FRR's shell has it.
#include "tests/contract/linux/fake_vty.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>
#include <sstream>

namespace ot::testing {
namespace {

using nlohmann::json;

constexpr std::uint8_t unknown = 2;
constexpr std::uint8_t refused = 13;

// The words behind "peer", by their keys.
struct peer_words {
  vty_key key;
  std::string local;
};

peer_words read_words(const std::string& text) {
  std::istringstream words{text};
  peer_words read;
  words >> read.key.first;
  for (std::string word; words >> word;) {
    words >> (word == "interface" ? read.key.second : read.local);
  }
  return read;
}

json identity(const vty_key& key, const vty_peer& peer) {
  json object = {{"multihop", false}, {"peer", key.first}, {"vrf", "default"}};
  if (!key.second.empty()) {
    object["interface"] = key.second;
  }
  if (!peer.local.empty()) {
    object["local"] = peer.local;
  }
  return object;
}

json session_of(const vty_key& key, const vty_peer& peer) {
  json object = identity(key, peer);
  object.update({{"id", 3090109967U},
                 {"remote-id", 7},
                 {"passive-mode", false},
                 {"status", peer.status},
                 {"diagnostic", peer.diagnostic},
                 {"remote-diagnostic", "ok"},
                 {"type", peer.configured ? "configured" : "dynamic"},
                 {"receive-interval", peer.receive},
                 {"transmit-interval", peer.transmit},
                 {"echo-receive-interval", 50},
                 {"echo-transmit-interval", 0},
                 {"detect-multiplier", peer.multiplier},
                 {"remote-receive-interval", 20},
                 {"remote-transmit-interval", 70},
                 {"remote-detect-multiplier", 4}});
  return object;
}

void put(std::string& bytes, std::size_t place, std::uint32_t number) {
  std::memcpy(&bytes[place], &number, sizeof number);
}

void put_back(const std::string& path) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  now.tv_sec -= 600;
  const timespec times[] = {now, now};
  EXPECT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

}  // namespace

// --- The process ---------------------------------------------------------------------------------

void fake_vty::listen(bool long_ago) {
  fake_daemon::listen();
  if (long_ago) {
    put_back(path());
  }
}

void fake_vty::die() {
  fake_daemon::die();
  peers_.clear();
  logs_sessions_ = false;
}

void fake_vty::hang_up() {
  fake_daemon::hang_up();
  for (int* fd : {&log_, &descriptor_}) {
    if (*fd >= 0) {
      close(*fd);
    }
    *fd = -1;
  }
  node_ = node::view;
}

void fake_vty::end_log() {
  close(log_);
  log_ = -1;
}

void fake_vty::serve_once() {
  pollfd readable{peer(), POLLIN, 0};
  EXPECT_EQ(poll(&readable, 1, 5000), 1);
  read();
}

void fake_vty::take(std::string& unread) {
  for (std::size_t end = unread.find('\0'); end != std::string::npos; end = unread.find('\0')) {
    const std::string command = unread.substr(0, end);
    unread.erase(0, end + 1);
    EXPECT_TRUE(unread.empty()) << "a command before the answer to " << command;
    take_command(command);
  }
}

void fake_vty::take_command(const std::string& command) {
  commands_.push_back(command);
  const reaction present = reaction_;  // which may put another in its place
  if (present && present(*this, command)) {
    return;
  }
  const vty_answer said = obey(command);
  answer(said.code, said.text);
}

// --- Talking -------------------------------------------------------------------------------------

void fake_vty::answer(std::uint8_t code, const std::string& text) {
  if (!connected()) {
    return;
  }
  std::string bytes = text + std::string(3, '\0') + static_cast<char>(code);
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  iovec part{bytes.data(), bytes.size()};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  if (descriptor_ >= 0) {
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* along = CMSG_FIRSTHDR(&message);
    along->cmsg_level = SOL_SOCKET;
    along->cmsg_type = SCM_RIGHTS;
    along->cmsg_len = CMSG_LEN(sizeof(int));
    std::memcpy(CMSG_DATA(along), &descriptor_, sizeof descriptor_);
  }
  EXPECT_EQ(sendmsg(peer(), &message, MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
  if (descriptor_ >= 0) {
    close(descriptor_);
  }
  descriptor_ = -1;
}

void fake_vty::log_bytes(std::string_view datagram) {
  if (log_ >= 0) {
    send(log_, datagram.data(), datagram.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  }
}

void fake_vty::log(const std::string& text, std::uint32_t lost) {
  constexpr std::size_t header = 88;
  std::string bytes(header, '\0');
  put(bytes, 12, header);
  put(bytes, 32, lost);
  put(bytes, 44, static_cast<std::uint32_t>(text.size()));
  log_bytes(bytes + text);
}

void fake_vty::set_state_silently(const vty_key& key, const std::string& state) {
  vty_peer& peer = peers_.at(key);
  peer.ups += peer.status != "up" && state == "up" ? 1U : 0U;
  peer.downs += peer.status == "up" && state != "up" ? 1U : 0U;
  peer.status = state;
}

void fake_vty::set_state(const vty_key& key, const std::string& state, const std::string& reason) {
  const std::string before = peers_.at(key).status;
  set_state_silently(key, state);
  if (logs_sessions_) {
    log("[SEY1D-NT8EQ] state-change: [mhop:no peer:" + key.first +
        " local:" + peers_.at(key).local + " vrf:default" +
        (key.second.empty() ? "" : " ifname:" + key.second) + "] " + before + " -> " + state +
        (reason.empty() ? "" : " reason:" + reason));
  }
}

std::size_t fake_vty::count(std::string_view start) const {
  return static_cast<std::size_t>(
      std::count_if(commands_.begin(), commands_.end(),
                    [start](const std::string& command) { return command.starts_with(start); }));
}

// --- Obeying -------------------------------------------------------------------------------------

struct fake_vty::rule {
  node where;
  std::string_view start;
  std::function<vty_answer(fake_vty& bfdd, const std::string& rest)> run;
};

namespace {

vty_answer go(void* /*nowhere*/) {
  return {};
}

}  // namespace

const fake_vty::rule fake_vty::rules[] = {
    {node::enable, "terminal monitor", [](auto& bfdd, auto&) { return bfdd.follow_log(); }},
    {node::enable, "show version",
     [](auto& bfdd, auto&) {
       return vty_answer{0, "FRRouting " + bfdd.version + " (router) on Linux(6.12).\n"};
     }},
    {node::enable, "show running-config",
     [](auto& bfdd, auto&) {
       return vty_answer{0, bfdd.configuration()};
     }},
    {node::enable, "show bfd peers json",
     [](auto& bfdd, auto&) {
       return vty_answer{0, bfdd.sessions()};
     }},
    {node::enable, "show bfd peers counters json",
     [](auto& bfdd, auto&) {
       return vty_answer{0, bfdd.counters()};
     }},
    {node::enable, "show bfd peer ", [](auto& bfdd, auto& rest) { return bfdd.session(rest); }},
    {node::enable, "debug bfd peer",
     [](auto& bfdd, auto&) { return go(&(bfdd.logs_sessions_ = true)); }},
    {node::enable, "no debug bfd peer",
     [](auto& bfdd, auto&) { return go(&(bfdd.logs_sessions_ = false)); }},
    {node::enable, "configure terminal",
     [](auto& bfdd, auto&) { return go(&(bfdd.node_ = node::config)); }},
    {node::enable, "end", [](auto& bfdd, auto&) { return go(&(bfdd.node_ = node::enable)); }},
    {node::config, "bfd", [](auto& bfdd, auto&) { return go(&(bfdd.node_ = node::bfd)); }},
    {node::config, "exit", [](auto& bfdd, auto&) { return go(&(bfdd.node_ = node::enable)); }},
    {node::bfd, "peer ", [](auto& bfdd, auto& rest) { return bfdd.enter_peer(rest); }},
    {node::bfd, "no peer ", [](auto& bfdd, auto& rest) { return bfdd.no_peer(rest); }},
    {node::bfd, "exit", [](auto& bfdd, auto&) { return go(&(bfdd.node_ = node::config)); }},
    {node::peer, "profile ",
     [](auto& bfdd, auto& rest) {
       bfdd.peers_.at(bfdd.entered_).profile = rest;
       return vty_answer{};
     }},
    {node::peer, "receive-interval ",
     [](auto& bfdd, auto& rest) { return bfdd.number(rest, &vty_peer::receive, 10); }},
    {node::peer, "transmit-interval ",
     [](auto& bfdd, auto& rest) { return bfdd.number(rest, &vty_peer::transmit, 10); }},
    {node::peer, "detect-multiplier ",
     [](auto& bfdd, auto& rest) { return bfdd.number(rest, &vty_peer::multiplier, 2); }},
    {node::peer, "shutdown", [](auto& bfdd, auto&) { return bfdd.shut(true); }},
    {node::peer, "no shutdown", [](auto& bfdd, auto&) { return bfdd.shut(false); }},
    {node::peer, "exit", [](auto& bfdd, auto&) { return go(&(bfdd.node_ = node::bfd)); }},
};

bool fake_vty::run_in(node where, const std::string& command, vty_answer* ret) {
  const auto* found = std::find_if(std::begin(rules), std::end(rules), [&](const rule& each) {
    return each.where == where &&
           (each.start.ends_with(' ') ? command.starts_with(each.start) : command == each.start);
  });
  if (found == std::end(rules)) {
    return false;
  }
  const node before = node_;
  node_ = where;
  *ret = found->run(*this, command.substr(found->start.size()));
  node_ = ret->code == 0 ? node_ : before;
  return true;
}

vty_answer fake_vty::obey(const std::string& command) {
  vty_answer said;
  if (node_ == node::view && command == "enable") {
    node_ = node::enable;
    return said;
  }
  const node before = node_;
  if (before > node::enable && command.starts_with("do ")) {
    const bool known = run_in(node::enable, command.substr(3), &said);
    node_ = before;
    return known ? said : vty_answer{unknown, "% Unknown command: " + command + "\n"};
  }
  if (before > node::enable && command == "end") {
    node_ = node::enable;
    return said;
  }
  for (int where = static_cast<int>(before); where >= static_cast<int>(node::enable); --where) {
    const bool configures = before > node::enable;
    if (static_cast<node>(where) == node::enable && configures) {
      break;
    }
    if (run_in(static_cast<node>(where), command, &said)) {
      return said;
    }
  }
  return {unknown, "% Unknown command: " + command + "\n"};
}

vty_answer fake_vty::enter_peer(const std::string& text) {
  const peer_words words = read_words(text);
  for (const auto& [key, peer] : peers_) {
    if (key.first == words.key.first && key.second.empty() != words.key.second.empty()) {
      return {refused, "It is not allowed to configure the same peer with and without ifname\n"};
    }
  }
  const auto [found, fresh] = peers_.try_emplace(words.key);
  vty_peer& peer = found->second;
  peer.configured = true;
  peer.local = words.local;
  if (fresh) {
    peer.original = words.local;
  }
  entered_ = words.key;
  node_ = node::peer;
  return {};
}

vty_answer fake_vty::no_peer(const std::string& text) {
  const auto found = peers_.find(read_words(text).key);
  if (found == peers_.end()) {
    return {};
  }
  if (found->second.local != found->second.original) {
    return {refused, "% Configuration failed.\n\nError type: validation\n"};
  }
  if (found->second.protocol) {
    found->second.configured = false;
  } else {
    peers_.erase(found);
  }
  return {};
}

vty_answer fake_vty::shut(bool shut) {
  vty_peer& peer = peers_.at(entered_);
  if (peer.shut != shut) {
    set_state_silently(entered_, shut ? "shutdown" : "down");
  }
  peer.shut = shut;
  return {};
}

vty_answer fake_vty::number(const std::string& words, unsigned vty_peer::*field, unsigned least) {
  const unsigned long value = std::stoul(words);
  if (value < least) {
    return {unknown, "% Unknown command: " + words + "\n"};
  }
  peers_.at(entered_).*field = static_cast<unsigned>(value);
  return {};
}

vty_answer fake_vty::follow_log() {
  int ends[2] = {-1, -1};
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
  if (log_ >= 0) {
    close(log_);
  }
  log_ = ends[0];
  descriptor_ = ends[1];
  return {};
}

// --- Showing -------------------------------------------------------------------------------------

std::string fake_vty::configuration() const {
  std::ostringstream text;
  text << "frr version " << version << "\nhostname router\n!\n" << lines_;
  text << (logs_sessions_ ? "debug bfd peer\n!\n" : "") << "bfd\n";
  for (const auto& [key, peer] : peers_) {
    if (!peer.configured) {
      continue;
    }
    text << " peer " << key.first << (peer.local.empty() ? "" : " local-address " + peer.local)
         << (key.second.empty() ? "" : " interface " + key.second) << "\n"
         << (peer.profile.empty() ? "" : "  profile " + peer.profile + "\n")
         << (peer.receive == 300 ? "" : "  receive-interval " + std::to_string(peer.receive) + "\n")
         << " exit\n !\n";
  }
  text << "exit\n!\nend\n";
  return text.str();
}

std::string fake_vty::sessions() const {
  json list = json::array();
  for (const auto& [key, peer] : peers_) {
    list.push_back(session_of(key, peer));
  }
  return list.dump(2) + "\n";
}

vty_answer fake_vty::session(const std::string& text) const {
  const auto found = peers_.find(read_words(text).key);
  return found == peers_.end() ? vty_answer{refused, "% Unable to find 'peer'\n"}
                               : vty_answer{0, session_of(found->first, found->second).dump(2)};
}

std::string fake_vty::counters() const {
  json list = json::array();
  for (const auto& [key, peer] : peers_) {
    json object = identity(key, peer);
    object.update({{"control-packet-input", 11},
                   {"control-packet-output", 12},
                   {"session-up", peer.ups},
                   {"session-down", peer.downs}});
    list.push_back(object);
  }
  return list.dump(2) + "\n";
}

}  // namespace ot::testing
