#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

class JsonItem;
struct JsonMember;

/// A value of JSON. Objects keep their members in the order in which they came, as labels stand in
/// a record's own order. Accessors of a kind throw std::logic_error on a value of another kind.
class Json {
 public:
  using ElementList = std::vector<Json>;
  using MemberList = std::vector<JsonMember>;

  Json();
  Json(const Json& other);
  Json(Json&& other) noexcept = default;
  Json& operator=(const Json& other);
  Json& operator=(Json&& other) noexcept = default;
  ~Json() = default;
  Json(std::nullptr_t);
  template <std::same_as<bool> T>
  Json(T value);
  template <std::signed_integral T>
  Json(T value);
  template <std::unsigned_integral T>
  requires(!std::same_as<T, bool>) Json(T value);
  Json(double value);
  Json(const char* text);
  Json(std::string_view text);
  Json(std::string text);
  Json(ElementList elements);
  Json(MemberList members);
  template <class T>
  Json(std::vector<T> values);
  /// An object if each item is a pair whose first is a text, else an array: no items are an object.
  Json(std::initializer_list<JsonItem> items);

  [[nodiscard]] static Json Object();
  /// An array, whatever the items are.
  [[nodiscard]] static Json Array(std::initializer_list<JsonItem> items);
  [[nodiscard]] static Json Array();

  [[nodiscard]] bool IsNull() const { return Is<std::nullptr_t>(); }
  [[nodiscard]] bool IsBool() const { return Is<bool>(); }
  [[nodiscard]] bool IsString() const { return Is<std::string>(); }
  [[nodiscard]] bool IsNumber() const { return IsWhole() || IsReal(); }
  /// Whether it is an integer, of either kind.
  [[nodiscard]] bool IsWhole() const { return Is<std::int64_t>() || IsUnsigned(); }
  /// Whether it is an integer of the unsigned kind, as every one without a sign is that was parsed.
  [[nodiscard]] bool IsUnsigned() const { return Is<std::uint64_t>(); }
  [[nodiscard]] bool IsReal() const { return Is<double>(); }
  [[nodiscard]] bool IsArray() const { return Is<ElementList>(); }
  [[nodiscard]] bool IsObject() const { return Is<MemberList>(); }
  [[nodiscard]] bool IsStructured() const { return IsArray() || IsObject(); }

  [[nodiscard]] bool Bool() const { return Get<bool>(); }
  /// Any number as the nearest double.
  [[nodiscard]] double Number() const;
  /// An integer; throws for one beyond the type too.
  [[nodiscard]] std::int64_t Whole() const;
  [[nodiscard]] std::uint64_t Unsigned() const;
  [[nodiscard]] const std::string& Text() const { return Get<std::string>(); }
  [[nodiscard]] const ElementList& Elements() const { return Get<ElementList>(); }
  [[nodiscard]] ElementList& Elements() { return Get<ElementList>(); }
  [[nodiscard]] const MemberList& Members() const { return Get<MemberList>(); }
  [[nodiscard]] MemberList& Members() { return Get<MemberList>(); }

  /// The member; null if there is none or this is no object.
  [[nodiscard]] const Json* Find(std::string_view name) const;
  [[nodiscard]] Json* Find(std::string_view name) {
    return const_cast<Json*>(std::as_const(*this).Find(name));
  }
  /// The member, a new null at the end if there is none; of null it makes an object.
  Json& operator[](std::string_view name);
  /// The member, which must be there.
  [[nodiscard]] const Json& operator[](std::string_view name) const;
  /// The element, which must be there.
  template <std::integral T>
  [[nodiscard]] const Json& operator[](T place) const {
    return Elements().at(static_cast<std::size_t>(place));
  }
  template <std::integral T>
  [[nodiscard]] Json& operator[](T place) {
    return Elements().at(static_cast<std::size_t>(place));
  }
  void PushBack(Json element);
  /// Takes the member away, where there is one.
  void Erase(std::string_view name);

  /// How many elements or members there are: none of null, one of a text, number or truth value.
  [[nodiscard]] std::size_t Size() const;

  /// Numbers are compared by value, of whichever kinds they are; objects member by member in order.
  friend bool operator==(const Json& left, const Json& right);

  /// What `visitor` returns for the value: std::nullptr_t, bool, std::int64_t, std::uint64_t,
  /// double, std::string, ElementList or MemberList.
  template <class Visitor>
  decltype(auto) Visit(Visitor&& visitor) const {
    return std::visit(std::forward<Visitor>(visitor), m_value);
  }

 private:
  template <class T>
  [[nodiscard]] bool Is() const {
    return std::holds_alternative<T>(m_value);
  }
  template <class T>
  [[nodiscard]] const T& Get() const {
    const T* value = std::get_if<T>(&m_value);
    if (value == nullptr) {
      ThrowKind();
    }
    return *value;
  }
  template <class T>
  [[nodiscard]] T& Get() {
    return const_cast<T&>(std::as_const(*this).Get<T>());
  }
  [[noreturn]] static void ThrowKind();

  std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, double, std::string, ElementList,
               MemberList>
      m_value;  ///< null to begin with
};

/// A member of an object.
struct JsonMember {
  std::string name;
  Json value;

  friend bool operator==(const JsonMember& left, const JsonMember& right) = default;
};

// A list of members wants their type, which is known from here on.
inline Json::Json() = default;
// The library takes a variant of these types for one that always holds a value, and destroys one
// whose own copying has thrown by an index beyond all: what is copied comes in when it stands.
inline Json::Json(const Json& other) {
  other.Visit([this]<class T>(const T& value) {
    T copy = value;
    m_value.template emplace<T>(std::move(copy));
  });
}
inline Json& Json::operator=(const Json& other) { return *this = Json(other); }
inline Json::Json(std::nullptr_t) {}
template <std::same_as<bool> T>
Json::Json(T value) : m_value(value) {}
template <std::signed_integral T>
Json::Json(T value) : m_value(std::int64_t{value}) {}
template <std::unsigned_integral T>
requires(!std::same_as<T, bool>) Json::Json(T value) : m_value(std::uint64_t{value}) {}
template <class T>
Json::Json(std::vector<T> values) : m_value(ElementList()) {
  Elements().reserve(values.size());
  for (T& value : values) {
    Elements().emplace_back(std::move(value));
  }
}
inline Json::Json(double value) : m_value(value) {}
inline Json::Json(const char* text) : m_value(std::string(text)) {}
inline Json::Json(std::string_view text) : m_value(std::string(text)) {}
inline Json::Json(std::string text) : m_value(std::move(text)) {}
inline Json::Json(ElementList elements) : m_value(std::move(elements)) {}
inline Json::Json(MemberList members) : m_value(std::move(members)) {}
inline void Json::PushBack(Json element) { Elements().push_back(std::move(element)); }
inline Json Json::Array() { return ElementList(); }

/// What stands between the braces of a list that makes a Json: a value, moved in where it may be,
/// or a list again.
class JsonItem {
 public:
  template <class T>
  requires(!std::same_as<std::remove_cvref_t<T>, JsonItem> && std::convertible_to<T, Json>)
      JsonItem(T&& value)
      : m_value(std::forward<T>(value)) {}
  JsonItem(std::initializer_list<JsonItem> items) : m_value(items) {}

  [[nodiscard]] const Json& Value() const { return m_value; }
  /// Moves the value out, once.
  [[nodiscard]] Json Take() const { return std::move(m_value); }

 private:
  mutable Json m_value;  ///< a list's items are const, but nobody else's
};
