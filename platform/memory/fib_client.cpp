// The in-memory FIB. Notifications go through the client's loop, one registered prefix each.
#include "platform/fib_client.h"

#include <arpa/inet.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/ipv4.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "platform/memory/loops.h"
#include "platform/memory/world.h"
#include "platform/status.h"

namespace ot {
namespace {

std::uint32_t bits_of(std::uint32_t length) noexcept {
  return ntohl(ipv4_prefixlen2mask(length));
}

// Host byte order inside, so that prefixes order and compare as numbers.
struct field_prefix {
  std::uint32_t table = 0;
  std::uint32_t address = 0;
  std::uint32_t length = 0;

  friend auto operator<=>(const field_prefix&, const field_prefix&) = default;
  // Whether one of the two contains the other.
  [[nodiscard]] bool overlaps(const field_prefix& other) const noexcept {
    return length <= other.length ? contains(other.address) : other.contains(address);
  }
  [[nodiscard]] bool contains(std::uint32_t host) const noexcept {
    return ((host ^ address) & bits_of(length)) == 0;
  }
};

}  // namespace

struct rtclient {
  evm* manager = nullptr;
  rtclient_callbacks callbacks;
  std::set<field_prefix> registered;
};

namespace {

constexpr int fib_not_running = 111;  // ECONNREFUSED

struct fib_part {
  bool running = true;
  std::map<field_prefix, std::string> routes;  // with the first hop
  std::vector<std::unique_ptr<rtclient>> clients;
};

field_prefix prefix_of(const rtclient_registration& registration) noexcept {
  return {registration.table_id, ntohl(registration.prefix), registration.prefix_length};
}

// A client may be gone when what was posted for it runs.
bool exists(const rtclient* client) {
  const auto& clients = world_part<fib_part>().clients;
  return std::any_of(clients.begin(), clients.end(),
                     [client](const auto& c) { return c.get() == client; });
}

template <typename Call>
void post(rtclient* client, Call call) {
  loop_post(client->manager, [client, call] {
    if (exists(client)) {
      alloc_faults_resumed resume;
      call(*client);
    }
  });
}

void notify(rtclient* client, const field_prefix& prefix) {
  post(client, [prefix](rtclient& notified) {
    const rtclient_notification notification{fib_family_ipv4, prefix.table, htonl(prefix.address),
                                             prefix.length};
    notified.callbacks.changed(&notification);
  });
}

void notify_overlapping(const field_prefix& changed) {
  for (const auto& client : world_part<fib_part>().clients) {
    for (const field_prefix& prefix : client->registered) {
      if (prefix.table == changed.table && prefix.overlaps(changed)) {
        notify(client.get(), prefix);
      }
    }
  }
}

int call_error(std::string_view operation) noexcept {
  if (const int code = take_failure_code(operation)) {
    return code;
  }
  return world_part<fib_part>().running ? status_ok : fib_not_running;
}

field_prefix field_route(std::uint32_t table, const char* address, std::uint32_t length) {
  in_addr parsed{};
  inet_pton(AF_INET, address, &parsed);
  return {table, ntohl(parsed.s_addr), length};
}

}  // namespace

int rtclient_init(const rtclient_parameters& parameters, const rtclient_callbacks& callbacks,
                  rtclient** ret) noexcept {
  alloc_faults_paused pause;
  if (const int code = take_failure_code("rtclient_init")) {
    return code;
  }
  note_introduction("rtclient_init", {parameters.client_name, std::to_string(parameters.mode),
                                      std::to_string(parameters.channel)});
  fib_part& part = world_part<fib_part>();
  part.clients.push_back(std::make_unique<rtclient>(rtclient{parameters.manager, callbacks, {}}));
  *ret = part.clients.back().get();
  if (part.running) {
    post(*ret, [](rtclient& client) { client.callbacks.reconnected(); });
  }
  return status_ok;
}

void rtclient_close(rtclient* client) noexcept {
  alloc_faults_paused pause;
  std::erase_if(world_part<fib_part>().clients,
                [client](const auto& c) { return c.get() == client; });
}

int rtclient_lookup(rtclient* /*client*/, std::uint32_t family, std::uint32_t table_id,
                    std::uint32_t address, rtclient_result** ret) noexcept {
  alloc_faults_paused pause;
  *ret = nullptr;
  if (const auto ordered = take_failure("rtclient_lookup")) {
    return ordered->result;  // 0: an answer without a result
  }
  if (!world_part<fib_part>().running) {
    return fib_not_running;
  }
  if (family != fib_family_ipv4) {
    return invalid_argument;
  }
  auto result = std::make_unique<rtclient_result>();
  for (const auto& [prefix, first_hop] : world_part<fib_part>().routes) {
    const bool longer = !result->route_found || prefix.length > result->prefix_length;
    if (prefix.table == table_id && prefix.contains(ntohl(address)) && longer) {
      result->route_found = true;
      result->prefix_length = prefix.length;
      result->first_hop.assign(first_hop);
    }
  }
  *ret = result.release();
  return status_ok;
}

void rtclient_lookup_free(rtclient_result* result) noexcept {
  delete result;
}

int rtclient_bulk_reg_notif(rtclient* client,
                            std::span<const rtclient_registration> prefixes) noexcept {
  alloc_faults_paused pause;
  if (const int code = call_error("rtclient_bulk_reg_notif")) {
    return code;
  }
  for (const rtclient_registration& registration : prefixes) {
    note_introduction("rtclient_bulk_reg_notif",
                      {registration.client_name, std::to_string(registration.family)});
    const field_prefix prefix = prefix_of(registration);
    const bool is_new = client->registered.insert(prefix).second;
    notify(client, prefix);
    if (!is_new) {
      return fib_already_registered;
    }
  }
  return status_ok;
}

int rtclient_bulk_unreg_notif(rtclient* client,
                              std::span<const rtclient_registration> prefixes) noexcept {
  alloc_faults_paused pause;
  if (const int code = call_error("rtclient_bulk_unreg_notif")) {
    return code;
  }
  for (const rtclient_registration& registration : prefixes) {
    if (client->registered.erase(prefix_of(registration)) == 0) {
      return not_found_errno;
    }
  }
  return status_ok;
}

namespace field {

void route_added(const char* address, std::uint32_t length, std::string_view first_hop,
                 std::uint32_t table) {
  const field_prefix prefix = field_route(table, address, length);
  world_part<fib_part>().routes[prefix] = first_hop;
  notify_overlapping(prefix);
}

void route_removed(const char* address, std::uint32_t length, std::uint32_t table) {
  const field_prefix prefix = field_route(table, address, length);
  world_part<fib_part>().routes.erase(prefix);
  notify_overlapping(prefix);
}

void fib_gone() {
  fib_part& part = world_part<fib_part>();
  part.running = false;
  for (const auto& client : part.clients) {
    client->registered.clear();
    post(client.get(), [](rtclient& notified) { notified.callbacks.disconnected(); });
  }
}

void fib_back() {
  fib_part& part = world_part<fib_part>();
  part.running = true;
  for (const auto& client : part.clients) {
    post(client.get(), [](rtclient& notified) { notified.callbacks.reconnected(); });
  }
}

std::size_t fib_registrations() {
  std::size_t count = 0;
  for (const auto& client : world_part<fib_part>().clients) {
    count += client->registered.size();
  }
  return count;
}

}  // namespace field
}  // namespace ot
