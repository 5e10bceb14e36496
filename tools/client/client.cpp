#include "tools/client/client.h"

#include <array>
#include <cstdint>

const char* otrack_version(void) {
  return OT_VERSION;
}

const char* otrack_strerror(int error) {
  static constexpr std::array texts{"no error",
                                    "an argument is wrong",
                                    "the service is not running",
                                    "there is no such track",
                                    "the service refused it",
                                    "the time is over",
                                    "out of memory"};
  const auto index = static_cast<std::size_t>(-static_cast<std::int64_t>(error));
  return index < texts.size() ? texts[index] : "unknown error";
}

const char* otrack_state_word(uint32_t state) {
  return state == OTRACK_UP ? "up" : state == OTRACK_DOWN ? "down" : "unknown";
}

int otrack_open(otrack_client** ret) {
  if (ret == nullptr) {
    return OTRACK_ERR_INVALID;
  }
  auto* const made = new (std::nothrow) otrack_client;
  if (made == nullptr) {
    return OTRACK_ERR_NO_MEMORY;
  }
  *ret = made;
  return OTRACK_OK;
}

void otrack_close(otrack_client* client) {
  delete client;
}

const char* otrack_error(const otrack_client* client) {
  return client == nullptr ? otrack_strerror(OTRACK_ERR_INVALID) : client->error.c_str();
}
