// Data providers serve whole branches: an item below a branch is asked with get, the branch itself
// with list and datalist. A provider decides how much it puts in one answer; the page that a
// reader gets is cut here, so a provider need not know page sizes. What a provider that knows no
// marker answers is put in the order of names when it needs several pages: whatever comes and goes
// between two of them, nothing is repeated, and nothing that stays is left out.
#include "platform/ledger/engine/providers.h"

#include <algorithm>
#include <memory>
#include <new>

#include "platform/ledger/item.h"
#include "platform/ledger_status.h"

namespace ot {

// The lists that providers build. The service builds, so its lack of memory is its own: every
// function reports it and leaves the list as it was.
struct ledger_dpv_entries {
  std::vector<ledger_entry> entries;
  bool more = false;
};

// Two types, so that one cannot be handed in for the other.
struct ledger_dpv_list : ledger_dpv_entries {};
struct ledger_dpv_datalist : ledger_dpv_entries {};

namespace {

int add_entry(ledger_dpv_entries* list, const char* name, std::uint32_t data_kind,
              std::span<const std::byte> data) noexcept {
  if (list == nullptr || name == nullptr) {
    return invalid_argument;
  }
  try {
    list->entries.push_back(
        {.name = name, .data_kind = data_kind, .data = {data.begin(), data.end()}});
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
  return status_ok;
}

int set_more_flag(ledger_dpv_entries* list) noexcept {
  if (list == nullptr) {
    return invalid_argument;
  }
  list->more = true;
  return status_ok;
}

struct list_request {
  using handle = ledger_dpv_list;
  using request = ledger_dpv_list_request;
  static constexpr auto operation = &ledger_dpv_provider::list;
  static constexpr auto release = &ledger_dpv_list_free;
};

struct datalist_request {
  using handle = ledger_dpv_datalist;
  using request = ledger_dpv_datalist_request;
  static constexpr auto operation = &ledger_dpv_provider::datalist;
  static constexpr auto release = &ledger_dpv_datalist_free;
};

// Asks the provider; `ret` is what it built.
template <typename Request>
int ask(ledger_environment& environment, const ledger_dpv_provider& row, const char* marker,
        ledger_dpv_entries& ret) {
  const auto operation = row.*Request::operation;
  if (operation == nullptr) {
    return ledger_no_data;
  }
  typename Request::request request{.marker = marker};
  const int status = ledger_in_service(environment, [&] { return operation(&request); });
  if (status != status_ok) {
    return status;
  }
  const std::unique_ptr<typename Request::handle, decltype(Request::release)> handle{
      request.handle, Request::release};
  if (!handle) {
    return ledger_provider_failure;
  }
  ret = std::move(*handle);
  return status_ok;
}

// Leaves what comes behind the marker by name, in that order.
void go_on_by_name(std::vector<ledger_entry>& entries, std::string_view marker) {
  std::erase_if(entries, [marker](const ledger_entry& entry) { return entry.name <= marker; });
  std::sort(entries.begin(), entries.end(),
            [](const ledger_entry& a, const ledger_entry& b) { return a.name < b.name; });
}

// How many entries fit a page; at least one.
std::size_t fitting(const std::vector<ledger_entry>& entries, std::size_t page_size) noexcept {
  std::size_t bytes = 0;
  std::size_t count = 0;
  while (count < entries.size() && count < page_size) {
    bytes += entries[count].name.size() + entries[count].data.size();
    if (count > 0 && bytes > ledger_page_bytes_max) {
      break;
    }
    ++count;
  }
  return count;
}

}  // namespace

int ledger_providers::add(std::string_view root, std::span<const ledger_dpv_provider> rows) {
  std::vector<branch> added = branches_;
  for (const ledger_dpv_provider& row : rows) {
    if (row.branch == nullptr) {
      return invalid_argument;
    }
    std::string path{root};
    path.append(row.branch).append("/");
    if (!ledger_base_path_valid(root) || !ledger_base_path_valid(path)) {
      return invalid_argument;
    }
    for (const branch& known : added) {
      if (known.path.starts_with(path) || path.starts_with(known.path)) {
        return duplicate_key;
      }
    }
    added.push_back({std::move(path), &row});
  }
  branches_ = std::move(added);
  return status_ok;
}

const ledger_providers::branch* ledger_providers::branch_of(std::string_view path) const noexcept {
  const auto found =
      std::find_if(branches_.begin(), branches_.end(),
                   [path](const branch& candidate) { return path.starts_with(candidate.path); });
  return found == branches_.end() ? nullptr : &*found;
}

bool ledger_providers::serves(std::string_view path) const noexcept {
  return branch_of(path) != nullptr;
}

int ledger_providers::get(std::string_view path, ledger_value& ret) const {
  const branch* owner = branch_of(path);
  if (owner == nullptr || owner->row->get == nullptr) {
    return ledger_no_data;
  }
  const std::string key{path.substr(path.rfind('/') + 1)};
  const ledger_dpv_request request{.key = key.c_str()};
  ledger_dpv_reply reply;
  const int status =
      ledger_in_service(environment_, [&] { return owner->row->get(&reply, &request); });
  std::unique_ptr<std::byte[]> buffer{reply.buffer};
  if (status != status_ok) {
    return status;
  }
  if (!buffer || reply.length > ledger_page_bytes_max) {
    return ledger_provider_failure;
  }
  ret.kind = static_cast<ledger_kind>(reply.data_kind);
  ret.data = std::move(buffer);
  ret.length = reply.length;
  return status_ok;
}

int ledger_providers::list(const ledger_list_query& query, ledger_page& ret) const {
  std::string path{query.path};
  if (!path.ends_with('/')) {
    path += '/';
  }
  const branch* owner = branch_of(path);
  if (owner == nullptr || owner->path != path || query.page_size == 0) {
    return owner == nullptr ? ledger_no_data : invalid_argument;
  }
  const std::string marker{query.marker};
  ledger_dpv_entries answer;
  const int status = query.values
                         ? ask<datalist_request>(environment_, *owner->row, marker.c_str(), answer)
                         : ask<list_request>(environment_, *owner->row, marker.c_str(), answer);
  if (owner->row->lists_everything &&
      (!marker.empty() || fitting(answer.entries, query.page_size) < answer.entries.size())) {
    go_on_by_name(answer.entries, marker);
  }
  if (status == ledger_no_data || (status == status_ok && answer.entries.empty())) {
    return marker.empty() ? ledger_no_data : ledger_list_end;
  }
  if (status != status_ok) {
    return status;
  }
  const std::size_t count = fitting(answer.entries, query.page_size);
  ret.has_continuation = answer.more || count < answer.entries.size();
  answer.entries.resize(count);
  ret.entries = std::move(answer.entries);
  ret.continuation = ret.has_continuation ? ret.entries.back().name : std::string{};
  return status_ok;
}

ledger_dpv_list* ledger_dpv_list_create() noexcept {
  return new (std::nothrow) ledger_dpv_list;
}

int ledger_dpv_list_add(ledger_dpv_list* list, const char* name, std::uint32_t data_kind,
                        std::uint32_t /*flags*/) noexcept {
  return add_entry(list, name, data_kind, {});
}

int ledger_dpv_list_set_more_flag(ledger_dpv_list* list) noexcept {
  return set_more_flag(list);
}

void ledger_dpv_list_free(ledger_dpv_list* list) noexcept {
  delete list;
}

ledger_dpv_datalist* ledger_dpv_datalist_create() noexcept {
  return new (std::nothrow) ledger_dpv_datalist;
}

int ledger_dpv_datalist_add(ledger_dpv_datalist* list, const char* name, std::uint32_t data_kind,
                            std::uint32_t /*flags*/, const std::byte* data,
                            std::size_t length) noexcept {
  return add_entry(list, name, data_kind, {data, length});
}

int ledger_dpv_datalist_set_more_flag(ledger_dpv_datalist* list) noexcept {
  return set_more_flag(list);
}

void ledger_dpv_datalist_free(ledger_dpv_datalist* list) noexcept {
  delete list;
}

}  // namespace ot
