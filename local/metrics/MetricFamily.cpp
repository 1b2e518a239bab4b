#include "local/metrics/MetricFamily.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>
#include <utility>

#include "node/RecordCategory.h"

namespace {

constexpr std::string_view kProcessNumber = "PID";
constexpr double kKbyte = 1024;
constexpr double kMbyte = 1048576;
constexpr double kBytesOfMbit = 1e6 / 8;

/// A word of a label that is a unit, and the base unit that it becomes.
struct UnitWord {
  std::string_view word;
  double factor;
  const char* unit = "bytes";
};
constexpr std::array kUnitWords{UnitWord{"mbytes", kMbyte}, UnitWord{"kbytes", kKbyte},
                                UnitWord{"bytes", 1}, UnitWord{"mbits", kBytesOfMbit},
                                UnitWord{"mhz", 1e6, "hertz"}};
/// Labels of sizes in bytes that don't say so.
constexpr std::array<std::string_view, 3> kByteLabels{"Block Size", "Max Transmission Unit",
                                                      "Segment Size"};

bool IsHeader(std::string_view label) {
  return label == "Record Type" || label == "Record Time" || label == "Interval";
}

bool HasDigit(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](unsigned char letter) { return std::isdigit(letter) != 0; });
}

/// Takes a whole word out of a name; whether it was there.
bool TakeWord(std::string& name, std::string_view word) {
  const std::string text = '_' + name + '_';
  const std::size_t place = text.find('_' + std::string(word) + '_');
  if (place == std::string::npos) {
    return false;
  }
  std::string rest = text.substr(0, place) + text.substr(place + word.size() + 1);
  name = rest.size() <= 2 ? "" : rest.substr(1, rest.size() - 2);
  return true;
}

void Append(std::string& name, std::string_view word) {
  name += name.empty() ? "" : "_";
  name += word;
}

/// Gives the family its base unit, which its name then ends in.
void SetUnit(MetricFamily& family, std::string& name) {
  const FieldLayout& field = *family.field;
  if (field.meaning == FieldMeaning::percent) {
    family.unit = "ratio";
    family.divisor = 100;
  } else if (field.type == FieldType::kUtime || field.meaning == FieldMeaning::time) {
    family.unit = "seconds";
  } else if (std::find(kByteLabels.begin(), kByteLabels.end(), field.label) != kByteLabels.end()) {
    family.unit = "bytes";
  }
  for (const UnitWord& unit : kUnitWords) {
    if (TakeWord(name, unit.word) && *family.unit == '\0') {
      family.unit = unit.unit;
      family.factor = unit.factor;
    }
  }
  if (*family.unit != '\0') {
    Append(name, family.unit);
  }
}

/// Whether the field has a figure of its own in a look without rates.
bool IsExposed(const RecordLayout& layout, const FieldLayout& field) {
  if (!field.hasSource || IsHeader(field.label) || field.type == FieldType::kText) {
    return false;
  }
  switch (field.meaning) {
    case FieldMeaning::counter:
    case FieldMeaning::time:
      return true;
    case FieldMeaning::gauge:
      return !layout.isModern || !field.needsTwoLooks;
    case FieldMeaning::percent:
      return layout.category != kIntervalCategory || (layout.isModern && !field.needsTwoLooks);
    default:
      return false;
  }
}

MetricFamily FamilyOf(const RecordLayout& layout, const FieldLayout& field,
                      const std::string& prefix) {
  MetricFamily family;
  family.field = &field;
  family.help = std::string(field.label) + " (record " + layout.name + ")";
  if (*field.help != '\0') {
    family.help += std::string(": ") + field.help;
  }
  std::string name = SnakeCase(field.label);
  if (field.meaning == FieldMeaning::counter) {
    family.kind = MetricKind::kCounter;
    // The suffix says it.
    TakeWord(name, "total");
  }
  if (name.ends_with("_count")) {
    // That ending is a histogram's.
    name.replace(name.size() - 5, 5, "number");
  }
  SetUnit(family, name);
  family.name = prefix + name;
  return family;
}

}  // namespace

std::string SnakeCase(const char* label) {
  std::string name;
  for (const char* letter = label; *letter != '\0'; ++letter) {
    const auto code = static_cast<unsigned char>(*letter);
    if (std::isalnum(code) != 0) {
      name += static_cast<char>(std::tolower(code));
    } else if (*letter != '/' && !name.empty() && name.back() != '_') {
      // "I/O" is one word.
      name += '_';
    }
  }
  while (!name.empty() && name.back() == '_') {
    name.pop_back();
  }
  return name;
}

bool IsExposable(const RecordLayout& layout) {
  return std::none_of(layout.fields.begin(), layout.fields.end(), [](const FieldLayout& field) {
    return field.meaning == FieldMeaning::key && field.label == kProcessNumber;
  });
}

RecordMetrics MetricsOf(const RecordLayout& layout) {
  RecordMetrics metrics;
  metrics.layout = &layout;
  const std::string prefix = "qmt_" + SnakeCase(layout.name) + '_';
  for (const FieldLayout& field : layout.fields) {
    if (IsExposed(layout, field)) {
      MetricFamily family = FamilyOf(layout, field, prefix);
      const bool isNew =
          std::none_of(metrics.families.begin(), metrics.families.end(),
                       [&](const MetricFamily& other) { return other.name == family.name; });
      if (isNew) {
        metrics.families.push_back(std::move(family));
      }
    } else if (field.meaning == FieldMeaning::key) {
      metrics.keys.push_back(&field);
      metrics.keyNames.push_back(SnakeCase(field.label));
    } else if (field.meaning == FieldMeaning::text && field.hasSource && !IsHeader(field.label) &&
               !HasDigit(field.label)) {
      metrics.texts.push_back(&field);
      metrics.textNames.push_back(SnakeCase(field.label));
    }
  }
  if (!metrics.keys.empty() && !metrics.texts.empty()) {
    MetricFamily info;
    info.kind = MetricKind::kInfo;
    info.name = "qmt_" + SnakeCase(layout.name);
    info.help = std::string("Texts of the record ") + layout.name;
    metrics.families.push_back(std::move(info));
  }
  return metrics;
}
