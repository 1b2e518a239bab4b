#include "client/capture/CaptureMask.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <filesystem>
#include <system_error>
#include <utility>

#include "client/ask/Errors.h"
#include "client/capture/BinaryMask.h"
#include "client/capture/CallQuestion.h"
#include "json/JsonText.h"

namespace {

constexpr std::string_view kHostBehindSample = "/host/";
constexpr std::string_view kCalls = "/calls.jsonl";
constexpr std::string_view kRecords = "/records.json";

Json ParsedOf(const std::string& path, std::string_view text) {
  ParsedJson parsed = ParseJson(text);
  if (parsed.fault != JsonFault::kNone) {
    throw ClientError(path + ": this is no JSON");
  }
  return std::move(parsed.value);
}

std::string TextOf(const Json& object, std::string_view name) {
  const Json* member = object.Find(name);
  return member != nullptr && member->IsString() ? member->Text() : "";
}

/// The bytes of an answer, which stand in one of two members.
std::string AnswerOf(const Json& call) {
  const std::string text = TextOf(call, "text");
  return text.empty() ? BytesOfHex(TextOf(call, "hex")) : text;
}

/// The path below a sample's tree; empty for what is not of it.
std::string_view BelowHost(std::string_view path) {
  const std::size_t place = path.starts_with("samples/") ? path.find(kHostBehindSample) : path.npos;
  return place == path.npos ? "" : path.substr(place + kHostBehindSample.size());
}

/// Calls `take` with each text in the value.
template <class Take>
void ForTexts(const Json& value, const Take& take) {
  if (value.IsString()) {
    take(value.Text());
  } else if (value.IsArray()) {
    for (const Json& element : value.Elements()) {
      ForTexts(element, take);
    }
  } else if (value.IsObject()) {
    for (const JsonMember& member : value.Members()) {
      ForTexts(member.value, take);
    }
  }
}

bool IsJson(std::string_view path) { return path.ends_with(".json") || path.ends_with(".jsonl"); }

/// Tables whose words are the kernel's own, or names of devices.
bool IsKernelTable(std::string_view path) {
  static const std::set<std::string, std::less<>> tables{
      "proc/stat",        "proc/meminfo",    "proc/vmstat",   "proc/cpuinfo",
      "proc/diskstats",   "proc/net/dev",    "proc/net/snmp", "proc/net/snmp6",
      "proc/net/netstat", "proc/interrupts", "proc/1/limits"};
  return tables.contains(path);
}

}  // namespace

CaptureMask::CaptureMask(std::string folder, int stop)
    : m_folder(std::move(folder)),
      m_stop(stop),
      m_entries(ListFolder(m_folder)),
      m_standIns(StandIns::Fresh()),
      m_mask(m_standIns) {}

template <class Take>
void CaptureMask::ForLines(std::string_view text, const Take& take) const {
  while (!text.empty()) {
    EndIfStopped(m_stop);
    const std::size_t end = std::min(text.find('\n'), text.size());
    take(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

void CaptureMask::Collect() {
  WordCollector collector;
  const std::string name = PlaceOf(kCaptureName);
  const Json facts = ParsedOf(name, ReadWhole(name));
  const Json* running = facts.Find("running");
  m_isRunning = running != nullptr && running->IsBool() && running->Bool();
  collector.TakeHost(TextOf(facts, "host"));
  if (m_isRunning) {
    collector.TakeSystem();
  }
  for (const FolderEntry& entry : m_entries) {
    EndIfStopped(m_stop);
    const std::string_view below = BelowHost(entry.path);
    if (!entry.isFolder && !below.empty()) {
      collector.TakeFile(below, ReadWhole(PlaceOf(entry.path)));
    } else if (entry.path.ends_with(kCalls)) {
      ForLines(ReadWhole(PlaceOf(entry.path)), [&](std::string_view line) {
        const Json call = ParsedOf(entry.path, line);
        collector.TakeCall(TextOf(call, "call"), AnswerOf(call));
      });
    } else if (entry.path.ends_with(".jsonl")) {
      ForLines(ReadWhole(PlaceOf(entry.path)),
               [&](std::string_view line) { collector.TakeRow(ParsedOf(entry.path, line)); });
    }
  }
  const PrivateWords& words = collector.Words();
  TakeNames(words.names);
  for (const std::string& word : words.serials) {
    m_mask.Replace(word, SerialOf(word));
  }
}

void CaptureMask::TakeNames(const std::set<std::string>& names) {
  std::for_each(names.begin(), names.end(),
                [this](const std::string& name) { m_standIns.Avoid(name); });
  for (const std::string& name : names) {
    const std::string standIn = m_standIns.Name(name);
    const std::string inJson = ValidUtf8(name);
    m_names.push_back(name);
    m_mask.Replace(name, standIn);
    if (inJson != name) {
      m_names.push_back(inJson);
      m_mask.Replace(inJson, standIn);
    }
  }
}

void CaptureMask::RefuseKernelWords() const {
  for (const FolderEntry& entry : m_entries) {
    EndIfStopped(m_stop);
    if (!IsKernelTable(BelowHost(entry.path))) {
      continue;
    }
    if (const std::string word = FindWord(ReadWhole(PlaceOf(entry.path)), m_names, m_stop);
        !word.empty()) {
      throw ClientError("the name \"" + word + "\" can't be replaced: it is a word of " +
                        entry.path + " as well");
    }
  }
}

void CaptureMask::Replace() {
  Collect();
  RefuseKernelWords();
  for (const FolderEntry& entry : m_entries) {
    EndIfStopped(m_stop);
    if (!entry.isFolder) {
      ReplaceFile(entry.path);
    }
  }
  ReplaceNames();
}

void CaptureMask::ReplaceFile(const std::string& path) {
  const std::string text = ReadWhole(PlaceOf(path));
  std::string masked;
  if (const std::string_view below = BelowHost(path); !below.empty()) {
    masked = HostFile(below, text);
  } else if (path.ends_with(kCalls)) {
    masked = Lines(text, &CaptureMask::ReplaceCall);
  } else if (path.ends_with(".jsonl")) {
    masked = Lines(text, &CaptureMask::ReplaceRow);
  } else if (path.ends_with(kRecords) || path == kCaptureName) {
    Json value = ParsedOf(path, text);
    const bool isFacts = path == kCaptureName;
    isFacts ? ReplaceFacts(value) : ReplaceRecords(value);
    masked = JsonText(value, isFacts ? 2 : -1) + '\n';
  } else {
    masked = m_mask.Text(text);
  }
  if (masked != text) {
    WriteWhole(PlaceOf(path), masked);
  }
}

void CaptureMask::ReplaceNames() {
  // The deepest first, so that the others are still where they were.
  for (auto entry = m_entries.rbegin(); entry != m_entries.rend(); ++entry) {
    EndIfStopped(m_stop);
    const std::string_view below = BelowHost(entry->path);
    const std::size_t slash = entry->path.rfind('/') + 1;
    if (below.empty() || IsKernelPath(below)) {
      continue;
    }
    const std::string name = entry->path.substr(slash);
    const std::string masked = m_mask.Text(name);
    std::error_code error;
    if (masked != name) {
      std::filesystem::rename(PlaceOf(entry->path), PlaceOf(entry->path.substr(0, slash) + masked),
                              error);
    }
    if (error) {
      throw ClientError(entry->path + ": " + error.message());
    }
  }
}

std::string CaptureMask::HostFile(std::string_view path, const std::string& text) {
  const std::string_view name = path.substr(path.rfind('/') + 1);
  if (path.starts_with("proc/") && path != "proc/cmdline" && name == "cmdline") {
    return CommandLine(text);
  }
  if (path == "etc/passwd") {
    return Accounts(text);
  }
  if (HoldsSerial(path)) {
    return SerialOf(text);
  }
  const bool isOfSockets = name == "tcp" || name == "tcp6" || name == "udp" || name == "udp6";
  if (path.starts_with("proc/") && (isOfSockets || name == "if_inet6")) {
    const bool isSwapped = isOfSockets && std::endian::native == std::endian::little;
    return MaskHexColumns(text, isSwapped, m_standIns);
  }
  return text.find('\0') == text.npos ? m_mask.Text(text) : m_mask.Bytes(text);
}

std::string CaptureMask::SerialOf(std::string_view text) const {
  return m_mask.Bytes(m_standIns.Serial(text));
}

std::string CaptureMask::CommandLine(const std::string& line) const {
  const std::size_t first = StandIns::ProgramSize(line);
  return m_mask.Text(line.substr(0, first)) +
         m_mask.Bytes(m_standIns.Arguments(line).substr(first));
}

std::string CaptureMask::Accounts(std::string_view text) const {
  // The fifth field has the user's full name.
  std::string masked;
  int field = 0;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of(":\n"), text.size());
    constexpr int kFullName = 4;
    masked += field == kFullName ? m_mask.Bytes(m_standIns.Word(text.substr(0, end)))
                                 : m_mask.Text(text.substr(0, end));
    if (end < text.size()) {
      masked += text[end];
      field = text[end] == '\n' ? 0 : field + 1;
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return masked;
}

std::string CaptureMask::Lines(std::string_view text, void (CaptureMask::*change)(Json&)) {
  std::string masked;
  ForLines(text, [&](std::string_view line) {
    Json value = ParsedOf("a line of the capture", line);
    (this->*change)(value);
    masked += JsonText(value) + '\n';
  });
  return masked;
}

void CaptureMask::ReplaceCall(Json& call) {
  const std::string question = PlainQuestion(TextOf(call, "call"));
  const std::string path = PathOfQuestion(question);
  const bool isKernel = !path.empty() && IsKernelPath(std::string_view(path).substr(1));
  if (!path.empty() && !isKernel) {
    call["call"] = Json(CodedQuestion(m_mask.Text(question)));
  }
  if (Json* hex = call.Find("hex"); hex != nullptr && hex->IsString()) {
    ReplaceBytes(question, *hex);
  }
  Json* text = call.Find("text");
  if (text == nullptr || !text->IsString()) {
    return;
  }
  if (!question.starts_with("list ")) {
    *text = Json(m_mask.Text(text->Text()));
  } else if (!isKernel) {
    *text = Json(MaskList(text->Text(), m_mask));
  }
}

void CaptureMask::ReplaceBytes(std::string_view question, Json& hex) {
  std::string bytes = BytesOfHex(hex.Text());
  const std::size_t blank = std::min(question.find(' '), question.size());
  const std::string_view number = question.substr(std::min(blank + 1, question.size()));
  unsigned long value = 0;
  std::from_chars(number.data(), number.data() + number.size(), value);
  if (question.starts_with("netlink ")) {
    MaskNetlink(static_cast<int>(value), bytes, m_standIns);
  } else if (question.starts_with("ioctl ")) {
    MaskInterfaceAnswer(value, bytes, m_standIns);
  } else if (question.starts_with("list ")) {
    bytes = MaskList(bytes, m_mask);
  } else if (question.starts_with("readlink ")) {
    bytes = m_mask.Text(bytes);
  }
  hex = Json(HexOfBytes(m_mask.Bytes(bytes)));
}

void CaptureMask::ReplaceRow(Json& row) {
  if (!row.IsObject()) {
    return;
  }
  static const std::set<std::string, std::less<>> arguments{"Argument List", "Command Line",
                                                            "Arguments"};
  static const std::set<std::string, std::less<>> serials{"Serial Number", "Machine ID"};
  for (JsonMember& member : row.Members()) {
    if (!member.value.IsString()) {
      continue;
    }
    const std::string text = member.value.Text();
    if (serials.contains(member.name)) {
      member.value = Json(SerialOf(text));
    } else if (arguments.contains(member.name)) {
      member.value = Json(CommandLine(text));
    } else {
      member.value = Json(m_mask.Text(text));
    }
  }
}

void CaptureMask::ReplaceRecords(Json& results) {
  for (Json& result : results.Elements()) {
    if (Json* rows = result.Find("rows"); rows != nullptr && rows->IsArray()) {
      for (Json& row : rows->Elements()) {
        EndIfStopped(m_stop);
        ReplaceRow(row);
      }
    }
  }
}

void CaptureMask::ReplaceFacts(Json& facts) {
  facts["private"] = Json(true);
  facts["host"] = Json(m_mask.Text(TextOf(facts, "host")));
}

void CaptureMask::FailCheck(const std::string& path, const std::string& what) {
  throw ClientError("the capture is not private: " + path + " has \"" + what + '"');
}

void CaptureMask::CheckText(const std::string& path, std::string_view text,
                            const std::vector<std::string>& words) const {
  if (const std::string word = FindWord(text, words, m_stop); !word.empty()) {
    FailCheck(path, word);
  }
}

void CaptureMask::CheckCall(const std::string& path, const Json& call,
                            const std::vector<std::string>& words, const OwnAddresses& own) const {
  const std::string question = PlainQuestion(TextOf(call, "call"));
  const std::string asked = PathOfQuestion(question);
  const bool isKernel = !asked.empty() && IsKernelPath(std::string_view(asked).substr(1));
  if (!isKernel) {
    CheckText(path, question, words);
  }
  const std::string bytes = BytesOfHex(TextOf(call, "hex"));
  if (!isKernel || !question.starts_with("list ")) {
    CheckText(path, TextOf(call, "text"), words);
    CheckText(path, bytes, words);
  }
  for (std::size_t place = 0; place < own.bytes.size(); ++place) {
    if ((question.starts_with("netlink ") || question.starts_with("ioctl ")) &&
        bytes.find(own.bytes[place]) != bytes.npos) {
      FailCheck(path, own.texts[place]);
    }
  }
}

void CaptureMask::Check() const {
  const OwnAddresses own = m_isRunning ? ReadOwnAddresses() : OwnAddresses();
  std::vector<std::string> words = m_names;
  words.insert(words.end(), own.texts.begin(), own.texts.end());
  for (const std::string& bytes : own.bytes) {
    // As the kernel's list of addresses has them.
    constexpr std::size_t kHexAddress6 = 16;
    if (bytes.size() == kHexAddress6) {
      words.push_back(HexOfBytes(bytes));
    }
  }
  for (const FolderEntry& entry : ListFolder(m_folder)) {
    EndIfStopped(m_stop);
    const std::string_view below = BelowHost(entry.path);
    if (below.empty() || !IsKernelPath(below)) {
      CheckText(entry.path, entry.path, words);
    }
    const std::string text = entry.isFolder ? "" : ReadWhole(PlaceOf(entry.path));
    if (!below.empty() || !IsJson(entry.path)) {
      CheckText(entry.path, text, words);
    } else if (entry.path.ends_with(kCalls)) {
      ForLines(text, [&](std::string_view line) {
        CheckCall(entry.path, ParsedOf(entry.path, line), words, own);
      });
    } else {
      const auto check = [&](std::string_view part) {
        ForTexts(ParsedOf(entry.path, part),
                 [&](const std::string& word) { CheckText(entry.path, word, words); });
      };
      entry.path.ends_with(".jsonl") ? ForLines(text, check) : check(text);
    }
  }
}
