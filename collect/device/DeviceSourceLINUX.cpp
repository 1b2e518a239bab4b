#include "collect/device/DeviceSourceLINUX.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string_view>

#include "collect/HostFile.h"
#include "collect/TextScanner.h"

namespace {

constexpr std::size_t kUsualDevices = 512;
constexpr const char* kPartitionsFormat = "%*u %*u %*u %*63s %lu %*u %u %u %lu %*u %u %u %*u %u %u";
constexpr std::size_t kPartitionsNameLimit = 63;
constexpr const char* kDiskstatsFormat = "%*u %*u %79s %lu %*u %u %u %lu %*u %u %u %*u %u %u";
constexpr int kFigures = 8;

/// What both files tell of a device behind its name, in their order.
struct Figures {
  std::uint32_t reads = 0;
  std::uint32_t sectorsRead = 0;
  std::uint32_t readMilliseconds = 0;
  std::uint32_t writes = 0;
  std::uint32_t sectorsWritten = 0;
  std::uint32_t writeMilliseconds = 0;
  std::uint32_t ioMilliseconds = 0;
  std::uint32_t weightedMilliseconds = 0;
};

TextFilePtr Open(ProcFile file) {
  const char* path = ProcLib::FilePath(file);
  TextFilePtr stream = OpenHostFile(path);
  if (stream == nullptr) {
    Trace(20, kError, "The error occurred by OS API(fopen). (en=%1, arg1=%2, arg2=%3)", errno, path,
          "r");
  }
  return stream;
}

void Close(TextFilePtr& stream, ProcFile file) {
  if (stream != nullptr && std::fclose(stream.release()) != 0) {
    Trace(20, kError, "The error occurred by OS API(fclose). (en=%1, arg1=%2)", errno,
          ProcLib::FilePath(file));
  }
}

int FindDevice(std::FILE* stream, ProcLine& out, int major, int minor) {
  ProcLine line;
  while (stream != nullptr &&
         std::fgets(line.data(), static_cast<int>(line.size()), stream) != nullptr) {
    TextScanner scanner(line.data());
    std::int32_t lineMajor = 0;
    std::int32_t lineMinor = 0;
    if (scanner.Signed(lineMajor) && scanner.Signed(lineMinor) && lineMajor == major &&
        lineMinor == minor) {
      out = line;
      return 0;
    }
  }
  return -1;
}

/// Gives the name behind as many numbers, cut to a limit, and all that stands behind what is given.
bool SplitLine(const char* line, int numbers, std::size_t limit, std::string_view& name,
               const char*& rest) {
  TextScanner scanner(line);
  if (!scanner.SkipNumbers(numbers) || !scanner.Word(name)) {
    return false;
  }
  name = name.substr(0, limit);
  rest = name.data() + name.size();
  return true;
}

/// How many figures the text begins with.
int ScanFigures(const char* text, Figures& figures) {
  TextScanner scanner(text);
  static_cast<void>(
      scanner.Unsigned(figures.reads) && scanner.SkipNumbers(1) &&
      scanner.Unsigned(figures.sectorsRead) && scanner.Unsigned(figures.readMilliseconds) &&
      scanner.Unsigned(figures.writes) && scanner.SkipNumbers(1) &&
      scanner.Unsigned(figures.sectorsWritten) && scanner.Unsigned(figures.writeMilliseconds) &&
      scanner.SkipNumbers(1) && scanner.Unsigned(figures.ioMilliseconds) &&
      scanner.Unsigned(figures.weightedMilliseconds));
  return scanner.Count();
}

float Megabytes(std::uint32_t sectors) { return static_cast<float>(sectors * 512.0 / 1048576.0); }

void FillRecord(const Figures& figures, unsigned int uptime, x_deviceio& work) {
  work.readOps = figures.reads;
  work.writeOps = figures.writes;
  work.totalOps = figures.reads + figures.writes;
  work.readMB = Megabytes(figures.sectorsRead);
  work.writeMB = Megabytes(figures.sectorsWritten);
  work.totalMB = work.readMB + work.writeMB;
  work.queueLength = figures.weightedMilliseconds / std::max(uptime, 1U) / 1000;
  work.serviceSeconds =
      (std::uint64_t{figures.readMilliseconds} + figures.writeMilliseconds) / 1000;
  work.queueSeconds = work.serviceSeconds * work.queueLength;
  work.busySeconds = figures.ioMilliseconds / 1000;
}

void TraceScan(int taken, const char* line, const char* format) {
  Trace(30, kError, "An error occurred in a function (sscanf).(rc=%1, arg1=%2, arg2=%3)", taken,
        line, format);
}

}  // namespace

DiskCounters& DiskCounters::operator+=(const DiskCounters& counters) {
  reads += counters.reads;
  sectorsRead += counters.sectorsRead;
  readMilliseconds += counters.readMilliseconds;
  writes += counters.writes;
  sectorsWritten += counters.sectorsWritten;
  writeMilliseconds += counters.writeMilliseconds;
  inFlight += counters.inFlight;
  inUseMilliseconds += counters.inUseMilliseconds;
  weightedMilliseconds += counters.weightedMilliseconds;
  return *this;
}

DeviceIOSourceUser::DeviceIOSourceUser() : m_level(g_kernelVariant) {
  TraceEntry("DeviceIOSourceUser::DeviceIOSourceUser");
  ++s_statistics.constructed;
  m_devices.reserve(kUsualDevices);
  if (const int count = ProcLib::GetNumDevices(m_devices); count == -1 || m_devices.empty()) {
    m_isSupported = count == -1;
    m_pendingError =
        std::make_unique<UtlError>("Error in calculating number of devices", __FILE__, __LINE__);
    Trace(20, kError, "An error occured in a function (ProcLib::GetNumDevices). (rc=%1)", count);
  } else if (const int uptime = ProcLib::GetUpTime(); uptime == -1) {
    m_pendingError =
        std::make_unique<UtlError>("Error in calculating the uptime", __FILE__, __LINE__);
    Trace(20, kError, "An error occured in a function (ProcLib::GetUpTime). (rc=%1)", uptime);
  } else {
    m_uptime = static_cast<unsigned int>(uptime);
    m_partitionsFp = Open(kProcPartitions);
  }
  if (m_level == kNewestKernel) {
    m_diskstatsFp = Open(kProcDiskstats);
  }
  TraceExit("DeviceIOSourceUser::DeviceIOSourceUser");
}

DeviceIOSourceUser::~DeviceIOSourceUser() {
  ++s_statistics.destroyed;
  Close(m_partitionsFp, kProcPartitions);
  Close(m_diskstatsFp, kProcDiskstats);
}

void DeviceIOSourceUser::read(x_deviceio* record) {
  TraceEntry("DeviceIOSourceUser::read", AddressOf(record));
  m_more = false;
  if (m_pendingError != nullptr || m_index >= m_devices.size()) {
    TraceExit("DeviceIOSourceUser::read");
    return;
  }
  const DeviceId& device = m_devices[m_index];
  if (x_deviceio work; ReadFigures(device, work)) {
    NameDevice(device, work);
    *record = work;
  }
  ++m_index;
  m_more = true;
  TraceExit("DeviceIOSourceUser::read");
}

bool DeviceIOSourceUser::ReadFigures(const DeviceId& device, x_deviceio& work) {
  const bool newest = m_level == kNewestKernel;
  if ((newest ? m_diskstatsFp : m_partitionsFp) == nullptr) {
    return false;
  }
  const auto major = static_cast<int>(device.major);
  const auto minor = static_cast<int>(device.minor);
  ProcLine line;
  line[0] = '\0';
  if (const int rc = newest ? Check_Part_Device_Diskstats(line, major, minor)
                            : Check_Part_Device(line, major, minor);
      rc == -1) {
    Trace(30, kError,
          newest ? "The device is not a partitioned device.An error occured in a function "
                   "(DeviceIOSourceUser::Check_Part_Device_Diskstats).(rc=%1, arg1=%2, arg2=%3, "
                   "arg3=%4)."
                 : "The device is not a partitioned device.An error occured in a function "
                   "(DeviceIOSourceUser::Check_Part_Device).(rc=%1, arg1=%2, arg2=%3, arg3=%4).",
          rc, line.data(), major, minor);
    return false;
  }
  if (const int rc = newest ? Get_Device_Stat_Diskstats(line.data(), &work, m_uptime)
                            : Get_Device_Stat(line.data(), &work, m_uptime);
      rc == -1) {
    Trace(30, kError,
          newest ? "An error occured in a function (DeviceIOSourceUser::Get_Device_Stat_Diskstats)."
                   "(rc=%1, arg1=%2, arg2=%3,arg3=%4)."
                 : "An error occured in a function (DeviceIOSourceUser::Get_Device_Stat)."
                   "(rc=%1, arg1=%2, arg2=%3,arg3=%4).",
          rc, line.data(), AddressOf(&work), m_uptime);
    return false;
  }
  return true;
}

void DeviceIOSourceUser::NameDevice(const DeviceId& device, x_deviceio& work) const {
  std::string_view("disk").copy(work.type.data(), work.type.size() - 1);
  const int entry = MajorTable::Entry(m_level, device.major);
  if (entry == 0) {
    std::string_view("Unknown").copy(work.name.data(), work.name.size() - 1);
    return;
  }
  const int length =
      std::snprintf(work.name.data(), work.name.size(), "dev%d-%d", static_cast<int>(device.major),
                    static_cast<int>(device.minor) / entry);
  if (m_level == kNewestKernel) {
    const auto end = static_cast<std::size_t>(length);
    work.name[end] = ' ';
    std::string_view(m_diskName.data())
        .copy(work.name.data() + end + 1, work.name.size() - 1 - (end + 1));
  }
}

int DeviceIOSourceUser::Check_Part_Device(ProcLine& out, int major, int minor) {
  // Disks are asked for in the file's order, so the next one mostly stands below the last.
  if (m_partitionsFp == nullptr || FindDevice(m_partitionsFp.get(), out, major, minor) == 0) {
    return m_partitionsFp == nullptr ? -1 : 0;
  }
  std::rewind(m_partitionsFp.get());
  return FindDevice(m_partitionsFp.get(), out, major, minor);
}

int DeviceIOSourceUser::Check_Part_Device_Diskstats(ProcLine& out, int major, int minor) {
  return FindDevice(m_diskstatsFp.get(), out, major, minor);
}

int DeviceIOSourceUser::Get_Device_Stat(const char* line, x_deviceio* work,
                                        unsigned int uptime) const {
  std::string_view name;
  const char* rest = "";
  Figures figures;
  const int taken =
      SplitLine(line, 3, kPartitionsNameLimit, name, rest) ? ScanFigures(rest, figures) : 0;
  if (taken != kFigures) {
    TraceScan(taken, line, kPartitionsFormat);
    return -1;
  }
  FillRecord(figures, uptime, *work);
  return 0;
}

int DeviceIOSourceUser::Get_Device_Stat_Diskstats(const char* line, x_deviceio* work,
                                                  unsigned int uptime) {
  std::string_view name;
  const char* rest = "";
  Figures figures;
  int taken = 0;
  if (SplitLine(line, 2, m_diskName.size() - 1, name, rest)) {
    m_diskName.fill('\0');
    name.copy(m_diskName.data(), m_diskName.size() - 1);
    taken = 1 + ScanFigures(rest, figures);
  }
  if (taken != 1 + kFigures) {
    TraceScan(taken, line, kDiskstatsFormat);
    return -1;
  }
  FillRecord(figures, uptime, *work);
  return 0;
}
