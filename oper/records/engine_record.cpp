// The descriptor of the engines' record and its registration; readers in other programs link this
// too.

#include "oper/records/engine_record.h"

#include "platform/status.h"

namespace ot {

const brec_descriptor engine_info___brec = {
    1,
    "engine_info__",
    "libobject_tracking_brec_desc.dll",
    {},
    sizeof(engine_info__),
    "$12=L{next}p($12){Service}33x%S{Connected}b{Since}H{Pending}D;",
    "$12=Lp($12)33x%SbHD;"};

int ot_engine_record_register() noexcept {
  int status = brec_register_start();
  if (status != status_ok) {
    return status;
  }
  status = brec_register(engine_info___brec);
  if (status != status_ok) {
    brec_register_abort();
    return status;
  }
  return brec_register_end();
}

}  // namespace ot
