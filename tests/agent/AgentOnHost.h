#pragma once

#include "agent/UnixAgent.h"
#include "collect/ProcLib.h"
#include "support/HostPaths.h"
#include "support/HostProfile.h"
#include "support/OsCalls.h"
#include "support/Switches.h"
#include "tests/scripted/Batch.h"
#include "tests/scripted/ProcessTree.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Testing.h"

/// The agent on a host of two processors that a test fills: first the host, then StartAgent().
class AgentOnHost : public ::testing::Test {
 protected:
  void SetUp() override {
    ScriptedNode::Reset();
    g_msgLogLevel = 20;
    m_realCalls = Os();
    Os().time = [](std::time_t*) { return s_now; };
    Os().clock_gettime = [](clockid_t, timespec*) { return -1; };  // that of the day stands in
    Os().get_nprocs = [] { return 2; };
    Os().get_nprocs_conf = [] { return 2; };
    SetProductRoot(m_product.Path().string());
    ProcLib::ResetCaches();
    std::filesystem::create_directories(m_product.Path() / "opt/qmtrx/mond");
  }
  void TearDown() override {
    m_agent.reset();
    Os() = m_realCalls;
    g_hostProfile = HostProfile::kClassic;
    ProcLib::ResetCaches();
    SetProductRoot("");
  }
  void StartAgent() {
    m_agent = std::make_unique<UnixAgent>("/opt/qmtrx/mond/qmt_hostutil_", "test");
    std::string text = "test";
    ASSERT_EQ(m_agent->Init(text.data(), text.data(), text.data()), 0);
  }

  /// Answers; what an asker was answered before is its previous answer.
  void Answer(Batch& batch) const {
    for (const auto& entry : batch.entries) {
      entry->NextAnswer();
    }
    ASSERT_EQ(m_agent->NotifyEvent(&batch.event), 0);
  }
  /// The only row that the batch's first asker is answered.
  template <class Row>
  Row Look(Batch& batch) const {
    Answer(batch);
    const std::vector<Row> rows = batch.entries.front()->Rows<Row>();
    EXPECT_EQ(rows.size(), 1U);
    return rows.empty() ? Row{} : rows.front();
  }

  inline static std::time_t s_now = 0;
  process_tree::HostTree m_host;
  TempFolder m_product;
  OsCalls m_realCalls{};
  std::unique_ptr<UnixAgent> m_agent;
};
