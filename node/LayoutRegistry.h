#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string_view>
#include <vector>

/// How a field's bytes are read.
enum class FieldType : std::uint8_t { kText, kUshort, kLong, kUlong, kFloat, kDouble, kUtime };

/// What a field means. An identity field is `key`.
enum class FieldMeaning : std::uint8_t { key, counter, gauge, rate, percent, duration, time, text };

struct FieldLayout {
  const char* label;
  FieldType type;
  std::uint16_t offset;  ///< bytes from the record's start
  std::uint16_t width;   ///< bytes
  FieldMeaning meaning;
  const char* group = "";  ///< the heading that the field stands under; empty for none
  const char* rateOf =
      "";  ///< of a rate: the label of the counter whose growth it is by the second
  bool needsTwoLooks = false;  ///< tells what happened between two looks, and nothing without
  const char* help = "";       ///< one sentence: what it is for, and its unit
  bool hasSource = true;       ///< false: nothing on this host tells it, and its bytes mean nothing
  // Of a percentage or an average that two looks make of counters; empty for any other.
  const char* growthOf = "";  ///< the label of the counter whose growth is divided
  const char* growthBy = "";  ///< that of the counter by whose growth; empty: by the seconds
};

/// A column of the tables of who has chosen none.
struct ShownColumn {
  const char* label;    ///< the field's
  const char* heading;  ///< what stands above it
};

/// The published layout of one record. Lives as long as the process.
struct RecordLayout {
  const char* name;        ///< "CPUP"
  const char* structure;   ///< "recordPI_CPUP"
  unsigned char category;  ///< '4', '3' or '7'
  std::uint16_t size;      ///< bytes
  std::span<const FieldLayout> fields;
  const char* about = "";  ///< one sentence: what a row of the record tells
  /// In the order in which they are shown; none for all fields.
  std::span<const ShownColumn> shown = {};
  bool isModern = false;  ///< published under the host profile `modern` alone
};

/// A record that can be asked for, with or without a published layout.
struct RecordListing {
  const char* name;
  unsigned char category;
  bool served;
  /// True while it has nothing to tell, so that whoever asks for it unbidden need not; none for
  /// never. Whoever publishes it outlives the last question.
  std::function<bool()> isIdle = {};
};

/// "char[40]", "ulong", "utime" and so on; the width matters for texts only.
[[nodiscard]] const char* FieldTypeName(FieldType type);
[[nodiscard]] const char* FieldMeaningName(FieldMeaning meaning);

/// What the agent publishes of its records, so that the node can show, store and export them
/// without knowing them.
class LayoutRegistry {
 public:
  /// The process-wide registry.
  static LayoutRegistry& Instance();

  /// A second layout of the same name and category replaces the first. Not owned.
  void Publish(const RecordLayout& layout);
  /// Replaces the list of records that can be asked for.
  void PublishListing(std::vector<RecordListing> listing) { m_listing = std::move(listing); }
  /// Null if none is published. Category 0 takes the first of that name.
  [[nodiscard]] const RecordLayout* Find(std::string_view name, unsigned char category = 0) const;
  [[nodiscard]] const RecordListing* FindListing(std::string_view name,
                                                 unsigned char category = 0) const;
  /// Whether a record of the list has nothing to tell now.
  [[nodiscard]] bool IsIdle(std::string_view name) const;
  [[nodiscard]] const std::vector<const RecordLayout*>& Layouts() const { return m_layouts; }
  [[nodiscard]] const std::vector<RecordListing>& Listing() const { return m_listing; }

 private:
  std::vector<const RecordLayout*> m_layouts;
  std::vector<RecordListing> m_listing;
};
