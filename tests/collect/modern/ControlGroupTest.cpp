#include "collect/modern/cgroup/ControlGroupFiles.h"
#include "collect/modern/cgroup/ControlGroupFolder.h"
#include "collect/modern/cgroup/ControlGroupMounts.h"
#include "collect/modern/cgroup/ControlGroupName.h"
#include "collect/modern/cgroup/ControlGroupSource.h"
#include "collect/modern/system/Pressure.h"
#include "tests/collect/CollectFixture.h"

namespace {

const std::string kId(64, 'a');
const std::string kUid = "0f3c8a1e-9b2d-4c5e-8f7a-123456789abc";
const std::string kUidWithUnderscores = "0f3c8a1e_9b2d_4c5e_8f7a_123456789abc";

std::string Text(const ControlGroupCpu& cpu) {
  return Told({cpu.userSeconds, cpu.systemSeconds, cpu.totalSeconds, cpu.periods,
               cpu.throttledPeriods, cpu.throttledSeconds});
}
std::string Text(const ControlGroupMemory& memory) {
  return Told({memory.current, memory.anonymous, memory.file, memory.kernel, memory.swap,
               memory.limit, memory.outOfMemoryKills, memory.highEvents, memory.maxEvents});
}
std::string Text(const ControlGroupIo& io) {
  return Told({io.bytesRead, io.bytesWritten, io.reads, io.writes});
}
std::string Text(const ControlGroupPressure& pressure) {
  return Told({pressure.cpuSome, pressure.cpuFull, pressure.memorySome, pressure.memoryFull,
               pressure.ioSome, pressure.ioFull});
}
std::string Text(const ControlGroup& group) {
  return group.path + ": " + Told({group.processes, group.threads}) + " | " + Text(group.cpu) +
         " | " + Text(group.memory) + " | " + Text(group.io) + " | " + Text(group.pressure);
}
std::string Text(const ControlGroupName& name) {
  std::string text(name.kind);
  for (const std::string_view part :
       {name.runtime, std::string_view(name.containerId), std::string_view(name.containerName),
        std::string_view(name.pod)}) {
    text += '|';
    text += part;
  }
  return text;
}

class ControlGroupTest : public CollectFixture {
 protected:
  void TearDown() override {
    ControlGroupFolder::EndWalk();
    CollectFixture::TearDown();
  }
  void Mount(const std::string& lines) { m_host.Write("/proc/1/mountinfo", lines); }
  void MountUnified() { Mount("25 1 0:23 / /cg rw shared:4 - cgroup2 cgroup2 rw,nsdelegate\n"); }
  /// Makes a group of these processes.
  void Add(const std::string& folder, const std::string& processes) {
    m_host.Write(folder + "/cgroup.procs", processes);
  }
  void Fill(const std::string& folder,
            std::initializer_list<std::pair<const char*, const char*>> files) {
    for (const auto& [name, text] : files) {
      m_host.Write(folder + "/" + name, text);
    }
  }
  static std::vector<ControlGroup> Read(const ControlGroupWalk& walk = {}) {
    std::vector<ControlGroup> groups(1);
    ReadControlGroups(groups, walk);
    return groups;
  }
  static std::vector<std::string> Texts() {
    std::vector<std::string> texts;
    for (const ControlGroup& group : Read()) {
      texts.push_back(Text(group));
    }
    return texts;
  }
  /// Paths and processes.
  static std::string Counts(const ControlGroupWalk& walk = {}) {
    std::string text;
    for (const ControlGroup& group : Read(walk)) {
      text += group.path + "=" + Told({group.processes}) + " ";
    }
    return text;
  }

  process_tree::HostTree m_host;
};

TEST_F(ControlGroupTest, NamesTellKindRuntimeIdAndPod) {
  const std::string pod = "/kubepods/burstable/pod" + kUid;
  const std::string podSlice = "/kubepods.slice/kubepods-burstable.slice/kubepods-burstable-pod" +
                               kUidWithUnderscores + ".slice";
  const std::string staticPod(32, 'b');
  const struct {
    std::string path;
    std::string told;
  } cases[] = {
      {"/", "root||||"},
      {"", "root||||"},
      {"/system.slice", "slice||||"},
      {"/system.slice/ssh.service", "service||||"},
      {"/init.scope", "scope||||"},
      {"/system.slice/home.mount", "group||||"},
      {"/.service", "group||||"},
      {"/user.slice/user-1000.slice/session-c2.scope", "user session||||"},
      {"/user.slice/user-1000.slice/user@1000.service", "user session||||"},
      {"/user.slice/user-1000.slice/user@1001.service", "service||||"},
      {"/system.slice/session-2.scope", "scope||||"},
      {"/user.slice/user-1000.slice/user@1000.service/app.slice/a.scope", "scope||||"},
      {"/docker/" + kId, "container|docker|" + kId + "||"},
      {"/docker/" + kId + "/init.scope", "scope||||"},
      {"/docker/0123456789ab", "container|docker|0123456789ab||"},
      {"/docker/0123456789a", "group||||"},
      {"/tasks/0123456789abcdef0123456789abcdef", "group||||"},
      {"/docker/" + std::string(64, 'A'), "group||||"},
      {"/elsewhere/" + kId, "container||" + kId + "||"},
      {"/system.slice/docker-" + kId + ".scope", "container|docker|" + kId + "||"},
      {"/system.slice/docker-" + kId + ".service", "service||||"},
      {"/system.slice/docker-" + kId + "a.scope", "scope||||"},
      {"/machine.slice/libpod-" + kId + ".scope", "container|podman|" + kId + "||"},
      {"/machine.slice/libpod-conmon-" + kId + ".scope", "scope||||"},
      {"/machine.slice/libpod_pod_" + kId + ".slice", "slice||||"},
      {"/own/libpod-payload-" + kId, "container|podman|" + kId + "||"},
      {pod, "group||||" + kUid},
      {pod + "/" + kId, "container||" + kId + "||" + kUid},
      {pod + "/crio-" + kId, "container|cri-o|" + kId + "||" + kUid},
      {pod + "/" + kId + "/below", "group||||" + kUid},
      {"/kubepods/pod" + staticPod + "/0123456789ab", "container||0123456789ab||" + staticPod},
      {"/kubepods/podx" + kUid, "group||||"},
      {podSlice, "slice||||" + kUid},
      {podSlice + "/crio-" + kId + ".scope", "container|cri-o|" + kId + "||" + kUid},
      {podSlice + "/crio-conmon-" + kId + ".scope", "scope||||" + kUid},
      {podSlice + "/cri-containerd-" + kId + ".scope", "container|containerd|" + kId + "||" + kUid},
      {"/system.slice/containerd.service/kubepods-besteffort-pod" + kUidWithUnderscores +
           ".slice:cri-containerd:" + kId,
       "container|containerd|" + kId + "||" + kUid},
      {"/own.slice/own-pod" + kUidWithUnderscores + ".slice", "slice||||"},
      {"/machine.slice/machine-web\\x2dfront.scope", "container|nspawn||web-front|"},
      {"/machine.slice/systemd-nspawn@web\\x2dfront.service", "container|nspawn||web-front|"},
      {"/machine.slice/machine-lxc\\x2d17\\x2dweb.scope", "container|lxc||web|"},
      {"/machine.slice/machine-qemu\\x2d1\\x2dweb.scope", "scope||||"},
      {"/machine.slice/machine-a\\x00\\x2.scope", "container|nspawn||a\\x00\\x2|"},
      {"/lxc.payload.web", "container|lxc||web|"},
      {"/lxc.monitor.web", "group||||"},
      {"/lxc/web", "container|lxc||web|"},
  };
  for (const auto& one : cases) {
    EXPECT_EQ(Text(NameControlGroup(one.path)), one.told) << one.path;
  }
}

TEST_F(ControlGroupTest, FilesGiveWhatTheyTell) {
  ControlGroupCpu cpu;
  ParseGroupCpuStat(
      "usage_usec\nusage_usec 1500000x\nusage_usec 2500000\nuser_usec -1\n"
      "nr_periods 18446744073709551616\nnr_throttled 1\nnr_throttled 2",
      cpu);
  EXPECT_EQ(Text(cpu), "- - 2.5 - 1 -") << "the first that is a number";
  ControlGroupMemory memory;
  ParseGroupMemoryStat("anon 1\nkernel_stack 2\npagetables 4\npercpu 8\nslab 16\nsock 32\n",
                       memory);
  EXPECT_EQ(memory.kernel, 30) << "a kernel that does not sum it up";
  memory = {};
  ParseGroupMemoryStat("kernel 5\nkernel_stack 2\nslab 16\n", memory);
  EXPECT_EQ(memory.kernel, 5);
  memory = {};
  ParseGroupMemoryStat("kernel_stack 2\n", memory);
  EXPECT_FALSE(IsTold(memory.kernel));
  memory = {};
  ParseGroupMemoryStatV1("cache 1\nrss 2\ntotal_cache 30\n", memory);
  EXPECT_EQ(Told({memory.anonymous, memory.file, memory.swap}), "2 30 -");
  ControlGroupIo io;
  GroupIoKept kept;
  ParseGroupIoStat(
      "8:0\n8:16 rbytes=1 wbytes= rios=x wios=4 dbytes=9\nrbytes=2 wios=18446744073709551615", kept,
      io);
  EXPECT_EQ(Text(io), "3 0 0 1.8446744073709552e+19");
  const BlkioSums sums =
      ParseBlkio("8:0 Read 1\n8:16 Read 2\n8:0 Write 4\n8:0 Total 7\nTotal 7\nRead");
  EXPECT_EQ(Told({sums.read, sums.write}), "3 4");
  const PressureText pressure = ParsePressure(
      "some avg10=0.22 avg60=nan avg300=9.04 total=10304578721\nfull avg10=1e9 avg60 "
      "total=\nfuller avg10=1");
  EXPECT_EQ(Told({pressure.some.average10, pressure.some.average60, pressure.some.average300,
                  pressure.some.stalledSeconds, pressure.full.average10, pressure.full.average60}),
            "0.22 - 9.04 10304.578721 - -");
}

TEST_F(ControlGroupTest, WhatADeviceHasCountedStaysWhenItGoes) {
  MountUnified();
  Add("/cg", "");
  Add("/cg/a.slice", "1\n");
  const struct {
    const char* cpu;
    const char* devices;
    const char* told;
  } looks[] = {
      {"usage_usec 10", "8:0 rbytes=100 rios=10\n7:0 8:16 rbytes=50 rios=5\n", "150 0 15 0"},
      {"usage_usec 11", "8:16 rbytes=60 rios=6\n", "160 0 16 0"},
      {"usage_usec 11", "8:16 rbytes=60 rios=6\n8:0 rbytes=1 rios=1\n", "161 0 17 0"},
      {"usage_usec 12", "8:0 rbytes=2 rios=0\n", "163 0 17 0"},
      {"usage_usec 12", "", "163 0 17 0"},
      {"usage_usec 9", "8:0 rbytes=3 rios=3\n", "3 0 3 0"}};
  for (const auto& look : looks) {
    Fill("/cg/a.slice", {{"cpu.stat", look.cpu}, {"io.stat", look.devices}});
    EXPECT_EQ(Text(Read().back().io), look.told) << look.devices;
  }
  m_host.Remove("/cg/a.slice");
  Read();
  Add("/cg/a.slice", "1\n");
  Fill("/cg/a.slice", {{"io.stat", "8:0 rbytes=4 rios=4\n"}});
  EXPECT_EQ(Text(Read().back().io), "4 0 4 0") << "another group of that name";
}

TEST_F(ControlGroupTest, HierarchiesAreTakenOnceWithTheirControllers) {
  const std::vector<ControlGroupHierarchy> hierarchies = ParseControlGroupMounts(
      "1 1 8:1 / / rw - ext4 /dev/sda1 rw\n"
      "30 1 0:27 / /cg rw - tmpfs tmpfs rw\n"
      "31 30 0:28 /docker/a /deep/cpu rw - cgroup cgroup rw,cpu,cpuacct\n"
      "32 30 0:28 / /cg/cpu,cpuacct rw - cgroup cgroup rw,cpu,cpuacct\n"
      "33 30 0:28 / /again rw - cgroup cgroup rw,cpu,cpuacct\n"
      "34 30 0:30 / /cg/cpuset rw - cgroup cgroup rw,cpuset\n"
      "35 30 0:31 / /cg/with\\040blank rw - cgroup cgroup rw,xattr,memory\n"
      "36 30 0:32 / /cg/covered rw - cgroup cgroup rw,blkio\n"
      "37 36 0:33 / /cg/covered rw - tmpfs cgroup rw,blkio\n"
      "38 30 0:37 / /cg/unified rw - cgroup2 cgroup2 rw,nsdelegate\n"
      "39 30 0:36 / /cg/systemd rw - cgroup cgroup rw,xattr,name=systemd\n"
      "40 30 0:36 / cgroup rw,pids\n");
  std::string text;
  for (const ControlGroupHierarchy& one : hierarchies) {
    text +=
        one.mountPoint + (one.isUnified ? " 2 " : " 1 ") + std::to_string(one.controllers) + ";";
  }
  EXPECT_EQ(text, "/cg/systemd 1 0;/cg/unified 2 24;/cg/with blank 1 4;/cg/cpu,cpuacct 1 3;");
}

TEST_F(ControlGroupTest, UnifiedTree) {
  MountUnified();
  const std::string service = "/cg/system.slice/ssh.service";
  const std::string pod = "/cg/kubepods/burstable/pod" + kUid;
  Add("/cg", "1\n2\n");
  Fill("/cg", {{"cpu.stat", "usage_usec 9000000\nuser_usec 5000000\nsystem_usec 4000000\n"},
               {"cgroup.threads", "1\n2\n3\n"},
               {"cpu.pressure", "some avg10=4.00 total=5\nfull avg10=0.00 total=0\n"}});
  Add("/cg/system.slice", "");
  Fill("/cg/system.slice", {{"pids.current", "7\n"}});
  Add(service, "10\n11\n");
  Fill(service, {{"pids.current", "7\n"},
                 {"cpu.stat",
                  "usage_usec 2500000\nuser_usec 1500000\nsystem_usec 1000000\nnr_periods 10\n"
                  "nr_throttled 3\nthrottled_usec 250000\n"},
                 {"memory.current", "8192\n"},
                 {"memory.max", "max\n"},
                 {"memory.swap.current", "0\n"},
                 {"memory.stat", "anon 4096\nfile 2048\nkernel 1024\n"},
                 {"memory.events", "low 0\nhigh 4\nmax 5\noom 6\noom_kill 7\n"},
                 {"io.stat",
                  "8:0 rbytes=100 wbytes=200 rios=3 wios=4 dbytes=0 dios=0\n"
                  "8:16 rbytes=1 wbytes=2 rios=3 wios=4 dbytes=0 dios=0\n"},
                 {"cpu.pressure",
                  "some avg10=1.50 avg60=0.00 avg300=0.00 total=0\n"
                  "full avg10=0.00 avg60=0.00 avg300=0.00 total=0\n"},
                 {"io.pressure", "some avg10=2.50 avg60=0.00 avg300=0.00 total=0\n"}});
  Add("/cg/kubepods", "");
  Add("/cg/kubepods/burstable", "");
  Add(pod, "");
  Add(pod + "/" + kId, "20\n");
  Fill(pod + "/" + kId,
       {{"memory.max", "1048576\n"}, {"io.stat", ""}, {"cgroup.threads", "20\n21\n"}});
  m_host.Link("/cg/linked.slice", m_host.Path("/cg/system.slice"));

  const std::string none = " | - - - - - - | - - - - - - - - - | - - - - | - - - - - -";
  EXPECT_EQ(
      Texts(),
      (std::vector<std::string>{
          "/: 5 12 | 5 4 9 - - - | - - - - - - - - - | - - - - | 4 - - - - -",
          "/kubepods: 1 2" + none,
          "/kubepods/burstable: 1 2" + none,
          "/kubepods/burstable/pod" + kUid + ": 1 2" + none,
          "/kubepods/burstable/pod" + kUid + "/" + kId +
              ": 1 2 | - - - - - - | - - - - - 1048576 - - - | 0 0 0 0 | - - - - - -",
          "/system.slice: 2 7" + none,
          "/system.slice/ssh.service: 2 7 | 1.5 1 2.5 10 3 0.25 | 8192 4096 2048 1024 0 - 7 4 5 |"
          " 101 202 6 8 | 1.5 0 - - 2.5 -",
      }));
  const std::vector<ControlGroup> groups = Read();
  ASSERT_EQ(groups.size(), 7U);
  EXPECT_EQ(groups[4].kind, "container");
  EXPECT_EQ(groups[4].containerId, kId);
  EXPECT_EQ(groups[4].pod, kUid);
}

TEST_F(ControlGroupTest, TreeOfVersionOneIsTheUnionOfItsHierarchies) {
  Mount(
      "31 1 0:28 / /cg/cpu,cpuacct rw - cgroup cgroup rw,cpu,cpuacct\n"
      "32 1 0:29 / /cg/memory rw - cgroup cgroup rw,memory\n"
      "33 1 0:30 / /cg/blkio rw - cgroup cgroup rw,blkio\n"
      "34 1 0:31 / /cg/pids rw - cgroup cgroup rw,pids\n"
      "35 1 0:32 / /cg/systemd rw - cgroup cgroup rw,name=systemd\n");
  const std::string name = "/docker/" + kId;
  for (const char* hierarchy : {"/cg/cpu,cpuacct", "/cg/memory", "/cg/blkio", "/cg/pids"}) {
    Add(hierarchy, "1\n2\n3\n4\n");
    Add(hierarchy + std::string("/docker"), "");
    Add(hierarchy + name, "5\n6\n");
  }
  Add("/cg/systemd", "1\n2\n5\n6\n");
  Fill("/cg/systemd", {{"tasks", "1\n2\n5\n6\n7\n"}});
  Add("/cg/systemd/a.service", "3\n4\n");
  Fill("/cg/systemd/a.service", {{"tasks", "3\n4\n"}});
  Fill("/cg/pids" + name, {{"pids.current", "3\n"}});
  Fill("/cg/cpu,cpuacct" + name,
       {{"cpuacct.usage", "2500000000\n"},
        {"cpuacct.stat", "user 150\nsystem 90\n"},
        {"cpu.stat", "nr_periods 10\nnr_throttled 3\nthrottled_time 250000000\n"}});
  Fill("/cg/memory" + name,
       {{"memory.usage_in_bytes", "8192\n"},
        {"memory.limit_in_bytes", "9223372036854771712\n"},
        {"memory.kmem.usage_in_bytes", "1024\n"},
        {"memory.failcnt", "5\n"},
        {"memory.stat", "cache 1\nrss 2\nswap 3\ntotal_cache 10\ntotal_rss 20\ntotal_swap 30\n"},
        {"memory.oom_control", "oom_kill_disable 0\nunder_oom 0\noom_kill 7\n"}});
  Fill("/cg/memory/docker", {{"memory.limit_in_bytes", "1048576\n"}});
  Fill("/cg/blkio" + name,
       {{"blkio.throttle.io_service_bytes_recursive",
         "8:0 Read 100\n8:0 Write 7\n8:16 Read 1\n"
         "8:0 Total 107\nTotal 108\n"},
        {"blkio.throttle.io_service_bytes", "8:0 Read 5\n"},
        {"blkio.throttle.io_serviced", "8:0 Read 3\n8:0 Write 4\n8:0 Discard 9\nTotal 16\n"}});

  const std::string rest = " | - - - - | - - - - - -";
  EXPECT_EQ(Texts(),
            (std::vector<std::string>{
                "/: 6 7 | - - - - - - | - - - - - - - - -" + rest,
                "/a.service: 2 2 | - - - - - - | - - - - - - - - -" + rest,
                "/docker: 2 3 | - - - - - - | - - - - - 1048576 - - -" + rest,
                name + ": 2 3 | 1.5 0.9 2.5 10 3 0.25 | 8192 20 10 1024 30 - 7 - 5 | 101 7 3 4 |"
                       " - - - - - -",
            }));
}

TEST_F(ControlGroupTest, HybridTreeTakesVersionOneFirst) {
  Mount(
      "31 1 0:28 / /cg/cpuacct rw - cgroup cgroup rw,cpuacct\n"
      "32 1 0:29 / /cg/unified rw - cgroup2 cgroup2 rw\n");
  for (const char* hierarchy : {"/cg/cpuacct", "/cg/unified"}) {
    Add(hierarchy, "1\n");
    Add(hierarchy + std::string("/both.slice"), "2\n");
  }
  Add("/cg/unified/two.slice", "3\n");
  Fill("/cg/cpuacct/both.slice",
       {{"cpuacct.usage", "1000000000\n"}, {"cpuacct.stat", "user 50\n"}});
  Fill("/cg/unified/both.slice",
       {{"cpu.stat", "usage_usec 7000000\nuser_usec 6000000\nnr_periods 3\n"},
        {"memory.current", "4096\n"},
        {"memory.pressure", "full avg10=3.00\n"}});
  Fill("/cg/unified/two.slice", {{"cpu.stat", "usage_usec 2000000\n"}});
  const std::vector<ControlGroup> groups = Read();
  ASSERT_EQ(groups.size(), 3U);
  EXPECT_EQ(groups[0].processes, 3);
  EXPECT_EQ(groups[1].path, "/both.slice");
  EXPECT_EQ(Text(groups[1].cpu), "0.5 - 1 3 - -");
  EXPECT_EQ(groups[1].memory.current, 4096);
  EXPECT_EQ(groups[1].pressure.memoryFull, 3);
  EXPECT_EQ(groups[2].cpu.totalSeconds, 2);
}

TEST_F(ControlGroupTest, WhatIsGoneOrNoGroupIsNoRow) {
  EXPECT_TRUE(Read().empty()) << "no table of mounts";
  MountUnified();
  EXPECT_TRUE(Read().empty()) << "nothing stands there";
  Add("/cg", "1\n");
  Add("/cg/b\xff\xfe.service", "2\n");
  m_host.Write("/cg/gone.service/cpu.stat", "usage_usec 1\n");
  Add("/cg/a b", "3\n");
  // A group of threads lists no processes.
  std::filesystem::create_directories(m_host.Path("/cg/threads/cgroup.procs"));
  EXPECT_EQ(Counts(), "/=3 /a b=1 /b\xff\xfe.service=1 /threads=- ");
  m_host.Remove("/cg");
  Add("/elsewhere", "1\n");
  m_host.Link("/cg", m_host.Path("/elsewhere"));
  EXPECT_TRUE(Read().empty()) << "a link leads out of a captured tree";
}

TEST_F(ControlGroupTest, DepthAndNumberBoundRowsButNotSums) {
  MountUnified();
  for (const char* folder :
       {"", "/a", "/a/b", "/a/b/c", "/a/b/c/d", "/a/b/c/d/e.scope", "/a/b/c/d/e.scope/f", "/z"}) {
    Add(std::string("/cg") + folder, "1\n");
  }
  EXPECT_EQ(Counts(), "/=8 /a=6 /a/b=5 /a/b/c=4 /a/b/c/d/e.scope=2 /z=1 ");
  EXPECT_EQ(Counts({.depth = 0}), "/=8 /a/b/c/d/e.scope=2 ");
  EXPECT_EQ(Counts({.depth = 9, .mostGroups = 2}), "/=8 /a=6 ");
  EXPECT_EQ(Counts({.mostGroups = 0}), "");
}

TEST_F(ControlGroupTest, NestingHasALimit) {
  MountUnified();
  std::string folder = "/cg";
  Add(folder, "1\n");
  for (int level = 1; level <= 70; ++level) {
    folder += "/" + std::to_string(level) + ".slice";
    Add(folder, "1\n");
  }
  Add("/cg/other", "1\n");
  const std::vector<ControlGroup> groups = Read();
  ASSERT_EQ(groups.size(), 66U);
  EXPECT_TRUE(groups[64].path.ends_with("/64.slice"));
  EXPECT_FALSE(IsTold(groups[0].processes)) << "not all of them are known";
  EXPECT_EQ(groups[65].processes, 1);
}

/// Has temporary files made in memory, where ten thousand folders cost little, as long as it lives.
class FilesInMemory {
 public:
  FilesInMemory() : m_before(std::filesystem::temp_directory_path()) {
    if (::access("/dev/shm", W_OK) == 0) {
      ::setenv("TMPDIR", "/dev/shm", 1);
    }
  }
  FilesInMemory(const FilesInMemory&) = delete;
  FilesInMemory& operator=(const FilesInMemory&) = delete;
  ~FilesInMemory() { ::setenv("TMPDIR", m_before.c_str(), 1); }

 private:
  std::filesystem::path m_before;
};

class ControlGroupTimeTest : public CollectFixture {
 protected:
  /// What it takes to read that many groups, the best of three times.
  double Seconds(int groups) {
    for (; m_made < groups; ++m_made) {
      m_host.Write("/cg/" + std::to_string(m_made) + ".service/cgroup.procs", "2\n");
    }
    double best = 1e9;
    for (int time = 0; time < 3; ++time) {
      std::vector<ControlGroup> read;
      const auto start = std::chrono::steady_clock::now();
      ReadControlGroups(read);
      const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
      EXPECT_EQ(read.size(), static_cast<std::size_t>(groups) + 1);
      best = std::min(best, spent.count());
    }
    return best;
  }

  FilesInMemory m_memory;
  process_tree::HostTree m_host;
  int m_made = 0;
};

TEST_F(ControlGroupTimeTest, GrowsWithTheNumberOfGroups) {
  m_host.Write("/proc/1/mountinfo", "25 1 0:23 / /cg rw - cgroup2 cgroup2 rw\n");
  m_host.Write("/cg/cgroup.procs", "1\n");
  const double few = Seconds(1000);
  EXPECT_LT(Seconds(10000), 25 * few);
}

}  // namespace
