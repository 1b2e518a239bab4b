#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "node/IniListing.h"

/// A line of an ini text that can't be used. It stays in the text.
struct IniFault {
  std::size_t line;     ///< counted from 1; 0 for what concerns no single line
  std::string problem;  ///< what is wrong, as in "no '=' after the key"
  std::string text;     ///< the line, cut to IniText::kMaxFaultText bytes
};

/// Whether two names of sections or keys are the same: without regard to (ASCII) case.
[[nodiscard]] bool IsSameName(std::string_view a, std::string_view b);

/// An ini text in memory, kept byte for byte but for the values that are set and names respelt.
///
///     # comment, also after a semicolon
///     [Section]
///     Some Key = some value
///     [Section/Sub]
///     Some Key = another value
///
/// Names are compared without regard to (ASCII) case. Blanks around a name or a value don't belong
/// to it; all else up to the end of the line does, '#' and quotes included. A section may stand in
/// several places; of keys that occur more than once in a section the first one counts. Lines end
/// in "\n" or "\r\n". A key that stands before the first section, or after a broken section line,
/// belongs to no section and is a fault.
class IniText {
 public:
  /// More faults than these are counted in one last entry.
  static constexpr std::size_t kMaxFaults = 50;
  static constexpr std::size_t kMaxFaultText = 120;

  IniText() = default;
  explicit IniText(std::string text);

  /// An empty `subSection` means the section itself.
  [[nodiscard]] std::optional<std::string> Find(std::string_view section,
                                                std::string_view subSection,
                                                std::string_view key) const;
  /// Replaces the key's value in place, or adds the key behind the last key of its section; a
  /// section that doesn't exist is added at the end. False, with the reason in `error` and nothing
  /// changed, if it would not read back: an empty name, blanks around a name, a character in a name
  /// that means something else at its place, a line end or a zero byte anywhere, a blank (also a
  /// tab, a vertical tab or a form feed) at an end of the value.
  [[nodiscard]] bool Set(std::string_view section, std::string_view subSection,
                         std::string_view key, std::string_view value, std::string& error);
  /// Spells the key's name, in the line that counts, as it is given here.
  void Respell(std::string_view section, std::string_view subSection, std::string_view key);
  /// Takes out all lines with the key; whether there were any.
  bool Remove(std::string_view section, std::string_view subSection, std::string_view key);
  /// Whether the section stands in the text, be it empty.
  [[nodiscard]] bool HasSection(std::string_view section) const;
  /// The keys and values of a section in their order, repeated keys included.
  [[nodiscard]] std::vector<std::pair<std::string, std::string>> Section(
      std::string_view section, std::string_view subSection = {}) const;

  /// All keys in file order, repeated ones included.
  [[nodiscard]] std::vector<IniSetting> Settings() const;

  [[nodiscard]] bool HasSections() const { return !m_headings.empty(); }
  /// False for a text with ten broken lines or more that outnumber the others: some other file.
  [[nodiscard]] bool IsMostlyUsable() const {
    return m_faultCount < kManyFaults || m_faultCount <= m_headings.size() + m_entries.size();
  }
  [[nodiscard]] const std::vector<IniFault>& Faults() const { return m_faults; }
  [[nodiscard]] const std::string& Text() const { return m_text; }

 private:
  struct Span {  ///< a part of m_text; `end` is one past it
    std::size_t begin = 0;
    std::size_t end = 0;
  };
  struct Heading {
    Span section;
    Span subSection;
    std::size_t insertAt = 0;  ///< the start of the line that follows the last key
  };
  struct Entry {
    std::size_t heading = 0;
    Span key;
    Span value;
  };
  static constexpr std::size_t kManyFaults = 10;
  static constexpr std::size_t kNoHeading = static_cast<std::size_t>(-1);

  void Parse();
  void ParseLine(Span line, std::size_t next, std::size_t number, std::size_t& heading);
  void ParseHeading(Span line, std::size_t next, std::size_t number, std::size_t& heading);
  void ParseEntry(Span line, std::size_t next, std::size_t number, std::size_t heading);
  void AddFault(Span line, std::size_t number, const char* problem);
  void CloseFaults();
  [[nodiscard]] std::string_view View(Span span) const;
  [[nodiscard]] Span Trim(Span span) const;
  [[nodiscard]] bool IsHeading(const Heading& heading, std::string_view section,
                               std::string_view subSection) const;
  [[nodiscard]] const Entry* FindEntry(std::string_view section, std::string_view subSection,
                                       std::string_view key) const;
  [[nodiscard]] std::string Edited(std::string_view section, std::string_view subSection,
                                   std::string_view key, std::string_view value) const;
  [[nodiscard]] const char* LineEnd() const;

  std::string m_text;
  std::vector<Heading> m_headings;
  std::vector<Entry> m_entries;
  std::vector<IniFault> m_faults;
  std::size_t m_faultCount = 0;
};
