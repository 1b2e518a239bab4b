#include "records/RecordLayouts.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>

namespace {

template <std::size_t N>
constexpr FieldType TypeOf(const Text<N>*) {
  return FieldType::kText;
}
[[maybe_unused]] constexpr FieldType TypeOf(const Ushort*) { return FieldType::kUshort; }
constexpr FieldType TypeOf(const Long*) { return FieldType::kLong; }
constexpr FieldType TypeOf(const Ulong*) { return FieldType::kUlong; }
constexpr FieldType TypeOf(const Float*) { return FieldType::kFloat; }
constexpr FieldType TypeOf(const Double*) { return FieldType::kDouble; }
constexpr FieldType TypeOf(const Utime*) { return FieldType::kUtime; }

/// Under which profiles a field has a source.
enum class FieldSource : std::uint8_t { kBothProfiles, kClassicOnly, kModernOnly, kNoSource };
using enum FieldSource;

/// A row of a layout's declaration.
struct FieldEntry {
  FieldLayout layout;
  const char* help = "";
  FieldSource source = kBothProfiles;
  const char* modernHelp = nullptr;  ///< instead of `help` under the profile of that name
};

template <class Record>
struct Fields;

#define BEGIN(structure, className, name, kind, bytes) \
  template <>                                          \
  struct Fields<structure> {                           \
    using Row = structure;                             \
    static constexpr FieldEntry kEntries[] = {
#define FIELD(type, member, label, meaning, ...)                                           \
  {{label, TypeOf(static_cast<const type*>(nullptr)), offsetof(Row, member), sizeof(type), \
    FieldMeaning::meaning} __VA_OPT__(, ) __VA_ARGS__},
// A heading takes an entry without width.
#define GROUP(heading) {{heading, FieldType::kText, 0, 0, FieldMeaning::text}},
// clang-format off
#define END() }; };
// clang-format on
#include "records/layout/All.def"

/// What a meaning says of looks besides the meaning itself.
struct LookFacts {
  constexpr LookFacts() = default;
  /// Implicit, so that a plain meaning can stand among them.
  constexpr LookFacts(FieldMeaning /*meaning*/) {}

  // Offsets of counters; 0, the record type's, for none.
  std::size_t counter = 0;  ///< a rate's
  std::size_t growthOf = 0;
  std::size_t growthBy = 0;
  bool needsTwo = false;
};

constexpr LookFacts CounterAt(std::size_t counter) {
  LookFacts facts;
  facts.counter = counter;
  return facts;
}

constexpr LookFacts BetweenLooks(std::size_t growthOf = 0, std::size_t growthBy = 0) {
  LookFacts facts;
  facts.growthOf = growthOf;
  facts.growthBy = growthBy;
  facts.needsTwo = true;
  return facts;
}

template <class Record>
struct Looks;

#define BEGIN(structure, className, name, kind, bytes) \
  template <>                                          \
  struct Looks<structure> {                            \
    using Row = structure;                             \
    using enum FieldMeaning;                           \
    static constexpr LookFacts kEntries[] = {
#define FIELD(type, member, label, meaning, ...) meaning,
#define rate(counter) CounterAt(offsetof(Row, counter))
#define percent(looks) BetweenLooks()
#define share(part, whole) BetweenLooks(offsetof(Row, part), offsetof(Row, whole))
#define gauge(looks) BetweenLooks()
#define duration(looks) BetweenLooks()
#define load(counter) BetweenLooks(offsetof(Row, counter))
#define average(sum, count) BetweenLooks(offsetof(Row, sum), offsetof(Row, count))
// clang-format off
#define END() }; };
// clang-format on
#include "records/layout/All.def"

/// The label of the field at an offset of LookFacts.
constexpr const char* LabelAt(std::span<const FieldLayout> table, std::size_t offset) {
  const char* label = "";
  for (const FieldLayout& field : table) {
    label = offset != 0 && field.offset == offset ? field.label : label;
  }
  return label;
}

/// Sets of each field what its meaning says of looks; `table` has all fields.
template <class Record, class Table>
constexpr void PutLookFacts(Table& table) {
  for (std::size_t i = 0; i < table.size(); ++i) {
    const LookFacts& facts = Looks<Record>::kEntries[i];
    table[i].needsTwoLooks = facts.needsTwo;
    table[i].rateOf = LabelAt(table, facts.counter);
    table[i].growthOf = LabelAt(table, facts.growthOf);
    table[i].growthBy = LabelAt(table, facts.growthBy);
  }
}

constexpr bool HasSource(FieldSource source, HostProfile profile) {
  return source == kBothProfiles ||
         source == (profile == HostProfile::kModern ? kModernOnly : kClassicOnly);
}

template <class Record>
constexpr auto MakeFieldTable(HostProfile profile) {
  constexpr auto kCount = std::ranges::count_if(
      Fields<Record>::kEntries, [](const FieldEntry& entry) { return entry.layout.width != 0; });
  std::array<FieldLayout, kCount> table{};
  std::size_t next = 0;
  const char* group = "";
  for (const FieldEntry& entry : Fields<Record>::kEntries) {
    if (entry.layout.width == 0) {
      group = entry.layout.label;
      continue;
    }
    const bool isOther = profile == HostProfile::kModern && entry.modernHelp != nullptr;
    table[next] = entry.layout;
    table[next].group = group;
    table[next].help = isOther ? entry.modernHelp : entry.help;
    table[next].hasSource = HasSource(entry.source, profile);
    ++next;
  }
  PutLookFacts<Record>(table);
  return table;
}

template <class Record, HostProfile profile = HostProfile::kClassic>
constexpr auto kFields = MakeFieldTable<Record>(profile);

constexpr std::size_t DescriptorRows(FieldType type) {
  switch (type) {
    case FieldType::kText:
      return 0;
    case FieldType::kUtime:
      return 2;
    default:
      return 1;
  }
}

constexpr std::uint8_t DescriptorCode(FieldType type) {
  switch (type) {
    case FieldType::kUshort:
      return 3;
    case FieldType::kFloat:
      return 21;
    case FieldType::kDouble:
      return 22;
    default:
      return 8;
  }
}

template <class Record>
constexpr std::size_t CountDescriptors() {
  std::size_t rows = 0;
  for (const FieldLayout& field : kFields<Record>) {
    rows += DescriptorRows(field.type);
  }
  return rows;
}

template <class Record>
constexpr auto MakeDescriptors() {
  std::array<FieldDescriptor, CountDescriptors<Record>()> table{};
  std::size_t next = 0;
  for (const FieldLayout& field : kFields<Record>) {
    const std::size_t rows = DescriptorRows(field.type);
    for (std::size_t row = 0; row < rows; ++row) {
      const std::size_t width = field.width / rows;
      table[next].type = DescriptorCode(field.type);
      table[next].offset = static_cast<std::uint16_t>(field.offset + row * width);
      table[next].width = static_cast<std::uint16_t>(width);
      ++next;
    }
  }
  return table;
}

template <class Record>
constexpr auto kDescriptors = MakeDescriptors<Record>();

/// What a row tells; empty for a record that does not say it.
template <class Record>
struct About;

#define BEGIN(structure, className, name, kind, bytes) \
  template <>                                          \
  struct About<structure> {                            \
    static constexpr const char* kSentence = ""
#define ABOUT(sentence) sentence
// clang-format off
#define END() ; };
// clang-format on
#include "records/layout/All.def"

/// A column of the tables of who has chosen none.
struct ShownEntry {
  std::size_t offset =
      0;  ///< of the field; 0, the record type's, for the place that none stands at
  const char* heading = "";
};

template <class Record>
struct Shown;

#define BEGIN(structure, className, name, kind, bytes) \
  template <>                                          \
  struct Shown<structure> {                            \
    using Row = structure;                             \
    static constexpr ShownEntry kEntries[] = { {},
#define SHOWN(member, heading) {offsetof(Row, member), heading},
// clang-format off
#define END() }; };
// clang-format on
#include "records/layout/All.def"

template <class Record>
constexpr auto MakeShownColumns() {
  std::array<ShownColumn, std::size(Shown<Record>::kEntries) - 1> columns{};
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const ShownEntry& entry = Shown<Record>::kEntries[i + 1];
    for (const FieldLayout& field : kFields<Record>) {
      if (field.offset == entry.offset) {
        columns[i] = {field.label, entry.heading};
      }
    }
  }
  return columns;
}

template <class Record>
constexpr auto kShownColumns = MakeShownColumns<Record>();

template <class Record, HostProfile profile>
constexpr RecordLayout kLayout{RecordTraits<Record>::kName,     RecordTraits<Record>::kStructure,
                               RecordTraits<Record>::kCategory, sizeof(Record),
                               kFields<Record, profile>,        About<Record>::kSentence,
                               kShownColumns<Record>,           RecordTraits<Record>::kIsModern};

}  // namespace

#define BEGIN(structure, className, name, kind, bytes)                                  \
  const RecordLayout& RecordTraits<structure>::Layout(HostProfile profile) {            \
    return profile == HostProfile::kModern ? kLayout<structure, HostProfile::kModern>   \
                                           : kLayout<structure, HostProfile::kClassic>; \
  }                                                                                     \
  std::span<const FieldDescriptor> RecordTraits<structure>::Descriptors() {             \
    return kDescriptors<structure>;                                                     \
  }
#include "records/layout/All.def"

void TouchFieldTables() {
  [[maybe_unused]] volatile std::uint8_t touched = 0;
#define BEGIN(structure, className, name, kind, bytes) \
  touched = RecordTraits<structure>::Descriptors().front().type;
#include "records/layout/All.def"
}

void PublishLayouts() {
#define BEGIN(structure, className, name, kind, bytes)                                  \
  if (g_hostProfile == HostProfile::kModern || !RecordTraits<structure>::kIsModern) {   \
    LayoutRegistry::Instance().Publish(RecordTraits<structure>::Layout(g_hostProfile)); \
  }
#include "records/layout/All.def"
}
