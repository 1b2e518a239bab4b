#include "records/RecordBuilder.h"

#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "collect/CategoryFlags.h"
#include "collect/log/MessagesSource.h"
#include "collect/modern/HostText.h"
#include "collect/modern/system/KernelStat.h"
#include "collect/system/SystemSourceLINUX.h"
#include "node/LayoutRegistry.h"
#include "records/UserObjects.h"
#include "support/HostProfile.h"
#include "support/LowWord.h"
#include "support/OsCalls.h"
#include "support/ProductOptions.h"
#include "support/Switches.h"
#include "support/TraceLog.h"

namespace {

constexpr std::size_t kOptionalNameLimit = 4;

/// Records of these tell when the host was started, or divide by the number of its processors.
constexpr CollectionMask kNeedsHost = COLLECT_CPU | COLLECT_PROCESS | COLLECT_CONTROL_GROUP;

std::int32_t Now() { return static_cast<std::int32_t>(Os().time(nullptr)); }

/// Now minus `start`, wrapping at 32 bits.
std::int32_t SecondsFrom(std::int32_t start) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(Now()) -
                                   static_cast<std::uint32_t>(start));
}

bool IsOptionOn(const char* value) {
  return value == nullptr || value[0] == 'y' || value[0] == 'Y';
}

}  // namespace

RecordBuilder::RecordBuilder(UnixAgent* agent, Collector* collector,
                             [[maybe_unused]] const char* hostUtilPipePrefix)
    : m_pCollector(collector),
      m_pAgent(agent),
      m_pCPUSummary(std::make_unique<CPUSummary>(collector)),
      m_startTime(std::int64_t{0}, std::int64_t{0}),
      m_bootTime(std::int64_t{0}, std::int64_t{0}) {}

RecordBuilder::~RecordBuilder() = default;

UtlError* RecordBuilder::Init() {
  TraceEntry("RecordBuilder::Init");
  CreateRecordMappingTable();
  PublishListing();
  m_bGetDiedProcess = IsOptionOn(ProductOptions::Instance().Get("Acct", "GetDiedProcess")) ? 1 : 0;
  Trace(30, kInformation, "Initializing messages file offset.");
  m_pMessagesInit = std::make_unique<MessagesSourceUser>();
  Trace(30, kInformation, "Initializing accounting system.");
  m_categories = COLLECT_SYSTEM;
  Trace(30, kInformation, "Collecting data for initialization.");
  if (UtlErrorPtr error{m_pCollector->collect(m_categories)}) {
    error->LogError(__FILE__, __LINE__);
    Trace(30, kWarning, "Data Collection Failed: %1.", error->GetMessage());
    return error.release();
  }
  Trace(30, kInformation, "RecordBuilder data collection complete.");
  m_startTime = {Now(), 0};
  NoteHost(m_pCollector->GetSystem()->bootTime, m_pCollector->GetSystem()->numCPUs);
  InitWorkgroups();
  TraceExit("RecordBuilder::Init", 0);
  return nullptr;
}

void RecordBuilder::CreateRecordMappingTable() {
  m_pMappings = UnixBaseRecordMappings();
  if (g_kernelVariant != kNewestKernel) {
    AddOptionalRecords();
  }
  if (g_hostProfile == HostProfile::kModern) {
    AppendRows(ModernRecordMappings());
  }
}

void RecordBuilder::AppendRows(std::span<const RecordMapping> rows) {
  if (m_extendedMappings.empty()) {
    const auto base = UnixBaseRecordMappings();
    m_extendedMappings.assign(base.begin(), base.end());
  }
  m_extendedMappings.insert(m_extendedMappings.end(), rows.begin(), rows.end());
  m_pMappings = m_extendedMappings;
}

void RecordBuilder::AddOptionalRecords() {
  const OptionalRecordChoice choice = ReadOptrecsFile();
  m_optionalMask = choice.mask;
  m_nOptRecCount = choice.count;
  if (m_nOptRecCount == 0) {
    return;
  }
  try {
    AppendOptionalRows();
  } catch (const std::bad_alloc&) {
    m_nOptRecCount = 0;
    Trace(20, kError, "The error occurred by OS API(malloc) in function (%3). (en=%1, arg1=%2)",
          ENOMEM, "sizeof(UnixBaseRecordMappings)+((sizeof(RecordMapping)*m_nOptRecCount)+1)",
          "RecordBuilder::CreateRecordMappingTable");
  }
}

void RecordBuilder::AppendOptionalRows() {
  for (const OptionalRecord& optional : OptionalRecordTable()) {
    if ((m_optionalMask & optional.bit) == 0) {
      continue;
    }
    std::string_view name = std::string_view(optional.name).substr(0, kOptionalNameLimit);
    if (name.size() == kOptionalNameLimit && name.back() == ' ') {
      name.remove_suffix(1);
    }
    const auto pool = PoolRecordMappings();
    const auto row = std::find_if(pool.begin(), pool.end(), [&](const RecordMapping& candidate) {
      return std::strlen(candidate.name) == name.size() &&
             ::strncasecmp(candidate.name, name.data(), name.size()) == 0;
    });
    if (row != pool.end()) {
      AppendRows(std::span(&*row, 1));
    }
  }
}

void RecordBuilder::PublishListing() const {
  std::vector<RecordListing> listing;
  for (const RecordMapping& row : m_pMappings) {
    listing.push_back({row.name, static_cast<unsigned char>(row.category), true, {}});
    if (row.builder == &RecordBuilder::BuildPD_APP && m_pApplications != nullptr) {
      listing.back().isIdle = [this] { return !HasApplications(); };
    }
  }
  for (const RecordLayout* layout : LayoutRegistry::Instance().Layouts()) {
    const bool listed =
        std::any_of(m_pMappings.begin(), m_pMappings.end(), [&](const RecordMapping& row) {
          return row.category == layout->category && std::strcmp(row.name, layout->name) == 0;
        });
    if (!listed) {
      listing.push_back({layout->name, layout->category, false, {}});
    }
  }
  LayoutRegistry::Instance().PublishListing(std::move(listing));
}

UtlError* RecordBuilder::Add(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  const auto row =
      std::find_if(m_pMappings.begin(), m_pMappings.end(), [&](const RecordMapping& candidate) {
        return candidate.category == pRequest->GetStructType() &&
               std::strcmp(candidate.name, pRequest->GetRecordType()) == 0;
      });
  if (row == m_pMappings.end()) {
    if (pRequest->GetUserObject() == nullptr) {
      pRequest->SetUserObject(new MyMessageLogObject);
      Message(10600, pRequest->GetRecordType(), pEvent->IsRealtime() == 0 ? 1 : 0);
    }
    return new UtlError("Record type not supported.", __FILE__, __LINE__);
  }
  const CollectionMask needs =
      row->collectionFlags | (g_hostProfile == HostProfile::kModern ? row->modernFlags : 0U);
  m_categories |= needs;
  m_extraFlags |= row->extraFlags;
  m_queue.push_back({pEvent, pRequest, row->builder, needs});
  return nullptr;
}

UtlError* RecordBuilder::Build(CMBMultipleRecordRequestEvent* pEvent) {
  TraceEntry("RecordBuilder::Build", AddressOf(pEvent));
  // First of all: other batches may be built meanwhile.
  AwaitUserRecords(*pEvent);
  m_cycle = m_cycle == UINT32_MAX ? 1 : m_cycle + 1;
  m_categories = COLLECT_CONTINUE_ON_ERROR;
  m_extraFlags = 0;
  UtlErrorPtr error;
  try {
    const bool anyScheduled = QueueRequests(*pEvent);
    CollectSnapshot(anyScheduled, error);
    if (g_hostProfile == HostProfile::kModern) {
      LookAtHost(*pEvent);
    }
  } catch (const std::bad_alloc&) {
    // What is queued belongs to this batch, and must not be met by the next one.
    m_queue.clear();
    error = std::make_unique<UtlError>("Out of memory.", __FILE__, __LINE__);
  }
  const std::vector<RecordQueueEntry> queue = std::move(m_queue);
  m_queue.clear();
  for (const RecordQueueEntry& entry : queue) {
    BuildEntry(entry, error);
  }
  Trace(20, kInformation, "Processed %1 event(s).", queue.size());
  TraceExit("RecordBuilder::Build", error ? 1 : 0);
  return error.release();
}

bool RecordBuilder::QueueRequests(const CMBMultipleRecordRequestEvent& batch) {
  bool anyScheduled = false;
  std::vector<std::string> named;
  for (CMBRecordRequestEvent* event : batch.m_events) {
    anyScheduled = anyScheduled || event->IsRealtime() == 0;
    event->m_lacksFigures = false;
    for (CMBRecordRequest* request : event->m_requests) {
      named.insert(named.end(), request->NamedRows().begin(), request->NamedRows().end());
      if (const UtlErrorPtr refusal{Add(event, request)}) {
        Trace(20, kWarning, "Unable to process event request: %1 - %2", request->GetRecordType(),
              refusal->GetMessage());
      }
    }
  }
  m_pCollector->NameRows(std::move(named));
  return anyScheduled;
}

void RecordBuilder::CollectSnapshot(bool anyScheduled, UtlErrorPtr& error) {
  Trace(30, kInformation, "Collecting data...");
  const std::time_t start = Os().time(nullptr);
  // On-demand looks must not consume accounting data.
  ProductOptions::Instance().Set("Acct", "UpdatePtr", anyScheduled ? "y" : "n");
  error.reset(m_pCollector->collect(m_categories));
  if (error) {
    error->LogError(__FILE__, __LINE__);
    Trace(30, kInformation, "Data Collection Error: %1.", error->GetMessage());
  }
  m_lastCollectTime = Os().time(nullptr);
  Trace(30, kInformation, "Data Collection Complete. (%1 secs).", m_lastCollectTime - start);
}

void RecordBuilder::NoteHost(std::int32_t bootTime, std::uint32_t processors) {
  if (bootTime != 0) {
    m_bootTime = {bootTime, 0};
  }
  if (processors != 0) {
    m_numCPUs = processors;
  }
}

void RecordBuilder::LookAtHost(const CMBMultipleRecordRequestEvent& batch) {
  if (m_pCollector->HasCollected(COLLECT_SYSTEM)) {
    NoteHost(m_pCollector->GetSystem()->bootTime, m_pCollector->GetSystem()->numCPUs);
    return;
  }
  const bool isUpTimeWanted =
      std::any_of(batch.m_events.begin(), batch.m_events.end(), [](CMBRecordRequestEvent* event) {
        return event->IsRealtime() != 0 && event->ShouldCalcRates() != 0;
      });
  std::string text;
  if ((isUpTimeWanted || (m_categories & kNeedsHost) != 0) && ReadHostText(kKernelStatPath, text)) {
    const KernelStatFigures figures = ParseKernelStat(text);
    NoteHost(static_cast<std::int32_t>(LowWord(figures.bootTime)), figures.processors);
  }
}

void RecordBuilder::BuildEntry(const RecordQueueEntry& entry, UtlErrorPtr& error) {
  entry.event->m_lacksFigures |= m_pCollector->HasFailed(entry.needs);
  entry.event->yield();
  try {
    error.reset((this->*entry.builder)(entry.event, entry.request));
  } catch (const std::bad_alloc&) {
    error = std::make_unique<UtlError>("Out of memory.", __FILE__, __LINE__);
  }
  if (!error) {
    return;
  }
  Message(10300, entry.request->GetRecordType());
  Trace(20, kError, "Failed to collect the record. (record=%1, detail=%2)",
        entry.request->GetRecordType(), error->GetMessage());
  error->LogError(__FILE__, __LINE__);
  error.reset();
}

std::int32_t RecordBuilder::SecondsSinceStart() const { return SecondsFrom(GetStartTime()); }
std::int32_t RecordBuilder::SecondsSinceBoot() const {
  const std::int32_t seconds = SecondsFrom(GetBootTime());
  // The clock may be set between the two looks at it.
  return g_hostProfile == HostProfile::kModern ? std::max(seconds, 0) : seconds;
}

void RecordBuilder::TraceCreated(const char* file, int line, const char* recordName, int count) {
  Trace(20, kInformation, TraceFormat("Created %1 %2 record(s).", file, line), count, recordName);
}

UtlError* RecordBuilder::BuildPD_ACCT(CMBRecordRequestEvent*, CMBRecordRequest*) {
  Trace(30, kInformation, "No records of type ACCT are built.");
  return nullptr;
}
