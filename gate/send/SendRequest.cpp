#include "gate/send/SendRequest.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "json/TerminalText.h"

namespace {

/// `url` without its user, up to the first of `ends` behind the host.
std::string UrlUpTo(const std::string& url, const char* ends) {
  const std::size_t scheme = url.find("://");
  const std::size_t begin = scheme == std::string::npos ? 0 : scheme + 3;
  const std::size_t path = std::min(url.find_first_of("/?#", begin), url.size());
  // One behind the host belongs to the path.
  const std::size_t user = url.substr(0, path).rfind('@');
  const std::size_t host = user == std::string::npos || user < begin ? begin : user + 1;
  return url.substr(0, begin) + url.substr(host, url.find_first_of(ends, path) - host);
}

}  // namespace

bool IsTurnedAway(const SendResult& result) {
  constexpr std::array kDoor{401, 402, 403, 404, 405, 407, 410};
  return std::ranges::find(kDoor, result.status) != kDoor.end();
}

bool IsRefused(const SendResult& result) {
  return result.status >= 400 && result.status < 500 && result.status != 408 &&
         result.status != 429 && !IsTurnedAway(result);
}

std::string WordsOf(const SendResult& result) {
  constexpr std::size_t kMostWords = 200;
  if (result.status == 0) {
    return result.error;
  }
  const std::string words = ShownBegin(
      std::string_view(result.body).substr(0, result.body.find_first_of("\r\n")), kMostWords);
  return "status " + std::to_string(result.status) + (words.empty() ? "" : ": ") + words;
}

std::string ShownUrl(const std::string& url) { return UrlUpTo(url, "?#"); }

std::string ServerOf(const std::string& url) { return UrlUpTo(url, "/?#"); }
