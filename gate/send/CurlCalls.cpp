#include "gate/send/CurlCalls.h"

#include <curl/curl.h>
#include <dlfcn.h>

#include <stdexcept>
#include <string>

namespace {

constexpr const char* kCurlLibrary = "libcurl-gnutls.so.4";

template <class Function>
void LoadCall(void* library, const char* name, Function& call) {
  call = reinterpret_cast<Function>(::dlsym(library, name));
  if (call == nullptr) {
    throw std::runtime_error(std::string(kCurlLibrary) + " has no " + name);
  }
}

CurlCalls LoadCurl() {
  void* const library = ::dlopen(kCurlLibrary, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    const char* const reason = ::dlerror();
    throw std::runtime_error(reason == nullptr ? kCurlLibrary : reason);
  }
  CurlCalls calls{};
  LoadCall(library, "curl_global_init", calls.globalInit);
  LoadCall(library, "curl_easy_init", calls.easyInit);
  LoadCall(library, "curl_easy_cleanup", calls.easyCleanup);
  LoadCall(library, "curl_easy_setopt", calls.easySetopt);
  LoadCall(library, "curl_easy_getinfo", calls.easyGetinfo);
  LoadCall(library, "curl_easy_strerror", calls.easyStrerror);
  LoadCall(library, "curl_slist_append", calls.slistAppend);
  LoadCall(library, "curl_slist_free_all", calls.slistFreeAll);
  LoadCall(library, "curl_multi_init", calls.multiInit);
  LoadCall(library, "curl_multi_cleanup", calls.multiCleanup);
  LoadCall(library, "curl_multi_setopt", calls.multiSetopt);
  LoadCall(library, "curl_multi_strerror", calls.multiStrerror);
  LoadCall(library, "curl_multi_add_handle", calls.multiAddHandle);
  LoadCall(library, "curl_multi_remove_handle", calls.multiRemoveHandle);
  LoadCall(library, "curl_multi_socket_action", calls.multiSocketAction);
  LoadCall(library, "curl_multi_info_read", calls.multiInfoRead);
  if (calls.globalInit(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
    throw std::runtime_error(std::string(kCurlLibrary) + " can't be used");
  }
  return calls;
}

}  // namespace

const CurlCalls& Curl() {
  static const CurlCalls kCalls = LoadCurl();
  return kCalls;
}
