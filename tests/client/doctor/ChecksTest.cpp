#include "client/doctor/Doctor.h"
#include "tests/support/Testing.h"

namespace {

constexpr std::uint64_t kMega = std::uint64_t{1} << 20;

/// A host on which all is well.
Facts GoodFacts() {
  Facts facts;
  facts.version = "1.2.3";
  facts.socket = {.path = "/home/run/control.sock",
                  .isSocket = true,
                  .owner = "mond",
                  .group = "readers",
                  .isGroupWritable = true,
                  .user = "ann",
                  .isInGroup = true,
                  .isListed = true};
  DaemonFacts& daemon = facts.daemon;
  daemon.status.pid = 4711;
  daemon.status.uptimeSeconds = 1000;
  daemon.status.version = "1.2.3";
  daemon.status.hostProfile = "modern";
  daemon.status.http = "127.0.0.1:9964";
  daemon.status.schedules = {{"PI", "4", 60, 16, 1, 1000000, 0}, {"PDX", "3", 300, 3, 9, 0, 0}};
  daemon.status.lastScheduledBatch = {true, 30, 0.1, 2, 0};
  daemon.historyFile = "records.db";
  daemon.historyBytes = 100 * kMega;
  daemon.process = {true, "mond", false, (std::uint64_t{1} << 19) | (std::uint64_t{1} << 2)};
  daemon.gateMode = "unit";
  daemon.listen = {"127.0.0.1:9964"};
  facts.host.now = 1000030;
  facts.host.isSynchronised = true;
  facts.host.disk = {"/home", 0, 900 * kMega, 5000 * kMega, 512 * kMega, 100 * kMega};
  facts.host.isOfPackage = true;
  facts.host.programs = {{"qmt_ufss", "/home/qmt_ufss", 0}};
  facts.host.ports = {{"127.0.0.1:9964", PortFacts::Kind::kAnswers, ""}};
  facts.host.hasManager = true;
  facts.host.units = {{"qmtdmon.service", "loaded", "active", "success", "enabled"}};
  facts.host.files = {{"/home/wgfile", "", true}};
  return facts;
}

TEST(DoctorChecks, FindNothingWhereAllIsWell) {
  const std::vector<Diagnosis> diagnoses = Diagnose(GoodFacts());
  EXPECT_EQ(diagnoses.size(), 14U);
  for (const Diagnosis& diagnosis : diagnoses) {
    EXPECT_EQ(diagnosis.finding.mark, Finding::Mark::kOk)
        << diagnosis.check << ": " << diagnosis.finding.text;
  }
}

/// One thing that is not well, the check that tells it, and a part of its words.
struct Trouble {
  std::function<void(Facts&)> make;
  const char* check;
  Finding::Mark mark;
  const char* words;
};

constexpr Finding::Mark kOk = Finding::Mark::kOk;
constexpr Finding::Mark kLook = Finding::Mark::kLook;
constexpr Finding::Mark kFail = Finding::Mark::kFail;

const Trouble kSocketTroubles[] = {
    {[](Facts& f) { f.socket.error = ENOENT; }, "socket", kFail, "systemctl start qmtdmon"},
    {[](Facts& f) { f.socket.isSocket = false; }, "socket", kFail, "is no socket"},
    {[](Facts& f) { f.socket.error = EACCES; }, "socket", kLook, "may not look into"},
    {[](Facts& f) { f.socket.isInGroup = f.socket.isListed = false; }, "access", kFail,
     "as root, adduser ann readers, then log in anew"},
    {[](Facts& f) { f.socket.isInGroup = false; }, "access", kFail, "began before: log in anew"},
    {[](Facts& f) {
       f.socket.isInGroup = false;
       f.socket.isRootsGroup = true;
     },
     "access", kFail, "for root alone: ask as root"},
    {[](Facts& f) { f.socket.isGroupWritable = false; }, "access", kFail, "bars its group"},
    {[](Facts& f) { f.socket.isRoot = true; }, "access", kOk, "may read and change"},
    {[](Facts& f) { f.socket.error = EACCES; }, "access", kFail, "namei -l"},
    {[](Facts& f) { f.daemon.fault = "gave no answer in time"; }, "answer", kFail, "in time"},
};

const Trouble kDaemonTroubles[] = {
    {[](Facts& f) { f.daemon.process.capabilities = 4; }, "rights", kLook,
     "without CAP_SYS_PTRACE (open files"},
    {[](Facts& f) { f.daemon.process.isTold = false; }, "rights", kLook, "ask as root"},
    {[](Facts& f) { f.daemon.status.version = "1.2.2"; }, "version", kLook, "the daemon is 1.2.2"},
    {[](Facts& f) { f.daemon.status.hostProfile = "classic"; }, "profile", kLook,
     "Profile = modern"},
    {[](Facts& f) { f.daemon.status.schedules.clear(); }, "schedule", kLook, "schedule add PI 60"},
    {[](Facts& f) { f.daemon.status.lastScheduledBatch.any = false; }, "schedule", kFail,
     "no batch yet"},
    {[](Facts& f) {
       f.daemon.status.lastScheduledBatch.any = false;
       f.daemon.status.uptimeSeconds = 30;
     },
     "schedule", kOk, "the first batch is to come"},
    {[](Facts& f) { f.daemon.status.lastScheduledBatch.ageSeconds = 186; }, "schedule", kFail,
     "was 186 s ago, though one is due every 60 s"},
    {[](Facts& f) { f.daemon.status.lastScheduledBatch.errors = 2; }, "schedule", kLook,
     "2 of 2 records"},
    {[](Facts& f) { f.daemon.status.schedules[1].skipped = 7; }, "schedule", kLook, "7 times"},
    {[](Facts& f) { f.daemon.historyFile.clear(); }, "history", kLook, "no rows are kept"},
    {[](Facts& f) { f.daemon.lostBatches = 3; }, "history", kLook, "3 batches"},
    {[](Facts& f) { f.host.disk.freeBytes = 31 * kMega; }, "disk", kFail, "31 Mbytes are free"},
    {[](Facts& f) { f.host.disk.freeBytes = 411 * kMega; }, "disk", kLook, "by 412 Mbytes"},
    {[](Facts& f) { f.host.disk.limitBytes.reset(); }, "disk", kLook, "can't be read"},
    {[](Facts& f) { f.host.disk.heldBytes = 600 * kMega; }, "disk", kOk, "by 0 Mbytes"},
    {[](Facts& f) { f.host.disk.error = EACCES; }, "disk", kLook, "/home: Permission denied"},
};

const Trouble kHostTroubles[] = {
    {[](Facts& f) { f.host.now = 999000; }, "clock", kFail, "1000 s ahead"},
    {[](Facts& f) { f.host.isSynchronised = false; }, "clock", kLook, "set-ntp"},
    {[](Facts& f) { f.host.isSynchronised.reset(); }, "clock", kLook, "does not say"},
    {[](Facts& f) { f.host.programs[0].error = ENOENT; }, "programs", kFail, "/home/qmt_ufss: No"},
    {[](Facts& f) { f.host.programs[0].error = EACCES; }, "programs", kLook, "ask as root"},
    {[](Facts& f) { f.host.ports[0].kind = PortFacts::Kind::kSilent; }, "port", kFail, "in time"},
    {[](Facts& f) {
       f.daemon.status.http.clear();
       f.host.ports[0].kind = PortFacts::Kind::kRefused;
     },
     "port", kFail, "no gate listens at 127.0.0.1:9964: systemctl start qmt_gate"},
    {[](Facts& f) {
       f.daemon.status.http.clear();
       f.host.ports[0].kind = PortFacts::Kind::kNoHttp;
     },
     "port", kFail, "another program has 127.0.0.1:9964"},
    {[](Facts& f) {
       f.daemon.status.http.clear();
       f.daemon.gateMode = "none";
     },
     "port", kOk, "Gate = none"},
    {[](Facts& f) { f.daemon.gateFault = "no answer"; }, "port", kLook, "no answer"},
    {[](Facts& f) { f.host.hasManager = false; }, "unit", kOk, "does not run here"},
    {[](Facts& f) { f.host.unitsFault = "did not end in time"; }, "unit", kLook, "in time"},
    {[](Facts& f) { f.host.units[0].load = "not-found"; }, "unit", kLook, "there is no qmtdmon"},
    {[](Facts& f) {
       f.host.units[0].active = "failed";
       f.host.units[0].result = "oom-kill";
     },
     "unit", kFail, "has failed (oom-kill): journalctl -u qmtdmon.service"},
    {[](Facts& f) { f.host.units[0].active = "inactive"; }, "unit", kLook, "is inactive"},
    {[](Facts& f) { f.host.units[0].enabled = "disabled"; }, "unit", kLook, "systemctl enable"},
    {[](Facts& f) { f.host.files[0].fault = "wgfile:2: bad"; }, "files", kFail, "wgfile:2: bad"},
    {[](Facts& f) {
       f.host.files[0] = {"x", "Permission denied", false};
     },
     "files", kLook, "x: P"},
    {[](Facts& f) { f.daemon.alarmsOff = {"disk is off: no FSL"}; }, "files", kFail,
     "alarm disk is off: no FSL"},
};

template <std::size_t Count>
void ExpectTold(const Trouble (&troubles)[Count]) {
  for (const Trouble& trouble : troubles) {
    Facts facts = GoodFacts();
    trouble.make(facts);
    bool isTold = false;
    for (const Diagnosis& diagnosis : Diagnose(facts)) {
      EXPECT_EQ(diagnosis.finding.text.find('\n'), std::string::npos);
      if (std::string(diagnosis.check) == trouble.check) {
        isTold = true;
        EXPECT_EQ(diagnosis.finding.mark, trouble.mark) << diagnosis.finding.text;
        EXPECT_THAT(diagnosis.finding.text, testing::HasSubstr(trouble.words));
      }
    }
    EXPECT_TRUE(isTold) << trouble.check << ": " << trouble.words;
  }
}

TEST(DoctorChecks, TellWhatKeepsAUserOut) { ExpectTold(kSocketTroubles); }
TEST(DoctorChecks, TellWhatTheDaemonLacks) { ExpectTold(kDaemonTroubles); }
TEST(DoctorChecks, TellWhatIsWrongAroundTheDaemon) { ExpectTold(kHostTroubles); }

/// A daemon that says nothing, whose gate has found that at its address.
void Silence(Facts& facts, PortFacts::Kind kind) {
  facts.daemon = {};
  facts.daemon.fault = "no answer";
  facts.host.ports[0].kind = kind;
}

const Trouble kSilentTroubles[] = {
    {[](Facts& f) { Silence(f, PortFacts::Kind::kRefused); }, "port", kOk, "nobody else has 127."},
    {[](Facts& f) { Silence(f, PortFacts::Kind::kNoHttp); }, "port", kFail,
     "another program has 127.0.0.1:9964"},
    {[](Facts& f) { Silence(f, PortFacts::Kind::kAnswers); }, "port", kLook,
     "somebody listens at 127.0.0.1:9964"},
    {[](Facts& f) { Silence(f, PortFacts::Kind::kError); }, "port", kLook, "127.0.0.1:9964: "},
    {[](Facts& f) {
       Silence(f, PortFacts::Kind::kRefused);
       f.host.disk.freeBytes = kMega;
     },
     "disk", kFail, "1 Mbytes are free in /home"},
    {[](Facts& f) {
       Silence(f, PortFacts::Kind::kRefused);
       f.host.files[0].fault = "qmtagt.ini:2: bad";
     },
     "files", kFail, "qmtagt.ini:2: bad"},
};

TEST(DoctorChecks, TellWhyADaemonMayNotStart) { ExpectTold(kSilentTroubles); }

TEST(DoctorChecks, SayWhatNeedsNoAnswerOfADaemonThatGivesNone) {
  Facts facts = GoodFacts();
  Silence(facts, PortFacts::Kind::kRefused);
  facts.host.isOfPackage = false;
  std::vector<std::string> told;
  for (const Diagnosis& diagnosis : Diagnose(facts)) {
    told.emplace_back(diagnosis.check);
  }
  EXPECT_THAT(told, testing::ElementsAre("socket", "access", "answer", "disk", "clock", "programs",
                                         "port", "files"));
}

}  // namespace
