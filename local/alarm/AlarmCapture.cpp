#include "local/alarm/AlarmCapture.h"

#include <algorithm>
#include <array>
#include <limits>
#include <numeric>
#include <string_view>
#include <type_traits>
#include <utility>

#include "json/JsonText.h"
#include "local/history/FieldValue.h"
#include "local/history/RecordJson.h"
#include "node/LayoutRegistry.h"

namespace {

/// Bytes that may wait for the file before more is made.
constexpr std::size_t kEnoughWaiting = std::size_t{4} << 20;

/// Records that may have more rows than are kept, and what their rows are weighed by.
struct RowWeight {
  std::string_view record;
  std::string_view label;
};
constexpr std::array kRowWeights{
    RowWeight{"PD", "Real Mem Kbytes"}, RowWeight{"PDX", "Anonymous Bytes"},
    RowWeight{"CGRP", "Memory Bytes"}, RowWeight{"PDI", "Total I/O Kbytes"}};

double WeightOf(const FieldLayout& field, std::span<const unsigned char> bytes) {
  return VisitField(field, bytes, [](const auto& value) -> double {
    if constexpr (std::is_arithmetic_v<std::decay_t<decltype(value)>>) {
      return static_cast<double>(value);
    } else {
      return -std::numeric_limits<double>::infinity();
    }
  });
}

}  // namespace

struct AlarmCapture::Job {
  std::int64_t id;
  const RecordLayout* layout;
  std::shared_ptr<const KeptRows> rows;
  std::vector<std::size_t> chosen;
  std::size_t next = 0;
  bool isChosen = false;
};

std::vector<std::size_t> ChosenRows(const RecordLayout& layout, const KeptRows& rows) {
  std::vector<std::size_t> chosen(rows.rows.size());
  std::iota(chosen.begin(), chosen.end(), std::size_t{0});
  const auto rule = std::ranges::find(kRowWeights, layout.name, &RowWeight::record);
  const auto field = rule == kRowWeights.end()
                         ? layout.fields.end()
                         : std::ranges::find_if(layout.fields, [&](const FieldLayout& each) {
                             return rule->label == each.label;
                           });
  if (field != layout.fields.end()) {
    std::vector<double> weights;
    weights.reserve(chosen.size());
    for (const auto& row : rows.rows) {
      weights.push_back(WeightOf(*field, row));
    }
    std::ranges::stable_sort(chosen,
                             [&](std::size_t a, std::size_t b) { return weights[a] > weights[b]; });
  }
  chosen.resize(std::min(chosen.size(), AlarmCapture::kMostRows));
  return chosen;
}

AlarmCapture::AlarmCapture(EventLoop& loop, BatchDesk& desk, const ScheduleBook& schedule,
                           const LastRows& lastRows, AlarmHistory& history)
    : m_loop(loop), m_desk(desk), m_schedule(schedule), m_lastRows(lastRows), m_history(history) {}

AlarmCapture::~AlarmCapture() { *m_isAlive = false; }

std::shared_ptr<const KeptRows> AlarmCapture::PresentRows(const std::string& record,
                                                          const AlarmBatchRows& rows) const {
  if (const auto same = rows.find(record); same != rows.end() && !same->second->rows.empty()) {
    return same->second;
  }
  const auto entry = std::ranges::find_if(
      m_schedule.Entries(), [&](const auto& each) { return record == each->asker->Record(); });
  if (entry == m_schedule.Entries().end()) {
    return nullptr;
  }
  auto last = m_lastRows.Find(record, (*entry)->asker->Category());
  // After a clock was set back nobody knows how old they are.
  const std::time_t age = std::time(nullptr) - last->time;
  return !last->rows.empty() && age >= 0 && age < (*entry)->period.count() ? last : nullptr;
}

std::vector<std::string> AlarmCapture::Take(std::int64_t id,
                                            const std::vector<std::string>& records,
                                            const AlarmBatchRows& rows) {
  std::vector<std::string> kept;
  for (const std::string& record : records) {
    auto present = PresentRows(record, rows);
    if (present == nullptr) {
      Demand(id, record);
    } else if (Add(id, record, std::move(present))) {
      kept.push_back(record);
    }
  }
  return kept;
}

bool AlarmCapture::Add(std::int64_t id, const std::string& record,
                       std::shared_ptr<const KeptRows> rows) {
  const RecordLayout* layout = LayoutRegistry::Instance().Find(record);
  if (layout == nullptr || rows->rows.empty()) {
    return false;
  }
  if (m_jobs.size() >= kMostJobs) {
    ++m_lost;
    return false;
  }
  m_jobs.push_back({id, layout, std::move(rows), {}, 0, false});
  return true;
}

void AlarmCapture::Demand(std::int64_t id, const std::string& record) {
  std::vector<std::int64_t>& ids = m_demands[record];
  if (ids.size() < kMostJobs) {
    ids.push_back(id);
  } else {
    ++m_lost;
  }
  if (m_isAsked) {
    return;
  }
  LoopTask task;
  task.isBatch = true;
  task.run = [this, isAlive = m_isAlive](CMBNode& node) {
    if (*isAlive) {
      Ask(node);
    }
  };
  task.drop = [this, isAlive = m_isAlive] {
    if (*isAlive) {
      m_isAsked = false;
      m_demands.clear();
    }
  };
  m_loop.Post(std::move(task));
  // Without memory for the task the next demand tries again.
  m_isAsked = true;
}

void AlarmCapture::Ask(CMBNode& node) {
  m_isAsked = false;
  const auto demands = std::exchange(m_demands, {});
  std::vector<std::shared_ptr<RecordAsker>> askers;
  for (const auto& [record, ids] : demands) {
    const RecordLayout* layout = LayoutRegistry::Instance().Find(record);
    if (layout != nullptr && CheckRecord(record, layout->category) == RequestOutcome::kDone) {
      askers.push_back(std::make_shared<RecordAsker>(record, layout->category,
                                                     RecordAsker::Look::kOnDemand, false));
    } else {
      m_lost += ids.size();
    }
  }
  if (askers.empty()) {
    return;
  }
  if (!m_desk.MayHold(askers)) {
    for (const auto& asker : askers) {
      m_lost += demands.at(asker->Record()).size();
    }
    return;
  }
  const std::vector<RequestOutcome> outcomes = m_desk.Send(node, askers, 0);
  m_desk.ReleaseMemory();
  for (std::size_t i = 0; i < askers.size(); ++i) {
    const std::vector<std::int64_t>& ids = demands.at(askers[i]->Record());
    if (outcomes[i] != RequestOutcome::kDone) {
      m_lost += ids.size();
      continue;
    }
    const std::vector<const CMBRecord*> rows(askers[i]->Rows().begin(), askers[i]->Rows().end());
    const auto kept = std::make_shared<KeptRows>(
        KeptRows::Of({askers[i]->Record(), askers[i]->Category(), askers[i]->AnswerTime(), rows,
                      askers[i]->Owner()}));
    for (const std::int64_t id : ids) {
      if (Add(id, askers[i]->Record(), kept)) {
        m_onKept(id, askers[i]->Record());
      }
    }
  }
  m_onReady();
}

bool AlarmCapture::Work(std::chrono::steady_clock::time_point end) {
  while (!m_jobs.empty() && m_history.WaitingBytes() < kEnoughWaiting &&
         std::chrono::steady_clock::now() < end) {
    Step();
  }
  return !m_jobs.empty() && m_history.WaitingBytes() < kEnoughWaiting;
}

void AlarmCapture::Step() {
  Job& job = m_jobs.front();
  if (!std::exchange(job.isChosen, true)) {
    job.chosen = ChosenRows(*job.layout, *job.rows);
    return;
  }
  if (job.next >= job.chosen.size()) {
    m_jobs.pop_front();
    return;
  }
  const std::span<const unsigned char> row = job.rows->rows[job.chosen[job.next++]];
  m_history.PutRow(
      {job.id, job.layout->name, job.rows->time, JsonText(RowToJson(*job.layout, row))});
}
