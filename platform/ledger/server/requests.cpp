// The requests, one row each: what right it needs and what it asks the engine for. A body that does
// not fit its row is answered as malformed before the engine sees any of it.
#include "platform/ledger/server/requests.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "platform/ledger_status.h"

namespace ot {
namespace {

// Adds to `ret` what follows the status.
using serve_fn = int (*)(ledger_engine& engine, ledger_reader& request, ledger_writer& ret);

int serve_bind(ledger_engine& engine, ledger_reader& request, ledger_writer& /*ret*/) {
  const std::string_view path = request.text();
  return request.finished() ? engine.bind(path) : ledger_bad_message;
}

int serve_get(ledger_engine& engine, ledger_reader& request, ledger_writer& ret) {
  const std::string_view path = request.text();
  ledger_value value;
  const int status = request.finished() ? engine.get(path, value) : ledger_bad_message;
  if (status == status_ok) {
    ledger_put_value(ret, value.kind, value.bytes());
  }
  return status;
}

// Trace flags lie in the store of the published states, so clients may have only so many of them.
constexpr std::size_t trace_flags_max = 64;

bool takes_another_flag(ledger_engine& engine, std::string_view path) {
  ledger_value present;
  if (engine.get(path, present) != ledger_no_data) {
    return true;
  }
  std::vector<ledger_stored> flags;
  bool more = false;
  return engine.page("/debug/", "", flags, more) == status_ok && !more &&
         flags.size() < trace_flags_max;
}

bool is_the_services_own(std::string_view path) noexcept {
  return path.starts_with("/oper/");
}

int serve_set(ledger_engine& engine, ledger_reader& request, ledger_writer& /*ret*/) {
  const std::string_view path = request.text();
  const auto kind = static_cast<ledger_kind>(request.u32());
  const std::span<const std::byte> value = request.bytes();
  if (!request.finished()) {
    return ledger_bad_message;
  }
  if (is_the_services_own(path)) {
    return ledger_read_only;
  }
  if (path.starts_with("/debug/") && !takes_another_flag(engine, path)) {
    return ledger_full;
  }
  return engine.set(path, kind, value);
}

int serve_delete(ledger_engine& engine, ledger_reader& request, ledger_writer& /*ret*/) {
  const std::string_view path = request.text();
  if (!request.finished()) {
    return ledger_bad_message;
  }
  return is_the_services_own(path) ? ledger_read_only : engine.erase(path);
}

int serve_page(ledger_engine& engine, ledger_reader& request, ledger_writer& ret) {
  const std::string_view prefix = request.text();
  const std::string_view after = request.text();
  std::vector<ledger_stored> items;
  bool more = false;
  const int status =
      request.finished() ? engine.page(prefix, after, items, more) : ledger_bad_message;
  if (status == status_ok) {
    ret.u8(more ? 1 : 0);
    ledger_put_stored(ret, items);
  }
  return status;
}

int serve_list(ledger_engine& engine, ledger_reader& request, ledger_writer& ret) {
  const ledger_list_query query = ledger_take_query(request);
  ledger_page page;
  const int status = request.finished() ? engine.list(query, page) : ledger_bad_message;
  if (status == status_ok) {
    ledger_put_page(ret, page);
  }
  return status;
}

int serve_generation(ledger_engine& engine, ledger_reader& request, ledger_writer& ret) {
  ret.u64(engine.generation());
  return request.finished() ? status_ok : ledger_bad_message;
}

struct request_row {
  std::string_view member;
  bool writes;
  serve_fn serve;
};

constexpr request_row request_rows[] = {
    {ledger_member::bind, false, serve_bind},
    {ledger_member::get, false, serve_get},
    {ledger_member::set, true, serve_set},
    {ledger_member::erase, true, serve_delete},
    {ledger_member::page, false, serve_page},
    {ledger_member::list, false, serve_list},
    {ledger_member::generation, false, serve_generation},
};

bool is_member(int socket, gid_t primary, gid_t members) noexcept {
  if (members == static_cast<gid_t>(-1)) {
    return false;
  }
  // A user in more groups than this counts by its primary one only.
  std::array<gid_t, 256> groups{};
  socklen_t bytes = sizeof groups;
  const bool known = getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &bytes) == 0;
  const auto end = groups.begin() + (known ? bytes / sizeof(gid_t) : 0);
  return primary == members || std::find(groups.begin(), end, members) != end;
}

}  // namespace

// Rights by SO_PEERCRED and SO_PEERGROUPS: what the kernel noted when the other end connected.
ledger_rights ledger_rights_of(int socket, gid_t members) noexcept {
  ucred peer{};
  socklen_t length = sizeof peer;
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) {
    return {};
  }
  if (peer.uid == 0 || peer.uid == geteuid()) {
    return {.read = true, .write = true};
  }
  const bool member = is_member(socket, peer.gid, members);
  return {.read = member, .write = member};
}

bool ledger_serve_request(ledger_engine& engine, const ledger_rights& rights,
                          std::string_view member, std::span<const std::byte> body,
                          ledger_writer& answer) {
  for (const request_row& row : request_rows) {
    if (row.member != member) {
      continue;
    }
    ledger_reader request{body};
    ledger_writer rest;
    const bool allowed = row.writes ? rights.write : rights.read;
    const int status = allowed ? row.serve(engine, request, rest) : ledger_denied;
    answer.u32(static_cast<std::uint32_t>(status));
    answer.append(rest);
    return true;
  }
  return false;
}

}  // namespace ot
