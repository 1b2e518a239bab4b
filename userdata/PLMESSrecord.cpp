#include <algorithm>
#include <deque>
#include <string>

#include "collect/log/MessagesSource.h"
#include "node/Node.h"
#include "records/RecordBuilder.h"
#include "records/RecordClasses.h"
#include "records/RecordDump.h"
#include "records/UserObjects.h"
#include "support/OsCalls.h"
#include "support/TraceLog.h"

namespace {

constexpr std::size_t kMaxRecentMessages = 50;
constexpr std::size_t kTracedCharacters = 38;

struct MessageState : FamilyState {
  std::deque<Messages> recentMessages;  ///< oldest first
};

/// The serial number of the last message that a request has received.
class MessageUserObject : public CMBUserObject {
 public:
  std::uint32_t m_lastSerial = 0;
};

/// Whether the list holds what no request has received yet: a former request of the same batch has
/// put the list into the recent messages otherwise.
bool IsNew(const std::vector<Messages>& list, std::uint32_t lastSerial) {
  const auto first = std::find_if(list.begin(), list.end(),
                                  [](const Messages& message) { return message.id != 0; });
  return !list.empty() && (first == list.end() || first->id > lastSerial);
}

bool IsNull(const Messages& message) { return message.id == 0 || message.text[0] == '\0'; }

void TraceNull() {
  CMBNode::EventPrintf("PLMESS: NULL Message encountered, ignored.\n");
  Trace(30, kInformation, "PLMESS: NULL Message encountered, ignored.");
}

void Remember(std::deque<Messages>& recent, const Messages& message) {
  recent.push_back(message);
  if (recent.size() > kMaxRecentMessages) {
    recent.pop_front();
  }
}

/// Delivers the messages to one request.
class Delivery {
 public:
  Delivery(CMBRecordRequestEvent& event, std::uint32_t& lastSerial)
      : m_event(event),
        m_lastSerial(lastSerial),
        m_row(NewRow<recordPL_MESS>(static_cast<std::int32_t>(Os().time(nullptr)))) {
    m_row.interval = 0;
  }

  void Add(const Messages& message) {
    m_row.messageText = message.GetText();
    DumpRecord(m_row, m_count++);
    m_event.AddRecord(std::make_unique<cmbClassPL_MESS>(&m_row));
    m_lastSerial = message.id;
  }
  [[nodiscard]] int Count() const { return m_count; }

 private:
  CMBRecordRequestEvent& m_event;
  std::uint32_t& m_lastSerial;
  recordPL_MESS m_row;
  int m_count = 0;
};

}  // namespace

UtlError* RecordBuilder::BuildPL_MESS(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPL_MESS", AddressOf(pEvent), AddressOf(pRequest));
  std::uint32_t& lastSerial = ClaimUserObject<MessageUserObject>(*pRequest).object.m_lastSerial;
  if (pEvent->IsRealtime() != 0 && pEvent->ShouldCalcRates() != 0) {
    lastSerial = 0;
  }
  std::deque<Messages>& recent = StateOf<MessageState>().recentMessages;
  Delivery delivery(*pEvent, lastSerial);
  for (const Messages& message : recent) {
    if (message.id > lastSerial) {
      delivery.Add(message);
    }
  }
  const std::vector<Messages>& list = *m_pCollector->GetMessages();
  if (IsNew(list, lastSerial)) {
    for (const Messages& message : list) {
      if (IsNull(message)) {
        TraceNull();
        continue;
      }
      Trace(30, kInformation, "PLMESS: Message - %1.",
            std::string_view(message.GetText()).substr(0, kTracedCharacters));
      delivery.Add(message);
      Remember(recent, message);
    }
  }
  TraceCreated(__FILE__, __LINE__, RecordTraits<recordPL_MESS>::kName, delivery.Count());
  TraceExit("RecordBuilder::BuildPL_MESS", 0);
  return nullptr;
}
