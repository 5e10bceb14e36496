// The in-memory FIB. Notifications go through the client's loop, one registered prefix each.
#include "platform/fib_client.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/common/watched_prefixes.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "platform/memory/fib_field.h"
#include "platform/memory/loops.h"
#include "platform/memory/world.h"
#include "platform/status.h"

namespace ot {
namespace {

fib_prefix prefix_of(const rtclient_registration& registration) noexcept {
  return {registration.table_id, registration.prefix, registration.prefix_length};
}

int find_route(void* /*context*/, const fib_prefix& prefix, fib_answer* ret);

}  // namespace

struct rtclient {
  evm* manager = nullptr;
  rtclient_callbacks callbacks;
  watched_prefixes prefixes{find_route, nullptr};
};

namespace {

constexpr int fib_not_running = 111;  // ECONNREFUSED
constexpr std::uint32_t host_length = 32;

struct fib_part {
  bool running = true;
  fib_field field;
  std::vector<std::unique_ptr<rtclient>> clients;
  bool events_held = false;
  std::vector<fib_prefix> unseen;  // changes whose events nobody has read yet
};

int find_route(void* /*context*/, const fib_prefix& prefix, fib_answer* ret) {
  world_part<fib_part>().field.find(prefix, &ret->result);
  return status_ok;
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

void notify(rtclient* client) {
  post(client, [](rtclient& notified) { notified.prefixes.notify(notified.callbacks.changed); });
}

void look() {
  fib_part& part = world_part<fib_part>();
  const std::vector<fib_prefix> changed = std::move(part.unseen);
  part.unseen.clear();
  for (const auto& client : part.clients) {
    client->prefixes.look_at_related(changed);
    notify(client.get());
  }
}

void note_change(const fib_prefix& changed) {
  fib_part& part = world_part<fib_part>();
  part.unseen.push_back(changed);
  if (!part.events_held) {
    look();
  }
}

int call_error(std::string_view operation) noexcept {
  if (const int code = take_failure_code(operation)) {
    return code;
  }
  return world_part<fib_part>().running ? status_ok : fib_not_running;
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
  part.clients.push_back(std::make_unique<rtclient>());
  *ret = part.clients.back().get();
  (*ret)->manager = parameters.manager;
  (*ret)->callbacks = callbacks;
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

int rtclient_lookup(rtclient* client, std::uint32_t family, std::uint32_t table_id,
                    std::uint32_t address, rtclient_result** ret) noexcept {
  alloc_faults_paused pause;
  *ret = nullptr;
  if (const auto ordered = take_failure("rtclient_lookup")) {
    client->prefixes.report_failed();
    return ordered->result;  // 0: an answer without a result
  }
  if (!world_part<fib_part>().running) {
    return fib_not_running;
  }
  if (family != fib_family_ipv4) {
    return invalid_argument;
  }
  auto result = std::make_unique<rtclient_result>();
  if (const rtclient_result* reported = client->prefixes.being_reported(table_id, address)) {
    *result = *reported;
  } else {
    world_part<fib_part>().field.find({table_id, address, host_length}, result.get());
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
    const int status = client->prefixes.add(prefix_of(registration));
    post(client, [](rtclient& notified) {
      notified.prefixes.look_at_related({});
      notified.prefixes.notify(notified.callbacks.changed);
    });
    if (status != status_ok) {
      return status;
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
    if (const int status = client->prefixes.remove(prefix_of(registration)); status != status_ok) {
      return status;
    }
  }
  return status_ok;
}

namespace field {

void route_added(const char* address, std::uint32_t length, std::string_view first_hop,
                 std::uint32_t table) {
  const fib_prefix prefix = field_prefix(table, address, length);
  world_part<fib_part>().field.routes[prefix] = first_hop;
  note_change(prefix);
}

void route_removed(const char* address, std::uint32_t length, std::uint32_t table) {
  const fib_prefix prefix = field_prefix(table, address, length);
  world_part<fib_part>().field.routes.erase(prefix);
  note_change(prefix);
}

void own_address_added(const char* address, std::uint32_t table) {
  const fib_prefix prefix = field_prefix(table, address, host_length);
  world_part<fib_part>().field.own_addresses.insert(prefix);
  note_change(prefix);
}

void own_address_removed(const char* address, std::uint32_t table) {
  const fib_prefix prefix = field_prefix(table, address, host_length);
  world_part<fib_part>().field.own_addresses.erase(prefix);
  note_change(prefix);
}

void fib_events_held(bool held) {
  world_part<fib_part>().events_held = held;
}

void fib_events_read() {
  look();
}

void fib_gone() {
  fib_part& part = world_part<fib_part>();
  part.running = false;
  for (const auto& client : part.clients) {
    client->prefixes.clear();
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
    count += client->prefixes.size();
  }
  return count;
}

}  // namespace field
}  // namespace ot
