#include "collect/modern/network/SocketFiles.h"

#include <array>

#include "collect/TextScanner.h"
#include "collect/modern/HostFolder.h"
#include "collect/modern/HostLines.h"
#include "collect/modern/HostText.h"
#include "collect/modern/network/SnmpText.h"

namespace {

struct SocketField {
  std::string_view label;
  std::string_view key;
  double SocketFigures::*value;
};

constexpr std::array kSocketCounters{
    SocketField{"Tcp:", "ActiveOpens", &SocketFigures::activeOpens},
    SocketField{"Tcp:", "PassiveOpens", &SocketFigures::passiveOpens},
    SocketField{"Tcp:", "AttemptFails", &SocketFigures::failedAttempts},
    SocketField{"Tcp:", "EstabResets", &SocketFigures::establishedResets},
    SocketField{"Tcp:", "InSegs", &SocketFigures::segmentsIn},
    SocketField{"Tcp:", "OutSegs", &SocketFigures::segmentsOut},
    SocketField{"Tcp:", "RetransSegs", &SocketFigures::segmentsSentAgain},
    SocketField{"Tcp:", "InErrs", &SocketFigures::segmentErrorsIn},
    SocketField{"Tcp:", "OutRsts", &SocketFigures::resetsSent},
    SocketField{"Udp:", "InDatagrams", &SocketFigures::datagramsIn},
    SocketField{"Udp:", "OutDatagrams", &SocketFigures::datagramsOut},
    SocketField{"Udp:", "NoPorts", &SocketFigures::noPorts},
    SocketField{"Udp:", "InErrors", &SocketFigures::datagramErrorsIn},
    SocketField{"Udp:", "RcvbufErrors", &SocketFigures::receiveBufferErrors},
    SocketField{"Udp:", "SndbufErrors", &SocketFigures::sendBufferErrors},
    SocketField{"Udp:", "InCsumErrors", &SocketFigures::checksumErrorsIn},
    SocketField{"TcpExt:", "ListenOverflows", &SocketFigures::listenOverflows},
    SocketField{"TcpExt:", "ListenDrops", &SocketFigures::listenDrops},
    SocketField{"TcpExt:", "SyncookiesSent", &SocketFigures::synCookiesSent},
    SocketField{"TcpExt:", "SyncookiesRecv", &SocketFigures::synCookiesReceived},
    SocketField{"TcpExt:", "SyncookiesFailed", &SocketFigures::synCookiesFailed},
    SocketField{"TcpExt:", "TCPAbortOnMemory", &SocketFigures::abortsForMemory},
    SocketField{"TcpExt:", "TCPMemoryPressures", &SocketFigures::memoryPressures},
    SocketField{"TcpExt:", "TCPTimeouts", &SocketFigures::timeouts},
    SocketField{"TcpExt:", "TCPSynRetrans", &SocketFigures::synSentAgain},
    SocketField{"TcpExt:", "TCPLostRetransmit", &SocketFigures::sentAgainAndLost}};

constexpr std::array kUdp6Counters{
    SocketField{"", "Udp6InDatagrams", &SocketFigures::datagramsIn},
    SocketField{"", "Udp6OutDatagrams", &SocketFigures::datagramsOut},
    SocketField{"", "Udp6NoPorts", &SocketFigures::noPorts},
    SocketField{"", "Udp6InErrors", &SocketFigures::datagramErrorsIn},
    SocketField{"", "Udp6RcvbufErrors", &SocketFigures::receiveBufferErrors},
    SocketField{"", "Udp6SndbufErrors", &SocketFigures::sendBufferErrors},
    SocketField{"", "Udp6InCsumErrors", &SocketFigures::checksumErrorsIn}};

constexpr std::array kSockstatFields{
    SocketField{"sockets:", "used", &SocketFigures::socketsUsed},
    SocketField{"TCP:", "inuse", &SocketFigures::tcp4InUse},
    SocketField{"TCP:", "orphan", &SocketFigures::tcpOrphans},
    SocketField{"TCP:", "tw", &SocketFigures::tcpBrief},
    SocketField{"TCP:", "alloc", &SocketFigures::tcpAllocated},
    SocketField{"TCP:", "mem", &SocketFigures::tcpMemory},
    SocketField{"UDP:", "inuse", &SocketFigures::udp4InUse},
    SocketField{"UDP:", "mem", &SocketFigures::udpMemory},
    SocketField{"UDPLITE:", "inuse", &SocketFigures::udpLite4InUse},
    SocketField{"RAW:", "inuse", &SocketFigures::raw4InUse},
    SocketField{"FRAG:", "inuse", &SocketFigures::fragments4InUse},
    SocketField{"FRAG:", "memory", &SocketFigures::fragments4Memory},
    SocketField{"TCP6:", "inuse", &SocketFigures::tcp6InUse},
    SocketField{"UDP6:", "inuse", &SocketFigures::udp6InUse},
    SocketField{"RAW6:", "inuse", &SocketFigures::raw6InUse}};
/// FRAG tells its memory in bytes, under another key.
constexpr std::string_view kPagesKey = "mem";

double SocketNumber(std::string_view text) {
  const double number = HostNumber(text);
  return number >= 0 ? number : kNotTold;
}

/// The place of a figure; null for one that nobody wants.
template <std::size_t N>
double SocketFigures::*FindSocketField(const std::array<SocketField, N>& fields,
                                       std::string_view label, std::string_view key) {
  for (const SocketField& field : fields) {
    if (field.key == key && field.label == label) {
      return field.value;
    }
  }
  return nullptr;
}

}  // namespace

void ParseSocketCounters(std::string_view text, SocketFigures& figures) {
  VisitSnmpColumns(
      text, [&figures](std::string_view label, std::string_view name, std::string_view value) {
        if (double SocketFigures::*const place = FindSocketField(kSocketCounters, label, name)) {
          figures.*place = SocketNumber(value);
        }
      });
}

void AddUdp6Counters(std::string_view text, SocketFigures& figures) {
  for (std::string_view line; NextTextLine(text, line);) {
    TextScanner words(line);
    std::string_view name;
    std::string_view value;
    if (!words.Word(name) || !words.Word(value)) {
      continue;
    }
    if (double SocketFigures::*const place = FindSocketField(kUdp6Counters, "", name)) {
      const double number = SocketNumber(value);
      figures.*place += IsTold(number) ? number : 0;
    }
  }
}

void ParseSockstat(std::string_view text, double pageBytes, SocketFigures& figures) {
  for (std::string_view line; NextTextLine(text, line);) {
    TextScanner words(line);
    std::string_view label;
    static_cast<void>(words.Word(label));
    std::string_view value;
    for (std::string_view key; words.Word(key) && words.Word(value);) {
      if (double SocketFigures::*const place = FindSocketField(kSockstatFields, label, key)) {
        figures.*place = SocketNumber(value) * (key == kPagesKey ? pageBytes : 1);
      }
    }
  }
}

void CountTcpLine(std::string_view line, TcpStates& states) {
  TextScanner words(line);
  std::string_view text;
  std::size_t state = 0;
  // Its number, both ends, and the state.
  if (words.SkipWord() && words.SkipWord() && words.SkipWord() && words.Word(text) &&
      TakeCount(text, state, 16) && text.empty() && state < states.sockets.size()) {
    ++states.sockets[state];
  }
}

double TimeWaitOf(double brief, const TcpStates& states) {
  // The two are told one after the other, so that the second may have come meanwhile.
  const double rest = brief - static_cast<double>(states.brief);
  return rest < 0 ? 0 : rest;
}
