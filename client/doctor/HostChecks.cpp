#include "client/doctor/HostChecks.h"

#include <algorithm>
#include <system_error>

namespace {

std::string Joined(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) {
    all += (all.empty() ? "" : ", ") + text;
  }
  return all;
}

Finding JudgeTaken(const PortFacts& port) {
  return Fail("another program has " + port.address +
              ", where the gate is to listen: \"ss -ltnp\" as root shows which; end it, or choose "
              "another Listen in section [Http] of qmtagt.ini");
}

/// What is wrong with the gate that listens nowhere.
Finding JudgeAbsentGate(const Facts& facts) {
  const auto taken = std::ranges::find_if(facts.host.ports, [](const PortFacts& port) {
    return port.kind != PortFacts::Kind::kRefused && port.kind != PortFacts::Kind::kError;
  });
  if (taken != facts.host.ports.end()) {
    return JudgeTaken(*taken);
  }
  return Fail("no gate listens at " + Joined(facts.daemon.listen) +
              (facts.daemon.gateMode == "unit" ? ": systemctl start qmt_gate"
                                               : ": log/qmtdmon.log says why"));
}

std::string PortFault(const PortFacts& port) {
  switch (port.kind) {
    case PortFacts::Kind::kAnswers:
      return "";
    case PortFacts::Kind::kRefused:
      return port.address + " takes no connection";
    case PortFacts::Kind::kSilent:
      return port.address + " gave no answer in time";
    case PortFacts::Kind::kNoHttp:
      return port.address + " answers, but not by HTTP";
    case PortFacts::Kind::kError:
      break;
  }
  return port.address + ": " + port.fault;
}

/// Whether the gate of a daemon that tells nothing can have its addresses.
MaybeFinding JudgePlaces(const std::vector<PortFacts>& ports) {
  std::string free;
  for (const PortFacts& port : ports) {
    if (port.kind == PortFacts::Kind::kNoHttp) {
      return JudgeTaken(port);
    }
    if (port.kind == PortFacts::Kind::kError) {
      return Look(PortFault(port));
    }
    if (port.kind != PortFacts::Kind::kRefused) {
      return Look("somebody listens at " + port.address +
                  ": the gate, or a program that keeps it from there; \"ss -ltnp\" as root shows "
                  "which");
    }
    free += (free.empty() ? "" : ", ") + port.address;
  }
  return free.empty() ? std::nullopt : MaybeFinding(Ok("nobody else has " + free));
}

MaybeFinding JudgeUnit(const UnitFacts& unit) {
  if (unit.load == "not-found") {
    return Look("there is no " + unit.name + ": the package brings it");
  }
  if (unit.load == "masked") {
    return Look(unit.name + " is masked: systemctl unmask " + unit.name);
  }
  if (unit.active == "failed") {
    return Fail(unit.name + " has failed (" + unit.result + "): journalctl -u " + unit.name +
                " says why");
  }
  if (unit.active != "active") {
    return Look(unit.name + " is " + unit.active + ": systemctl start " + unit.name);
  }
  if (unit.enabled == "disabled") {
    return Look(unit.name + " runs, but will not after a restart of the host: systemctl enable " +
                unit.name);
  }
  return std::nullopt;
}

}  // namespace

MaybeFinding CheckClock(const Facts& facts) {
  constexpr std::int64_t kTolerance = 2;
  std::int64_t latest = 0;
  for (const Schedule& schedule : facts.daemon.status.schedules) {
    latest = std::max(latest, schedule.lastTime);
  }
  if (latest > facts.host.now + kTolerance) {
    return Fail("it was set back: the last rows are " + std::to_string(latest - facts.host.now) +
                " s ahead of it, and rows of the time between come twice");
  }
  if (!facts.host.isSynchronised) {
    return Look("the kernel does not say whether it is synchronised");
  }
  return *facts.host.isSynchronised
             ? Ok("synchronised")
             : Look(
                   "not synchronised, so times of different hosts can't be compared: "
                   "timedatectl set-ntp true, or install chrony");
}

MaybeFinding CheckPrograms(const Facts& facts) {
  std::string names;
  for (const ProgramFacts& program : facts.host.programs) {
    if (program.error != 0) {
      const std::string text = program.path + ": " + std::generic_category().message(program.error);
      return program.error == EACCES
                 ? Look(text + "; ask as root, or make it executable")
                 : Fail(text +
                        ": what it tells is missing; link it there, or install the package "
                        "anew");
    }
    names += (names.empty() ? "" : ", ") + program.name;
  }
  return names.empty() ? std::nullopt : MaybeFinding(Ok(names + " can be started"));
}

MaybeFinding CheckPort(const Facts& facts) {
  const DaemonFacts& daemon = facts.daemon;
  if (!daemon.fault.empty()) {
    return JudgePlaces(facts.host.ports);
  }
  if (!daemon.gateFault.empty()) {
    return Look("the daemon did not tell of its gate: " + daemon.gateFault);
  }
  if (daemon.status.http.empty()) {
    return daemon.listen.empty()       ? Ok("nothing is served by HTTP: Listen is empty")
           : daemon.gateMode == "none" ? Ok("nothing is served by HTTP: Gate = none")
                                       : JudgeAbsentGate(facts);
  }
  for (const PortFacts& port : facts.host.ports) {
    if (const std::string fault = PortFault(port); !fault.empty()) {
      return Fail(fault + ": start the gate anew, and look into its log");
    }
  }
  return Ok("the gate answers at " + daemon.status.http);
}

MaybeFinding CheckUnit(const Facts& facts) {
  if (!facts.host.isOfPackage) {
    return std::nullopt;
  }
  if (!facts.host.hasManager) {
    return Ok("systemd does not run here, so nothing starts qmtdmon by itself");
  }
  if (!facts.host.unitsFault.empty()) {
    return Look("systemctl: " + facts.host.unitsFault);
  }
  MaybeFinding worst;
  std::string names;
  for (const UnitFacts& unit : facts.host.units) {
    names += (names.empty() ? "" : ", ") + unit.name;
    if (MaybeFinding finding = JudgeUnit(unit);
        finding && (!worst || finding->mark > worst->mark)) {
      worst = std::move(finding);
    }
  }
  return worst ? worst : Ok(names + " run, and start with the host");
}

MaybeFinding CheckFiles(const Facts& facts) {
  const DaemonFacts& daemon = facts.daemon;
  if (!daemon.alarmsOff.empty()) {
    return Fail("alarm " + daemon.alarmsOff.front() + "; \"qmtctl check alarms\" shows the line");
  }
  std::string good;
  MaybeFinding unseen;
  for (const FileFacts& file : facts.host.files) {
    if (!file.isChecked) {
      unseen = Look(file.path + ": " + file.fault);
    } else if (!file.fault.empty()) {
      return Fail(file.fault + "; \"qmtctl check " + file.path + "\" shows all");
    } else {
      good += (good.empty() ? "" : ", ") + file.path;
    }
  }
  if (unseen || good.empty()) {
    return unseen;
  }
  return daemon.alarmsFault.empty()
             ? Ok("no faults in " + good)
             : Look("the daemon did not tell its alarms: " + daemon.alarmsFault);
}
