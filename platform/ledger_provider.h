// ledger_dpv_: serving operational data on request, and notifying readers that it changed. Inside
// the service's process; main thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/ledger.h"

namespace ot {

struct ledger_dpv_list;
struct ledger_dpv_datalist;

// --- Requests -----------------------------------------------------------------------------------

struct ledger_dpv_request {
  const char* key = nullptr;  // the path's last element
};

// Filled by a get. The buffer comes from new[]; the platform frees it.
struct ledger_dpv_reply {
  std::uint32_t data_kind = 0;
  std::byte* buffer = nullptr;
  std::size_t length = 0;
};

// Names only. The marker is the name of the last item already delivered, "" at the start. The
// provider creates the list and hands it back; the platform frees it.
struct ledger_dpv_list_request {
  const char* marker = "";
  std::uint32_t count = 0;
  ledger_dpv_list* handle = nullptr;
};

// Names with values.
struct ledger_dpv_datalist_request {
  const char* marker = "";
  std::uint32_t count = 0;
  ledger_dpv_datalist* handle = nullptr;
};

// One branch; every operation returns a status code.
struct ledger_dpv_provider {
  const char* branch;  // below the root, for example "track/detail"
  int (*get)(ledger_dpv_reply* reply, const ledger_dpv_request* request);
  int (*list)(ledger_dpv_list_request* request);
  int (*datalist)(ledger_dpv_datalist_request* request);
  // Its lists are everything there is, whatever the marker. What does not fit one page is then
  // handed out in the order of names, so that a marker need not be there any more.
  bool lists_everything = false;
};

// Registers the branches below `root`, which ends in '/'. The rows are kept by reference. 0 or 12.
int ledger_dpv_register(const char* root, std::span<const ledger_dpv_provider> rows) noexcept;

// --- Building answers ---------------------------------------------------------------------------
// Each returns 0 or a status code (12); create functions return null without memory.

ledger_dpv_list* ledger_dpv_list_create() noexcept;
int ledger_dpv_list_add(ledger_dpv_list* list, const char* name, std::uint32_t data_kind,
                        std::uint32_t flags) noexcept;
int ledger_dpv_list_set_more_flag(ledger_dpv_list* list) noexcept;
void ledger_dpv_list_free(ledger_dpv_list* list) noexcept;

ledger_dpv_datalist* ledger_dpv_datalist_create() noexcept;
// Copies name and data.
int ledger_dpv_datalist_add(ledger_dpv_datalist* list, const char* name, std::uint32_t data_kind,
                            std::uint32_t flags, const std::byte* data,
                            std::size_t length) noexcept;
int ledger_dpv_datalist_set_more_flag(ledger_dpv_datalist* list) noexcept;
void ledger_dpv_datalist_free(ledger_dpv_datalist* list) noexcept;

// --- Change notifications -----------------------------------------------------------------------

inline constexpr std::uint32_t ledger_notification_set = 2;
inline constexpr std::uint32_t ledger_notification_delete = 4;

struct ledger_dpv_notification {
  char* path = nullptr;  // relative to the connection's binding
  std::uint32_t kind = 0;
  std::uint32_t valid = 0;
  std::uint32_t* old_value = nullptr;  // for a delete
  std::uint32_t old_value_length = 0;
  std::uint32_t* new_value = nullptr;  // for a set
  std::uint32_t new_value_length = 0;
  std::uint32_t sequence = 0;
};

// Sends the batch to the readers that follow data below the connection's binding. The entries stay
// the caller's. Status code.
int ledger_dpv_generate_notifications(ledger_conn* connection,
                                      const ledger_dpv_notification* entries,
                                      std::uint32_t count) noexcept;

}  // namespace ot
