// Every function is found before one is called.
#include "tools/qmond/kinds/curl.h"

#include <dlfcn.h>

#include <string>
#include <type_traits>

#include "tools/daemon/lines.h"

namespace ot::qmond {
namespace {

constexpr const char* library_name = "libcurl.so.4";

// The library's functions; false when one is missing.
bool find_all(void* library, curl_functions& ret) noexcept {
  const auto find = [library](const char* name, auto& function) {
    function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(dlsym(library, name));
    return function != nullptr;
  };
  return find("curl_global_init", ret.global_init) && find("curl_easy_init", ret.easy_init) &&
         find("curl_easy_setopt", ret.easy_setopt) && find("curl_easy_getinfo", ret.easy_getinfo) &&
         find("curl_easy_cleanup", ret.easy_cleanup) &&
         find("curl_slist_append", ret.slist_append) &&
         find("curl_slist_free_all", ret.slist_free_all) &&
         find("curl_multi_init", ret.multi_init) && find("curl_multi_setopt", ret.multi_setopt) &&
         find("curl_multi_add_handle", ret.multi_add_handle) &&
         find("curl_multi_remove_handle", ret.multi_remove_handle) &&
         find("curl_multi_socket_action", ret.multi_socket_action) &&
         find("curl_multi_info_read", ret.multi_info_read) &&
         find("curl_multi_cleanup", ret.multi_cleanup);
}

void say_once(const char* what) {
  static bool said = false;
  if (!said) {
    said = true;
    say(std::string("qmond: http operations cannot run: ") + what);
  }
}

}  // namespace

const curl_functions* load_curl() {
  static curl_functions functions;
  static bool ready = false;
  if (ready) {
    return &functions;
  }
  void* const library = dlopen(library_name, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr || !find_all(library, functions)) {
    const char* error = dlerror();
    say_once(error == nullptr ? library_name : error);
    return nullptr;
  }
  if (functions.global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
    say_once("libcurl cannot be set up");
    return nullptr;
  }
  ready = true;
  return &functions;
}

}  // namespace ot::qmond
