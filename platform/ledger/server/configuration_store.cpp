// A store is made under another name and gets its own when it is whole, so a file of the right name
// that is no good is never one that a start has left half done.
#include "platform/ledger/server/configuration_store.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>

#include "platform/common/root_path.h"
#include "platform/ledger/server/configuration_copy.h"
#include "platform/ledger/server/instance_lock.h"
#include "platform/ledger/server/store_check.h"
#include "platform/ledger_status.h"
#include "platform/linux/process/directories.h"

namespace ot {
namespace {

int status_of(int error) noexcept {
  return error == ENOMEM ? no_memory : ledger_storage_failure;
}

int failed(const std::string& path, int error, std::string& ret_error) {
  ret_error = place_error(path, error);
  return status_of(error);
}

lmdb_options options_of(const std::string& path, std::size_t map_bytes) {
  return {.path = path, .map_bytes = map_bytes, .durability = lmdb_durability::synced, .stamp = {}};
}

int open_store(lmdb_store& store, const std::string& path, std::size_t map_bytes,
               std::string& ret_error) {
  const int code = store.open(options_of(path, map_bytes));
  if (code == 0) {
    return status_ok;
  }
  ret_error = store.open_error(code);
  return status_of(code);
}

void remove_store(const std::string& path) noexcept {
  for (const char* end : {"", "-lock"}) {
    unlink((path + end).c_str());
  }
}

// Everything is written twice: in the order of the owners' first items, which fixes that order, and
// then in the order of changes, which a later write of an item decides. Each item is its own owner
// here: what counts is who comes before whom.
std::vector<ledger_write> writes_of(const std::vector<ledger_stored>& items) {
  std::vector<const ledger_stored*> order;
  order.reserve(items.size());
  for (const ledger_stored& item : items) {
    order.push_back(&item);
  }
  std::vector<ledger_write> writes;
  writes.reserve(2 * items.size());
  const auto write_all = [&] {
    for (const ledger_stored* item : order) {
      writes.push_back({.path = item->path,
                        .kind = item->value.kind,
                        .value = item->value.bytes(),
                        .owner = item->path.size()});
    }
  };
  std::ranges::stable_sort(order, {}, &ledger_stored::first);
  write_all();
  std::ranges::stable_sort(order, {}, &ledger_stored::sequence);
  write_all();
  return writes;
}

// Fills a new store in one write. 0 or a status code.
int fill_store(const std::string& path, std::size_t map_bytes,
               const std::vector<ledger_stored>& items, std::string& ret_error) {
  lmdb_store store;
  if (const int status = open_store(store, path, map_bytes, ret_error); status != status_ok) {
    return status;
  }
  const std::vector<ledger_write> writes = writes_of(items);
  const int status = writes.empty() ? status_ok : store.write(writes);
  if (status != status_ok) {
    ret_error = path + ": the items cannot be written";
  }
  return status;
}

// Makes a store at `path`, whole or not at all. 0 or a status code.
int make_store(const std::string& path, std::size_t map_bytes,
               const std::vector<ledger_stored>& items, std::string& ret_error) {
  const std::string fresh = path + ".new";
  remove_store(fresh);
  int status = fill_store(fresh, map_bytes, items, ret_error);
  if (status == status_ok &&
      (std::rename(fresh.c_str(), path.c_str()) != 0 || sync_directory_of(path) != 0)) {
    status = failed(path, errno, ret_error);
  }
  remove_store(fresh);
  return status;
}

// The text for a store that is missing beside its copy.
int refuse_missing(const std::string& path, std::string& ret_error) {
  configuration_copy copy;
  std::string copy_error;
  const std::string copy_path = configuration_copy_path();
  ret_error = path + ": it is missing, but its copy is there. ";
  if (read_configuration_copy(copy_path, copy, copy_error) == 0) {
    ret_error += "`object_tracking --restore` makes it from " + copy.name();
  } else {
    ret_error += "The copy is no good (" + copy_error + "): put a backup of your own in its place";
  }
  ret_error += "; to begin with no configuration, move " + copy_path + " away";
  return ledger_storage_failure;
}

// The text for a store that is no good. The file stays as it is.
int refuse(const std::string& path, const std::string& fault, std::string& ret_error) {
  configuration_copy copy;
  std::string copy_error;
  const std::string copy_path = configuration_copy_path();
  const int no_copy = read_configuration_copy(copy_path, copy, copy_error);
  ret_error = path + ": " + fault + "; it is left as it is. ";
  if (no_copy == 0) {
    ret_error += "`object_tracking --restore` puts " + copy.name() +
                 " in its place and keeps it under another name; to begin with no configuration, "
                 "move it and " +
                 copy_path + " away";
  } else {
    ret_error += no_copy == ENOENT ? "There is no copy of it" : "There is no good copy of it";
    ret_error +=
        ": put a backup of your own in its place, or move it away to begin with no "
        "configuration";
  }
  return ledger_storage_failure;
}

bool copy_is_there() {
  return access(configuration_copy_path().c_str(), F_OK) == 0;
}

std::string kept_name(const std::string& path) {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  char when[32] = "";
  if (localtime_r(&now, &local) != nullptr) {
    std::strftime(when, sizeof when, "%Y%m%d-%H%M%S", &local);
  }
  std::string name = path + ".kept-" + when;
  while (access(name.c_str(), F_OK) == 0) {
    name += '+';
  }
  return name;
}

// Gives what stands at the store's path another name. 0 or an errno value; "" in `ret_kept` when
// nothing stood there.
int set_aside(const std::string& path, std::string& ret_kept) {
  const std::string name = kept_name(path);
  if (std::rename(path.c_str(), name.c_str()) != 0) {
    return errno == ENOENT ? 0 : errno;
  }
  unlink((path + "-lock").c_str());
  ret_kept = name;
  return 0;
}

}  // namespace

int open_configuration(lmdb_store& store, std::size_t map_bytes, std::string& ret_error) {
  const std::string path = configuration_path();
  std::string fault;
  switch (check_store(path, map_bytes, true, fault)) {
    case store_state::absent:
      if (copy_is_there()) {
        return refuse_missing(path, ret_error);
      }
      if (const int status = make_store(path, map_bytes, {}, ret_error); status != status_ok) {
        return status;
      }
      break;
    case store_state::faulty:
      return refuse(path, fault, ret_error);
    case store_state::unreadable:
      ret_error = path + ": " + fault;
      return ledger_storage_failure;
    case store_state::good:
      break;
  }
  return open_store(store, path, map_bytes, ret_error);
}

int restore_configuration(std::size_t map_bytes, std::string& ret_text) {
  const unique_fd lock = take_instance_lock(ret_text);
  if (!lock.valid()) {
    return ledger_not_available;
  }
  const std::string path = configuration_path();
  const std::string copy_path = configuration_copy_path();
  configuration_copy copy;
  std::string kept;
  if (make_directory(path.substr(0, path.rfind('/')), 0700, ret_text) != 0) {
    return ledger_storage_failure;
  }
  if (const int error = read_configuration_copy(copy_path, copy, ret_text); error != 0) {
    if (error == ENOENT) {
      ret_text = copy_path +
                 ": there is no copy of the configuration; the service makes one some seconds "
                 "after a change. Put a backup of your own there, or in the place of " +
                 path;
    }
    return ledger_storage_failure;
  }
  const std::string fresh = path + ".restored";
  remove_store(fresh);
  int status = make_store(fresh, map_bytes, copy.items, ret_text);
  if (status != status_ok) {
    return status;
  }
  if (const int error = set_aside(path, kept); error != 0) {
    status = failed(path, error, ret_text);
  } else if (std::rename(fresh.c_str(), path.c_str()) != 0 || sync_directory_of(path) != 0) {
    status = failed(path, errno, ret_text);
  } else {
    ret_text = copy.name() + " is the configuration now" +
               (kept.empty() ? "" : "; what was there before is kept as " + kept);
  }
  remove_store(fresh);
  return status;
}

}  // namespace ot
