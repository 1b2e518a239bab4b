#pragma once

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "agent/UnixAgent.h"
#include "collect/ProcLib.h"
#include "support/HostPaths.h"
#include "support/OsCalls.h"
#include "support/ProductOptions.h"
#include "support/Switches.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/TempFolder.h"

/// A list of applications in memory that notes each reading and saving.
class FakeApplications : public ApplicationSettings {
 public:
  struct Process {
    int kind = 0;
    int rangeMin = 0;
    int rangeMax = 0;
    std::string pattern;
  };
  struct Application {
    std::string name;
    std::array<Process, kProcesses> processes;
  };

  explicit FakeApplications(std::vector<std::string>& log, int count = 0) : m_log(log) {
    for (int i = 0; i < count; ++i) {
      list.push_back({"app" + std::to_string(i), {}});
    }
  }
  [[nodiscard]] int GetCount() const override { return static_cast<int>(list.size()); }
  [[nodiscard]] const char* GetName(int a) const override { return At(a).name.c_str(); }
  [[nodiscard]] int GetKind(int a, int p) const override { return At(a, p).kind; }
  [[nodiscard]] const char* GetPattern(int a, int p) const override {
    return At(a, p).pattern.c_str();
  }
  [[nodiscard]] int GetRangeMin(int a, int p) const override { return At(a, p).rangeMin; }
  [[nodiscard]] int GetRangeMax(int a, int p) const override { return At(a, p).rangeMax; }
  [[nodiscard]] int add(const char* name) override {
    if (std::string(name) == "refused") {
      return 0;
    }
    list.push_back({name, {}});
    return 1;
  }
  [[nodiscard]] int remove(int index) override {
    if (index < 0 || index >= GetCount()) {
      return 0;
    }
    list.erase(list.begin() + index);
    return 1;
  }
  void SetKind(int a, int p, Kind kind) override { At(a, p).kind = kind; }
  void SetPattern(int a, int p, const char* pattern) override { At(a, p).pattern = pattern; }
  [[nodiscard]] int SetRange(int a, int p, const char* text) override {
    if (std::string(text) == "bad") {
      return 0;
    }
    At(a, p).rangeMin = At(a, p).rangeMax = std::stoi(text);
    return 1;
  }
  [[nodiscard]] int read(const char* path) override { return Note("read ", path); }
  [[nodiscard]] int write(const char* path) override { return Note("write ", path); }

  std::vector<Application> list;
  int fileResult = 1;

 private:
  [[nodiscard]] const Application& At(int a) const { return list.at(static_cast<std::size_t>(a)); }
  [[nodiscard]] const Process& At(int a, int p) const {
    return At(a).processes.at(static_cast<std::size_t>(p));
  }
  Process& At(int a, int p) { return const_cast<Process&>(std::as_const(*this).At(a, p)); }
  int Note(const char* what, const char* path) {
    m_log.push_back(std::string(what) + path);
    return fileResult;
  }

  std::vector<std::string>& m_log;
};

/// The agent with a scripted ini file, on the host tree of a kernel that knows the optional record
/// UFSS, in a working directory of its own.
class ConfigFixture : public ::testing::Test {
 protected:
  ConfigFixture() {
    ScriptedNode::Reset();
    g_msgLogLevel = 20;
    g_kernelVariant = 2;
    std::filesystem::create_directories("opt/qmtrx/mond/agent");
    SetProductRoot(m_root.Path().string());
    SetHostRoot(QMT_TEST_DIR "/fixtures/2.4.21");
    ProductOptions::Instance().Set("Agent", "DataDirectory", "/data");
    MakeAgent(0);
  }
  ~ConfigFixture() override {
    m_agent.reset();
    Os() = m_realCalls;
    ProcLib::ResetCaches();
    SetProductRoot("");
    SetHostRoot("");
    ScriptedNode::Reset();
  }

  void MakeAgent(int applicationCount) {
    m_agent.reset();
    m_agent = std::make_unique<UnixAgent>("/opt/qmtrx/mond/qmt_hostutil_", "test");
    auto applications = std::make_unique<FakeApplications>(m_fileLog, applicationCount);
    m_applications = applications.get();
    m_agent->SetApplications(std::move(applications));
  }
  static void SwitchUFSSOn() { std::ofstream("opt/qmtrx/mond/agent/optrecs.dat") << "UFSS\n"; }
  int Init() {
    std::array instance = std::to_array("test");
    std::array version = std::to_array("1");
    std::array release = std::to_array("2.4.21");
    return m_agent->Init(instance.data(), version.data(), release.data());
  }
  template <class Value>
  int Update(std::uint16_t id, Value value) {
    CMBNodeConfigUpdate update(id, value);
    return m_agent->Dispatch(&update);
  }
  static ScriptedNode& Node() { return ScriptedNode::Instance(); }
  static std::string& Ini(const std::string& key) { return Node().ini[{"Agent", "", key}]; }
  static std::string Option(const char* section, const char* name) {
    const char* value = ProductOptions::Instance().Get(section, name);
    return value == nullptr ? "<none>" : value;
  }

  TempFolder m_root{TempFolder::kEnter};
  OsCalls m_realCalls = Os();
  std::vector<std::string> m_fileLog;
  std::unique_ptr<UnixAgent> m_agent;
  FakeApplications* m_applications = nullptr;
};
