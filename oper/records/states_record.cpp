// The record alone, for programs that read it: they do not carry the service with them.
#include "oper/records/states.h"

#include "oper/records/track_records.h"
#include "platform/status.h"

namespace ot {

const brec_descriptor state_info___brec = {
    1,
    "state_info__",
    "libobject_tracking_brec_desc.dll",
    {},
    sizeof(state_info__),
    "$20=L{next}p($20){Name}40x%S{State}D{Source}D{Delayed}b{Waiting}D{Remaining}H;",
    "$20=Lp($20)40x%SDDbDH;"};

int ot_states_record_register() noexcept {
  static constexpr const brec_descriptor* descriptors[] = {&state_info___brec};
  const int status = register_records(descriptors);
  return status == duplicate_key ? status_ok : status;
}

}  // namespace ot
