#include "local/schedule/BatchDesk.h"

#include <malloc.h>

#include <algorithm>
#include <new>
#include <utility>

#include "node/LayoutRegistry.h"
#include "support/HostReads.h"

namespace {

/// Rows that are worth the allocator's walk.
constexpr std::size_t kManyRows = 1000;

}  // namespace

RequestOutcome CheckRecord(const std::string& record, unsigned char category) {
  const RecordListing* listing = LayoutRegistry::Instance().FindListing(record, category);
  if (listing == nullptr) {
    return RequestOutcome::kUnknownRecord;
  }
  return listing->served ? RequestOutcome::kDone : RequestOutcome::kNotServed;
}

BatchDesk::BatchDesk(IoLoop& loop, std::chrono::steady_clock::duration releasePause)
    : m_releasePause(releasePause) {
  m_releaseTimer.emplace(loop);
}

std::vector<RequestOutcome> BatchDesk::Send(CMBNode& node,
                                            std::span<const std::shared_ptr<RecordAsker>> askers,
                                            std::size_t refused) {
  CMBMultipleRecordRequestEvent batch;
  for (const std::shared_ptr<RecordAsker>& asker : askers) {
    batch.m_events.push_back(&asker->Event());
  }
  std::vector<RequestOutcome> outcomes;
  outcomes.reserve(askers.size());

  // A batch that is held back has others sent inside it, whose failures are theirs alone.
  const bool wasSending = std::exchange(m_isSending, true);
  std::set<std::string> outerFailures = std::exchange(m_failedBuilds, {});
  const auto start = std::chrono::steady_clock::now();
  int status = kNotifyNotValid;
  const HostBatch oneSample;
  try {
    status = node.Dispatch(&batch);
  } catch (const std::bad_alloc&) {
    // The batch fails as a whole; its answers are dropped below.
  }
  const auto end = std::chrono::steady_clock::now();
  m_isSending = wasSending;

  std::size_t rows = 0;
  for (const std::shared_ptr<RecordAsker>& asker : askers) {
    outcomes.push_back(Settle(*asker, status == 0));
    rows += outcomes.back() == RequestOutcome::kDone ? asker->Rows().size() : 0;
  }

  m_failedBuilds = std::move(outerFailures);
  const auto failed = static_cast<std::size_t>(
      std::count_if(outcomes.begin(), outcomes.end(),
                    [](RequestOutcome outcome) { return outcome != RequestOutcome::kDone; }));
  m_largestSinceRelease = std::max(m_largestSinceRelease, rows);
  ++m_batches;
  m_rowsMade += rows;
  m_last = {end, end - start, askers.size() + refused, failed + refused};
  return outcomes;
}

std::vector<RequestOutcome> BatchDesk::SendOfSchedule(
    CMBNode& node, std::span<const std::shared_ptr<RecordAsker>> askers) {
  std::vector<RequestOutcome> outcomes = Send(node, askers, 0);
  m_lastOfSchedule = m_last;
  return outcomes;
}

void BatchDesk::ReleaseMemory() {
  const auto now = std::chrono::steady_clock::now();
  if (m_largestSinceRelease <= kManyRows) {
    return;
  }
  if (now >= m_nextRelease) {
    ::malloc_trim(0);
    m_largestSinceRelease = 0;
    m_nextRelease = now + m_releasePause;
  } else if (m_releaseTimer) {
    m_releaseTimer->At(m_nextRelease, [this] { ReleaseMemory(); });
  }
}

RequestOutcome BatchDesk::Settle(RecordAsker& asker, bool isBatchDone) {
  RequestOutcome outcome = CheckRecord(asker.Record(), asker.Category());
  if (outcome == RequestOutcome::kDone) {
    outcome = RequestOutcome::kBuildFailed;
    try {
      if (isBatchDone && !m_failedBuilds.contains(asker.Record())) {
        asker.TakeAnswer();
        m_bytes[asker.Record()] = asker.Bytes();
        outcome = RequestOutcome::kDone;
      }
    } catch (const std::bad_alloc&) {
      // Nothing of it may be left for the next answer.
    }
  }
  if (outcome != RequestOutcome::kDone) {
    asker.DropAnswer();
  }
  return outcome;
}

bool BatchDesk::MayHold(std::span<const std::shared_ptr<RecordAsker>> askers) const {
  constexpr std::size_t kAlwaysAllowed = std::size_t{1} << 20;
  // A record that was never built may be the largest one of all: a few copies of it, no more.
  constexpr std::size_t kUnknownCopies = 8;
  std::size_t unknown = m_maxHeldBytes / kUnknownCopies;
  for (const auto& [record, bytes] : m_bytes) {
    unknown = std::max(unknown, bytes);
  }
  std::set<std::string> seen;
  std::size_t all = 0;
  std::size_t copies = 0;
  std::size_t others = RecordAsker::HeldBytes();
  for (const std::shared_ptr<RecordAsker>& asker : askers) {
    const auto known = m_bytes.find(asker->Record());
    const std::size_t likely = known != m_bytes.end() ? known->second : unknown;
    all += likely;
    copies += seen.insert(asker->Record()).second ? 0 : likely;
    others -= asker->Bytes();
  }
  return all <= kAlwaysAllowed || others + copies <= m_maxHeldBytes;
}

void BatchDesk::NoteFailedBuild(const std::string& record) {
  if (m_isSending) {
    m_failedBuilds.insert(record);
  }
}
