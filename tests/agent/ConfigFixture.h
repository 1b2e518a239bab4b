#pragma once

#include "agent/UnixAgent.h"
#include "collect/ProcLib.h"
#include "support/HostPaths.h"
#include "support/OsCalls.h"
#include "support/ProductOptions.h"
#include "support/Switches.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Testing.h"

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

  /// The agent will read a file of applications named app0, app1 and so on.
  void MakeAgent(int applicationCount) {
    m_agent.reset();
    std::ofstream file(kApplications);
    for (int i = 0; i < applicationCount; ++i) {
      file << "A\tapp" << i << "\n";
    }
    m_agent = std::make_unique<UnixAgent>("/opt/qmtrx/mond/qmt_hostutil_", "test");
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

  /// In the working directory.
  static constexpr const char* kApplications = "opt/qmtrx/mond/agent/qmtapp";

  TempFolder m_root{TempFolder::kEnter};
  OsCalls m_realCalls = Os();
  std::unique_ptr<UnixAgent> m_agent;
};
