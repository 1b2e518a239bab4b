#include "json/JsonText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <istream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

namespace {

using Library = nlohmann::json;

/// The text in quotes as the library escapes it.
std::string QuotedByLibrary(std::string_view text) {
  return Library(text).dump(-1, ' ', false, Library::error_handler_t::replace);
}

bool IsAscii(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// Whether the byte stands in a text as it is; all others are left to the library.
bool IsPlain(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 0x20 && byte < 0x80 && c != '"' && c != '\\';
}

/// Writes as the library does, without its tree: rows are many and are written once.
class JsonWriter {
 public:
  explicit JsonWriter(int indent) : m_indent(indent) {}

  void Write(const Json& value) { value.Visit(*this); }
  [[nodiscard]] std::string Take() { return std::move(m_text); }

  void operator()(std::nullptr_t) { m_text += "null"; }
  void operator()(bool value) { m_text += value ? "true" : "false"; }
  void operator()(std::int64_t value) { WriteWhole(value); }
  void operator()(std::uint64_t value) { WriteWhole(value); }

  void operator()(double value) {
    if (!std::isfinite(value)) {
      m_text += "null";
      return;
    }
    std::array<char, 64> digits;
    char* end = nlohmann::detail::to_chars(digits.data(), digits.data() + digits.size(), value);
    m_text.append(digits.data(), end);
  }

  void operator()(const std::string& text) {
    if (!std::ranges::all_of(text, IsPlain)) {
      m_text += QuotedByLibrary(text);
      return;
    }
    m_text += '"';
    m_text += text;
    m_text += '"';
  }

  void operator()(const Json::ElementList& elements) {
    WriteAll('[', ']', elements, [this](const Json& element) { Write(element); });
  }

  void operator()(const Json::MemberList& members) {
    WriteAll('{', '}', members, [this](const JsonMember& member) {
      (*this)(member.name);
      m_text += m_indent < 0 ? ":" : ": ";
      Write(member.value);
    });
  }

 private:
  template <class Whole>
  void WriteWhole(Whole value) {
    std::array<char, 24> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    m_text.append(digits.data(), end);
  }

  template <class List, class Function>
  void WriteAll(char begin, char end, const List& list, Function write) {
    m_text += begin;
    ++m_depth;
    for (const auto& entry : list) {
      if (&entry != list.data()) {
        m_text += ',';
      }
      BreakLine();
      write(entry);
    }
    --m_depth;
    if (!list.empty()) {
      BreakLine();
    }
    m_text += end;
  }

  void BreakLine() {
    if (m_indent >= 0) {
      m_text += '\n';
      m_text.append(m_depth * static_cast<std::size_t>(m_indent), ' ');
    }
  }

  int m_indent;
  std::size_t m_depth = 0;
  std::string m_text;
};

/// Puts together what the library's parser reads. What open objects and arrays have so far stands
/// on two stacks, so that each gets a list of its size at its end.
class JsonReader : public nlohmann::json_sax<Library> {
 public:
  /// `taker`, not owned, may be null.
  explicit JsonReader(const JsonLimits& limits, const JsonRowTaker* taker = nullptr)
      : m_limits(limits), m_taker(taker) {}

  [[nodiscard]] ParsedJson Take() { return std::move(m_parsed); }

  bool null() override { return Add(nullptr); }
  bool boolean(bool value) override { return Add(value); }
  bool number_integer(number_integer_t value) override { return Add(value); }
  bool number_unsigned(number_unsigned_t value) override { return Add(value); }
  bool number_float(number_float_t value, const string_t&) override { return Add(value); }
  bool string(string_t& text) override { return Add(std::move(text)); }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return Open({.begin = m_members.size()}); }
  bool start_array(std::size_t) override {
    const bool isOfRows = m_taker != nullptr && IsAtRows();
    if (isOfRows) {
      m_taker->begin(SoFar(m_levels[0]), m_elements.size() - m_levels[1].begin, SoFar(m_levels[2]));
    }
    return Open({.isArray = true, .isOfRows = isOfRows, .begin = m_elements.size()});
  }
  bool end_object() override { return Close(m_members); }
  bool end_array() override { return Close(m_elements); }

  bool key(string_t& name) override {
    Level& level = m_levels.back();
    if (++level.members > m_limits.members) {
      return Fail(JsonFault::kTooManyMembers, {});
    }
    const auto first = m_members.begin() + static_cast<std::ptrdiff_t>(level.begin);
    const auto same = std::ranges::find(first, m_members.end(), name, &JsonMember::name);
    level.member = static_cast<std::size_t>(same - m_members.begin());
    if (same == m_members.end()) {
      m_members.push_back({std::move(name), {}});
    }
    return true;
  }

  bool parse_error(std::size_t, const std::string&,
                   const nlohmann::detail::exception& error) override {
    return Fail(JsonFault::kSyntax, error.what());
  }

 private:
  /// An object or array that has not ended.
  struct Level {
    bool isArray = false;
    bool isOfRows = false;
    std::size_t begin = 0;    ///< of its entries on their stack
    std::size_t members = 0;  ///< of an object, those of the same name counted too
    std::size_t member = 0;   ///< on the stack, whose value comes next
  };

  bool Add(Json value) {
    if (m_levels.empty()) {
      m_parsed.value = std::move(value);
    } else if (m_levels.back().isOfRows) {
      m_taker->row(std::move(value));
    } else if (m_levels.back().isArray) {
      m_elements.push_back(std::move(value));
    } else {
      m_members[m_levels.back().member].value = std::move(value);
    }
    return true;
  }

  /// Whether the array that begins is that of a result's rows.
  [[nodiscard]] bool IsAtRows() const {
    return m_levels.size() == 3 && IsMember(m_levels[0], "results") && m_levels[1].isArray &&
           IsMember(m_levels[2], "rows");
  }

  /// Whether the level is an object whose member of that name has come last.
  [[nodiscard]] bool IsMember(const Level& level, std::string_view name) const {
    return !level.isArray && m_members[level.member].name == name;
  }

  /// The members that an object which has not ended has before the one that came last.
  [[nodiscard]] Json SoFar(const Level& object) const {
    const auto at = [this](std::size_t place) {
      return m_members.begin() + static_cast<std::ptrdiff_t>(place);
    };
    return Json::MemberList(at(object.begin), at(object.member));
  }

  bool Open(const Level& level) {
    if (m_levels.size() == m_limits.depth) {
      return Fail(JsonFault::kTooDeep, {});
    }
    m_levels.push_back(level);
    return true;
  }

  template <class Entry>
  bool Close(std::vector<Entry>& stack) {
    const auto first = stack.begin() + static_cast<std::ptrdiff_t>(m_levels.back().begin);
    Json value(
        std::vector<Entry>(std::make_move_iterator(first), std::make_move_iterator(stack.end())));
    stack.erase(first, stack.end());
    m_levels.pop_back();
    return Add(std::move(value));
  }

  bool Fail(JsonFault fault, std::string words) {
    m_parsed = {nullptr, fault, std::move(words)};
    return false;
  }

  JsonLimits m_limits;
  const JsonRowTaker* m_taker;
  ParsedJson m_parsed;
  std::vector<Level> m_levels;
  Json::ElementList m_elements;
  Json::MemberList m_members;
};

}  // namespace

ParsedJson ParseJson(std::string_view text, const JsonLimits& limits) {
  JsonReader reader(limits);
  Library::sax_parse(text, &reader);
  return reader.Take();
}

ParsedJson ParseJsonRows(std::streambuf& bytes, const JsonLimits& limits,
                         const JsonRowTaker& taker) {
  std::istream stream(&bytes);
  JsonReader reader(limits, &taker);
  Library::sax_parse(stream, &reader);
  return reader.Take();
}

std::string JsonText(const Json& value, int indent) {
  JsonWriter writer(indent);
  writer.Write(value);
  return writer.Take();
}

std::string ValidUtf8(std::string_view text) {
  return IsAscii(text) ? std::string(text)
                       : Library::parse(QuotedByLibrary(text)).get<std::string>();
}

bool IsUtf8(const Json& value) {
  if (value.IsString()) {
    return ValidUtf8(value.Text()) == value.Text();
  }
  if (value.IsArray()) {
    return std::ranges::all_of(value.Elements(), IsUtf8);
  }
  return !value.IsObject() || std::ranges::all_of(value.Members(), [](const JsonMember& member) {
    return ValidUtf8(member.name) == member.name && IsUtf8(member.value);
  });
}
