#include "gate/http/HttpHead.h"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <optional>

#include "support/TrimmedText.h"

namespace {

constexpr unsigned kBadRequest = 400;
constexpr unsigned kUriTooLong = 414;
constexpr unsigned kMisdirected = 421;
constexpr unsigned kHeadTooLarge = 431;
constexpr std::size_t kMaxMethod = 32;
constexpr HeadVerdict kLongLine{kUriTooLong, "the request's first line is too long"};
constexpr HeadVerdict kLongHead{kHeadTooLarge, "the request's head is too long"};
constexpr HeadVerdict kManyHeaders{kHeadTooLarge, "the request has more than 100 headers"};

bool IsTokenChar(char c) {
  constexpr std::string_view kOthers = "!#$%&'*+-.^_`|~";
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
         kOthers.find(c) != std::string_view::npos;
}

bool IsSame(std::string_view left, std::string_view right) {
  return left.size() == right.size() && ::strncasecmp(left.data(), right.data(), left.size()) == 0;
}

/// Takes a line without its end off the text; nothing if there is no whole one.
std::optional<std::string_view> TakeLine(std::string_view& text) {
  const std::size_t end = text.find('\n');
  if (end == std::string_view::npos) {
    return std::nullopt;
  }
  std::string_view line = text.substr(0, end);
  text.remove_prefix(end + 1);
  if (line.ends_with('\r')) {
    line.remove_suffix(1);
  }
  return line;
}

bool IsPort(std::string_view text) {
  return text.empty() ||
         (text.front() == ':' && text.find_first_not_of("0123456789", 1) == std::string_view::npos);
}

bool IsAddress(int family, std::string_view text) {
  std::array<unsigned char, 16> address{};
  return ::inet_pton(family, std::string(text).c_str(), address.data()) == 1;
}

bool IsOwnHost(std::string_view host, const HeadRule& rule) {
  if (host.starts_with('[')) {
    const std::size_t end = host.find(']');
    return end != std::string_view::npos && IsPort(host.substr(end + 1)) &&
           IsAddress(AF_INET6, host.substr(1, end - 1));
  }
  const std::size_t colon = std::min(host.find(':'), host.size());
  std::string_view name = host.substr(0, colon);
  if (!IsPort(host.substr(colon))) {
    return false;
  }
  if (name.ends_with('.')) {
    name.remove_suffix(1);
  }
  return IsAddress(AF_INET, name) || IsSame(name, "localhost") ||
         std::ranges::any_of(rule.hostNames,
                             [&](const std::string& own) { return IsSame(name, own); });
}

}  // namespace

Refusal RefusalOf(const HeadVerdict& verdict, std::string_view head) {
  const std::size_t target = std::min(head.find(' '), head.size());
  if (!head.substr(target).starts_with(" /api/")) {
    return {verdict.status, "text/plain; charset=utf-8", std::string(verdict.reason) + '\n'};
  }
  constexpr unsigned kTooLarge = 413;
  const bool isLong = verdict.status == kUriTooLong || verdict.status == kHeadTooLarge;
  std::string message = verdict.reason;
  std::ranges::replace(message, '"', '\'');
  return {isLong ? kTooLarge : verdict.status, "application/json",
          std::string(R"({"ok":false,"error":{"code":")") + (isLong ? "too-long" : "bad-request") +
              R"(","message":")" + message + "\"}}\n"};
}

HeadVerdict JudgeHost(std::string_view host, const HeadRule& rule) {
  return IsOwnHost(host, rule)
             ? HeadVerdict{}
             : HeadVerdict{kMisdirected,
                           "the request's Host is no address and no name of this host; "
                           "\"Names\" in section Http of qmtagt.ini lists more"};
}

namespace {

HeadVerdict JudgeFirstLine(std::string_view line, bool isWhole, const HeadRule& rule) {
  const std::size_t method = std::min(line.find(' '), line.size());
  if (method > kMaxMethod || (method == 0 && !line.empty()) ||
      !std::all_of(line.begin(), line.begin() + static_cast<std::ptrdiff_t>(method), IsTokenChar)) {
    return {kBadRequest, "the request begins with no method"};
  }
  if (line.size() > rule.maxBytes / 2) {
    return kLongLine;
  }
  if (static_cast<std::size_t>(std::ranges::count(line, '&')) >= HeadRule::kMaxArguments) {
    return {kUriTooLong, "the request has more than 100 arguments"};
  }
  if (!isWhole) {
    return {HeadVerdict::kIncomplete};
  }
  const std::size_t version = line.rfind(' ');
  if (method == line.size() || version == method || !line.substr(version).starts_with(" HTTP/1.") ||
      std::ranges::any_of(line, [](unsigned char c) { return c < ' ' || c == 0x7f; })) {
    return {kBadRequest, "the request's first line is no METHOD TARGET HTTP/1.1"};
  }
  return {};
}

/// Judges the lines behind the first one.
HeadVerdict JudgeHeaders(std::string_view rest, bool needsHost, const HeadRule& rule) {
  std::optional<std::string_view> host;
  for (std::size_t count = 0; const auto line = TakeLine(rest); ++count) {
    if (line->empty()) {
      if (!host) {
        return needsHost ? HeadVerdict{kBadRequest, "the request has no Host"} : HeadVerdict{};
      }
      return JudgeHost(*host, rule);
    }
    if (count == HeadRule::kMaxHeaders) {
      return kManyHeaders;
    }
    const std::size_t colon = std::min(line->find(':'), line->size());
    if (IsSame(line->substr(0, colon), "Host")) {
      if (host) {
        return {kBadRequest, "the request has more than one Host"};
      }
      host = Trimmed(line->substr(std::min(colon + 1, line->size())), " \t\r");
    }
  }
  return {HeadVerdict::kIncomplete};
}

}  // namespace

HeadVerdict JudgeSizes(std::size_t firstLine, std::size_t head, std::size_t headers,
                       const HeadRule& rule) {
  if (firstLine > rule.maxBytes / 2) {
    return kLongLine;
  }
  if (headers > HeadRule::kMaxHeaders) {
    return kManyHeaders;
  }
  return head > rule.maxBytes ? kLongHead : HeadVerdict{};
}

HeadVerdict JudgeHead(std::string_view bytes, const HeadRule& rule) {
  const bool isLong = bytes.size() >= rule.maxBytes;
  // Some clients end an earlier request with one line end too many.
  const std::size_t begin = std::min(bytes.find_first_not_of("\r\n"), bytes.size());
  std::string_view rest = bytes.substr(begin);
  const std::optional<std::string_view> line = TakeLine(rest);
  HeadVerdict verdict = JudgeFirstLine(line.value_or(rest), line.has_value(), rule);
  if (verdict.status == 0) {
    verdict = JudgeHeaders(rest, line->ends_with("HTTP/1.1"), rule);
  }
  if (verdict.status == HeadVerdict::kIncomplete && isLong) {
    return kLongHead;
  }
  return verdict;
}
