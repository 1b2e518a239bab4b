#include "json/JsonText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>

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

/// Puts together what the library's parser reads.
class JsonReader : public nlohmann::json_sax<Library> {
 public:
  explicit JsonReader(const JsonLimits& limits) : m_limits(limits) {}

  [[nodiscard]] ParsedJson Take() { return std::move(m_parsed); }

  bool null() override { return Add(nullptr); }
  bool boolean(bool value) override { return Add(value); }
  bool number_integer(number_integer_t value) override { return Add(value); }
  bool number_unsigned(number_unsigned_t value) override { return Add(value); }
  bool number_float(number_float_t value, const string_t&) override { return Add(value); }
  bool string(string_t& text) override { return Add(std::move(text)); }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return Open(Json::Object()); }
  bool start_array(std::size_t) override { return Open(Json::Array()); }
  bool end_object() override { return Close(); }
  bool end_array() override { return Close(); }

  bool key(string_t& name) override {
    Level& level = m_levels.back();
    if (++level.members > m_limits.members) {
      return Fail(JsonFault::kTooManyMembers, {});
    }
    Json::MemberList& members = level.value->Members();
    const auto same = std::ranges::find(members, name, &JsonMember::name);
    m_member =
        same != members.end() ? &same->value : &members.emplace_back(std::move(name), Json()).value;
    return true;
  }

  bool parse_error(std::size_t, const std::string&,
                   const nlohmann::detail::exception& error) override {
    return Fail(JsonFault::kSyntax, error.what());
  }

 private:
  struct Level {
    Json* value;
    std::size_t members = 0;
  };

  /// Where the next value belongs.
  Json& Place() {
    if (m_levels.empty()) {
      return m_parsed.value;
    }
    Json& parent = *m_levels.back().value;
    return parent.IsArray() ? parent.Elements().emplace_back() : *m_member;
  }

  bool Add(Json value) {
    Place() = std::move(value);
    return true;
  }

  bool Open(Json value) {
    if (m_levels.size() == m_limits.depth) {
      return Fail(JsonFault::kTooDeep, {});
    }
    Json& place = Place();
    place = std::move(value);
    m_levels.push_back({&place});
    return true;
  }

  bool Close() {
    m_levels.pop_back();
    return true;
  }

  bool Fail(JsonFault fault, std::string words) {
    m_parsed = {nullptr, fault, std::move(words)};
    return false;
  }

  JsonLimits m_limits;
  ParsedJson m_parsed;
  std::vector<Level> m_levels;
  Json* m_member = nullptr;  ///< of the innermost object, whose value comes next
};

}  // namespace

ParsedJson ParseJson(std::string_view text, const JsonLimits& limits) {
  JsonReader reader(limits);
  Library::sax_parse(text, &reader);
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
