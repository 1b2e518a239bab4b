#include "node/local/BatchDesk.h"

#include <malloc.h>

#include <algorithm>
#include <new>
#include <utility>

#include "node/LayoutRegistry.h"

namespace {

/// The rows of a batch that are worth the allocator's walk.
constexpr std::size_t kManyRows = 1000;

}  // namespace

RequestOutcome CheckRecord(const std::string& record, unsigned char category) {
  const RecordListing* listing = LayoutRegistry::Instance().FindListing(record, category);
  if (listing == nullptr) {
    return RequestOutcome::kUnknownRecord;
  }
  return listing->served ? RequestOutcome::kDone : RequestOutcome::kNotServed;
}

std::vector<RequestOutcome> BatchDesk::Send(CMBNode& node,
                                            std::span<const std::shared_ptr<RecordAsker>> askers,
                                            std::size_t refused) {
  CMBMultipleRecordRequestEvent batch;
  for (const std::shared_ptr<RecordAsker>& asker : askers) {
    batch.m_events.push_back(&asker->Event());
  }

  // A batch that is held back has others sent inside it, and has no failed build yet.
  const bool wasSending = std::exchange(m_isSending, true);
  m_failedBuilds.clear();
  const auto start = std::chrono::steady_clock::now();
  int status = kNotifyNotValid;
  try {
    status = node.Dispatch(&batch);
  } catch (const std::bad_alloc&) {
    // The batch fails as a whole; its answers are dropped below.
  }
  const auto end = std::chrono::steady_clock::now();
  m_isSending = wasSending;

  std::vector<RequestOutcome> outcomes;
  outcomes.reserve(askers.size());
  std::size_t rows = 0;
  for (const std::shared_ptr<RecordAsker>& asker : askers) {
    RequestOutcome outcome = CheckRecord(asker->Record(), asker->Category());
    if (outcome == RequestOutcome::kDone &&
        (status != 0 || m_failedBuilds.contains(asker->Record()))) {
      outcome = RequestOutcome::kBuildFailed;
    }
    if (outcome == RequestOutcome::kDone) {
      asker->TakeAnswer();
      rows += asker->Rows().size();
    } else {
      asker->DropAnswer();
    }
    outcomes.push_back(outcome);
  }

  const auto failed = static_cast<std::size_t>(
      std::count_if(outcomes.begin(), outcomes.end(),
                    [](RequestOutcome outcome) { return outcome != RequestOutcome::kDone; }));
  if (rows > kManyRows) {
    // What the answers before held would else stay with the allocator, beside the present ones.
    ::malloc_trim(0);
  }
  ++m_batches;
  m_rowsMade += rows;
  m_last = {end, end - start, askers.size() + refused, failed + refused};
  return outcomes;
}

void BatchDesk::NoteFailedBuild(const std::string& record) {
  if (m_isSending) {
    m_failedBuilds.insert(record);
  }
}
