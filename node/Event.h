#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

class CMBNode;

/// A message as the framework received it; the agent never looks inside.
class CMBMessage;

/// The framework's message header. Only the bytes at offsets 10, 11, 3116 and 3117 are known here.
struct _tagMBMessageHeader {
  static constexpr std::size_t kMessageKind = 10;
  static constexpr std::size_t kAckPriority = 11;
  static constexpr std::size_t kAckFlag = 3116;
  static constexpr std::size_t kAckSequence = 3117;

  std::array<unsigned char, 3120> bytes{};

  [[nodiscard]] std::uint16_t Word(std::size_t offset) const {
    std::uint16_t value = 0;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
  }
};

/// What NotifyEvent returns: the event is done with, could not be served, or is not valid for this
/// node.
inline constexpr int kNotifyDone = 0;
inline constexpr int kNotifyNotServed = 63;
inline constexpr int kNotifyNotValid = 68;

/// The base of all that the loop delivers. Events are told apart by the text of IsA().
class CMBEvent {
 public:
  /// `message` is null for an event that the agent makes itself.
  explicit CMBEvent(CMBMessage* message) : m_message(message) {}
  CMBEvent(const CMBEvent&) = delete;
  CMBEvent& operator=(const CMBEvent&) = delete;
  virtual ~CMBEvent() = default;

  [[nodiscard]] virtual const char* IsA() const = 0;
  /// The event itself, as a handler of its type takes it.
  [[nodiscard]] virtual void* GetThis() { return this; }
  /// What the framework does with a message besides delivering it. Returns 0.
  virtual int Execute(CMBNode* node, int status, void* data, _tagMBMessageHeader* header,
                      int length);

 protected:
  CMBMessage* m_message;
};

class CMBUntypedEventHandler {
 public:
  virtual ~CMBUntypedEventHandler() = default;
  /// Whether this handler's event type has the same IsA() text.
  virtual bool _isInterested(CMBEvent* event) = 0;
  /// Hands the event to the typed NotifyEvent and returns its status.
  virtual int _notify(CMBEvent* event) = 0;
};

/// The handlers of one object, in the order of its bases. None is owned.
class UntypedEventHandlerVector {
 public:
  virtual ~UntypedEventHandlerVector() = default;
  [[nodiscard]] const std::vector<CMBUntypedEventHandler*>& Handlers() const { return m_handlers; }

 protected:
  std::vector<CMBUntypedEventHandler*> m_handlers;
};

/// Makes its class a receiver of events of type T. T needs a default constructor and an IsA() text.
template <class T>
class CMBEventHandler : public CMBUntypedEventHandler, public virtual UntypedEventHandlerVector {
 public:
  CMBEventHandler() { m_handlers.push_back(this); }
  CMBEventHandler(const CMBEventHandler&) = delete;
  CMBEventHandler& operator=(const CMBEventHandler&) = delete;
  ~CMBEventHandler() override = default;

  bool _isInterested(CMBEvent* event) override {
    const T sample;
    return std::strcmp(sample.IsA(), event->IsA()) == 0;
  }
  int _notify(CMBEvent* event) override { return NotifyEvent(static_cast<T*>(event->GetThis())); }
  /// Returns one of the statuses above.
  virtual int NotifyEvent(T* event) = 0;
};

/// A descriptor has become readable.
class CMBSocketEvent : public CMBEvent {
 public:
  explicit CMBSocketEvent(int descriptor = -1) : CMBEvent(nullptr), m_descriptor(descriptor) {}
  [[nodiscard]] const char* IsA() const override { return "CMBSocketEvent"; }
  [[nodiscard]] void* GetThis() override { return this; }
  operator int() const { return m_descriptor; }

 private:
  int m_descriptor;
};

class CMBReconnectEvent : public CMBEvent {
 public:
  explicit CMBReconnectEvent(CMBMessage* message = nullptr) : CMBEvent(message) {}
  [[nodiscard]] const char* IsA() const override { return "CMBReconnectEvent"; }
  [[nodiscard]] void* GetThis() override { return this; }
};

class CMBAlarmRequestEvent : public CMBEvent {
 public:
  explicit CMBAlarmRequestEvent(CMBMessage* message = nullptr) : CMBEvent(message) {}
  [[nodiscard]] const char* IsA() const override { return "CMBAlarmRequestEvent"; }
  [[nodiscard]] void* GetThis() override { return this; }
};
