#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "client/capture/StandIns.h"

/// Replaces private words and addresses wherever they stand in a text. A word begins and ends where
/// no letter, digit or underscore of ASCII stands beside it.
class TextMask {
 public:
  /// `standIns` is not owned and outlives this.
  explicit TextMask(StandIns& standIns) : m_standIns(standIns) {}

  /// Has `word` replaced from now on; one that is empty or known is nothing new.
  void Replace(const std::string& word, const std::string& standIn);
  /// Every word so far, with its stand-in.
  [[nodiscard]] const std::map<std::string, std::string>& Words() const { return m_words; }

  /// The text with its words and its addresses of IPv4, IPv6 and hardware replaced.
  [[nodiscard]] std::string Text(std::string_view text) const;
  /// The same for bytes whose number must stay: words alone.
  [[nodiscard]] std::string Bytes(std::string_view bytes) const;

 private:
  [[nodiscard]] std::string Go(std::string_view text, bool withAddresses) const;
  [[nodiscard]] const std::string* WordAt(std::string_view text, std::size_t place,
                                          std::size_t& size) const;
  [[nodiscard]] std::string AddressAt(std::string_view text, std::size_t place,
                                      std::size_t& size) const;

  StandIns& m_standIns;
  std::map<std::string, std::string> m_words;
  std::map<std::string, std::vector<std::string>, std::less<>> m_byStart;  ///< longest first
};

[[nodiscard]] bool IsWordLetter(char letter);
/// The first of these words that stands in the text as a whole word; empty if none does. In a long
/// text each word takes its time: `stop`, which may be -1, ends it with Interrupted once it is
/// readable.
[[nodiscard]] std::string FindWord(std::string_view text, const std::vector<std::string>& words,
                                   int stop = -1);
