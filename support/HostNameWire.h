#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

/// A question for a host's name or address and its answer, as they go over the pipes between the
/// agent and its helper: one of these is one write and one read, less than PIPE_BUF and so whole.
/// Texts end in a NUL; integers are in the host's order.
struct HostNameWire {
  static constexpr std::size_t kTextSize = 1028;
  using Field = std::array<char, kTextSize>;

  static constexpr std::int32_t kNameKind = 0;
  static constexpr std::int32_t kAddressKind = 2;

  std::int32_t kind = kNameKind;  ///< 1 or 2: the query is an address; otherwise it is a name
  Field query{};
  Field resultName{};
  Field resultAddress{};
  /// When the question was queued first, by gettimeofday(2); tells the questions apart.
  std::int32_t stampSeconds = 0;
  std::int32_t stampMicroseconds = 0;

  /// Cuts what does not fit.
  static void SetText(Field& field, std::string_view text) {
    field.fill('\0');
    text.copy(field.data(), field.size() - 1);
  }
  /// Ends every text within its field, whatever came over the pipe.
  void Terminate() {
    for (Field* field : {&query, &resultName, &resultAddress}) {
      field->back() = '\0';
    }
  }
  /// Whether the query ends within its field.
  [[nodiscard]] bool IsTerminated() const { return std::ranges::find(query, '\0') != query.end(); }
};
static_assert(sizeof(HostNameWire) == 3096 && std::is_trivially_copyable_v<HostNameWire>);
static_assert(offsetof(HostNameWire, query) == 4 && offsetof(HostNameWire, resultName) == 1032);
static_assert(offsetof(HostNameWire, resultAddress) == 2060);
static_assert(offsetof(HostNameWire, stampSeconds) == 3088);
