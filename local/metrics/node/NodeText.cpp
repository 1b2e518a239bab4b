#include "local/metrics/node/NodeText.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "local/history/FieldValue.h"

namespace {

/// The place of each name, in the order of the tables.
const std::unordered_map<std::string_view, std::size_t>& PlacesOfNames() {
  static const auto places = [] {
    std::unordered_map<std::string_view, std::size_t> all;
    for (const std::span<const NodeGroup> table : NodeTables()) {
      for (const NodeGroup& group : table) {
        for (const NodeEntry& entry : group.entries) {
          all.emplace(entry.name, all.size());
        }
      }
    }
    return all;
  }();
  return places;
}

/// Null where nothing tells it.
const FieldLayout* FindToldField(const RecordLayout& layout, std::string_view label) {
  const auto found = std::ranges::find_if(layout.fields, [label](const FieldLayout& field) {
    return field.label == label && field.hasSource;
  });
  return found == layout.fields.end() ? nullptr : &*found;
}

/// The fields up to the first null label. False if the first of them is not there; what else is
/// not there, is left out.
bool FindFields(const RecordLayout& layout, std::span<const char* const> labels,
                std::vector<const FieldLayout*>& fields) {
  for (const char* const label : labels) {
    if (label == nullptr) {
      break;
    }
    if (const FieldLayout* const field = FindToldField(layout, label)) {
      fields.push_back(field);
    } else if (fields.empty()) {
      return false;
    }
  }
  return true;
}

MetricFamily NodeFamilyOf(const NodeEntry& entry, std::span<const FieldLayout* const> fields) {
  MetricFamily metric;
  metric.name = entry.name;
  if (entry.kind == MetricKind::kCounter) {
    metric.name.resize(metric.name.rfind("_total"));
  }
  metric.help = entry.help != nullptr ? entry.help : fields.front()->help;
  metric.kind = entry.kind;
  return metric;
}

std::size_t FamilyPlace(NodeMetrics& metrics, const NodeEntry& entry,
                        std::span<const FieldLayout* const> fields) {
  const std::size_t place = PlacesOfNames().at(entry.name);
  const auto found = std::ranges::find_if(
      metrics.families, [place](const NodeFamily& family) { return family.place == place; });
  const auto index = static_cast<std::size_t>(found - metrics.families.begin());
  if (found == metrics.families.end()) {
    metrics.families.push_back({NodeFamilyOf(entry, fields), entry.name, place});
  }
  return index;
}

void AddNodeGroup(NodeMetrics& metrics, const NodeGroup& group) {
  const RecordLayout& layout = *metrics.layout;
  NodeMetrics::Group found{&group, {}, {}, {}};
  for (const NodeLabel& label : group.labels) {
    found.labels.push_back(FindToldField(layout, label.field));
  }
  const auto wanted = std::ranges::count_if(group.conditionFields,
                                            [](const char* label) { return label != nullptr; });
  static_cast<void>(FindFields(layout, group.conditionFields, found.conditions));
  if (std::ranges::find(found.labels, nullptr) != found.labels.end() ||
      std::ssize(found.conditions) != wanted) {
    return;
  }
  for (const NodeEntry& entry : group.entries) {
    std::vector<const FieldLayout*> fields;
    if (FindFields(layout, entry.fields, fields)) {
      const std::size_t family = FamilyPlace(metrics, entry, fields);
      found.series.push_back({family, std::move(fields), &entry});
    }
  }
  metrics.groups.push_back(std::move(found));
}

void AppendLabel(std::string& text, std::string_view name, std::string_view content) {
  text += text.empty() ? "" : ",";
  text.append(name).append("=\"").append(EscapedLabel(content)) += '"';
}

std::string LabelsOfRow(const NodeMetrics::Group& group, std::span<const unsigned char> row) {
  std::string text;
  const NodeFields fields(group.labels, row);
  for (std::size_t place = 0; place < fields.Size(); ++place) {
    const NodeLabel& label = group.group->labels[place];
    const std::string_view content = fields.Text(place);
    AppendLabel(text, label.name, label.part == nullptr ? content : label.part(content));
  }
  return text;
}

void VisitGroup(const NodeMetrics& metrics, const NodeMetrics::Group& group,
                std::span<const CMBRecord* const> rows, const TakeNodeSample& take) {
  std::unordered_set<std::string> seen;
  std::string labels;
  for (const CMBRecord* const record : rows) {
    const std::span<const unsigned char> row = RecordBytes(*record);
    const auto isGiven = group.group->isGiven;
    if (isGiven != nullptr && !isGiven(NodeFields(group.conditions, row))) {
      continue;
    }
    const auto [shared, isNew] = seen.insert(LabelsOfRow(group, row));
    if (!isNew) {
      continue;
    }
    for (const NodeMetrics::Series& series : group.series) {
      const NodeEntry& entry = *series.entry;
      if (const auto value = entry.value(NodeFields(series.fields, row))) {
        labels = *shared;
        labels += labels.empty() || *entry.labels == '\0' ? "" : ",";
        labels += entry.labels;
        take(metrics.families[series.family], labels, *value * entry.factor);
      }
    }
  }
}

}  // namespace

NodeMetrics NodeMetricsOf(const RecordLayout& layout) {
  NodeMetrics metrics;
  metrics.layout = &layout;
  for (const std::span<const NodeGroup> table : NodeTables()) {
    for (const NodeGroup& group : table) {
      if (std::string_view(group.record) == layout.name) {
        AddNodeGroup(metrics, group);
      }
    }
  }
  return metrics;
}

std::vector<std::string> NodeRecords() {
  std::vector<std::string> records;
  for (const std::span<const NodeGroup> table : NodeTables()) {
    for (const NodeGroup& group : table) {
      if (std::ranges::find(records, group.record) == records.end()) {
        records.emplace_back(group.record);
      }
    }
  }
  return records;
}

void VisitNodeSamples(const NodeMetrics& metrics, std::span<const CMBRecord* const> rows,
                      const TakeNodeSample& take) {
  for (const NodeMetrics::Group& group : metrics.groups) {
    VisitGroup(metrics, group, rows, take);
  }
}

void NodeText::AddRows(const NodeMetrics& metrics, std::span<const CMBRecord* const> rows) {
  VisitNodeSamples(metrics, rows,
                   [this](const NodeFamily& family, std::string_view labels, double value) {
                     Family& kept = m_families[family.place];
                     if (kept.samples.empty()) {
                       kept.metric = family.metric;
                     }
                     kept.samples.push_back({std::string(labels), value});
                   });
}

void NodeText::WriteTo(MetricText& text) {
  for (const auto& [place, family] : std::exchange(m_families, {})) {
    text.Begin(family.metric);
    for (const Sample& sample : family.samples) {
      text.SampleWith(sample.labels, sample.value);
    }
  }
}
