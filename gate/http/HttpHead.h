#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// What there is to say of the begin of an HTTP request. `status` 0: it may be served; kIncomplete:
/// its head has not come as a whole yet; else the status that refuses it, with the reason in words.
struct HeadVerdict {
  static constexpr unsigned kIncomplete = 1;
  unsigned status = 0;
  const char* reason = "";
};

/// Which head of a request is taken.
struct HeadRule {
  static constexpr std::size_t kMaxArguments = 100;
  static constexpr std::size_t kMaxHeaders = 100;

  std::size_t maxBytes = 8192;         ///< of the head; its first line may have half of that
  std::vector<std::string> hostNames;  ///< that may stand in the header Host, besides addresses
                                       ///< and "localhost"
};

/// Judges what has come of a request so far: hostile bytes. A page of another site that has its
/// name point at this address is kept out by its Host.
[[nodiscard]] HeadVerdict JudgeHead(std::string_view bytes, const HeadRule& rule);

/// Judges a head that somebody else has read by its sizes: of its first line and as a whole, in
/// bytes, and the number of its headers.
[[nodiscard]] HeadVerdict JudgeSizes(std::size_t firstLine, std::size_t head, std::size_t headers,
                                     const HeadRule& rule);

/// How a request is refused whose head has been judged: in words, or for the interface below
/// "/api/" as its errors are.
struct Refusal {
  unsigned status;
  const char* contentType;
  std::string body;
};
[[nodiscard]] Refusal RefusalOf(const HeadVerdict& verdict, std::string_view head);

/// Judges the header Host alone.
[[nodiscard]] HeadVerdict JudgeHost(std::string_view host, const HeadRule& rule);
