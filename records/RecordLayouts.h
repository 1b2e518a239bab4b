#pragma once

#include <cstdint>
#include <span>

#include "node/LayoutRegistry.h"
#include "node/Record.h"
#include "records/RecordStructures.h"
#include "support/HostProfile.h"

/// The family of a record; the value is its kind byte and category letter.
enum class RecordKind : unsigned char { Interval = '4', Detail = '3', Log = '7' };

/// What there is to know of a record structure at compile time, and its two tables. For each:
/// - `Class`: the class that carries it to the node (records/RecordClasses.h)
/// - `kName`, `kStructure`, `kCategory`: "CPUP", "recordPI_CPUP", '4'
/// - `Layout()`: the layout as it is published under a profile: what has a source differs, and what
///   some fields are for
/// - `Descriptors()`: the descriptor table; numeric fields only, a time value has two rows
/// - `kIsModern`: whether only the profile `modern` publishes it
/// - `kKeyFields`: the number of identity fields beyond the record type
/// The tables are constants and live as long as the process.
template <class Record>
struct RecordTraits;

#define BEGIN_RECORD(structure, className, name, kind, isModern)                             \
  class className;                                                                           \
  template <>                                                                                \
  struct RecordTraits<structure> {                                                           \
    using Class = className;                                                                 \
    static constexpr const char* kName = name;                                               \
    static constexpr const char* kStructure = #structure;                                    \
    static constexpr unsigned char kCategory = static_cast<unsigned char>(RecordKind::kind); \
    static constexpr bool kIsModern = isModern;                                              \
    static const RecordLayout& Layout(HostProfile profile = HostProfile::kClassic);          \
    static std::span<const FieldDescriptor> Descriptors();                                   \
    static constexpr int kKeyFields = 0
#define BEGIN(structure, className, name, kind, bytes) \
  BEGIN_RECORD(structure, className, name, kind, false)
#define BEGIN_MODERN(structure, className, name, kind, bytes) \
  BEGIN_RECORD(structure, className, name, kind, true)
#define FIELD(type, member, label, meaning, ...) \
  +(FieldMeaning::meaning == FieldMeaning::key ? 1 : 0)
// clang-format off
#define END() ; };
// clang-format on
#include "records/layout/All.def"
#undef BEGIN_RECORD

/// Calls `visit(label, value, meaning)` for each field in layout order. The value is the member
/// itself, a Text or a Packed; the label is null for a field that record dumps leave out.
#define BEGIN(structure, className, name, kind, bytes) \
  template <class Visitor>                             \
  void VisitFields(const structure& record, Visitor&& visit) {
#define FIELD(type, member, label, meaning, ...) visit(label, record.member, FieldMeaning::meaning);
#define UNLABELLED(type, member, name, meaning, ...) \
  visit(static_cast<const char*>(nullptr), record.member, FieldMeaning::meaning);
#define END() }
#include "records/layout/All.def"

/// A zero row with its record type, and with `now` (seconds since the epoch) as record time.
template <class Record>
[[nodiscard]] Record NewRow(std::int32_t now) {
  Record row{};
  row.recordType = RecordTraits<Record>::kName;
  row.recordTime = now;
  return row;
}

/// Reads a byte of each descriptor table, so that all are in memory before the first request.
void TouchFieldTables();
/// Publishes the layout of every record of the profile in force to LayoutRegistry::Instance().
void PublishLayouts();
