#include "local/metrics/MetricsDesk.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "local/metrics/AgentMetrics.h"
#include "local/metrics/RowBound.h"
#include "local/metrics/node/NodeText.h"
#include "node/LayoutRegistry.h"
#include "support/HostProfile.h"

namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

const char* WhyNotExposed(const std::string& record) {
  if (CheckRecord(record, 0) == RequestOutcome::kUnknownRecord) {
    return "is unknown";
  }
  if (CheckRecord(record, 0) != RequestOutcome::kDone) {
    return "is not served";
  }
  const RecordLayout* layout = LayoutRegistry::Instance().Find(record);
  if (layout == nullptr) {
    return "has no layout";
  }
  return IsExposable(*layout) ? nullptr : "has a row per process, which is no metric";
}

const char* WhyNoNodeNames() {
  return g_hostProfile == HostProfile::kModern
             ? nullptr
             : "the names of the node exporter take the host profile modern";
}

namespace {

std::vector<const CMBRecord*> RowsOf(const RecordAsker& asker) {
  return {asker.Rows().begin(), asker.Rows().end()};
}

}  // namespace

struct MetricsDesk::Look {
  struct Waiting {
    Done done;
    MetricFormat format;
    MetricNames names;
  };
  // Each is made when somebody first asks for such names.
  std::vector<RecordMetrics> metrics;
  std::vector<NodeMetrics> nodeMetrics;
  std::vector<const RecordLayout*> layouts;
  std::vector<std::shared_ptr<RecordAsker>> askers;
  std::vector<RequestOutcome> outcomes;
  Clock::time_point time;
  bool isDone = false;
  bool isPosted = false;
  std::vector<Waiting> waiting;
};

MetricsDesk::MetricsDesk(EventLoop& loop, BatchDesk& desk, const ScheduleBook& schedule,
                         const HistoryStore& history)
    : m_loop(loop), m_desk(desk), m_schedule(schedule), m_history(history) {}

void MetricsDesk::Configure(const std::vector<std::string>& records, const ProblemReport& report) {
  m_records.clear();
  for (const std::string& record : records) {
    if (const char* reason = WhyNotExposed(record); reason != nullptr) {
      report("Http Records: the record " + record + ' ' + reason);
    } else if (std::find(m_records.begin(), m_records.end(), record) == m_records.end()) {
      m_records.push_back(record);
    }
  }
}

void MetricsDesk::Scrape(const std::vector<std::string>& records, MetricFormat format, Done done) {
  for (const std::string& record : records) {
    if (const char* reason = WhyNotExposed(record); reason != nullptr) {
      done({MetricsAnswer::Outcome::kBadRecord, "the record " + record + ' ' + reason});
      return;
    }
  }
  Answer(LookOf(records.empty() ? RecordsWithRows() : records), format, MetricNames::kAgent,
         std::move(done));
}

void MetricsDesk::ScrapeNode(MetricFormat format, Done done) {
  if (const char* reason = WhyNoNodeNames(); reason != nullptr) {
    done({MetricsAnswer::Outcome::kBadNames, reason});
    return;
  }
  Names records = NodeRecords();
  std::erase_if(records,
                [](const std::string& record) { return WhyNotExposed(record) != nullptr; });
  Answer(LookOf(records), format, MetricNames::kNode, std::move(done));
}

void MetricsDesk::Answer(const std::shared_ptr<Look>& look, MetricFormat format, MetricNames names,
                         Done done) {
  ++m_scrapes;
  if (look->isDone && Clock::now() - look->time <= kShared) {
    done(Render(*look, format, names));
    return;
  }
  look->waiting.push_back({std::move(done), format, names});
  if (!std::exchange(look->isPosted, true)) {
    Post(look);
  }
}

MetricsDesk::Names MetricsDesk::RecordsWithRows() const {
  Names records;
  std::copy_if(
      m_records.begin(), m_records.end(), std::back_inserter(records),
      [](const std::string& record) { return !LayoutRegistry::Instance().IsIdle(record); });
  return records;
}

std::shared_ptr<MetricsDesk::Look> MetricsDesk::LookOf(const Names& records) {
  Names wanted = records;
  std::sort(wanted.begin(), wanted.end());
  wanted.erase(std::unique(wanted.begin(), wanted.end()), wanted.end());
  if (const auto found = m_looks.find(wanted); found != m_looks.end()) {
    return found->second;
  }
  if (m_looks.size() >= kMostSets) {
    // One that is at work goes on by itself.
    m_looks.erase(std::min_element(
        m_looks.begin(), m_looks.end(),
        [](const auto& a, const auto& b) { return a.second->time < b.second->time; }));
  }
  auto look = std::make_shared<Look>();
  for (const std::string& record : wanted) {
    const RecordLayout& layout = *LayoutRegistry::Instance().Find(record);
    look->layouts.push_back(&layout);
    look->askers.push_back(std::make_shared<RecordAsker>(record, layout.category,
                                                         RecordAsker::Look::kOnDemand, false));
  }
  m_looks[wanted] = look;
  return look;
}

void MetricsDesk::Post(const std::shared_ptr<Look>& look) {
  LoopTask task;
  task.isBatch = true;
  task.run = [this, look](CMBNode& node) { Run(node, look); };
  task.drop = [look] {
    for (const Look::Waiting& waiting : std::exchange(look->waiting, {})) {
      waiting.done({MetricsAnswer::Outcome::kStopping, ""});
    }
  };
  m_loop.Post(std::move(task));
}

void MetricsDesk::Run(CMBNode& node, const std::shared_ptr<Look>& look) {
  look->outcomes = m_desk.Send(node, look->askers, 0);
  m_desk.ReleaseMemory();
  look->time = Clock::now();
  look->isDone = true;
  look->isPosted = false;
  for (const Look::Waiting& waiting : std::exchange(look->waiting, {})) {
    waiting.done(Render(*look, waiting.format, waiting.names));
  }
}

MetricsAnswer MetricsDesk::Render(Look& look, MetricFormat format, MetricNames names) {
  MetricText text(format);
  MetricFamily built;
  built.name = "qmt_agent_record_built";
  built.help = "Whether the last look at the record succeeded";
  text.Begin(built);
  for (std::size_t place = 0; place < look.askers.size(); ++place) {
    text.Sample({{"record", look.askers[place]->Record()}},
                look.outcomes[place] == RequestOutcome::kDone ? 1 : 0);
  }
  if (names == MetricNames::kNode) {
    AddNodeNames(text, look);
  } else {
    AddAgentNames(text, look);
  }
  return {MetricsAnswer::Outcome::kDone, text.Finish()};
}

void MetricsDesk::AddAgentNames(MetricText& text, Look& look) {
  if (look.metrics.empty()) {
    std::ranges::transform(look.layouts, std::back_inserter(look.metrics),
                           [](const RecordLayout* layout) { return MetricsOf(*layout); });
  }
  std::vector<std::pair<std::string, std::size_t>> beyondBound;
  for (std::size_t place = 0; place < look.askers.size(); ++place) {
    if (look.outcomes[place] == RequestOutcome::kDone) {
      const std::size_t count = text.AddRows(look.metrics[place], RowsOf(*look.askers[place]));
      if (IsBounded(*look.metrics[place].layout)) {
        beyondBound.emplace_back(look.askers[place]->Record(), count);
      }
    }
  }
  if (!beyondBound.empty()) {
    MetricFamily summed;
    summed.name = "qmt_agent_rows_summed";
    summed.help = "Rows of the record that stand together as the one called other";
    text.Begin(summed);
    for (const auto& [record, count] : beyondBound) {
      text.Sample({{"record", record}}, static_cast<double>(count));
    }
  }
  AddAgentMetrics(text, {m_desk, m_schedule, m_history, m_scrapes, m_gate(), m_alarms()});
}

void MetricsDesk::AddNodeNames(MetricText& text, Look& look) {
  if (look.nodeMetrics.empty()) {
    std::ranges::transform(look.layouts, std::back_inserter(look.nodeMetrics),
                           [](const RecordLayout* layout) { return NodeMetricsOf(*layout); });
  }
  NodeText node;
  for (std::size_t place = 0; place < look.askers.size(); ++place) {
    if (look.outcomes[place] == RequestOutcome::kDone) {
      node.AddRows(look.nodeMetrics[place], RowsOf(*look.askers[place]));
    }
  }
  node.WriteTo(text);
}
