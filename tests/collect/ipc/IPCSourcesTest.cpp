#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/ipc/IPCSource.h"
#include "collect/ipc/MsgSource.h"
#include "collect/ipc/SHMSource.h"
#include "collect/ipc/SemSource.h"
#include "tests/collect/CollectFixture.h"

namespace {

/// Objects of this test's own, removed with it.
struct RealObjects {
  int semId = ::semget(IPC_PRIVATE, 3, IPC_CREAT | 0640);
  int shmId = ::shmget(IPC_PRIVATE, 12345, IPC_CREAT | 0604);
  int msqId = ::msgget(IPC_PRIVATE, IPC_CREAT | 0600);
  void* attached = ::shmat(shmId, nullptr, SHM_RDONLY);

  RealObjects() = default;
  RealObjects(const RealObjects&) = delete;
  RealObjects& operator=(const RealObjects&) = delete;
  ~RealObjects() {
    ::shmdt(attached);
    ::semctl(semId, 0, IPC_RMID);
    ::shmctl(shmId, IPC_RMID, nullptr);
    ::msgctl(msqId, IPC_RMID, nullptr);
  }
};

/// The rows of one object; other processes have objects too.
template <class Row, class Structure>
std::vector<Row> RowsOf(const std::vector<Row>& rows, std::int32_t Structure::*id, int wanted) {
  std::vector<Row> own;
  std::copy_if(rows.begin(), rows.end(), std::back_inserter(own),
               [&](const Row& row) { return row.*id == wanted; });
  return own;
}

template <class Row>
void ExpectOwned(const Row& row, std::uint32_t mode) {
  EXPECT_EQ(row.key, IPC_PRIVATE);
  EXPECT_EQ(row.uid, ::geteuid());
  EXPECT_EQ(row.cuid, ::geteuid());
  EXPECT_EQ(row.gid, ::getegid());
  EXPECT_EQ(row.cgid, ::getegid());
  EXPECT_EQ(row.mode & 0777U, mode);
  EXPECT_NEAR(static_cast<double>(row.changeTime.seconds), static_cast<double>(std::time(nullptr)),
              60);
}

class IPCSourcesTest : public CollectFixture {
 protected:
  /// What the category's error says; the rows stand in the collector.
  static std::string Collect(Collector& collector, std::uint32_t category) {
    const UtlErrorPtr error(collector.collect(category, 0));
    return error == nullptr ? "" : error->GetMessage();
  }
};

TEST_F(IPCSourcesTest, RealObjectsComeOutRight) {
  const RealObjects objects;
  const RealObjects others;
  ASSERT_GE(std::min({objects.semId, objects.shmId, objects.msqId}), 0);
  ASSERT_EQ(::semctl(objects.semId, 1, SETVAL, 7), 0);
  ::sembuf raise{2, 5, 0};
  ASSERT_EQ(::semop(objects.semId, &raise, 1), 0);
  const struct {
    long type;
    char text[6];
  } message{1, "hello"};
  ASSERT_EQ(::msgsnd(objects.msqId, &message, sizeof message.text, 0), 0);

  Collector collector;
  for (const std::uint32_t category :
       {COLLECT_SEMAPHORE, COLLECT_SHARED_MEMORY, COLLECT_MESSAGE_QUEUES, COLLECT_IPC}) {
    ASSERT_EQ(Collect(collector, category), "");
  }
  const auto semaphores = RowsOf(*collector.GetSem(), &Sem::semId, objects.semId);
  ASSERT_EQ(semaphores.size(), 3U);
  for (std::uint32_t number = 0; number < 3; ++number) {
    ExpectOwned(semaphores[number], 0640);
    EXPECT_EQ(semaphores[number].semNum, number);
    EXPECT_EQ(semaphores[number].nCount, 0);
    EXPECT_EQ(semaphores[number].zCount, 0);
  }
  EXPECT_EQ(RowsOf(*collector.GetSem(), &Sem::semId, others.semId).size(), 3U);
  EXPECT_EQ(semaphores[1].value, 7);
  EXPECT_EQ(semaphores[2].value, 5);
  EXPECT_EQ(semaphores[2].pid, ::getpid());
  EXPECT_GE(semaphores[2].opTime.seconds, semaphores[2].changeTime.seconds);

  const auto segments = RowsOf(*collector.GetSHM(), &SHM::shmId, objects.shmId);
  ASSERT_EQ(segments.size(), 1U);
  ExpectOwned(segments[0], 0604);
  EXPECT_EQ(segments[0].segmentSize, 12345U);
  EXPECT_EQ(segments[0].nAttach, 1U);
  EXPECT_EQ(segments[0].creatorPid, static_cast<std::uint32_t>(::getpid()));
  EXPECT_NE(segments[0].attachTime.seconds, 0);
  EXPECT_EQ(segments[0].detachTime.seconds, 0);

  const auto queues = RowsOf(*collector.GetMsg(), &Msg::msqId, objects.msqId);
  ASSERT_EQ(queues.size(), 1U);
  ExpectOwned(queues[0], 0600);
  EXPECT_EQ(queues[0].qnum, 1U);
  EXPECT_EQ(queues[0].cbytes, 6U);
  EXPECT_EQ(queues[0].lspid, static_cast<std::uint32_t>(::getpid()));
  EXPECT_EQ(queues[0].lrpid, 0U);
  EXPECT_NE(queues[0].sendTime.seconds, 0);
  EXPECT_EQ(queues[0].qbytes, collector.GetIPC()->msgMnb);
}

TEST_F(IPCSourcesTest, LimitsAreThoseOfTheKernel) {
  Os().shmctl = [](int, int, ::shmid_ds* answer) {
    *reinterpret_cast<::shminfo*>(answer) = {0x1000000011, 12, 13, 14, 15, 0, 0, 0, 0};
    return 0;
  };
  Os().semctl = [](int, int, int, void* answer) {
    *static_cast<::seminfo*>(answer) = {21, 22, 23, 24, 25, 26, 27, 28, 29, 30};
    return 0;
  };
  Os().msgctl = [](int, int, ::msqid_ds* answer) {
    *reinterpret_cast<::msginfo*>(answer) = {1, 2, 3, 4, 5, 6, 7, 0xfff8};
    return 0;
  };
  Os().sysinfo = [](struct ::sysinfo* info) {
    info->totalswap = 3;
    info->mem_unit = 0x80000001;
    return 0;
  };
  Collector collector;
  ASSERT_EQ(Collect(collector, COLLECT_IPC), "");
  const IPC limits = *collector.GetIPC();
  EXPECT_EQ(limits.shmMax, 0x1000000011U);
  // Each word that the kernel fills in its structures, in their order.
  EXPECT_EQ((std::vector<std::uint64_t>{limits.shmMin, limits.shmMni, limits.shmSeg}),
            (std::vector<std::uint64_t>{12, 13, 14}));
  EXPECT_EQ((std::vector<std::uint64_t>{limits.semMap, limits.semMni, limits.semMns, limits.semMnu,
                                        limits.semMsl, limits.semOpm, limits.semUme, limits.semUsz,
                                        limits.semVmx, limits.semAem}),
            (std::vector<std::uint64_t>{21, 22, 23, 24, 25, 26, 27, 28, 29, 30}));
  EXPECT_EQ((std::vector<std::uint64_t>{limits.msgMap, limits.msgMax, limits.msgMnb, limits.msgMni,
                                        limits.msgSsz, limits.msgTql, limits.msgSeg}),
            (std::vector<std::uint64_t>{2, 3, 4, 5, 6, 7, 0xfff8}));
  EXPECT_EQ(limits.totalSwap, 0x80000003U) << "32 bits";

  Os().shmctl = [](int, int, ::shmid_ds*) { return -1; };
  Os().semctl = [](int, int, int, void*) { return -1; };
  Os().msgctl = [](int, int, ::msqid_ds*) { return -1; };
  Os().sysinfo = [](struct ::sysinfo*) { return -1; };
  errno = ENOSYS;
  ASSERT_EQ(Collect(collector, COLLECT_IPC), "");
  EXPECT_EQ(collector.GetIPC()->shmMax, 0U);
  EXPECT_TRUE(collector.GetIPC()->swapFailed);
  for (const char* call : {"shmctl", "semctl", "msgctl", "sysinfo"}) {
    EXPECT_EQ(Lines("The error occured by OS API(" + std::string(call) + "). (en=38, "), 1U);
  }
}

TEST_F(IPCSourcesTest, AHostWithoutObjectsFailsTheCategory) {
  static int highest = -1;
  Os().semctl = [](int, int, int command, void*) { return command == SEM_INFO ? highest : -1; };
  Os().shmctl = [](int, int command, ::shmid_ds*) { return command == SHM_INFO ? highest : -1; };
  Os().msgctl = [](int, int command, ::msqid_ds*) { return command == MSG_INFO ? highest : -1; };
  const struct {
    std::uint32_t category;
    const char* unasked;
    const char* none;
    const char* trace;
  } kinds[] = {{COLLECT_SEMAPHORE,
                "System call semctl() failed.Error incalculating the number of Semaphore Arrays "
                "configured",
                "No Semaphore Arrays are currently configured",
                "An error occured in a function (SemSourceUser::Initialize). (rc="},
               {COLLECT_SHARED_MEMORY,
                "System call shmctl() failed.Error incalculating the number of Shared "
                "MemorySegments configured",
                "No Shared Memory Segments are currently configured",
                "An error occured in a function (SHMSourceUser::Initialize). (rc="},
               {COLLECT_MESSAGE_QUEUES,
                "System call msgctl() failed.Error incalculating the number of Message Queues "
                "configured",
                "No Message Queues are currently configured",
                "An error occured in a function (MsgSourceUser::Initialize). (rc="}};
  Collector collector;
  for (const auto& kind : kinds) {
    highest = -1;
    EXPECT_EQ(Collect(collector, kind.category), kind.unasked);
    highest = 0;
    EXPECT_EQ(Collect(collector, kind.category), kind.none);
    highest = 2;
    EXPECT_EQ(Collect(collector, kind.category), "") << "objects that this process may not see";
    EXPECT_EQ(Lines(kind.trace), 2U);
  }
  EXPECT_TRUE(collector.GetSem()->empty());
}

TEST_F(IPCSourcesTest, ObjectsComeAndGoBetweenTheWalks) {
  // Sets in slots 0 and 2 at first; one more appears in slot 1, then the one in slot 0 vanishes.
  static int asked = 0;
  asked = 0;
  Os().semctl = [](int slot, int, int command, void* answer) {
    if (command == SEM_INFO) {
      return 2;
    }
    if (command != SEM_STAT) {
      return -1;
    }
    // The second walk ends with the second set that it finds.
    const int walk = asked < 3 ? 0 : asked < 5 ? 1 : 2;
    ++asked;
    if ((walk == 0 && slot == 1) || (walk == 2 && slot == 0)) {
      return -1;
    }
    auto& set = *static_cast<::semid_ds*>(answer);
    set.sem_nsems = 2;
    set.sem_perm.mode = 0xffff01b6U & 0xffffU;
    set.sem_ctime = -1;
    return 100 + slot;
  };
  static auto walks = Os().semctl;
  walks = Os().semctl;
  Os().semctl = [](int id, int number, int command, void* answer) {
    const int waits = command == GETNCNT ? 3 : command == GETZCNT ? 4 : command == GETPID ? 5 : 0;
    return waits != 0 ? waits : walks(id, number, command, answer);
  };
  Collector collector;
  ASSERT_EQ(Collect(collector, COLLECT_SEMAPHORE), "");
  const std::vector<Sem>& rows = *collector.GetSem();
  ASSERT_EQ(rows.size(), 2U) << "of the vanished set none, of the late one none";
  EXPECT_EQ(rows[0].semId, 101);
  EXPECT_EQ(rows[1].semNum, 1U);
  EXPECT_EQ(rows[1].value, -1);
  EXPECT_EQ(rows[1].nCount, 3);
  EXPECT_EQ(rows[1].zCount, 4);
  EXPECT_EQ(rows[1].pid, 5);
  EXPECT_EQ(rows[1].changeTime.seconds, -1);
}

}  // namespace
