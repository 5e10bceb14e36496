// Change notifications for readers of the operational data: queued one a change, sent in batches.
#pragma once

#include <cstdint>

#include "platform/ledger.h"
#include "platform/ledger_provider.h"

namespace ot {

struct ot_timer_ctx;

using ot_notification = ledger_dpv_notification;

// A full batch is sent at once; otherwise a batch leaves 100 ms after its first entry.
inline constexpr std::uint32_t notification_batch_size = 512;

// The connection the batches go out on. Bound at start-up, before the first state is published.
extern ledger_conn* ot_ledger_oper;
int ot_ledger_oper_bind() noexcept;
void ot_ledger_oper_unbind() noexcept;

// Queues that the item of track `name` was set to `state` (mode 0), or deleted with `state` as its
// old value (mode 1). 0; 22 for another mode, nothing queued. Without memory the change is dropped.
int OT_dpv_queue_notification(const char* name, std::uint32_t state, int mode);

// Sends and frees the batch, whether or not it can be sent. The platform's result; 0 when empty.
int OT_dpv_dispatch_notifications();

// Hook of the notification timer: sends the batch.
void send_delayed_notifications(const ot_timer_ctx& ctx);

// Frees what is queued without sending it: the end of a service in a test.
void ot_notifications_drop() noexcept;

}  // namespace ot
