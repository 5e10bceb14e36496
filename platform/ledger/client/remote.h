// The ledger at the other end of the socket.
#pragma once

#include "platform/ledger/calls/backend.h"
#include "platform/ledger/client/link.h"

namespace ot {

class ledger_remote : public ledger_backend {
 public:
  int bind(std::string_view path) override;
  int get(std::string_view path, ledger_value& ret) override;
  int set(std::string_view path, ledger_kind kind, std::span<const std::byte> value) override;
  int erase(std::string_view path) override;
  int page(std::string_view prefix, std::string_view after, std::vector<ledger_stored>& ret,
           bool& ret_more) override;
  int commit(std::span<const ledger_proposal> changes, std::vector<ledger_refusal>& ret) override;
  int list(const ledger_list_query& query, ledger_page& ret) override;
  // Looks the present value up, if the ledger can be reached.
  int register_switch(std::string_view path, std::atomic<std::uint32_t>& word) override;
  // Readers outside the service cannot keep what they work out.
  std::uint64_t generation() override { return 0; }

 private:
  ledger_link link_;
};

}  // namespace ot
