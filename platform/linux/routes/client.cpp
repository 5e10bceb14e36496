// The FIB client's calls: the kernel is the FIB of this platform.
#include "platform/fib_client.h"

#include <memory>
#include <new>

#include "platform/linux/routes/session.h"
#include "platform/status.h"

namespace ot {

struct rtclient {
  fib_session session;
};

namespace {

fib_prefix prefix_of(const rtclient_registration& registration) noexcept {
  return {registration.table_id, registration.prefix, registration.prefix_length};
}

}  // namespace

int rtclient_init(const rtclient_parameters& parameters, const rtclient_callbacks& callbacks,
                  rtclient** ret) noexcept {
  std::unique_ptr<rtclient> client{new (std::nothrow) rtclient{{parameters.manager, callbacks}}};
  if (client == nullptr) {
    return no_memory;
  }
  const int status = client->session.start();
  if (status == status_ok) {
    *ret = client.release();
  }
  return status;
}

void rtclient_close(rtclient* client) noexcept {
  delete client;
}

int rtclient_lookup(rtclient* client, std::uint32_t family, std::uint32_t table_id,
                    std::uint32_t address, rtclient_result** ret) noexcept {
  *ret = nullptr;
  if (family != fib_family_ipv4) {
    return invalid_argument;
  }
  return client->session.find(address, table_id, ret);
}

void rtclient_lookup_free(rtclient_result* result) noexcept {
  delete result;
}

int rtclient_bulk_reg_notif(rtclient* client,
                            std::span<const rtclient_registration> prefixes) noexcept {
  for (const rtclient_registration& registration : prefixes) {
    if (const int status = client->session.add(prefix_of(registration)); status != status_ok) {
      return status;
    }
  }
  return status_ok;
}

int rtclient_bulk_unreg_notif(rtclient* client,
                              std::span<const rtclient_registration> prefixes) noexcept {
  for (const rtclient_registration& registration : prefixes) {
    if (const int status = client->session.remove(prefix_of(registration)); status != status_ok) {
      return status;
    }
  }
  return status_ok;
}

}  // namespace ot
