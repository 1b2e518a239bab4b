#include <arpa/inet.h>
#include <sys/ioctl.h>

#include "records/RecordClasses.h"
#include "support/Descriptor.h"
#include "support/HostNameWire.h"
#include "tests/agent/AgentOnHost.h"

namespace {

constexpr int kInterfaces = 1002;

/// Interface "nN" has the address 10.N/256.N%256.1 in a network of 24 bits.
int TellInterface(int, unsigned long request, ifreq* answer) {
  const auto number = static_cast<std::uint32_t>(std::atoi(answer->ifr_name + 1));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr =
      htonl(request == SIOCGIFNETMASK ? 0xffffff00U : 0x0a000001U + (number << 8U));
  std::memset(&answer->ifr_addr, 0, sizeof answer->ifr_addr);
  if (request == SIOCGIFADDR || request == SIOCGIFNETMASK) {
    std::memcpy(&answer->ifr_addr, &address, sizeof address);
  }
  return 0;
}

class NetworkNamesTest : public AgentOnHost {
 protected:
  void SetUp() override {
    AgentOnHost::SetUp();
    Os().ioctl = TellInterface;
    std::string text = "Inter-|   Receive\n face |bytes\n";
    for (int i = 0; i < kInterfaces; ++i) {
      text += "n" + std::to_string(i) + ": 1 2 0 0 0 0 0 0 3 4 0 0 0 0 0 0\n";
    }
    m_host.Write("/proc/net/dev", text);
    StartAgent();
  }
  std::vector<std::string> Names() {
    Batch batch;
    batch.Add("NIND", '4', {.realtime = 1, .calcRates = 0});
    EXPECT_EQ(m_agent->NotifyEvent(&batch.event), kNotifyDone);
    std::vector<std::string> names;
    for (const CMBRecord* record : batch.entries[0]->event.m_records) {
      names.emplace_back(
          static_cast<const recordPI_NIND*>(record->GetRecStart())->networkName.c_str());
    }
    return names;
  }
};

TEST_F(NetworkNamesTest, AThousandQuestionsWaitAndFiveHundredAnswersAreRemembered) {
  g_msgLogLevel = 30;
  EXPECT_EQ(Names(), std::vector<std::string>(kInterfaces, "Unavailable"));
  EXPECT_EQ(ScriptedNode::Instance().LinesWith("the waiting queue is full.").size(), 2U);
  g_msgLogLevel = 0;
  // The test is the helper.
  const std::string prefix = m_product.Path() / "opt/qmtrx/mond/qmt_hostutil_.pipe";
  const Descriptor questions(::open(prefix.c_str(), O_RDONLY | O_NONBLOCK));
  const Descriptor answers(::open((prefix + "Out").c_str(), O_WRONLY | O_NONBLOCK));
  CMBSocketEvent event(m_agent->GetSocket()->GetListenFd());
  for (int i = 0; i <= 500; ++i) {
    HostNameWire wire;
    ASSERT_EQ(::read(questions.Get(), &wire, sizeof wire), 3096) << i;
    HostNameWire::SetText(wire.resultName, std::string("of ") + wire.query.data());
    ASSERT_EQ(::write(answers.Get(), &wire, sizeof wire), 3096);
    ASSERT_EQ(m_agent->Dispatch(&event), 0);
  }
  const std::vector<std::string> names = Names();
  ASSERT_EQ(names.size(), static_cast<std::size_t>(kInterfaces));
  EXPECT_EQ(names[0], "Unavailable") << "pushed out by the 501st";
  EXPECT_EQ(names[1], "of 10.0.1.0");
  EXPECT_EQ(names[500], "of 10.1.244.0");
  EXPECT_EQ(names[501], "Unavailable");
}

}  // namespace
