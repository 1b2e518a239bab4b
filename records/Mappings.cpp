#include <array>

#include "collect/CategoryFlags.h"
#include "records/RecordBuilder.h"
#include "records/RecordMapping.h"

namespace {

constexpr std::uint32_t kInterval = '4';
constexpr std::uint32_t kDetail = '3';
constexpr std::uint32_t kProcesses = COLLECT_PROCESS | COLLECT_ACCT;

constexpr RecordMapping kPI{kInterval,
                            "PI",
                            COLLECT_ACCT | COLLECT_SYSTEM | COLLECT_PROTOCOL | COLLECT_CPU,
                            0,
                            &RecordBuilder::Build_PI,
                            COLLECT_NFS_SERVER | COLLECT_NFS_CLIENT};
constexpr RecordMapping kCPUP{kInterval, "CPUP", COLLECT_CPU, 0, &RecordBuilder::Build_CPUP};
constexpr RecordMapping kDEVD{kInterval, "DEVD", COLLECT_DEVICE, 0, &RecordBuilder::Build_DEVD};
constexpr RecordMapping kDEVS{kInterval, "DEVS", COLLECT_DEVICE, 0, &RecordBuilder::Build_DEVS};
constexpr RecordMapping kNIND{kInterval, "NIND", COLLECT_INTERFACE, 0, &RecordBuilder::Build_NIND};
constexpr RecordMapping kNINS{kInterval, "NINS", COLLECT_INTERFACE, 0, &RecordBuilder::Build_NINS};
constexpr RecordMapping kWGRP{kInterval, "WGRP", kProcesses, 0, &RecordBuilder::Build_WGRP};
constexpr RecordMapping kUPI{kInterval, "UPI", COLLECT_UPI, 0, &RecordBuilder::Build_UPI};
constexpr RecordMapping kUPIB{kInterval, "UPIB", COLLECT_UPIB, 0, &RecordBuilder::Build_UPIB};
constexpr RecordMapping kPD{
    kDetail, "PD", kProcesses, 0, &RecordBuilder::BuildPD, COLLECT_PROCESS_LIMITS};
constexpr RecordMapping kACCT{kDetail, "ACCT", COLLECT_ACCT, 0, &RecordBuilder::BuildPD_ACCT};
constexpr RecordMapping kFSL{kDetail, "FSL", COLLECT_FILE_SYSTEM, 0, &RecordBuilder::BuildPD_FSL};
constexpr RecordMapping kFSR{kDetail, "FSR", COLLECT_FILE_SYSTEM, 0, &RecordBuilder::BuildPD_FSR};
constexpr RecordMapping kPDI{kDetail, "PDI", kProcesses, 0, &RecordBuilder::BuildPD_PDI};
constexpr RecordMapping kPDS{
    kDetail, "PDS", kProcesses, 1, &RecordBuilder::BuildPD_PDS, COLLECT_PROCESS_FOLDER};
constexpr RecordMapping kPGM{kDetail, "PGM", kProcesses, 0, &RecordBuilder::BuildPD_PGM};
constexpr RecordMapping kTERM{kDetail, "TERM", kProcesses, 0, &RecordBuilder::BuildPD_TERM};
constexpr RecordMapping kUFSS{kDetail, "UFSS", COLLECT_STORAGE | COLLECT_FILE_SYSTEM, 0,
                              &RecordBuilder::BuildPD_UFSS};
constexpr RecordMapping kUSER{kDetail, "USER", kProcesses, 0, &RecordBuilder::BuildPD_USER};
constexpr RecordMapping kUPD{kDetail, "UPD", COLLECT_UPD, 0, &RecordBuilder::Build_UPD};
constexpr RecordMapping kUPDB{kDetail, "UPDB", COLLECT_UPDB, 0, &RecordBuilder::Build_UPDB};
constexpr RecordMapping kAPP{kDetail, "APP", COLLECT_PROCESS, 0, &RecordBuilder::BuildPD_APP};

constexpr std::array kBaseTable{kPI,  kCPUP, kDEVD, kDEVS, kNIND, kNINS, kWGRP, kUPI, kUPIB, kPD,
                                kFSL, kFSR,  kPDI,  kPDS,  kPGM,  kTERM, kUSER, kUPD, kUPDB, kAPP};
constexpr std::array kPoolTable{kPI,  kCPUP, kDEVD, kDEVS, kNIND, kNINS, kWGRP, kPD,  kACCT,
                                kFSL, kFSR,  kPDI,  kPDS,  kPGM,  kTERM, kUFSS, kUSER};
constexpr std::array kModernTable{
    RecordMapping{kInterval, "PRES", 0, 0, &RecordBuilder::Build_PRES, COLLECT_PRESSURE},
    RecordMapping{kInterval, "CGRP", 0, 0, &RecordBuilder::Build_CGRP, COLLECT_CONTROL_GROUP},
    RecordMapping{kInterval, "NETD", 0, 0, &RecordBuilder::Build_NETD, COLLECT_LINK},
    RecordMapping{kInterval, "SOCK", 0, 0, &RecordBuilder::Build_SOCK, COLLECT_SOCKET},
    RecordMapping{kInterval, "DISK", 0, 0, &RecordBuilder::Build_DISK, COLLECT_DISK},
    RecordMapping{kInterval, "MEMD", 0, 0, &RecordBuilder::Build_MEMD, COLLECT_MEMORY},
    RecordMapping{kInterval, "KERN", 0, 0, &RecordBuilder::Build_KERN, COLLECT_KERNEL},
    RecordMapping{kInterval, "CPUX", 0, 0, &RecordBuilder::Build_CPUX, COLLECT_CPU_TIME},
    RecordMapping{kDetail, "SENS", 0, 0, &RecordBuilder::BuildPD_SENS, COLLECT_SENSOR},
    RecordMapping{kDetail, "PDX", 0, 0, &RecordBuilder::BuildPD_PDX, COLLECT_PROCESS_DETAIL},
    RecordMapping{kDetail, "HOST", 0, 0, &RecordBuilder::BuildPD_HOST, COLLECT_HOST}};
constexpr std::array kOptionalTable{OptionalRecord{"UFSS", kOptionalUFSS}};

}  // namespace

std::span<const RecordMapping> UnixBaseRecordMappings() { return kBaseTable; }
std::span<const RecordMapping> ModernRecordMappings() { return kModernTable; }
std::span<const RecordMapping> PoolRecordMappings() { return kPoolTable; }
std::span<const OptionalRecord> OptionalRecordTable() { return kOptionalTable; }
