// ledger_: the router's configuration and operational database as its users see it: connections
// bound to a path, and items below it. Inside the service's process the calls go straight to the
// stores; everywhere else they go through the socket, one blocking call each.
//
// Paths: "/cfg/..." is the configuration (read here, changed by ledger_commit.h), "/oper/..." the
// operational data, "/debug/..." the trace flags. A bound path ends in '/'; item paths are relative
// to it and never start with one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>

namespace ot {

struct ledger_conn;

// What a value is. The numbers are the data kinds of the interface.
enum class ledger_kind : std::uint32_t {
  u32 = 1,     // 4 bytes, host byte order
  text = 3,    // characters without a terminator
  tuple = 5,   // a packed path tuple (path_tuple.h)
  record = 7,  // an encoded typed record (brec.h)
};

// An owned value.
struct ledger_value {
  ledger_kind kind = ledger_kind::u32;
  std::unique_ptr<std::byte[]> data;
  std::size_t length = 0;

  [[nodiscard]] std::span<const std::byte> bytes() const noexcept { return {data.get(), length}; }
  // The value as a number; 0 when it is not a u32 of 4 bytes.
  [[nodiscard]] std::uint32_t as_u32() const noexcept {
    std::uint32_t number = 0;
    if (kind == ledger_kind::u32 && length == sizeof number) {
      std::memcpy(&number, data.get(), sizeof number);
    }
    return number;
  }
  [[nodiscard]] std::string_view as_text() const noexcept {
    return {reinterpret_cast<const char*>(data.get()), length};
  }
};

// Fills `ret` with a copy of the bytes; 0 or 12 (`ret` unchanged).
int ledger_value_assign(ledger_value& ret, ledger_kind kind,
                        std::span<const std::byte> bytes) noexcept;

// Binds to `path`. 0 and a connection to be unbound, or a status code: 12, ledger_unreachable when
// the service is not running.
int ledger_bind(const char* path, ledger_conn** ret) noexcept;
void ledger_unbind(ledger_conn* connection) noexcept;

// The process's own connection, bound to "/"; null when it cannot be made. Never unbound.
ledger_conn* ledger_get_default_conn() noexcept;

// Reads one item. An item that a data provider serves is asked from it. 0, ledger_no_data when
// there is none, or another status code; `ret` is written on success.
int ledger_item_get(ledger_conn* connection, const char* path, ledger_value* ret) noexcept;

// Writes or deletes one operational item or trace flag (configuration goes through a commit). A
// delete of an absent item is ledger_no_data. Needs the right to write. Status code.
int ledger_item_set(ledger_conn* connection, const char* path, ledger_kind kind,
                    std::span<const std::byte> value) noexcept;
int ledger_item_delete(ledger_conn* connection, const char* path) noexcept;

// Walks every stored item below `path` ("" = all below the binding) in path order: `visit` gets the
// path relative to the binding and the value, which live only during the call, and returns false to
// stop. Status code; an empty walk is 0. Main thread inside the service.
using ledger_visit = bool (*)(void* context, std::string_view path, const ledger_value& value);
int ledger_item_walk(ledger_conn* connection, const char* path, ledger_visit visit,
                     void* context) noexcept;

// A number that changes with every change of configuration, and with every start of the service; 0
// when it is not known. Tells a reader whether what it worked out from the configuration holds.
std::uint64_t ledger_config_generation() noexcept;

}  // namespace ot
