#include "collect/modern/system/HostFacts.h"

#include <sys/timex.h>

#include "collect/modern/system/HostFactsText.h"
#include "tests/collect/CollectFixture.h"

namespace {

constexpr char kSys[] = "/proc/sys/kernel/";
constexpr char kDmi[] = "/sys/class/dmi/id/";
constexpr char kCpus[] = "/sys/devices/system/cpu/";

class HostFactsTest : public CollectFixture {
 protected:
  static HostFacts Read() {
    HostFacts facts;
    ReadHostFacts(facts);
    return facts;
  }
  /// Two sockets of two cores, whose numbers they share, with two threads; the last is off.
  void WriteProcessors() const {
    m_host.Write(std::string(kCpus) + "online", "0-6\n");
    const char* const siblings[] = {"0,4", "1,5", "2,6", "3", "0,4", "1,5", "2,6", "3,7"};
    for (std::size_t cpu = 0; cpu < std::size(siblings); ++cpu) {
      const std::string folder = kCpus + ("cpu" + std::to_string(cpu)) + "/topology/";
      m_host.Write(folder + "physical_package_id", cpu % 4 < 2 ? "0\n" : "36\n");
      m_host.Write(folder + "thread_siblings_list", siblings[cpu] + std::string("\n"));
    }
  }

  process_tree::HostTree m_host;
};

TEST_F(HostFactsTest, ReadsWhatAHostTells) {
  m_host.Write(std::string(kSys) + "hostname", "db 1\x01\n");
  m_host.Write(std::string(kSys) + "osrelease", "6.1.0-30-amd64\n");
  m_host.Write(std::string(kSys) + "version", "#1 SMP Debian 6.1.124-1\n");
  m_host.Write(std::string(kSys) + "arch", "x86_64\n");
  m_host.Write(std::string(kSys) + "pid_max", "4194304\n");
  m_host.Write(std::string(kSys) + "threads-max", "192729\n");
  m_host.Write(std::string(kSys) + "random/entropy_avail", "256\n");
  m_host.Write("/proc/sys/fs/file-nr", "745\t45\t9223372036854775807\n");
  m_host.Write("/etc/machine-id", "0123456789ABCDEF0123456789abcdef\n");
  m_host.Write("/usr/lib/os-release", "ID=debian\nPRETTY_NAME=\"Debian 12\"\nVERSION_ID=\"12\"\n");
  m_host.Write("/proc/cpuinfo",
               "processor\t: 0\nmodel name\t: Intel(R) Xeon(R) Platinum 8375C CPU @ 2.90GHz\n"
               "flags\t\t: fpu hypervisors xhypervisor\n\nprocessor\t: 1\nmodel name\t: other\n"
               "flags\t\t: hypervisor\n");
  m_host.Write("/proc/meminfo", "MemTotal:  8388608 kB\n");
  m_host.Write("/proc/stat", "btime 1700000000\n");
  m_host.Write("/proc/loadavg", "1.28 0.99 1.91 11/119 18836\n");
  m_host.Write("/sys/devices/system/clocksource/clocksource0/current_clocksource", "tsc\n");
  m_host.Write("/lib/modules/6.1.0-30-amd64/modules.dep", "");
  WriteProcessors();
  const HostFacts facts = Read();
  const std::pair<std::string, std::string> texts[] = {
      {facts.name, "db 1"},
      {facts.machineId, "0123456789abcdef0123456789abcdef"},
      {facts.kernel, "6.1.0-30-amd64"},
      {facts.kernelVersion, "#1 SMP Debian 6.1.124-1"},
      {facts.distribution, "Debian 12"},
      {facts.distributionId, "debian"},
      {facts.distributionVersion, "12"},
      {facts.architecture, "x86_64"},
      {facts.processorModel, "Intel(R) Xeon(R) Platinum 8375C CPU @ 2.90GHz"},
      {facts.virtualisation, ""},
      {facts.container, ""},
      {facts.clockSource, "tsc"},
  };
  for (const auto& [text, expected] : texts) {
    EXPECT_EQ(text, expected);
  }
  EXPECT_EQ((std::vector{facts.sockets, facts.cores, facts.threads, facts.memoryBytes,
                         facts.bootTime, facts.entropyBits, facts.openFiles, facts.tasks,
                         facts.mostTasks, facts.rebootNeeded}),
            (std::vector{2.0, 4.0, 7.0, 8589934592.0, 1.7e9, 256.0, 700.0, 119.0, 192729.0, 0.0}));
  EXPECT_FALSE(IsTold(facts.mostOpenFiles)) << "no bound";
  EXPECT_FALSE(IsTold(facts.clockSynchronised)) << "that of another host";
}

TEST_F(HostFactsTest, AnEmptyHostTellsNothing) {
  const HostFacts facts = Read();
  for (const double figure :
       {facts.sockets, facts.cores, facts.threads, facts.memoryBytes, facts.bootTime,
        facts.clockSynchronised, facts.clockErrorSeconds, facts.entropyBits, facts.openFiles,
        facts.tasks, facts.mostTasks, facts.rebootNeeded}) {
    EXPECT_FALSE(IsTold(figure)) << figure;
  }
  EXPECT_EQ(facts.name + facts.machineId + facts.kernel + facts.distribution + facts.architecture +
                facts.processorModel + facts.virtualisation + facts.container,
            "");
}

TEST_F(HostFactsTest, TellsTheClockOfTheRunningKernelAlone) {
  SetHostRoot("");
  Os().uname = [](struct ::utsname* names) {
    std::strcpy(names->nodename, "live");
    std::strcpy(names->machine, "riscv64");
    return 0;
  };
  Os().adjtimex = [](struct ::timex* clock) {
    clock->status = STA_NANO | STA_PLL;
    clock->offset = -2'500'000;
    clock->esterror = 300;
    return clock->modes == 0 ? TIME_OK : -1;
  };
  HostFacts facts = Read();
  EXPECT_EQ(facts.name + facts.architecture, "liveriscv64");
  EXPECT_EQ(facts.clockSynchronised, 1);
  EXPECT_DOUBLE_EQ(facts.clockOffsetSeconds, -0.0025);
  EXPECT_DOUBLE_EQ(facts.clockErrorSeconds, 0.0003);
  EXPECT_GT(facts.bootTime, 1e9);
  Os().adjtimex = [](struct ::timex* clock) {
    clock->status = STA_UNSYNC;
    return TIME_OK;
  };
  EXPECT_EQ(Read().clockSynchronised, 0);
  Os().adjtimex = [](struct ::timex*) { return TIME_ERROR; };
  EXPECT_EQ(Read().clockSynchronised, 0);
  Os().adjtimex = [](struct ::timex*) { return -1; };
  EXPECT_FALSE(IsTold(Read().clockOffsetSeconds));
}

TEST_F(HostFactsTest, AsksTheKeeperOfTheClockWhereTheKernelMayNotBeAsked) {
  EXPECT_FALSE(IsTold(Read().clockSynchronised));
  std::filesystem::create_directories(m_host.Path("/run/systemd/timesync"));
  EXPECT_EQ(Read().clockSynchronised, 0);
  m_host.Write("/run/systemd/timesync/synchronized", "");
  EXPECT_EQ(Read().clockSynchronised, 1);
  Os().time = [](std::time_t*) { return std::time(nullptr) + 5 * 3600; };
  EXPECT_EQ(Read().clockSynchronised, 0) << "no server has told it the time for long";
}

TEST_F(HostFactsTest, NamesOfDistributionsAreUnquotedAsAShellDoes) {
  const std::pair<const char*, const char*> cases[] = {
      {"PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n", "Debian GNU/Linux 12 (bookworm)"},
      {"PRETTY_NAME='It is \"x\" \\\\n'", "It is \"x\" \\\\n"},
      {"PRETTY_NAME=\"a\\\"b\\$c\\\\d\\e\"", "a\"b$c\\d\\e"},
      {"PRETTY_NAME=Plain\\ name # more", "Plain name"},
      {"PRETTY_NAME=\"a\"'b'c", "abc"},
      {"PRETTY_NAME=\"never ends", "never ends"},
      {"#PRETTY_NAME=no\nPRETTY_NAME=1\n  PRETTY_NAME=2\r\nXPRETTY_NAME=3\n", "2"},
      {"PRETTY_NAME=\"tab\there\\", "tab here\\"},
      {"PRETTY_NAME=", ""},
      {"PRETTY_NAME", ""},
  };
  for (const auto& [text, name] : cases) {
    EXPECT_EQ(ParseOsRelease(text).prettyName, name) << text;
  }
  EXPECT_EQ(ParseOsRelease("PRETTY_NAME=" + std::string(9000, 'x')).prettyName.size(), 255U);
}

TEST_F(HostFactsTest, HostileTextsTellNothing) {
  for (const char* id :
       {"", "uninitialized\n", "0123456789abcdef0123456789abcde\n",
        "0123456789abcdef0123456789abcdeg\n", "0123456789abcdef0123456789abcdef0\n"}) {
    EXPECT_EQ(ParseMachineId(id), "") << id;
  }
  for (const char* text : {"", "1 2 3", "1 2 3 4", "1 2 3 4/", "1 2 3 /5", "1 2 3 -1/5", "   "}) {
    EXPECT_FALSE(IsTold(ParseTaskCount(text))) << text;
  }
  for (const char* text : {"", "5", "5 6 7", "x 0 7"}) {
    EXPECT_FALSE(IsTold(ParseFileNr(text).used)) << text;
  }
  EXPECT_EQ(ContainerOfEnvironment(std::string_view("A=container=x\0container=lxc\0", 28)), "lxc");
  EXPECT_EQ(ContainerOfEnvironment("container=a b"), "");
}

TEST_F(HostFactsTest, FindsTheVirtualisationAndTheContainer) {
  const struct {
    const char* what;
    std::vector<std::pair<std::string, std::string>> files;
    const char* virtualisation;
    const char* container;
  } cases[] = {
      {"vmware", {{kDmi + std::string("sys_vendor"), "VMware, Inc.\n"}}, "vmware", ""},
      {"qemu without its clock", {{kDmi + std::string("sys_vendor"), "QEMU\n"}}, "qemu", ""},
      {"a tablet of a known vendor",
       {{kDmi + std::string("sys_vendor"), "Microsoft Corporation\n"},
        {kDmi + std::string("product_name"), "Surface Pro\n"}},
       "",
       ""},
      {"hyper-v",
       {{kDmi + std::string("sys_vendor"), "Microsoft Corporation\n"},
        {kDmi + std::string("product_name"), "Virtual Machine\n"}},
       "microsoft",
       ""},
      {"a whole machine of a cloud",
       {{kDmi + std::string("sys_vendor"), "Amazon EC2\n"},
        {kDmi + std::string("product_name"), "m7i.metal-24xl\n"}},
       "",
       ""},
      {"the flag alone", {{"/proc/cpuinfo", "flags\t\t: fpu hypervisor\n"}}, "other", ""},
      {"the clock",
       {{"/sys/devices/system/clocksource/clocksource0/available_clocksource", "kvm-clock tsc\n"},
        {kDmi + std::string("sys_vendor"), "QEMU\n"}},
       "kvm",
       ""},
      {"a guest of xen", {{"/sys/hypervisor/type", "xen\n"}}, "xen", ""},
      {"its governor",
       {{"/sys/hypervisor/type", "xen\n"}, {"/proc/xen/capabilities", "control_d\n"}},
       "",
       ""},
      {"the environment first",
       {{"/proc/1/environ", std::string("A=1\0container=lxc\0", 18)}, {"/.dockerenv", ""}},
       "",
       "lxc"},
      {"told by systemd", {{"/run/systemd/container", "oci\n"}, {"/.dockerenv", ""}}, "", "oci"},
      {"a mark", {{"/.dockerenv", ""}, {"/run/.containerenv", "x=1\n"}}, "", "docker"},
      {"the other mark", {{"/run/.containerenv", ""}}, "", "podman"},
  };
  for (const auto& one : cases) {
    for (const auto& [path, text] : one.files) {
      m_host.Write(path, text);
    }
    const HostFacts facts = Read();
    EXPECT_EQ(facts.virtualisation, one.virtualisation) << one.what;
    EXPECT_EQ(facts.container, one.container) << one.what;
    for (const auto& [path, text] : one.files) {
      m_host.Remove(path);
    }
  }
}

TEST_F(HostFactsTest, ANeededRebootShowsByItsMarkOrByModulesThatHaveGone) {
  m_host.Write(std::string(kSys) + "osrelease", "6.1.0-30-amd64\n");
  m_host.Write("/lib/modules/README", "no modules\n");
  EXPECT_FALSE(IsTold(Read().rebootNeeded)) << "no modules at all";
  m_host.Write("/lib/modules/6.1.0-31-amd64/modules.dep", "");
  EXPECT_EQ(Read().rebootNeeded, 1);
  m_host.Write("/.dockerenv", "");
  EXPECT_FALSE(IsTold(Read().rebootNeeded)) << "the modules of a container";
  m_host.Remove("/.dockerenv");
  m_host.Write("/lib/modules/6.1.0-30-amd64/modules.dep", "");
  EXPECT_EQ(Read().rebootNeeded, 0);
  m_host.Write(std::string(kSys) + "osrelease", "../modules\n");
  EXPECT_FALSE(IsTold(Read().rebootNeeded)) << "no name of a kernel";
  m_host.Write("/run/reboot-required", "*** System restart required ***\n");
  EXPECT_EQ(Read().rebootNeeded, 1);
}

}  // namespace
