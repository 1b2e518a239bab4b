#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "collect/CategoryFlags.h"

class Acct;
class CPU;
class DeviceIO;
class FileStat;
class FileSystem;
class IPC;
class Interface;
class Messages;
class Msg;
class NFSClientTotal;
class NFSServerTotal;
class Process;
struct ProcessLimits;
class Protocol;
class Quota;
class SHM;
class Sem;
class Storage;
class System;
template <std::size_t kind>
class UserRecord;
class UtlError;
struct CategoryFigures;
struct ModernFigures;

/// The one object through which the agent reads the operating system. It holds the latest figures
/// of each category until the next run of the same category.
///
/// A category is added by a source file of its own, a member with its accessor here, and its row in
/// Categories.cpp.
class Collector {
 public:
  Collector();
  ~Collector();
  Collector(const Collector&) = delete;
  Collector& operator=(const Collector&) = delete;

  /// Refreshes each category whose bit of CategoryFlags.h is set, once, in the table's order. With
  /// COLLECT_CONTINUE_ON_ERROR a failing category is traced and the result is null; without it the
  /// first error ends the run and is returned, owned by the caller. The second argument is unused.
  [[nodiscard]] UtlError* collect(std::uint32_t flags, int unused);
  /// The same with the categories of the profile `modern` besides.
  [[nodiscard]] UtlError* collect(CollectionMask flags);
  /// The same, with the files that the file-stat category looks at; not kept.
  [[nodiscard]] UtlError* collect(CollectionMask flags, std::span<const char* const> fileStatPaths);

  // For sources: what the run that makes them is about.

  /// Whether the run was asked for a bit of CategoryFlags.h.
  [[nodiscard]] bool Wants(CollectionMask flag) const { return (m_flags & flag) != 0; }
  /// Whether the run has already refreshed a category, whose figures are then of this moment.
  [[nodiscard]] bool HasCollected(CollectionMask flag) const { return (m_collected & flag) != 0; }
  /// Whether the last run could not refresh one of these categories, which this host has, or lacks
  /// some of its figures.
  [[nodiscard]] bool HasFailed(CollectionMask flags) const { return (m_failed & flags) != 0; }

  /// Of what the profile `modern` alone collects: when the category's last run began, by
  /// RunningSeconds(); now, for figures that no run has taken.
  [[nodiscard]] double TakenAt(CollectionMask flag) const;

  /// Values by which a person names rows of the run's records: keys or texts. What a source keeps
  /// of these from run to run it reads anew.
  [[nodiscard]] const std::vector<std::string>& NamedRows() const { return m_namedRows; }
  /// For the runs from now on.
  void NameRows(std::vector<std::string> values) { m_namedRows = std::move(values); }

  /// The categories' figures: never null, owned by the collector, valid for its life.
  [[nodiscard]] std::vector<CPU>* GetCPU() const { return m_pCPU.get(); }
  [[nodiscard]] std::vector<Process>* GetProcess() const { return m_pProcess.get(); }
  /// The limits of the processes of GetProcess(), row by row; empty unless the last run was asked
  /// for them under the profile `modern`.
  [[nodiscard]] std::vector<ProcessLimits>* GetProcessLimits() const {
    return m_pProcessLimits.get();
  }
  /// Processes that ended; no category fills it.
  [[nodiscard]] std::vector<Acct>* GetAcct() const { return m_pAcct.get(); }
  [[nodiscard]] std::vector<DeviceIO>* GetDevice() const { return m_pDevice.get(); }
  [[nodiscard]] System* GetSystem() const { return m_pSystem.get(); }
  [[nodiscard]] Protocol* GetProtocol() const { return m_pProtocol.get(); }
  [[nodiscard]] std::vector<Interface>* GetInterface() const { return m_pInterface.get(); }
  template <std::size_t kind>
  using UserRecords = std::vector<UserRecord<kind>>;
  [[nodiscard]] UserRecords<0>* GetUPI() const { return m_pUPI.get(); }
  [[nodiscard]] UserRecords<1>* GetUPIB() const { return m_pUPIB.get(); }
  [[nodiscard]] UserRecords<2>* GetUPD() const { return m_pUPD.get(); }
  [[nodiscard]] UserRecords<3>* GetUPDB() const { return m_pUPDB.get(); }
  [[nodiscard]] std::vector<Messages>* GetMessages() const { return m_pMessages.get(); }
  [[nodiscard]] std::vector<FileSystem>* GetFileSystem() const { return m_pFileSystem.get(); }
  [[nodiscard]] std::vector<Quota>* GetQuota() const { return m_pQuota.get(); }
  [[nodiscard]] std::vector<Storage>* GetStorage() const { return m_pStorage.get(); }
  [[nodiscard]] std::vector<FileStat>* GetFileStat() const { return m_pFileStat.get(); }
  [[nodiscard]] std::vector<Sem>* GetSem() const { return m_pSem.get(); }
  [[nodiscard]] std::vector<SHM>* GetSHM() const { return m_pSHM.get(); }
  [[nodiscard]] IPC* GetIPC() const { return m_pIPC.get(); }
  [[nodiscard]] std::vector<Msg>* GetMsg() const { return m_pMsg.get(); }
  [[nodiscard]] NFSServerTotal* GetNFSServerTotal() const { return m_pNFSServerTotal.get(); }
  [[nodiscard]] NFSClientTotal* GetNFSClientTotal() const { return m_pNFSClientTotal.get(); }

  /// Those that the profile `modern` alone collects.
  [[nodiscard]] ModernFigures* GetModern() const { return m_pModern.get(); }

  /// A word that the agent hands in at start; nothing in collection reads it.
  void SetOpaque(void* opaque) { m_opaque = opaque; }
  [[nodiscard]] void* GetOpaque() const { return m_opaque; }

 private:
  std::unique_ptr<std::vector<CPU>> m_pCPU;
  std::unique_ptr<std::vector<Process>> m_pProcess;
  std::unique_ptr<std::vector<ProcessLimits>> m_pProcessLimits;
  std::unique_ptr<std::vector<Acct>> m_pAcct;
  std::unique_ptr<std::vector<DeviceIO>> m_pDevice;
  std::unique_ptr<System> m_pSystem;
  std::unique_ptr<Protocol> m_pProtocol;
  std::unique_ptr<std::vector<Interface>> m_pInterface;
  std::unique_ptr<std::vector<Messages>> m_pMessages;
  std::unique_ptr<std::vector<FileSystem>> m_pFileSystem;
  std::unique_ptr<std::vector<Quota>> m_pQuota;
  std::unique_ptr<std::vector<Storage>> m_pStorage;
  std::unique_ptr<std::vector<FileStat>> m_pFileStat;
  std::unique_ptr<std::vector<Sem>> m_pSem;
  std::unique_ptr<std::vector<SHM>> m_pSHM;
  std::unique_ptr<IPC> m_pIPC;
  std::unique_ptr<std::vector<Msg>> m_pMsg;
  std::unique_ptr<NFSServerTotal> m_pNFSServerTotal;
  std::unique_ptr<NFSClientTotal> m_pNFSClientTotal;
  std::unique_ptr<UserRecords<0>> m_pUPI;
  std::unique_ptr<UserRecords<1>> m_pUPIB;
  std::unique_ptr<UserRecords<2>> m_pUPD;
  std::unique_ptr<UserRecords<3>> m_pUPDB;
  std::unique_ptr<ModernFigures> m_pModern;
  void* m_opaque = nullptr;
  std::vector<std::string> m_namedRows;
  CollectionMask m_flags = 0;
  CollectionMask m_collected = 0;
  CollectionMask m_failed = 0;
  /// By the place of a category's bit; 0 for never.
  std::array<double, std::numeric_limits<CollectionMask>::digits> m_takenAt{};
  /// Shared with the registry of figures, which may read them after the collector has gone.
  std::shared_ptr<std::vector<CategoryFigures>> m_figures;
};
