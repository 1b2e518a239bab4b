#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <span>
#include <string>
#include <typeindex>
#include <unordered_map>
#include <vector>

#include "collect/Collector.h"
#include "node/RecordRequest.h"
#include "records/CPUSummary.h"
#include "records/RecordMapping.h"
#include "support/TimeValues.h"
#include "support/UtlError.h"

class ApplicationMonitor;
class HostNameRequestManager;
class MessagesSourceUser;
struct ProcessInput;
class UnixAgent;

/// What one record family keeps between builds. Each family defines its own in its own file.
class FamilyState {
 public:
  FamilyState() = default;
  FamilyState(const FamilyState&) = delete;
  FamilyState& operator=(const FamilyState&) = delete;
  virtual ~FamilyState() = default;
};

/// Turns one event with many record requests into records: works out which categories of figures
/// all of them need, has the collector refresh these once, then runs one builder a request on that
/// one snapshot.
class RecordBuilder {
 public:
  /// Neither pointer is owned; both outlive the builder. `hostUtilPipePrefix` is the path prefix of
  /// the pipes to the host name helper.
  RecordBuilder(UnixAgent* agent, Collector* collector, const char* hostUtilPipePrefix);
  RecordBuilder(const RecordBuilder&) = delete;
  RecordBuilder& operator=(const RecordBuilder&) = delete;
  ~RecordBuilder();

  /// Once, before the first Build: makes the table in force, collects the system's figures and
  /// notes the start time. Null, or an error that the caller owns.
  [[nodiscard]] UtlError* Init();
  /// One whole batch. A failed request never stops its neighbours. Null, or an error that the
  /// caller owns: memory ran out before the first of its records was built.
  [[nodiscard]] UtlError* Build(CMBMultipleRecordRequestEvent* pEvent);

  /// The applications that APP counts processes for: not owned, null for none.
  void SetApplications(ApplicationMonitor* applications) { m_pApplications = applications; }
  /// Whom NIND asks for the names of networks: not owned, null for nobody.
  void SetHostNames(HostNameRequestManager* hostNames) { m_pHostNames = hostNames; }
  /// The workgroup definition file, which Init reads; its path stands under no prefix.
  void SetWorkgroupFile(const std::string& path) { m_workgroupFile = path; }

  [[nodiscard]] bool HasNoOptionalRecords() const { return m_nOptRecCount < 1; }
  [[nodiscard]] unsigned IsUFSSEnabled() const { return m_optionalMask & kOptionalUFSS; }

  /// Seconds since the epoch, and whole seconds since then.
  [[nodiscard]] std::int32_t GetStartTime() const { return m_startTime.GetSeconds(); }
  [[nodiscard]] std::int32_t SecondsSinceStart() const;
  /// As of the start; under the profile `modern` of the batch, as the boot time moves with the
  /// clock.
  [[nodiscard]] std::int32_t GetBootTime() const { return m_bootTime.GetSeconds(); }
  [[nodiscard]] std::int32_t SecondsSinceBoot() const;
  /// On-line processors at the start; under the profile `modern` those of the batch.
  [[nodiscard]] std::uint32_t GetNumCPUs() const { return m_numCPUs; }
  /// The interval of a real-time row with rates.
  [[nodiscard]] std::int32_t GetUpTimeSeconds() const { return SecondsSinceBoot(); }

  /// Builders of records, each in the file of its record.
  UtlError* Build_PI(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_CPUP(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_DEVD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_DEVS(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_WGRP(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_UPI(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_UPIB(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_UPD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_UPDB(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_NIND(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_NINS(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  /// Behind no row of the table of records.
  UtlError* Build_TAPS(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_NCO(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_NCD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_NSO(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_NSD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* BuildPD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  /// Once in the process's life an error if there are no applications.
  UtlError* BuildPD_APP(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* BuildPD_FSL(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* BuildPD_FSR(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* BuildPD_PDI(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* BuildPD_PDS(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* BuildPD_PGM(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* BuildPD_TERM(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* BuildPD_USER(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  /// Under the profile `modern` alone.
  UtlError* Build_PRES(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_CGRP(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_NETD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_SOCK(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_DISK(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_MEMD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_KERN(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* Build_CPUX(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* BuildPD_SENS(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* BuildPD_PDX(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* BuildPD_HOST(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  /// Only where the site's file of optional records names it.
  UtlError* BuildPD_UFSS(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  /// Behind no row of the table of records.
  UtlError* BuildPL_MESS(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* BuildPD_UFSQ(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* BuildPD_IPCS(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* BuildPD_SEMD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* BuildPD_SHMD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  UtlError* BuildPD_MSQD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  /// Yields no record: the accounting figures travel with the processes.
  UtlError* BuildPD_ACCT(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);

  /// A builder's last word: how many rows it has processed, at level 20.
  static void TraceCreated(const char* file, int line, const char* recordName, int count);

 private:
  struct RecordQueueEntry {
    CMBRecordRequestEvent* event;
    CMBRecordRequest* request;
    RecordBuilderFunction builder;
    CollectionMask needs;  ///< categories of figures
  };

  /// While others hold the guard of a file that the batch needs, holds the batch back, for six
  /// seconds at most.
  static void AwaitUserRecords(CMBMultipleRecordRequestEvent& batch);
  /// Queues one request, or refuses it. Null, or an error that the caller owns.
  [[nodiscard]] UtlError* Add(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest);
  void CreateRecordMappingTable();
  /// Puts rows behind those in force.
  void AppendRows(std::span<const RecordMapping> rows);
  void AddOptionalRecords();
  void AppendOptionalRows();
  void PublishListing() const;
  /// Whether APP has applications to tell of.
  [[nodiscard]] bool HasApplications() const;
  /// Reads the workgroup file; if that fails the records of workgroups stay empty.
  void InitWorkgroups();
  /// Queues what can be served; returns whether one of the events is a scheduled one.
  bool QueueRequests(const CMBMultipleRecordRequestEvent& batch);
  void CollectSnapshot(bool anyScheduled, UtlErrorPtr& error);
  /// What is 0 is not told, and stays as it was.
  void NoteHost(std::int32_t bootTime, std::uint32_t processors);
  /// Notes both anew where records of the batch make something of them.
  void LookAtHost(const CMBMultipleRecordRequestEvent& batch);
  void BuildEntry(const RecordQueueEntry& entry, UtlErrorPtr& error);

  /// What the builders of records of processes work on in this batch.
  [[nodiscard]] ProcessInput InputOfProcesses();

  /// The state of one family, made at its first use.
  template <class State>
  State& StateOf() {
    std::unique_ptr<FamilyState>& place = m_states[std::type_index(typeid(State))];
    if (!place) {
      place = std::make_unique<State>();
    }
    return static_cast<State&>(*place);
  }

  int m_bGetDiedProcess = 1;
  Collector* m_pCollector;
  UnixAgent* m_pAgent;
  ApplicationMonitor* m_pApplications = nullptr;
  HostNameRequestManager* m_pHostNames = nullptr;
  std::string m_workgroupFile;
  std::unique_ptr<CPUSummary> m_pCPUSummary;
  std::unique_ptr<MessagesSourceUser> m_pMessagesInit;
  CollectionMask m_categories = 0;
  std::uint32_t m_extraFlags = 0;
  std::time_t m_lastCollectTime = 0;
  UtlTime m_startTime;
  UtlTime m_bootTime;
  std::uint32_t m_numCPUs = 0;
  std::vector<RecordQueueEntry> m_queue;
  std::uint32_t m_optionalMask = 0;
  std::int32_t m_nOptRecCount = 0;
  std::vector<RecordMapping> m_extendedMappings;
  std::span<const RecordMapping> m_pMappings;
  /// Tells one batch from the next; raised by each Build and never 0.
  std::uint32_t m_cycle = 0;
  std::unordered_map<std::type_index, std::unique_ptr<FamilyState>> m_states;
};
