// Building the answer to a list or a datalist request: a list carries names, a datalist the encoded
// record with each.

#include <cstdio>
#include <memory>

#include "oper/records/provider.h"
#include "platform/err_string.h"
#include "platform/ledger_status.h"

namespace ot {
namespace {

constexpr std::uint32_t record_kind = static_cast<std::uint32_t>(ledger_kind::record);

template <typename Request, typename Handle>
int start(Request* request, Handle* created, Handle** ret) noexcept {
  request->count = 0;
  request->handle = nullptr;
  *ret = created;
  return created == nullptr ? ledger_provider_failure : status_ok;
}

template <typename Request, typename Handle>
void finish(Request* request, Handle* handle, std::uint32_t count, int status,
            void (*release)(Handle*) noexcept) noexcept {
  if (status != status_ok) {
    release(handle);
    return;
  }
  request->count = count;
  request->handle = handle;
}

int add_failed(const char* item_name, char* error_text, std::size_t error_size) noexcept {
  std::snprintf(error_text, error_size, "(%s) failed to add item %s ", "ot_add_list_datalist",
                item_name);
  return ledger_provider_failure;
}

}  // namespace

int ot_init_list_datalist(ledger_dpv_list_request* list, ledger_dpv_datalist_request* datalist,
                          ledger_dpv_list** ret_list, ledger_dpv_datalist** ret_datalist) noexcept {
  if (list != nullptr) {
    return start(list, ledger_dpv_list_create(), ret_list);
  }
  return datalist == nullptr ? ledger_provider_failure
                             : start(datalist, ledger_dpv_datalist_create(), ret_datalist);
}

int ot_add_list_datalist(const ledger_dpv_list_request* list,
                         const ledger_dpv_datalist_request* datalist, ledger_dpv_list* list_handle,
                         ledger_dpv_datalist* datalist_handle, const char* item_name,
                         const void* record, const brec_descriptor& descriptor, char* error_text,
                         std::size_t error_size) noexcept {
  if (list != nullptr) {
    return ledger_dpv_list_add(list_handle, item_name, record_kind, 0) == status_ok
               ? status_ok
               : add_failed(item_name, error_text, error_size);
  }
  if (datalist == nullptr) {
    return add_failed(item_name, error_text, error_size);
  }
  std::byte* buffer = nullptr;
  std::size_t length = 0;
  const int status = brec_encode(descriptor, record, &buffer, &length);
  const std::unique_ptr<std::byte[]> owner(buffer);
  if (status != status_ok) {
    std::snprintf(error_text, error_size, "(%s) Brec encode failed for item <%s>, (%s)", __func__,
                  item_name, err_string(status));
    return ledger_provider_failure;
  }
  return ledger_dpv_datalist_add(datalist_handle, item_name, record_kind, 0, buffer, length) ==
                 status_ok
             ? status_ok
             : add_failed(item_name, error_text, error_size);
}

void ot_release_list_datalist(ledger_dpv_list_request* list, ledger_dpv_datalist_request* datalist,
                              ledger_dpv_list* list_handle, ledger_dpv_datalist* datalist_handle,
                              std::uint32_t count, int status) noexcept {
  if (list != nullptr) {
    finish(list, list_handle, count, status, ledger_dpv_list_free);
  } else if (datalist != nullptr) {
    finish(datalist, datalist_handle, count, status, ledger_dpv_datalist_free);
  }
}

}  // namespace ot
