// The parts that the ledger's messages are made of, as both ends of the socket write and read them.
// A read function that meets bytes that do not fit leaves the reader not ok.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "platform/ledger/calls/backend.h"
#include "platform/ledger/engine/backlog.h"
#include "platform/ledger/wire.h"

namespace ot {

// --- Names -----------------------------------------------------------------------------------

inline constexpr const char* ledger_socket_path = "/run/object_tracking/ledger.sock";
inline constexpr const char* ledger_object = "/ledger";
inline constexpr const char* ledger_interface = "object.tracking.Ledger1";

// One member a kind of request; each answers with a status and, when that is 0, what was asked for.
// A commit's refusals follow any status.
namespace ledger_member {
inline constexpr const char* bind = "Bind";            // path
inline constexpr const char* get = "Get";              // path -> value
inline constexpr const char* set = "Set";              // path, value
inline constexpr const char* erase = "Delete";         // path
inline constexpr const char* page = "Page";            // prefix, after -> more, stored items
inline constexpr const char* commit = "Commit";        // proposals -> refusals
inline constexpr const char* list = "List";            // query -> page
inline constexpr const char* subscribe = "Subscribe";  // path; notices follow as signals
inline constexpr const char* notices = "Notices";      // the signal
}  // namespace ledger_member

// --- Parts -----------------------------------------------------------------------------------

void ledger_put_value(ledger_writer& writer, ledger_kind kind, std::span<const std::byte> bytes);
int ledger_take_value(ledger_reader& reader, ledger_value& ret);  // 0 or 12

void ledger_put_stored(ledger_writer& writer, std::span<const ledger_stored> items);
int ledger_take_stored(ledger_reader& reader, std::vector<ledger_stored>& ret);  // 0 or 12

void ledger_put_proposals(ledger_writer& writer, std::span<const ledger_proposal> changes);
std::vector<ledger_proposal> ledger_take_proposals(ledger_reader& reader);

void ledger_put_refusals(ledger_writer& writer, std::span<const ledger_refusal> refusals);
std::vector<ledger_refusal> ledger_take_refusals(ledger_reader& reader);

// The texts of a taken query are views into the message.
void ledger_put_query(ledger_writer& writer, const ledger_list_query& query);
ledger_list_query ledger_take_query(ledger_reader& reader) noexcept;

void ledger_put_page(ledger_writer& writer, const ledger_page& page);
void ledger_take_page(ledger_reader& reader, ledger_page& ret);

void ledger_put_notices(ledger_writer& writer, const ledger_notices& notices);
ledger_notices ledger_take_notices(ledger_reader& reader);

}  // namespace ot
