// Each operation as one call through the socket.
#include "platform/ledger/client/remote.h"

#include "platform/ledger/messages.h"
#include "platform/status.h"

namespace ot {
namespace {

ledger_writer one_path(std::string_view path) {
  ledger_writer request;
  request.text(path);
  return request;
}

int read_to_its_end(const ledger_reader& reader, int status) noexcept {
  return status == status_ok && !reader.finished() ? ledger_bad_message : status;
}

}  // namespace

int ledger_remote::bind(std::string_view path) {
  ledger_reply reply;
  return link_.call(ledger_member::bind, one_path(path), reply);
}

int ledger_remote::get(std::string_view path, ledger_value& ret) {
  ledger_reply reply;
  if (const int status = link_.call(ledger_member::get, one_path(path), reply);
      status != status_ok) {
    return status;
  }
  ledger_reader reader{reply.body};
  ledger_value value;
  const int status = read_to_its_end(reader, ledger_take_value(reader, value));
  if (status == status_ok) {
    ret = std::move(value);
  }
  return status;
}

int ledger_remote::set(std::string_view path, ledger_kind kind, std::span<const std::byte> value) {
  ledger_writer request = one_path(path);
  ledger_put_value(request, kind, value);
  ledger_reply reply;
  return link_.call(ledger_member::set, request, reply);
}

int ledger_remote::erase(std::string_view path) {
  ledger_reply reply;
  return link_.call(ledger_member::erase, one_path(path), reply);
}

int ledger_remote::page(std::string_view prefix, std::string_view after,
                        std::vector<ledger_stored>& ret, bool& ret_more) {
  ledger_writer request = one_path(prefix);
  request.text(after);
  ledger_reply reply;
  if (const int status = link_.call(ledger_member::page, request, reply); status != status_ok) {
    return status;
  }
  ledger_reader reader{reply.body};
  ret_more = reader.u8() != 0;
  return read_to_its_end(reader, ledger_take_stored(reader, ret));
}

int ledger_remote::commit(std::span<const ledger_proposal> changes,
                          std::vector<ledger_refusal>& ret) {
  ledger_writer request;
  ledger_put_proposals(request, changes);
  ledger_reply reply;
  const int status = link_.call(ledger_member::commit, request, reply);
  if (!reply.body.empty()) {
    ledger_reader reader{reply.body};
    ret = ledger_take_refusals(reader);
    return read_to_its_end(reader, status);
  }
  return status;
}

int ledger_remote::list(const ledger_list_query& query, ledger_page& ret) {
  ledger_writer request;
  ledger_put_query(request, query);
  ledger_reply reply;
  if (const int status = link_.call(ledger_member::list, request, reply); status != status_ok) {
    return status;
  }
  ledger_reader reader{reply.body};
  ledger_take_page(reader, ret);
  return read_to_its_end(reader, status_ok);
}

int ledger_remote::register_switch(std::string_view path, std::atomic<std::uint32_t>& word) {
  ledger_value value;
  if (get(path, value) == status_ok) {
    word.store(value.as_u32(), std::memory_order_relaxed);
  }
  return status_ok;
}

}  // namespace ot
