#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "local/metrics/MetricText.h"
#include "local/metrics/node/NodeNames.h"
#include "node/LayoutRegistry.h"
#include "node/Record.h"

/// A name that a record has figures of.
struct NodeFamily {
  MetricFamily metric;
  const char* sampleName;  ///< "_total" included; lives as long as the process
  std::size_t place;       ///< among all names
};

/// What one record gives under the names of the node exporter; made from its layout alone.
struct NodeMetrics {
  struct Series {
    std::size_t family;  ///< among `families`
    std::vector<const FieldLayout*> fields;
    const NodeEntry* entry;
  };
  struct Group {
    const NodeGroup* group;
    std::vector<const FieldLayout*> labels;
    std::vector<const FieldLayout*> conditions;
    std::vector<Series> series;
  };
  const RecordLayout* layout = nullptr;
  std::vector<NodeFamily> families;
  std::vector<Group> groups;
};

/// Nothing for a record without such figures. What the layout lacks, or nothing on this host tells,
/// is left out.
[[nodiscard]] NodeMetrics NodeMetricsOf(const RecordLayout& layout);

/// The records that have such figures, each once.
[[nodiscard]] std::vector<std::string> NodeRecords();

/// Takes one sample: its family, its labels as they stand between the braces (empty for none), and
/// its value. Both references hold for the call.
using TakeNodeSample =
    std::function<void(const NodeFamily& family, std::string_view labels, double value)>;

/// Gives all samples of rows of one record that were made at one time. Of rows with the same labels
/// the first counts.
void VisitNodeSamples(const NodeMetrics& metrics, std::span<const CMBRecord* const> rows,
                      const TakeNodeSample& take);

/// Gathers the rows of several records, some of which share a name.
class NodeText {
 public:
  /// All that the rows of one record have.
  void AddRows(const NodeMetrics& metrics, std::span<const CMBRecord* const> rows);
  /// Writes the families, one after the other; what has no sample is left out. The object is used
  /// up.
  void WriteTo(MetricText& text);

 private:
  struct Sample {
    std::string labels;
    double value;
  };
  struct Family {
    MetricFamily metric;
    std::vector<Sample> samples;
  };
  std::map<std::size_t, Family> m_families;  ///< by their places
};
