#include "local/capture/HostReplay.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "support/Descriptor.h"
#include "support/OpenBelow.h"

namespace {

constexpr std::size_t kMostFacts = std::size_t{16} << 20U;
constexpr std::size_t kMostAnswers = std::size_t{256} << 20U;
/// All samples together: their answers are held in memory.
constexpr std::size_t kMostAnswersOfAll = std::size_t{1} << 30U;

}  // namespace

std::unique_ptr<HostReplay> HostReplay::Open(const std::string& folder, double speed,
                                             std::string& problem) {
  std::unique_ptr<HostReplay> replay(new HostReplay(folder, speed));
  const std::string file = folder + '/' + kCaptureFile;
  std::string text;
  problem = ReadCaptureFile(file, kMostFacts, text);
  if (!problem.empty()) {
    return nullptr;
  }
  problem = ReadCaptureText(text, replay->m_facts);
  if (!problem.empty()) {
    problem.insert(0, file + ": ");
    return nullptr;
  }
  struct ::stat status {};
  if (::lstat((folder + "/samples").c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    problem = folder + "/samples: this is no folder";
    return nullptr;
  }
  std::size_t bytes = 0;
  for (const CaptureSample& sample : replay->m_facts.samples) {
    const std::string place = folder + '/' + sample.folder;
    const std::string calls = place + '/' + kCallsFile;
    problem = CheckCaptureTree(place);
    if (problem.empty()) {
      problem = ReadCaptureFile(calls, kMostAnswers, text);
    }
    bytes += text.size();
    if (problem.empty() && bytes > kMostAnswersOfAll) {
      problem = calls + ": up to here, answers have more than " +
                std::to_string(kMostAnswersOfAll) + " bytes";
    }
    if (!problem.empty()) {
      return nullptr;
    }
    if (const auto fault = TakeCallLines(text, replay->m_answers.emplace_back())) {
      problem = calls + ':' + *fault;
      return nullptr;
    }
  }
  return replay;
}

int HostReplay::OpenIn(std::size_t sample, const std::string& path, int flags) const {
  const std::string place = m_folder + '/' + m_facts.samples[sample].folder + '/' + kHostFolderName;
  const Descriptor root(::open(place.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
  if (!root.IsOpen()) {
    return -1;
  }
  const int opened = OpenBelow(
      root.Get(), path == "/" ? "." : path.substr(1),
      (flags & (O_DIRECTORY | O_NOFOLLOW)) | O_RDONLY | O_NOCTTY | O_NONBLOCK, LinkRule::kRooted);
  struct ::stat status {};
  if (opened >= 0 &&
      (::fstat(opened, &status) != 0 || (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)))) {
    ::close(opened);
    errno = EINVAL;
    return -1;
  }
  return opened;
}

int HostReplay::Open(int folder, const char* name, int flags) {
  const std::optional<std::string> path = NameOf(folder, name);
  if (!path) {
    return Pass(::openat(folder, name, flags));
  }
  const std::string question = OpenQuestion(*path, flags);
  const auto found = Newest(question, [&](std::size_t sample) {
    const bool isAnswered = m_answers[sample].contains(question);
    return isAnswered || Descriptor(OpenIn(sample, *path, flags)).IsOpen() || errno != ENOENT;
  });
  if (!found) {
    errno = ENOENT;
    return -1;
  }
  if (const auto known = m_answers[*found].find(question); known != m_answers[*found].end()) {
    errno = known->second.code;
    return -1;
  }
  const int opened = OpenIn(*found, *path, flags);
  return opened < 0 ? -1 : Keep(opened, *path);
}

template <class Has>
std::optional<std::size_t> HostReplay::Newest(const std::string& question, const Has& has) const {
  constexpr std::size_t kMostLooked = 200'000;
  if (m_looked.size() > kMostLooked) {
    m_looked.clear();
  }
  Looked& looked = m_looked[question];
  for (std::size_t sample = m_sample + 1; sample-- > looked.until;) {
    if (has(sample)) {
      looked.found = sample;
      break;
    }
  }
  looked.until = m_sample + 1;
  return looked.found;
}

const CallAnswer* HostReplay::Find(const std::string& question) const {
  const auto found =
      Newest(question, [&](std::size_t sample) { return m_answers[sample].contains(question); });
  return found ? &m_answers[*found].find(question)->second : nullptr;
}

CallAnswer HostReplay::Ask(const std::string& question, const RealCall& /*real*/) {
  const CallAnswer* known = Find(question);
  return known == nullptr ? CallAnswer{-1, ENOENT, {}} : *known;
}

bool HostReplay::FindTalk(int protocol, std::string_view question, HeardTalk& heard) {
  if (!CapturedHost::FindTalk(protocol, question, heard)) {
    heard.error = ENOENT;
  }
  return true;
}

void HostReplay::BeginBatch() {
  if (!IsInBatch()) {
    if (!m_isBegun) {
      m_isBegun = true;
      m_begin = Clock::now();
    }
    const double passed = std::chrono::duration<double>(Clock::now() - m_begin).count() * m_speed;
    const double first = m_facts.samples.front().time;
    while (m_sample + 1 < m_facts.samples.size() &&
           m_facts.samples[m_sample + 1].time - first <= passed) {
      ++m_sample;
    }
  }
  CapturedHost::BeginBatch();
}
