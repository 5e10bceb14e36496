// The operational data provider: answers readers of "/oper/object_tracking/gl/" with the records of
// "track/detail" and "track/brief". Main thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/brec.h"
#include "platform/ledger_provider.h"

namespace ot {

// Registers both branches. After the records are registered, before the first request. Status code.
int ot_oper_provider_register() noexcept;

// One key: a track's name, "type-interface", "type-route" or "type-prb", and for the brief branch
// "all-tracks". 0 with the reply filled, or ledger_no_data.
int ot_dpv_track_get(ledger_dpv_reply* reply, const ledger_dpv_request* request);
int ot_dpv_track_get_brief(ledger_dpv_reply* reply, const ledger_dpv_request* request);

// All tracks: the detailed branch a page at a time, the brief one at once. 0 with count and handle
// in the request, ledger_no_data, or ledger_provider_failure.
int ot_track_list(ledger_dpv_list_request* request);
int ot_track_datalist(ledger_dpv_datalist_request* request);
int ot_track_brief_list(ledger_dpv_list_request* request);
int ot_track_brief_datalist(ledger_dpv_datalist_request* request);

// --- What they are made of; exactly one of `list` and `datalist` is given ------------------------

int ot_track_list_datalist(ledger_dpv_list_request* list, ledger_dpv_datalist_request* datalist);
int ot_track_brief_list_datalist(ledger_dpv_list_request* list,
                                 ledger_dpv_datalist_request* datalist);

// What a provider answers after it has encoded its one record into the reply: `status` is the
// encoding's, traced for `who` when it failed. 0 or ledger_no_data.
int ot_dpv_encoded(const char* who, int status, ledger_dpv_reply& reply) noexcept;

// Creates the answer and zeroes the request's own count and handle. 0 or ledger_provider_failure.
int ot_init_list_datalist(ledger_dpv_list_request* list, ledger_dpv_datalist_request* datalist,
                          ledger_dpv_list** ret_list, ledger_dpv_datalist** ret_datalist) noexcept;

// Adds one item, for a datalist with its encoded record. 0, or ledger_provider_failure with a text
// in `error_text`.
int ot_add_list_datalist(const ledger_dpv_list_request* list,
                         const ledger_dpv_datalist_request* datalist, ledger_dpv_list* list_handle,
                         ledger_dpv_datalist* datalist_handle, const char* item_name,
                         const void* record, const brec_descriptor& descriptor, char* error_text,
                         std::size_t error_size) noexcept;

// Frees the answer when `status` is a failure, else hands it over in the request.
void ot_release_list_datalist(ledger_dpv_list_request* list, ledger_dpv_datalist_request* datalist,
                              ledger_dpv_list* list_handle, ledger_dpv_datalist* datalist_handle,
                              std::uint32_t count, int status) noexcept;

}  // namespace ot
