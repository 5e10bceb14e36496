// What a peer is answered, and what is sent to it unasked.
#include <new>
#include <utility>

#include "platform/ledger/item.h"
#include "platform/ledger/messages.h"
#include "platform/ledger/server/peer.h"
#include "platform/ledger_status.h"

namespace ot {

void ledger_peer::answer(sd_bus_message* message) {
  const char* member = sd_bus_message_get_member(message);
  std::span<const std::byte> body;
  if (sd_bus_message_is_method_call(message, ledger_interface, nullptr) <= 0 || member == nullptr ||
      ledger_message_body(message, body) != status_ok || body.size() > message_max()) {
    over_ = true;
    return;
  }
  ledger_writer answer;
  if (std::string_view{member} == ledger_member::commit) {
    commit(message, body);
  } else if (std::string_view{member} == ledger_member::subscribe) {
    answer.u32(static_cast<std::uint32_t>(subscribe(body)));
    reply(message, answer);
  } else if (ledger_serve_request(engine_, rights_, member, body, answer)) {
    reply(message, answer);
  } else {
    over_ = true;
  }
}

void ledger_peer::reply(sd_bus_message* message, const ledger_writer& answer) noexcept {
  sd_bus_message* made = nullptr;
  int result = sd_bus_message_new_method_return(message, &made);
  const message_handle answered{made};
  if (result >= 0) {
    result = sd_bus_message_append_array(made, 'y', answer.data().data(), answer.data().size());
  }
  if (result < 0 || sd_bus_send(bus_.get(), made, nullptr) < 0) {
    over_ = true;
  }
}

void ledger_peer::commit(sd_bus_message* message, std::span<const std::byte> body) {
  ledger_reader request{body};
  ledger_commit_request asked{.changes = ledger_take_proposals(request)};
  if (request.ok() && !request.finished()) {
    asked.generation = request.u64();
  }
  commit_.reset(sd_bus_message_ref(message));
  if (!rights_.write) {
    commit_done(ledger_denied, {});
  } else if (!request.finished()) {
    commit_done(ledger_bad_message, {});
  } else {
    commits_.submit(*this, std::move(asked));
  }
}

void ledger_peer::commit_done(int status, std::span<const ledger_refusal> refusals) noexcept {
  const message_handle request = std::move(commit_);
  try {
    ledger_writer answer;
    answer.u32(static_cast<std::uint32_t>(status));
    ledger_put_refusals(answer, refusals);
    reply(request.get(), answer);
  } catch (const std::bad_alloc&) {
    over_ = true;
  }
  sd_event_source_set_enabled(again_.get(), SD_EVENT_ONESHOT);  // what it has asked meanwhile
}

int ledger_peer::subscribe(std::span<const std::byte> body) {
  ledger_reader request{body};
  const std::string_view path = request.text();
  if (!request.finished()) {
    return ledger_bad_message;
  }
  if (!rights_.read) {
    return ledger_denied;
  }
  if (!ledger_base_path_valid(path)) {
    return ledger_unknown_path;
  }
  followed_ = path;
  return status_ok;
}

void ledger_peer::notify(ledger_notice_batch& batch) {
  if (followed_.empty()) {
    return;
  }
  backlog_.push(batch.below(followed_));
  if (!backlog_.empty() && unsent() == 0) {  // else they leave when the socket takes more
    sd_event_source_set_enabled(again_.get(), SD_EVENT_ONESHOT);
  }
}

// One message at a time is in the bus's own queue; the rest waits in the backlog, which is bounded.
void ledger_peer::send_notices() {
  while (!over_ && !backlog_.empty() && unsent() == 0) {
    ledger_writer body;
    ledger_put_notices(body, backlog_.pop());
    sd_bus_message* made = nullptr;
    int result = sd_bus_message_new_signal(bus_.get(), &made, ledger_object, ledger_interface,
                                           ledger_member::notices);
    const message_handle message{made};
    if (result >= 0) {
      result = sd_bus_message_append_array(made, 'y', body.data().data(), body.data().size());
    }
    over_ = result < 0 || sd_bus_send(bus_.get(), made, nullptr) < 0;
    progress_ = true;
  }
}

}  // namespace ot
