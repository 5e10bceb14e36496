// The conversation. After a command that failed nothing of its block is sent but its end: the shell
// may be in another node than the next command is for, and would take it all the same.
#include "platform/linux/bfd/frr_vty/conversation.h"

#include <utility>

namespace ot::bfd::vty {
namespace {

constexpr std::uint64_t command_patience_usec = 3'500'000;

}  // namespace

bool conversation::open(const std::string& path) noexcept {
  change_.reset();
  return connection_.open(path);
}

void conversation::send(std::string_view command, std::uint64_t patience_usec) noexcept {
  if (!connection_.ask(command, patience_usec)) {
    ended(connection_end::closed);
  }
}

void conversation::ask(std::string_view command, std::uint64_t patience_usec) noexcept {
  send(command, patience_usec);
}

void conversation::apply(change what) noexcept {
  change_ = std::move(what);
  place_ = 0;
  failed_.reset();
  failure_.clear();
  send(change_->commands.front(), command_patience_usec);
}

bool conversation::answered(const answer_reader& answer, unique_fd descriptor) {
  if (change_) {
    return command_answered(answer);
  }
  if (!owner_.answered(answer, std::move(descriptor))) {
    return false;
  }
  owner_.idle();
  return true;
}

bool conversation::command_answered(const answer_reader& answer) {
  const std::size_t last = change_->commands.size() - 1;
  if (!answer.succeeded() && !failed_) {
    failed_ = place_;
    failure_ = answer.text();
  }
  if (place_ == last) {
    const change done = *std::exchange(change_, std::nullopt);
    owner_.change_done(done, {failed_, failure_});
    owner_.idle();
    return true;
  }
  place_ = failed_ ? last : place_ + 1;
  send(change_->commands[place_], command_patience_usec);
  return true;
}

void conversation::ended(connection_end why) noexcept {
  change_.reset();
  owner_.ended(why);
}

connection* conversation::interrupt(int patience_ms) {
  if (connection_.busy()) {
    const answer_reader* answer = connection_.await(patience_ms);
    if (answer == nullptr || (!change_.has_value() && !owner_.answered(*answer, {}))) {
      return nullptr;
    }
  }
  if (change_.has_value()) {
    if (connection_.converse("end", patience_ms) == nullptr) {
      return nullptr;
    }
    owner_.change_done(*change_, {failed_.value_or(place_ + 1), {}});
  }
  return connection_.is_open() ? &connection_ : nullptr;
}

}  // namespace ot::bfd::vty
