#include "tests/scripted/ScriptedNode.h"
#include "tests/support/Testing.h"

namespace {

/// Says that it is a socket event, as a type of another library might.
class LookAlike : public CMBEvent {
 public:
  explicit LookAlike(CMBMessage* message = nullptr) : CMBEvent(message) {}
  [[nodiscard]] const char* IsA() const override { return "CMBSocketEvent"; }
};

class Stranger : public CMBEvent {
 public:
  Stranger() : CMBEvent(nullptr) {}
  [[nodiscard]] const char* IsA() const override { return "Stranger"; }
};

class DispatchAgent : public CMBAgent,
                      public CMBEventHandler<CMBMultipleRecordRequestEvent>,
                      public CMBEventHandler<CMBSocketEvent>,
                      public CMBEventHandler<LookAlike> {
 public:
  DispatchAgent() : CMBAgent(".", "qmtagt.ini") {}
  using CMBAgent::NotifyEvent;
  int NotifyEvent(CMBRecordRequestEvent*) override { return kNotifyNotValid; }
  int NotifyEvent(CMBMultipleRecordRequestEvent*) override { return kNotifyNotServed; }
  int NotifyEvent(CMBSocketEvent* event) override {
    descriptor = *event;
    return kNotifyDone;
  }
  int NotifyEvent(LookAlike*) override {
    ADD_FAILURE() << "the earlier handler of the same text was passed over";
    return kNotifyDone;
  }
  int initNodeConfig(CMBNodeConfigRequest&) override { return 41; }
  int updateNodeConfig(CMBNodeConfigUpdate& update) override { return update.id(); }
  int PreProcessEvent(CMBEvent*, int) override { return withhold; }

  int descriptor = -1;
  int withhold = 0;
};

class EventDispatchTest : public testing::Test {
 protected:
  ScriptedNode& m_node = (ScriptedNode::Reset(), ScriptedNode::Instance());
  DispatchAgent m_agent;
};

TEST_F(EventDispatchTest, HandlersStandInTheOrderOfTheBases) {
  CMBUnsolicitedEvent<CMBShutdown> shutdown;
  CMBNodeConfigRequest configRequest;
  CMBNodeConfigUpdate configUpdate;
  CMBReconnectEvent reconnect;
  CMBRecordRequestEvent request;
  CMBUnsolicitedEvent<CMBPQLStatement> statement;
  CMBUnsolicitedEvent<CMBCancelPQL> cancel;
  CMBUnsolicitedEvent<CMBIniInfo> iniInfo;
  CMBUnsolicitedEvent<CMBLogifStatement> logif;
  CMBUnsolicitedEvent<CMBTableBinding> binding;
  CMBUnsolicitedEvent<CMBAlarm> alarm;
  CMBUnsolicitedEvent<CMBDictionary> dictionary;
  CMBUnsolicitedEvent<CMBAction> action;
  CMBAlarmRequestEvent alarmRequest;
  CMBMultipleRecordRequestEvent batch;
  CMBSocketEvent socket;
  const std::vector<CMBEvent*> inOrder{&shutdown, &configRequest, &configUpdate, &reconnect,
                                       &request,  &statement,     &cancel,       &iniInfo,
                                       &logif,    &binding,       &alarm,        &dictionary,
                                       &action,   &alarmRequest,  &batch,        &socket};
  const auto& handlers = m_agent.Handlers();
  ASSERT_EQ(handlers.size(), inOrder.size() + 1);
  for (std::size_t event = 0; event < inOrder.size(); ++event) {
    std::size_t first = 0;
    while (first < handlers.size() && !handlers[first]->_isInterested(inOrder[event])) {
      ++first;
    }
    EXPECT_EQ(first, event) << inOrder[event]->IsA();
  }
}

TEST_F(EventDispatchTest, MatchesByTextAndPassesTheStatusOn) {
  CMBSocketEvent socket(17);
  CMBMultipleRecordRequestEvent batch;
  CMBRecordRequestEvent request;
  CMBNodeConfigRequest configRequest;
  CMBNodeConfigUpdate configUpdate(9, std::string("text"));
  Stranger stranger;
  EXPECT_EQ(m_agent.Dispatch(&socket), kNotifyDone);
  EXPECT_EQ(m_agent.descriptor, 17);
  EXPECT_EQ(m_agent.Dispatch(&batch), 63);
  EXPECT_EQ(m_agent.Dispatch(&request), 68);
  EXPECT_EQ(m_agent.Dispatch(&configRequest), 41);
  EXPECT_EQ(m_agent.Dispatch(&configUpdate), 9);
  EXPECT_EQ(m_agent.Dispatch(&stranger), 68);

  m_agent.withhold = 1;
  EXPECT_EQ(m_agent.Dispatch(&batch), kNotifyDone);
}

TEST_F(EventDispatchTest, ShutdownStopsTheLoop) {
  CMBUnsolicitedEvent<CMBShutdown> shutdown;
  EXPECT_EQ(m_agent.Dispatch(&shutdown), kNotifyDone);
  EXPECT_EQ(m_node.stopSignal, 0);
  EXPECT_EQ(m_node.eventTexts.size(), 1U);
}

TEST_F(EventDispatchTest, AcknowledgesMessagesOfThreeKinds) {
  CMBUnsolicitedEvent<CMBAlarm> event(nullptr);
  EXPECT_STREQ(event.IsA(), "CMBUnsolicitedEvent::CMBAlarm");
  _tagMBMessageHeader header;
  header.bytes[11] = 200;
  header.bytes[3116] = 7;
  header.bytes[3117] = 0x34;
  header.bytes[3118] = 0x12;
  int data = 0;
  for (int kind = 0; kind < 256; ++kind) {
    header.bytes[10] = static_cast<unsigned char>(kind);
    m_node.bus.sent.clear();
    EXPECT_EQ(event.Execute(&m_agent, 3, &data, &header, 99), 0);
    ASSERT_EQ(m_node.bus.sent.size(), kind == 1 || kind == 5 || kind == 6 ? 1U : 0U) << kind;
    for (const SentAck& ack : m_node.bus.sent) {
      EXPECT_EQ(ack.priority, 200);
      EXPECT_EQ(ack.sequence, 0x1234);
      EXPECT_EQ(ack.length, 99);
      EXPECT_EQ(ack.data, &data);
      EXPECT_EQ(ack.flag, 7);
    }
  }
  EXPECT_EQ(event.Execute(&m_agent, 3, &data, nullptr, 99), 0);
}

TEST_F(EventDispatchTest, InitNeedsTheIniFileAndTheConnection) {
  const auto init = [&] {
    char text[] = "x";
    return m_agent.Init(1, text, text, text, text, text, text, 0, 0, CMBNode::kNodeAgent,
                        CMBAgent::kAgentCollector, text, text);
  };
  EXPECT_EQ(m_agent.GetIniFile(), nullptr);
  m_node.iniOpens = false;
  EXPECT_LT(init(), 0);
  m_node.iniOpens = true;
  m_node.connectResult = -3;
  EXPECT_EQ(init(), -3);
  EXPECT_EQ(m_agent.GetIniFile(), nullptr);
  m_node.connectResult = 0;
  EXPECT_EQ(init(), 0);
  EXPECT_NE(m_agent.GetIniFile(), nullptr);
}

TEST_F(EventDispatchTest, RequestsOwnTheirUserObjectAndEventsCopyTheirAsker) {
  struct Counted : CMBUserObject {
    explicit Counted(int& alive) : m_alive(alive) { ++m_alive; }
    ~Counted() override { --m_alive; }
    int& m_alive;
  };
  int alive = 0;
  {
    CMBRecordRequest request("CPUP", '4');
    EXPECT_STREQ(request.GetRecordType(), "CPUP");
    EXPECT_EQ(request.GetStructType(), '4');
    request.SetUserObject(new Counted(alive));
    request.SetUserObject(new Counted(alive));
    EXPECT_EQ(alive, 1);
  }
  EXPECT_EQ(alive, 0);

  std::list<CMBRecord*> previous{nullptr};
  tagPQLAUI asker{1, 1, &previous};
  CMBRecordRequestEvent event(&asker);
  asker = {};
  EXPECT_EQ(event.IsRealtime(), 1);
  EXPECT_EQ(event.ShouldCalcRates(), 1);
  EXPECT_EQ(&event.PreviousRecords(), &previous);
  CMBRecordRequestEvent plain;
  EXPECT_EQ(plain.IsRealtime(), 0);
  EXPECT_TRUE(plain.PreviousRecords().empty());

  int turns = 0;
  m_node.onYield = [&] { ++turns; };
  event.yield();
  m_agent.yield(CMBNode::kYieldShort);
  EXPECT_EQ(turns, 2);
}

}  // namespace
