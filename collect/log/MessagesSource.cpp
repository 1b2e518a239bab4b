#include "collect/log/MessagesSource.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <list>
#include <string>

#include "node/Node.h"
#include "support/HostPaths.h"
#include "support/OsCalls.h"
#include "support/ProductOptions.h"
#include "support/TraceLog.h"

namespace {

constexpr std::size_t kMaxMainPath = 256;

using FileEvents = std::list<FileEvent>;

/// What outlives the source objects.
struct MessagesState {
  FileEvents files;
  FileEvents::iterator cursor = files.end();  ///< the end means unset
  unsigned serial = 0;
  /// Warnings that last until their condition ends.
  bool hasToldLength = false;
  bool hasToldMissing = false;
};

MessagesState& RememberedMessages() {
  static MessagesState state;
  return state;
}

const char* MessagesOption(const char* name) {
  return ProductOptions::Instance().Get("Messages", name);
}

struct EventFileOption {
  std::string path;
  std::string id;
  std::string filter = "^";  ///< takes every line
};

/// Splits `path*id*filter`; the filter may hold further '*'.
EventFileOption ParseOptionString(const std::string& value) {
  EventFileOption option;
  const std::size_t first = value.find('*');
  option.path = value.substr(0, first);
  if (first == std::string::npos) {
    return option;
  }
  const std::size_t second = value.find('*', first + 1);
  option.id = value.substr(first + 1, second == std::string::npos ? second : second - first - 1);
  if (second != std::string::npos && second + 1 < value.size()) {
    option.filter = value.substr(second + 1);
  }
  return option;
}

void Follow(const EventFileOption& option) {
  if (OpenTextFile(HostPath(option.path)) == nullptr) {
    Message(10100, "open", errno, option.path, "", "");
    return;
  }
  FileEvents& files = RememberedMessages().files;
  const auto known = std::find_if(files.begin(), files.end(), [&](const FileEvent& file) {
    return file.Path() == option.path && file.Id() == option.id;
  });
  if (known == files.end()) {
    files.emplace_back(option.path.c_str(), option.id.c_str(), option.filter.c_str());
    return;
  }
  CMBNode::EventPrintf("The file %s already exist in the evfile. Updating the regex.\n",
                       option.path.c_str());
  known->AddFilter(option.filter.c_str());
}

/// Raises a warning unless it stands already; a condition that has ended takes it back.
template <class Warn>
void WarnOnce(bool& hasTold, bool holds, const Warn& warn) {
  if (holds && !hasTold) {
    warn();
  }
  hasTold = holds;
}

void TraceMode(const char* path) {
  struct ::stat status {};
  if (Os().stat(HostPath(path).c_str(), &status) == 0) {
    Trace(40, kInformation, "Message File(%1) status (st_mode %2)", path, status.st_mode);
  } else {
    Trace(20, kWarning, "The error occurred by stat(). (en=%1, fname=%2)", errno, path);
  }
}

}  // namespace

MessagesSourceUser::MessagesSourceUser() : m_end(std::chrono::steady_clock::now() + kMaxRunTime) {
  TraceEntry("MessagesSourceUser::MessagesSourceUser");
  ++s_statistics.constructed;
  if (RememberedMessages().files.empty()) {
    loadEventFiles();
  }
  TraceExit("MessagesSourceUser::MessagesSourceUser");
}

MessagesSourceUser::~MessagesSourceUser() { ++s_statistics.destroyed; }

void MessagesSourceUser::ResetState() {
  MessagesState& state = RememberedMessages();
  state.files.clear();
  state.cursor = state.files.end();
  state.serial = 0;
  state.hasToldLength = state.hasToldMissing = false;
}

UtlErrorPtr MessagesSourceUser::initialize() {
  const char* path = MessagesOption("FileName");
  if (path == nullptr || *path == '\0') {
    return nullptr;
  }
  MessagesState& state = RememberedMessages();
  WarnOnce(state.hasToldLength, std::strlen(path) > kMaxMainPath,
           [&] { MessageAndCopy(10107, "PL_MESS", path); });
  TraceMode(path);
  const bool opens = OpenTextFile(HostPath(path)) != nullptr;
  const int code = errno;
  WarnOnce(state.hasToldMissing, !opens,
           [&] { MessageAndCopy(10105, "open", code, path, "", ""); });
  if (!opens) {
    return std::make_unique<UtlError>("The messages file can't be opened.", __FILE__, __LINE__);
  }
  if (state.files.empty()) {
    state.files.emplace_back(path, "", "*");
  }
  return nullptr;
}

void MessagesSourceUser::loadEventFiles() {
  TraceEntry("MessagesSourceUser::loadEventFiles");
  if (initialize() == nullptr) {
    for (int number = 1;; ++number) {
      const char* value = MessagesOption(("EventFile" + std::to_string(number)).c_str());
      if (value == nullptr || *value == '\0') {
        break;
      }
      Follow(ParseOptionString(value));
    }
  }
  TraceExit("MessagesSourceUser::loadEventFiles");
}

void MessagesSourceUser::read(x_messages* record) {
  TraceEntry("MessagesSourceUser::read", AddressOf(record));
  m_more = m_pendingError == nullptr && initialize() == nullptr;
  if (m_more && IsRunOver()) {
    m_more = false;
    // The next run begins with the next file: one that grows faster than a run reads must not
    // keep the others waiting.
    if (RememberedMessages().cursor != RememberedMessages().files.end()) {
      ++RememberedMessages().cursor;
    }
  }
  if (m_more) {
    ReadLine(*record);
  }
  TraceExit("MessagesSourceUser::read");
}

bool MessagesSourceUser::IsRunOver() const {
  return m_bytesLeft <= 0 || std::chrono::steady_clock::now() >= m_end;
}

void MessagesSourceUser::ReadLine(x_messages& record) {
  MessagesState& state = RememberedMessages();
  if (state.cursor == state.files.end()) {
    state.cursor = state.files.begin();
  }
  while (state.cursor != state.files.end()) {
    FileEvent& file = *state.cursor;
    if (!file.IsOpen()) {
      Message(10104, file.Path());
      state.cursor = state.files.erase(state.cursor);
      continue;
    }
    const long before = file.Offset();
    auto [isFound, failure] = file.collect(record, state.serial);
    if (isFound) {
      m_bytesLeft -= file.Offset() - before + static_cast<long>(sizeof record);
      CMBNode::EventPrintf("MessagesSourceUser::read :%s--> Id = %d\tMessage = %s\n",
                           file.Path().c_str(), static_cast<int>(record.id), record.text.data());
      return;
    }
    // What the end of the file left there is no message.
    record = {};
    ++state.cursor;
    if (failure != nullptr) {
      m_pendingError = std::move(failure);
      return;
    }
  }
  state.cursor = state.files.begin();
  m_more = false;
}
