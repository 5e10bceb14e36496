// Item values, and the ledger's calls. Each call binds for itself; trackctl lives for one command.
#include "tools/trackctl/configuration.h"

#include <array>
#include <chrono>
#include <span>

#include "platform/ledger_status.h"
#include "platform/path_tuple.h"
#include "tools/trackctl/command.h"

namespace ot::trackctl {
namespace {

// A path is "NAME/ITEM" here.
bool keep_track_item(void* context, std::string_view path, const ledger_value& value) {
  const std::size_t end = path.find('/');
  if (end != std::string_view::npos) {
    auto& tracks = *static_cast<configured_tracks*>(context);
    const auto bytes = value.bytes();
    tracks[std::string(path.substr(0, end))].emplace(
        path.substr(end + 1), item_value{value.kind, {bytes.begin(), bytes.end()}});
  }
  return true;
}

bool keep_item(void* context, std::string_view path, const ledger_value& value) {
  const auto bytes = value.bytes();
  static_cast<track_items*>(context)->emplace(path,
                                              item_value{value.kind, {bytes.begin(), bytes.end()}});
  return true;
}

std::string refusal_text(const std::vector<ledger_refusal>& refusals) {
  std::string text;
  for (const ledger_refusal& refusal : refusals) {
    text += "\n  " + refusal.path + (refusal.applied ? ": stored, but not applied: " : ": ");
    text += code_text(refusal.code);
    if (!refusal.text.empty() && text.find(refusal.text) == std::string::npos) {
      text += ": " + refusal.text;
    }
  }
  return text;
}

}  // namespace

item_value u32_value(std::uint32_t number) {
  const auto bytes = std::as_bytes(std::span{&number, 1});
  return {ledger_kind::u32, {bytes.begin(), bytes.end()}};
}

item_value text_value(std::string_view text) {
  const auto bytes = std::as_bytes(std::span{text});
  return {ledger_kind::text, {bytes.begin(), bytes.end()}};
}

item_value tuple_value(std::initializer_list<std::uint32_t> addresses) {
  item_value value{ledger_kind::tuple, {}};
  for (const std::uint32_t address : addresses) {
    std::array<std::byte, 4> bytes{};
    std::size_t length = 0;
    check_code("packing the address", path_tuple_pack(bytes, &length, "%N", address));
    value.bytes.insert(value.bytes.end(), bytes.begin(), bytes.end());
  }
  return value;
}

std::string track_path(std::string_view track) {
  return std::string(tracks_root).append(track).append("/");
}

ledger_connection::ledger_connection(const std::string& path) {
  check_code("opening " + path, ledger_bind(path.c_str(), &connection_));
}

ledger_connection::~ledger_connection() {
  ledger_unbind(connection_);
}

track_items read_track(const std::string& track) {
  const ledger_connection connection(track_path(track));
  track_items items;
  const int code = ledger_item_walk(connection.get(), "", keep_item, &items);
  if (code != ledger_no_data) {
    check_code("reading track \"" + track + "\"", code);
  }
  return items;
}

configured_tracks read_tracks() {
  const ledger_connection connection{std::string(tracks_root)};
  configured_tracks tracks;
  const int code = ledger_item_walk(connection.get(), "", keep_track_item, &tracks);
  if (code != ledger_no_data) {
    check_code("reading the configuration", code);
  }
  return tracks;
}

track_items read_existing_track(const std::string& track) {
  track_items items = read_track(track);
  if (items.empty()) {
    throw failure(exit_refused,
                  "there is no track \"" + track + "\"; `trackctl show` lists those there are");
  }
  return items;
}

namespace {

// As long as a client waits for the answer to a commit.
constexpr std::chrono::seconds patience{30};

// False when the configuration has another generation by now.
bool send_commit(const std::string& what, const commit& changes, std::uint64_t generation) {
  const ledger_connection connection("/");
  std::vector<ledger_refusal> refusals;
  const int code = ledger_commit_unless_changed(connection.get(), generation, changes, &refusals);
  if (code == status_ok || code == ledger_changed) {
    return code == status_ok;
  }
  // The connection was there a moment ago, so the service had the request.
  constexpr const char* advice = "; `trackctl show` tells whether the change was made";
  if (code == ledger_unreachable) {
    throw failure(exit_no_service, what + ": the service ended before it answered" + advice);
  }
  if (code == ledger_no_answer) {
    throw unanswered(exit_refused, what + ": the service has not answered in time" + advice);
  }
  if (refusals.empty()) {
    fail_with_code(what, code);
  }
  throw failure(exit_refused, what + " was refused:" + refusal_text(refusals));
}

bool is_present(std::uint64_t generation) {
  return generation != 0 && generation == ledger_config_generation();
}

// Asks `attempt` with the configuration's generation until it has found no other one at its end.
void until_undisturbed(const std::string& what,
                       const std::function<bool(std::uint64_t generation)>& attempt) {
  const auto end = std::chrono::steady_clock::now() + patience;
  do {
    if (attempt(ledger_config_generation())) {
      return;
    }
  } while (std::chrono::steady_clock::now() < end);
  throw failure(exit_refused, what +
                                  ": others change the configuration all the time; nothing is "
                                  "changed, try again when they are done");
}

}  // namespace

configured_tracks read_configuration() {
  configured_tracks tracks;
  until_undisturbed("reading the configuration", [&](std::uint64_t generation) {
    tracks = read_tracks();
    return is_present(generation);
  });
  return tracks;
}

void change_configuration(const std::string& what, const commit_plan& plan) {
  const ledger_connection reached{std::string(tracks_root)};  // throws where it cannot be
  until_undisturbed(what, [&](std::uint64_t generation) {
    const commit changes = plan();
    return changes.empty() ? is_present(generation)
                           : generation != 0 && send_commit(what, changes, generation);
  });
}

}  // namespace ot::trackctl
