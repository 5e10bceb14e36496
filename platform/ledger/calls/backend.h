// What serves the ledger's calls: the engine itself in the process that hosts it, the socket in
// every other. All paths are absolute. Operations may throw bad_alloc; the edge turns it into 12.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ledger.h"
#include "platform/ledger_commit.h"
#include "platform/ledger_datalist.h"

namespace ot {

// An item as a walk hands it out.
struct ledger_stored {
  std::string path;
  ledger_value value;
  // Configuration only: the place in the order of changes, that of the first item of its owner, and
  // whether a list of the store names an item that is not there or cannot be read.
  std::uint64_t sequence = 0;
  std::uint64_t first = 0;
  bool missing = false;
};

struct ledger_list_query {
  std::string_view path;
  std::string_view marker;  // "" = from the start
  std::uint32_t page_size = 0;
  bool values = false;
};

class ledger_backend {
 public:
  virtual ~ledger_backend() = default;

  virtual int bind(std::string_view path) = 0;
  virtual int get(std::string_view path, ledger_value& ret) = 0;
  virtual int set(std::string_view path, ledger_kind kind, std::span<const std::byte> value) = 0;
  virtual int erase(std::string_view path) = 0;

  // Appends stored items whose path begins with `prefix` and is greater than `after` ("" = all), in
  // path order, and says in `ret_more` whether others may follow the last one.
  virtual int page(std::string_view prefix, std::string_view after, std::vector<ledger_stored>& ret,
                   bool& ret_more) = 0;

  // ledger_changed, and nothing done, unless `generation` is 0 or the present one.
  virtual int commit(std::span<const ledger_proposal> changes, std::uint64_t generation,
                     std::vector<ledger_refusal>& ret) = 0;
  virtual int list(const ledger_list_query& query, ledger_page& ret) = 0;

  virtual int register_switch(std::string_view path, std::atomic<std::uint32_t>& word) = 0;
  virtual std::uint64_t generation() = 0;
};

}  // namespace ot
