#include "node/Node.h"

#include <cstdarg>
#include <cstdio>
#include <string>

#include "node/NodeLayer.h"

namespace {

std::string FormatText(const char* format, std::va_list args) {
  std::va_list copy;
  va_copy(copy, args);
  const int length = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  if (length < 0) {
    return {};
  }
  std::string text(static_cast<std::size_t>(length), '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, args);
  return text;
}

}  // namespace

int CMBEvent::Execute(CMBNode*, int, void*, _tagMBMessageHeader*, int) { return kNotifyDone; }

void AcknowledgeMessage(CMBNode*, void* data, const _tagMBMessageHeader* header, int length) {
  BusService* bus = CMBNode::GetMBPointer();
  if (header == nullptr || bus == nullptr) {
    return;
  }
  const unsigned char kind = header->bytes[_tagMBMessageHeader::kMessageKind];
  if (kind != 1 && kind != 5 && kind != 6) {
    return;
  }
  bus->SendAckMsg(header, nullptr, nullptr, header->bytes[_tagMBMessageHeader::kAckPriority],
                  header->Word(_tagMBMessageHeader::kAckSequence), length, 0, data,
                  header->bytes[_tagMBMessageHeader::kAckFlag]);
}

CMBRecordRequestEvent::CMBRecordRequestEvent(tagPQLAUI* asker)
    : CMBEvent(nullptr), m_asker(asker == nullptr ? tagPQLAUI{} : *asker) {}

const std::list<CMBRecord*>& CMBRecordRequestEvent::PreviousRecords() const {
  static const std::list<CMBRecord*> kNone;
  return m_asker.previous == nullptr ? kNone : *m_asker.previous;
}

void CMBRecordRequestEvent::yield() { ActiveNodeLayer().Yield(0); }

bool CMBMultipleRecordRequestEvent::hold(long seconds) {
  return ActiveNodeLayer().Hold(seconds) == 0;
}

int CMBNode::Receive(_tagMBMessageHeader*, void*, int*) { return kNotifyDone; }
int CMBNode::yield(TYieldDuration duration) { return yield(duration, nullptr, 0, nullptr); }
int CMBNode::yield(long, int*, int, int*) { return kNotifyDone; }
int CMBNode::PreProcessEvent(CMBEvent*, int) { return kNotifyDone; }
int CMBNode::initNodeConfig(CMBNodeConfigRequest&) { return kNotifyDone; }
int CMBNode::updateNodeConfig(CMBNodeConfigUpdate&) { return kNotifyDone; }
int CMBNode::NotifyEvent(CMBNodeConfigRequest* event) { return initNodeConfig(*event); }
int CMBNode::NotifyEvent(CMBNodeConfigUpdate* event) { return updateNodeConfig(*event); }
void CMBNode::GenerateAlerts(std::list<CMBRecord*>&, std::list<CMBRecord*>&, std::list<CMBRecord*>&,
                             std::vector<CMBRecordRequest*>*) {}
int CMBNode::ShouldLogRecord(CMBRecord*) { return 1; }

int CMBNode::Dispatch(CMBEvent* event) {
  if (PreProcessEvent(event, 0) != 0) {
    return kNotifyDone;
  }
  for (CMBUntypedEventHandler* handler : Handlers()) {
    if (handler->_isInterested(event)) {
      return handler->_notify(event);
    }
  }
  return kNotifyNotValid;
}

char* CMBNode::GetLocalNodeID() { return ActiveNodeLayer().LocalNodeId(); }
BusService* CMBNode::GetMBPointer() { return ActiveNodeLayer().Bus(); }

void CMBNode::EventPrintf(const char* format, ...) {
  std::va_list args;
  va_start(args, format);
  const std::string text = FormatText(format, args);
  va_end(args);
  ActiveNodeLayer().EventText(text.c_str());
}

void CMBNode::DebugPrintf(const char* file, int line, const char* format, ...) {
  std::va_list args;
  va_start(args, format);
  const std::string text = FormatText(format, args);
  va_end(args);
  ActiveNodeLayer().DebugText(file, line, text.c_str());
}

int CMBRunnableNode::yield(long duration, int*, int, int*) {
  return ActiveNodeLayer().Yield(duration);
}
int CMBRunnableNode::ScheduleEvent(CMBEvent* event, long period, int repeat, long, long firstTime) {
  return ActiveNodeLayer().ScheduleEvent(event, period, repeat, firstTime);
}
int CMBRunnableNode::NotifyEvent(CMBUnsolicitedEvent<CMBShutdown>*) {
  WriteShutdownMessage();
  ActiveNodeLayer().RequestStop(0);
  return kNotifyDone;
}
void CMBRunnableNode::WriteShutdownMessage() { EventPrintf("Shutdown requested\n"); }
int CMBRunnableNode::Run() { return ActiveNodeLayer().Run(*this); }
int CMBRunnableNode::ScheduleEvent(int descriptor) {
  return ActiveNodeLayer().WatchDescriptor(descriptor);
}
int CMBRunnableNode::CancelEvent(int descriptor) {
  return ActiveNodeLayer().UnwatchDescriptor(descriptor);
}
int CMBRunnableNode::CancelEvent(CMBEvent* event, int destroy) {
  return ActiveNodeLayer().CancelEvent(event, destroy == 1);
}
void CMBRunnableNode::setSignalStatus(int signal) noexcept {
  ActiveNodeLayer().RequestStop(signal);
}

CMBAgent::CMBAgent(const char* directory, const char* iniName)
    : m_directory(directory), m_iniName(iniName) {}
CMBAgent::~CMBAgent() = default;

int CMBAgent::Init(unsigned char productId, char* instance, char* agentType, char* version,
                   char* subVersion, char* osVersion, char* osRelease, unsigned short major,
                   unsigned short minor, CMBNode::TNodeType nodeType, CMBAgent::TAgentType kind,
                   char* buildDate, char* buildTime) {
  AgentIdentity identity{productId, instance,  agentType, version, subVersion, osVersion, osRelease,
                         buildDate, buildTime, major,     minor,   nodeType,   kind};
  std::unique_ptr<CMBIniFile> iniFile =
      ActiveNodeLayer().OpenIniFile(m_directory.c_str(), m_iniName.c_str());
  if (iniFile == nullptr) {
    return -1;
  }
  const int rc = ActiveNodeLayer().Connect(*this, identity);
  if (rc >= 0) {
    m_iniFile = std::move(iniFile);
  }
  return rc;
}

int CMBAgent::initNodeConfig(CMBNodeConfigRequest& request) {
  return CMBNode::initNodeConfig(request);
}
int CMBAgent::updateNodeConfig(CMBNodeConfigUpdate& update) {
  return CMBNode::updateNodeConfig(update);
}
int CMBAgent::NotifyEvent(CMBUnsolicitedEvent<CMBPQLStatement>*) { return kNotifyDone; }
int CMBAgent::NotifyEvent(CMBUnsolicitedEvent<CMBCancelPQL>*) { return kNotifyDone; }
int CMBAgent::NotifyEvent(CMBUnsolicitedEvent<CMBIniInfo>*) { return kNotifyDone; }
int CMBAgent::NotifyEvent(CMBUnsolicitedEvent<CMBLogifStatement>*) { return kNotifyDone; }
int CMBAgent::NotifyEvent(CMBUnsolicitedEvent<CMBTableBinding>*) { return kNotifyDone; }
int CMBAgent::NotifyEvent(CMBUnsolicitedEvent<CMBAlarm>*) { return kNotifyDone; }
int CMBAgent::NotifyEvent(CMBUnsolicitedEvent<CMBDictionary>*) { return kNotifyDone; }
int CMBAgent::NotifyEvent(CMBUnsolicitedEvent<CMBAction>*) { return kNotifyDone; }
int CMBAgent::NotifyEvent(CMBReconnectEvent*) { return kNotifyDone; }
int CMBAgent::NotifyEvent(CMBAlarmRequestEvent*) { return kNotifyDone; }
void CMBAgent::GenerateAlerts(std::list<CMBRecord*>& current, std::list<CMBRecord*>& previous,
                              std::list<CMBRecord*>& alerts,
                              std::vector<CMBRecordRequest*>* requests) {
  CMBNode::GenerateAlerts(current, previous, alerts, requests);
}
int CMBAgent::PreProcessEvent(CMBEvent* event, int status) {
  return CMBNode::PreProcessEvent(event, status);
}
int CMBAgent::ShouldLogRecord(CMBRecord* record) { return CMBNode::ShouldLogRecord(record); }
