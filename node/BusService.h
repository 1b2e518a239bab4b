#pragma once

#include <cstdint>

class CMBNode;
struct _tagMBMessageHeader;

/// The network service through which a node answers messages.
class BusService {
 public:
  virtual ~BusService() = default;
  /// Sends the acknowledgement of the message behind `header`. Neither pointer is kept.
  virtual void SendAckMsg(const _tagMBMessageHeader* header, const char* fromNode,
                          const char* toNode, std::uint8_t priority, std::uint16_t sequence,
                          int length, int status, void* data, std::uint8_t flag) = 0;
};

/// Acknowledges the message through the node's bus if its kind is 1, 5 or 6. A null header, or a
/// node without a bus, sends nothing.
void AcknowledgeMessage(CMBNode* node, void* data, const _tagMBMessageHeader* header, int length);
