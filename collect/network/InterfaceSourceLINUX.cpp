#include "collect/network/InterfaceSourceLINUX.h"

#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "collect/HostFile.h"
#include "collect/ProcLib.h"
#include "collect/TextScanner.h"

namespace {

constexpr std::uint32_t kInterfaceRecordSize = 128;
constexpr const char* kNetDevPath = "/proc/net/dev";
constexpr const char* kCounterFormat = "%*d %ld %ld %*d %*d %*d %*d %*d %*d %ld %ld %*d %*d %ld";
constexpr int kCounters = 5;

/// One question to the kernel about an interface: how it is traced, and what of the answer is kept.
struct Query {
  unsigned long request;
  const char* call;
  void (*keep)(const ::ifreq& answer, x_interface& work);
};

std::uint32_t AddressIn(const ::sockaddr& socketAddress) {
  ::sockaddr_in internet{};
  std::memcpy(&internet, &socketAddress, sizeof(internet));
  return internet.sin_addr.s_addr;
}

constexpr std::array kQueries{
    Query{SIOCGIFADDR, "ioctl(SIOCGIFADDR)",
          [](const ::ifreq& answer, x_interface& work) {
            work.addressFamily = 1;
            work.address = AddressIn(answer.ifr_addr);
          }},
    Query{SIOCGIFNETMASK, "ioctl(SIOCGIFNETMASK)",
          [](const ::ifreq& answer, x_interface& work) {
            work.netmask = AddressIn(answer.ifr_netmask);
          }},
    Query{SIOCGIFBRDADDR, "ioctl(SIOCGIFBRDADDR)",
          [](const ::ifreq& answer, x_interface& work) {
            work.broadcast = AddressIn(answer.ifr_broadaddr);
          }},
    Query{SIOCGIFMTU, "ioctl(SIOCGIFMTU)",
          [](const ::ifreq& answer, x_interface& work) { work.mtu = answer.ifr_mtu; }},
    Query{SIOCGIFFLAGS, "ioctl(SIOCGIFFLAGS)",
          [](const ::ifreq& answer, x_interface& work) {
            // The kernel's word is signed, and its highest bit is a flag like any other.
            work.ifFlags = static_cast<std::uint16_t>(answer.ifr_flags);
          }},
    Query{SIOCGIFMETRIC, "ioctl(SIOCGIFMETRIC)",
          [](const ::ifreq& answer, x_interface& work) { work.metric = answer.ifr_metric; }},
};

/// Takes the low 32 bits of each counter up to the first that does not match.
void ScanCounters(const char* text, x_interface& work) {
  TextScanner scanner(text);
  const auto take = [&scanner](std::uint32_t& counter) {
    std::int64_t wide = 0;
    if (scanner.Signed(wide)) {
      counter = static_cast<std::uint32_t>(wide);
    }
  };
  scanner.SkipNumbers(1);
  take(work.rxPackets);
  take(work.rxErrors);
  scanner.SkipNumbers(6);
  take(work.txPackets);
  take(work.txErrors);
  scanner.SkipNumbers(2);
  take(work.collisions);
  if (scanner.Count() != kCounters) {
    Trace(30, kError, "An error occurred in a function (sscanf). (rc=%1, arg1=%2, arg2=%3)",
          scanner.Count(), text, kCounterFormat);
  }
}

}  // namespace

std::string_view InterfaceTypeText(std::uint32_t flags) {
  if ((flags & IFF_POINTOPOINT) != 0) {
    return "Point-Point";
  }
  return (flags & IFF_LOOPBACK) != 0 ? "Loopback" : "Ethernet";
}

InterfaceSourceUser::InterfaceSourceUser() {
  TraceEntry("InterfaceSourceUser::InterfaceSourceUser");
  ++s_statistics.constructed;
  m_fp = OpenHostFile(kNetDevPath);
  if (m_fp == nullptr) {
    Trace(20, kError, "The error occurred by OS API(fopen). (en=%1, arg1=%2, arg2=%3)", errno,
          kNetDevPath, "r");
    m_pendingError = std::make_unique<UtlError>("Unable to open /proc/net/dev", __FILE__, __LINE__);
  } else if (m_sock = Os().socket(AF_INET, SOCK_STREAM, IPPROTO_TCP); m_sock < 0) {
    Trace(20, kError, "The error occurred by OS API(socket). (en=%1, arg1=%2, arg2=%3, arg3=%4)",
          errno, "AF_INET", "SOCK_STREAM", "IPPROTO_TCP");
    m_pendingError = std::make_unique<UtlError>("Unable to create socket", __FILE__, __LINE__);
  }
  TraceExit("InterfaceSourceUser::InterfaceSourceUser");
}

InterfaceSourceUser::~InterfaceSourceUser() {
  ++s_statistics.destroyed;
  if (m_fp != nullptr && std::fclose(m_fp.release()) != 0) {
    Trace(20, kError, "The error occurred by OS API(fclose). (en=%1, arg1=%2)", errno, kNetDevPath);
  }
  if (m_sock >= 0 && ::close(m_sock) != 0) {
    Trace(20, kError, "The error occurred by OS API(close). (en=%1, arg1=%2)", errno, m_sock);
  }
}

void InterfaceSourceUser::read(x_interface* record) {
  TraceEntry("InterfaceSourceUser::read", AddressOf(record));
  m_more = false;
  ProcLine line;
  while (m_pendingError == nullptr && !m_more) {
    if (std::fgets(line.data(), static_cast<int>(line.size()), m_fp.get()) == nullptr) {
      if (std::fseek(m_fp.get(), 0, SEEK_SET) != 0) {
        Trace(20, kError, "The error occurred by OS API(fseek). (en=%1, arg1=%2, arg2=%3, arg3=%4)",
              errno, kNetDevPath, 0, "SEEK_SET");
      }
      break;
    }
    if (std::strchr(line.data(), ':') == nullptr) {
      continue;
    }
    x_interface work;
    if (const int rc = Get_IFace_Info(line.data(), &work); rc == -1) {
      Trace(20, kError,
            "An error occured in a function (InterfaceSourceUser::Get_IFace_Info). (rc=%1, "
            "arg1=%2, arg2=%3)",
            rc, line.data(), AddressOf(&work));
      continue;
    }
    if (g_kernelVariant == kNewestKernel && ProcLib::IsNumberedName(work.name.data(), "sit") == 0) {
      continue;
    }
    *record = work;
    m_more = true;
  }
  TraceExit("InterfaceSourceUser::read");
}

int InterfaceSourceUser::Get_IFace_Info(const char* line, x_interface* work) const {
  TraceEntry("InterfaceSourceUser::Get_IFace_Info", line, AddressOf(work));
  work->size = kInterfaceRecordSize;
  const std::string_view text(line);
  const std::size_t colon = std::min(text.find(':'), text.size());
  const std::size_t begin = std::min(text.find_first_not_of(' '), colon);
  text.substr(begin, colon - begin).copy(work->name.data(), work->name.size() - 1);
  if (std::strlen(work->name.data()) >= IFNAMSIZ) {
    Trace(20, kWarning, "Interface name is over 16 bytes. (%1)", work->name.data());
  }
  ScanCounters(line + std::min(colon + 1, text.size()), *work);
  QueryInterface(*work);
  InterfaceTypeText(work->ifFlags).copy(work->type.data(), work->type.size() - 1);
  TraceExit("InterfaceSourceUser::Get_IFace_Info", 0);
  return 0;
}

void InterfaceSourceUser::QueryInterface(x_interface& work) const {
  ::ifreq request{};
  std::string_view(work.name.data()).copy(request.ifr_name, IFNAMSIZ - 1);
  request.ifr_addr.sa_family = AF_INET;
  std::array<int, kQueries.size()> errors{};
  bool failed = false;
  for (std::size_t index = 0; index < kQueries.size(); ++index) {
    const Query& query = kQueries[index];
    if (Os().ioctl(m_sock, query.request, &request) >= 0) {
      query.keep(request, work);
      continue;
    }
    errors[index] = errno;
    failed = true;
    Trace(30, kError, "An error occurred in an OS API (%1). (en=%2, arg1=%3, arg2=%4, arg3=%5)",
          query.call, errors[index], m_sock, Hex{query.request}, request.ifr_name);
  }
  if (failed) {
    std::array<char, 128> list;
    std::snprintf(list.data(), list.size(),
                  "ADDR=%d, NETMASK=%d, BADDR=%d, MTU=%d, FLAGS=%d, METRIC=%d", errors[0],
                  errors[1], errors[2], errors[3], errors[4], errors[5]);
    Trace(20, kWarning,
          "It failed in the collection of %2 interface information because of function %1. "
          "errno(%3)",
          "InterfaceSourceUser::Get_IFace_Info", work.name.data(), list.data());
  }
}
