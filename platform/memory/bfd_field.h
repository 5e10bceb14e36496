// The state of the in-memory BFD service, and how its client is told of it. For the files of this
// folder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <utility>

#include "platform/bfd_client.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/loops.h"
#include "platform/memory/world.h"

namespace ot {

using bfd_field_key = std::pair<std::uint32_t, std::uint32_t>;  // handle, address in host order

struct wanted_session {
  std::uint32_t id = 0;
  std::uint32_t rate = 0;
  std::uint32_t debounce_count = 0;
};

struct bfd_part {
  std::mutex mutex;
  bool running = false;
  std::optional<bfdc_bind_record> client;
  std::size_t binds = 0;
  std::size_t requests = 0;
  std::uint32_t last_sequence = 0;
  std::uint32_t last_id = 0;
  int refusal = 0;  // of the next creation
  std::map<bfd_field_key, wanted_session> wanted;
  std::set<bfd_field_key> answering;

  [[nodiscard]] bool up(const bfd_field_key& key) const {
    return running && wanted.contains(key) && answering.contains(key);
  }
};

// Has one of the client's callbacks called with `message` on its loop; nobody is told when the
// client has gone by then. With the part locked.
template <typename Message>
void bfd_tell(bfd_part& part, void (*bfdc_bind_record::*callback)(const Message*),
              Message message) {
  if (!part.client) {
    return;
  }
  loop_post(part.client->manager, [callback, message] {
    bfd_part& then = world_part<bfd_part>();
    void (*call)(const Message*) = nullptr;
    {
      const std::scoped_lock lock{then.mutex};
      call = then.client ? *then.client.*callback : nullptr;
    }
    if (call != nullptr) {
      alloc_faults_resumed resume;
      call(&message);
    }
  });
}

// The same for a session's state and the connection's status.
void bfd_tell_state(bfd_part& part, const bfd_field_key& key, bool up);
void bfd_tell_status(bfd_part& part, std::uint32_t status);

}  // namespace ot
