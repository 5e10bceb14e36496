// The configuration's store from start to start: made once, never taken for empty when it is not
// what the service left, and put back from its copy when the operator says so.
#pragma once

#include <string>

#include "platform/ledger/server/lmdb_store.h"

namespace ot {

// Opens the store. The first start makes it, durably and as a whole. One that is damaged, empty,
// missing beside its copy, or not the service's own is left as it is, and `ret_error` says how to
// go on. 0 or a status code.
int open_configuration(lmdb_store& store, std::size_t map_bytes, std::string& ret_error);

// Puts the copy in the place of the store; what was there is kept beside it under another name. No
// instance may run. 0 or a status code; `ret_text` says what was done, or why nothing was.
int restore_configuration(std::size_t map_bytes, std::string& ret_text);

}  // namespace ot
