#include "local/capture/HostReplay.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/utsname.h>

#include "collect/modern/network/SockDiag.h"
#include "local/capture/CapturedCalls.h"
#include "support/Descriptor.h"
#include "support/OsCalls.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;

template <class T>
std::string BytesOfAnswer(const T& value) {
  return {reinterpret_cast<const char*>(&value), sizeof(value)};
}

/// A capture that is made by hand, as a hostile one may be.
class HostReplayTest : public testing::Test {
 protected:
  void SetUp() override {
    struct ::utsname names {};
    ::uname(&names);
    m_facts = {"1", "h", "modern", "6", names.machine, true, false, {}};
  }
  void TearDown() override { Os() = m_calls; }

  void AddSample(double time, const std::string& calls) {
    const std::string folder = SampleFolder(static_cast<long>(m_facts.samples.size()) + 1);
    m_facts.samples.push_back({folder, time});
    fs::create_directories(Path(folder) / "host/proc");
    std::ofstream(Path(folder) / "calls.jsonl") << calls;
  }
  [[nodiscard]] fs::path Path(const std::string& name) const { return m_folder.Path() / name; }
  std::unique_ptr<HostReplay> Play(double speed = 1) {
    std::ofstream(Path("capture.json")) << CaptureText(m_facts);
    std::string problem;
    std::unique_ptr<HostReplay> replay = HostReplay::Open(m_folder.Path(), speed, problem);
    EXPECT_NE(replay, nullptr) << problem;
    return replay;
  }
  std::string TextOfFile(HostReplay& replay, const std::string& name) const {
    const Descriptor file(replay.Open(AT_FDCWD, (m_folder.Path().string() + name).c_str(), 0));
    std::string text(100, '\0');
    const ssize_t count = file.IsOpen() ? ::read(file.Get(), text.data(), text.size()) : -1;
    return count < 0 ? "errno " + std::to_string(errno)
                     : text.substr(0, static_cast<std::size_t>(count));
  }

  TempFolder m_folder;
  CaptureFacts m_facts;
  OsCalls m_calls = Os();
};

TEST_F(HostReplayTest, SamplesComeInTheirTimeAndFallBackOnThoseBefore) {
  AddSample(100, CallLine("open /proc/late", {-1, EACCES, {}}));
  AddSample(100.5, "");
  std::ofstream(Path("samples/0001/host/proc/a")) << "first";
  std::ofstream(Path("samples/0001/host/proc/b")) << "kept";
  std::ofstream(Path("samples/0002/host/proc/a")) << "second";
  std::ofstream(Path("samples/0002/host/proc/late")) << "late";
  const auto replay = Play(0.001);
  replay->BeginBatch();
  EXPECT_EQ(TextOfFile(*replay, "/proc/a"), "first");
  EXPECT_EQ(TextOfFile(*replay, "/proc/late"), "errno " + std::to_string(EACCES));
  EXPECT_EQ(TextOfFile(*replay, "/proc/none"), "errno " + std::to_string(ENOENT));
  const auto fast = Play(1e6);
  for (int batch = 0; batch < 2; ++batch) {
    fast->BeginBatch();
    fast->EndBatch();
    ::usleep(1000);
  }
  EXPECT_EQ(TextOfFile(*fast, "/proc/a"), "second");
  EXPECT_EQ(TextOfFile(*fast, "/proc/b"), "kept");
  EXPECT_EQ(TextOfFile(*fast, "/proc/late"), "late");
}

TEST_F(HostReplayTest, NoLinkLeadsOutOfTheTree) {
  AddSample(1, "");
  std::ofstream(Path("secret")) << "secret";
  // Each stays inside as it is written; only together they climb: what is found is refused, what is
  // put there later is not followed.
  const fs::path proc = Path("samples/0001/host/proc");
  fs::create_symlink("..", proc / "up");
  fs::create_symlink("up/..", proc / "upper");
  std::ofstream(Path("samples/0001/host/inside")) << "inside";
  const auto replay = Play();
  fs::create_symlink("upper/..", proc / "top");
  std::string problem;
  EXPECT_EQ(HostReplay::Open(Path(""), 1, problem), nullptr);
  EXPECT_THAT(problem, testing::EndsWith("/proc/top: a link that leads out of the capture"));
  EXPECT_EQ(TextOfFile(*replay, "/proc/up/inside"), "inside");
  for (const char* name : {"/proc/upper/calls.jsonl", "/proc/top/capture.json",
                           "/proc/up/../secret", "/../secret", "/proc/top/secret"}) {
    EXPECT_EQ(TextOfFile(*replay, name), "errno " + std::to_string(ENOENT)) << name;
  }
  EXPECT_EQ(TextOfFile(*replay, "/proc/upper/inside"), "inside") << "the tree's top has no above";
}

TEST_F(HostReplayTest, AListingOffersNoWayBack) {
  const std::string longName(300, 'n');
  AddSample(1, CallLine("list /proc", {0, 0,
                                       "eself/e./e../e//i" + longName + "/" +
                                           std::string("e\0hidden/", 9) + "ilast"}));
  const auto replay = Play();
  const Descriptor folder(
      replay->Open(AT_FDCWD, Path("proc").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_TRUE(folder.IsOpen());
  std::vector<::dirent> entries;
  ASSERT_TRUE(replay->List(folder.Get(), entries));
  std::vector<std::string> names;
  for (const ::dirent& entry : entries) {
    names.emplace_back(entry.d_name);
  }
  EXPECT_THAT(names, testing::ElementsAre("self", longName.substr(0, 255), "last"));
  EXPECT_EQ(entries.front().d_type, DT_DIR);
}

TEST_F(HostReplayTest, WhatOneCaptureMayCostIsBounded) {
  std::string many;
  for (int i = 0; i <= 1 << 20; ++i) {
    many += "e/";
  }
  AddSample(1, CallLine("list /proc", {0, 0, many}));
  constexpr int kSamples = 200;
  while (m_facts.samples.size() < kSamples) {
    AddSample(1, "");
  }
  const auto replay = Play();
  replay->BeginBatch();
  const Descriptor folder(
      replay->Open(AT_FDCWD, Path("proc").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::vector<::dirent> entries;
  EXPECT_FALSE(replay->List(folder.Get(), entries));
  EXPECT_TRUE(entries.empty());
  // Of the samples behind the first each would be asked each time.
  const std::clock_t begin = std::clock();
  for (int time = 0; time < 6000; ++time) {
    EXPECT_EQ(TextOfFile(*replay, "/proc/none"), "errno " + std::to_string(ENOENT));
  }
  EXPECT_LT(std::clock() - begin, 2 * CLOCKS_PER_SEC);
}

TEST_F(HostReplayTest, AnswersOfAnotherSizeOrKindAreFailures) {
  struct ::stat status {};
  status.st_uid = 17;
  const std::string bytes = BytesOfAnswer(status);
  AddSample(1, CallLine("stat /proc/good", {0, 0, bytes}) +
                   CallLine("stat /proc/short", {0, 0, bytes.substr(1)}) +
                   CallLine("stat /proc/long", {0, 0, bytes + "x"}) +
                   CallLine("stat /proc/odd", {7, 0, bytes}) +
                   CallLine("readlink /proc/odd", {-9, EACCES, "target"}) +
                   CallLine("readlink /proc/good", {0, 0, "target"}) +
                   CallLine("netlink 0 many", {INT_MAX, 0, {}}) +
                   CallLine("netlink 0 few", {-5, 3, {}}));
  const auto replay = Play();
  const auto stat = [&](const char* name) {
    status = {};
    return replay->Stat(AT_FDCWD, Path(std::string("proc/") + name).c_str(), &status, 0);
  };
  EXPECT_EQ(stat("good"), 0);
  EXPECT_EQ(status.st_uid, 17U);
  for (const char* name : {"short", "long", "odd", "none"}) {
    EXPECT_EQ(stat(name), -1) << name;
    EXPECT_EQ(status.st_uid, 0U) << name;
  }
  std::string target(3, '\0');
  EXPECT_EQ(replay->ReadLink(AT_FDCWD, Path("proc/good").c_str(), target.data(), 3), 3);
  EXPECT_EQ(target, "tar");
  EXPECT_EQ(replay->ReadLink(AT_FDCWD, Path("proc/odd").c_str(), target.data(), 3), -1);
  HeardTalk heard;
  ASSERT_TRUE(replay->FindTalk(0, "many", heard));
  EXPECT_EQ(heard.error, EPROTO);
  HeardTalk few;
  ASSERT_TRUE(replay->FindTalk(0, "few", few));
  EXPECT_EQ(few.datagrams.size(), 0U);
  HeardTalk none;
  EXPECT_TRUE(replay->FindTalk(0, "none", none)) << "this machine's kernel would be asked";
  EXPECT_EQ(none.error, ENOENT);
}

/// A question for the sockets of TCP over one version of IP, and an answer of two that listen.
std::string LinesOfSockets(std::uint32_t sequence, std::uint8_t family) {
  struct {
    ::nlmsghdr header;
    ::inet_diag_req_v2 request;
  } question{};
  question.header = {sizeof(question), SOCK_DIAG_BY_FAMILY, NLM_F_REQUEST | NLM_F_DUMP, sequence,
                     0};
  question.request.sdiag_family = family;
  question.request.sdiag_protocol = IPPROTO_TCP;
  question.request.idiag_states = 0xF3E;
  struct {
    ::nlmsghdr header;
    ::inet_diag_msg socket;
  } listening{};
  listening.header = {sizeof(listening), SOCK_DIAG_BY_FAMILY, NLM_F_MULTI, sequence, 0};
  listening.socket.idiag_family = family;
  listening.socket.idiag_state = TCP_LISTEN;
  struct {
    ::nlmsghdr header;
    int result;
  } const end{{sizeof(end), NLMSG_DONE, NLM_F_MULTI, sequence, 0}, 0};
  const std::string text = "netlink 4 " + BytesOfAnswer(question);
  const std::string socket = BytesOfAnswer(listening);
  return CallLine(text + "#0", {0, 0, socket + socket + BytesOfAnswer(end)}) +
         CallLine(text, {1, 0, {}});
}

TEST_F(HostReplayTest, SocketsThatWereAskedForByVersionOfIpAreThoseOfTheCapture) {
  AddSample(1, LinesOfSockets(1, AF_INET) + LinesOfSockets(2, AF_INET6) +
                   CallLine("socket 16 4", {0, 0, {}}));
  static std::vector<std::unique_ptr<HostReplay>> lasting;
  g_hostReads = lasting.emplace_back(Play()).get();
  CaptureOsCalls(*lasting.back());
  SockDiagMemory memory;
  const SockDiagAnswer answer = AskForTcpStates(memory);
  g_hostReads = nullptr;
  EXPECT_EQ(answer.error, 0);
  EXPECT_TRUE(memory.isOneAnswerRefused);
  EXPECT_EQ(answer.states.sockets[TCP_LISTEN], 4U);
  EXPECT_EQ(answer.states.sockets[TCP_ESTABLISHED], 0U);
}

TEST_F(HostReplayTest, NumbersOfACaptureAreBoundedWhereTheyAreWalked) {
  struct ::semid_ds set {};
  set.sem_nsems = ~0UL;
  struct ::utsname names {};
  std::memset(&names, 'n', sizeof(names));
  AddSample(
      1, CallLine("get_nprocs", {INT_MAX, 0, {}}) + CallLine("get_nprocs_conf", {-3, 0, {}}) +
             CallLine("getpagesize", {0, 0, {}}) + CallLine("uname", {0, 0, BytesOfAnswer(names)}) +
             CallLine("semctl 0 0 " + std::to_string(SEM_INFO),
                      {INT_MAX, 0, BytesOfAnswer(::seminfo{})}) +
             CallLine("shmctl 0 0 " + std::to_string(SHM_INFO),
                      {INT_MAX, 0, BytesOfAnswer(::shm_info{})}) +
             CallLine("semctl 5 0 " + std::to_string(SEM_STAT), {INT_MAX, 0, BytesOfAnswer(set)}) +
             CallLine("getpwuid 1", {0, 0, "name\n1\n"}) +
             CallLine("getpwuid 2", {0, 0, "name\n-2\n99999999999999999999\n/\n"}));
  // Calls ask it until they are put back.
  static std::vector<std::unique_ptr<HostReplay>> lasting;
  CaptureOsCalls(*lasting.emplace_back(Play()));
  EXPECT_EQ(Os().get_nprocs(), 65536);
  EXPECT_EQ(Os().get_nprocs_conf(), 1);
  EXPECT_EQ(Os().getpagesize(), 4096);
  struct ::utsname told {};
  EXPECT_EQ(Os().uname(&told), 0);
  EXPECT_EQ(std::strlen(told.release), sizeof(told.release) - 1);
  struct ::seminfo info {};
  EXPECT_EQ(Os().semctl(0, 0, SEM_INFO, &info), 65536);
  EXPECT_EQ(Os().semctl(5, 0, SEM_STAT, &set), INT_MAX) << "an identity is no number to walk to";
  EXPECT_EQ(set.sem_nsems, 65536U);
  struct ::shmid_ds segment {};
  EXPECT_EQ(Os().shmctl(0, SHM_INFO, &segment), 65536);
  EXPECT_EQ(Os().getpwuid(1), nullptr);
  ASSERT_NE(Os().getpwuid(2), nullptr);
  EXPECT_STREQ(Os().getpwuid(2)->pw_dir, "/");
  EXPECT_EQ(Os().acct(nullptr), -1);
  EXPECT_EQ(errno, EPERM);
}

}  // namespace
