// The client side of the probe statistics table as libqmon_infra.dll. There is one table a process;
// it is opened anew only when the one that is open is not alive any more.
#include "platform/linux/probes/qmon/client.h"

#include <atomic>
#include <cerrno>
#include <new>
#include <string>

#include "platform/common/root_path.h"
#include "platform/linux/probes/qmon/table_view.h"

namespace {

ot::table_view table;

// The look-up that follows a question for the table takes that answer; any other asks for itself.
// Half of what a poll reads would be read twice otherwise.
std::atomic<bool> found_live;

bool live_for_look_up(const ot::table_view& view) noexcept {
  return found_live.exchange(false, std::memory_order_relaxed) || view.live();
}

// A table whose writer is gone stays open until there is another one.
int open_newest() {
  const int error = table.open(ot::root_path(ot::statistics_path));
  return error == 0 && !table.live() ? ESTALE : error;
}

}  // namespace

int qmon_ot_shm_client_init() noexcept {
  try {
    return table.live() ? 0 : open_newest();
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
}

void* qmon_ot_shm_get_stat_tbl() noexcept {
  const bool live = table.live();
  found_live.store(live, std::memory_order_relaxed);
  return live ? &table : nullptr;
}

bool qmon_ot_stat_look_up(std::uint32_t op_id, const void* opened,
                          ot::qmon_stat_entry* ret) noexcept {
  const auto* const view = static_cast<const ot::table_view*>(opened);
  ot::statistics found;
  if (view == nullptr || !live_for_look_up(*view) || !view->look_up(op_id, &found)) {
    return false;
  }
  *ret = {.op_id = op_id,
          .return_code = found[ot::word_return_code],
          .response_time = found[ot::word_response_time]};
  return true;
}
