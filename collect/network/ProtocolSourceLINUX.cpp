#include "collect/network/ProtocolSourceLINUX.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <string>
#include <string_view>

#include "collect/HostFile.h"
#include "collect/ProcLib.h"
#include "collect/TextScanner.h"

namespace {

constexpr std::uint32_t kProtocolRecordSize = 64;
constexpr const char* kSnmpPath = "/proc/net/snmp";
constexpr const char* kLabelFormat = "%*s %s";

/// The two counters taken from a protocol's line of values.
struct ProtocolRow {
  std::string_view word;  ///< a line that holds it belongs to the protocol
  int before;             ///< numbers that stand before the first counter
  int between;            ///< numbers that stand between the two
  std::uint32_t x_protocol::*in;
  std::uint32_t x_protocol::*out;
  const char* format;
  void (*labelFailed)(int rc, const char* line);
  void (*valuesFailed)(int rc, const char* line, const char* format);
};

void IpLabelFailed(int rc, const char* line) {
  Trace(20, kError, "An error occurred in OS API (sscanf).(rc=%1,arg1=%2, arg2=%3,errno=%4)", rc,
        line, kLabelFormat, errno);
}

void IpValuesFailed(int rc, const char* line, const char* format) {
  Trace(20, kError, "An error occurred in OS API (sscanf).(rc=%1).(arg1=%2).(arg2=%4).(errno=%3)",
        rc, line, errno, format);
}

void LabelFailed(int rc, const char* line) {
  Trace(30, kError, "An error occurred in OS API (sscanf).(rc=%1, arg1=%2,arg2=%3)", rc, line,
        kLabelFormat);
}

void ValuesFailed(int rc, const char* line, const char* format) {
  Trace(30, kError, "An error occurred in OS API (sscanf).(rc=%1,arg1=%2, arg2=%3)", rc, line,
        format);
}

void UdpValuesFailed(int rc, const char* line, const char* format) {
  Trace(30, kError, "An error occurred in OS API (sscanf).(rc=%2,arg1=%3, arg2=%4)", "sscanf", rc,
        line, format);
}

// The fourteenth number of "Icmp:" is OutMsgs before kernel 3.10 and InAddrMaskReps since.
constexpr std::array kRows{
    ProtocolRow{"Ip:", 8, 0, &x_protocol::ipIn, &x_protocol::ipOut,
                "%*s %*u %*u %*u %*u %*u %*u%*u %*u %u %u", IpLabelFailed, IpValuesFailed},
    ProtocolRow{"Icmp:", 0, 12, &x_protocol::icmpIn, &x_protocol::icmpOut,
                "%*s %u %*u %*u %*u %*u %*u %*u%*u %*u %*u %*u %*u %*u %u", LabelFailed,
                ValuesFailed},
    ProtocolRow{"Tcp:", 9, 0, &x_protocol::tcpIn, &x_protocol::tcpOut,
                "%*s %*u %*u %*u %*u %*u %*u%*u %*u %*u %u %u", LabelFailed, ValuesFailed},
    ProtocolRow{"Udp:", 0, 2, &x_protocol::udpIn, &x_protocol::udpOut, "%*s %u %*u %*u %u",
                LabelFailed, UdpValuesFailed},
};

/// Of a protocol's two lines the one of names is passed over.
void TakeValues(const ProtocolRow& row, const char* line, x_protocol& record) {
  std::string_view first;
  TextScanner label(line);
  label.SkipWord();
  if (!label.Word(first)) {
    row.labelFailed(label.Count(), line);
    return;
  }
  if (ProcLib::IsNumeric(std::string(first).c_str()) != 0) {
    return;
  }
  std::uint32_t in = 0;
  std::uint32_t out = 0;
  TextScanner values(line);
  values.SkipWord();
  values.SkipNumbers(row.before);
  values.Unsigned(in);
  values.SkipNumbers(row.between);
  if (!values.Unsigned(out)) {
    row.valuesFailed(values.Count(), line, row.format);
    return;
  }
  record.*row.in = in;
  record.*row.out = out;
}

void TakeLine(const char* line, x_protocol& record) {
  for (const ProtocolRow& row : kRows) {
    if (std::string_view(line).find(row.word) != std::string_view::npos) {
      TakeValues(row, line, record);
      return;
    }
  }
}

}  // namespace

ProtocolSourceUser::ProtocolSourceUser() {
  TraceEntry("ProtocolSourceUser::ProtocolSourceUser");
  ++s_statistics.constructed;
  m_fp = OpenHostFile(kSnmpPath);
  if (m_fp == nullptr) {
    const int code = errno;
    m_pendingError = std::make_unique<UtlError>(__FILE__, __LINE__);
    m_pendingError->GetStream() << "ProtocolSourceUser::ProtocolSourceUser(fopen(" << kSnmpPath
                                << ") failed! errno: " << code;
    m_pendingError->CloseStream();
    Trace(20, kError, "The error occurred by OS API(fopen). (en=%1, arg1=%2, arg2=%3, arg3=%4)",
          code, kSnmpPath, "r", "");
  }
  TraceExit("ProtocolSourceUser::ProtocolSourceUser");
}

ProtocolSourceUser::~ProtocolSourceUser() { ++s_statistics.destroyed; }

void ProtocolSourceUser::read(x_protocol* record) {
  TraceEntry("ProtocolSourceUser::read", AddressOf(record));
  m_more = false;
  if (m_pendingError == nullptr) {
    for (ProcLine line;
         std::fgets(line.data(), static_cast<int>(line.size()), m_fp.get()) != nullptr;) {
      TakeLine(line.data(), *record);
    }
    record->size = kProtocolRecordSize;
    record->totalIn = record->tcpIn + record->udpIn + record->icmpIn;
    record->totalOut = record->icmpOut + record->udpOut + record->tcpOut;
  }
  TraceExit("ProtocolSourceUser::read");
}
