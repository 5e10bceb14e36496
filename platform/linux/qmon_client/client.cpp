// The client side of the probe statistics table as libqmon_infra.dll. There is one table a process.
// Whether qmond has made a new one is only asked when the old one is no longer alive, so that a
// read costs no system call.
#include "platform/linux/qmon_client/client.h"

#include <cerrno>
#include <new>
#include <string>

#include "platform/common/root_path.h"
#include "platform/linux/qmon_client/table_view.h"

namespace {

ot::table_view table;

bool usable(const std::string& path) noexcept {
  return table.is_open() && (table.live(ot::monotonic_ms()) || !table.replaced(path));
}

}  // namespace

int qmon_ot_shm_client_init() noexcept {
  try {
    const std::string path = ot::root_path(ot::statistics_path);
    return usable(path) ? 0 : table.open(path);
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
}

void* qmon_ot_shm_get_stat_tbl() noexcept {
  try {
    return usable(ot::root_path(ot::statistics_path)) ? &table : nullptr;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

bool qmon_ot_stat_look_up(std::uint32_t op_id, const void* opened,
                          ot::qmon_stat_entry* ret) noexcept {
  const auto* const view = static_cast<const ot::table_view*>(opened);
  ot::statistics found;
  if (view == nullptr || !view->live(ot::monotonic_ms()) || !view->look_up(op_id, &found)) {
    return false;
  }
  *ret = {.op_id = op_id,
          .return_code = found[ot::word_return_code],
          .response_time = found[ot::word_response_time]};
  return true;
}
