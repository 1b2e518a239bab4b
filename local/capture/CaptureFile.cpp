#include "local/capture/CaptureFile.h"

#include <fcntl.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>

#include "json/JsonText.h"
#include "support/Descriptor.h"
#include "support/HostProfile.h"
#include "support/OpenBelow.h"
#include "support/RegularFile.h"

namespace {

constexpr std::string_view kSamplesFolder = "samples/";
constexpr std::size_t kMostSamples = 100'000;

std::string MachineName() {
  struct ::utsname names {};
  return ::uname(&names) == 0 ? names.machine : "";
}

bool TakeCaptureMember(const Json& object, std::string_view name, std::string& text) {
  const Json* member = object.Find(name);
  if (member == nullptr || !member->IsString()) {
    return false;
  }
  text = member->Text();
  return true;
}

bool TakeCaptureMember(const Json& object, std::string_view name, bool& value) {
  const Json* member = object.Find(name);
  if (member == nullptr || !member->IsBool()) {
    return false;
  }
  value = member->Bool();
  return true;
}

/// Digits alone behind "samples/": nothing that could lead elsewhere.
bool IsSampleFolder(std::string_view folder) {
  return folder.starts_with(kSamplesFolder) && folder.size() > kSamplesFolder.size() &&
         folder.size() < 32 &&
         folder.find_first_not_of("0123456789", kSamplesFolder.size()) == std::string_view::npos;
}

std::string TakeSamples(const Json& samples, CaptureFacts& facts) {
  // One that is named often would be looked through as often.
  std::set<std::string> folders;
  for (const Json& element : samples.Elements()) {
    CaptureSample sample;
    const Json* time = element.Find("time");
    if (!TakeCaptureMember(element, "folder", sample.folder) || time == nullptr ||
        !time->IsNumber()) {
      return "a sample has no folder or no time";
    }
    if (!IsSampleFolder(sample.folder)) {
      return "the folder of a sample is not samples/ and a number: " + sample.folder;
    }
    if (!folders.insert(sample.folder).second) {
      return "two samples have the folder " + sample.folder;
    }
    sample.time = time->Number();
    if (!facts.samples.empty() && sample.time < facts.samples.back().time) {
      return "the samples are not in the order of their times";
    }
    facts.samples.push_back(std::move(sample));
  }
  return "";
}

/// Whether a link's text, seen from its folder below the root, stays below the root if no other
/// link is on its way.
bool StaysInside(const std::filesystem::path& folder, const std::filesystem::path& target) {
  if (target.is_absolute()) {
    return false;
  }
  const std::string place = (folder / target).lexically_normal().string();
  return place != ".." && !place.starts_with("../");
}

/// `top` is a descriptor of the folder `root`.
std::string CheckEntry(const std::filesystem::directory_entry& entry,
                       const std::filesystem::path& root, int top) {
  std::error_code error;
  const std::filesystem::file_status status = entry.symlink_status(error);
  if (error) {
    return entry.path().string() + ": " + error.message();
  }
  if (std::filesystem::is_symlink(status)) {
    const std::filesystem::path target = std::filesystem::read_symlink(entry.path(), error);
    const std::filesystem::path place = entry.path().lexically_relative(root);
    return !error && StaysInside(place.parent_path(), target) && !LeadsOut(top, place.string())
               ? ""
               : entry.path().string() + ": a link that leads out of the capture";
  }
  return std::filesystem::is_regular_file(status) || std::filesystem::is_directory(status)
             ? ""
             : entry.path().string() + ": neither a file nor a folder";
}

}  // namespace

std::string SampleFolder(long number) {
  std::array<char, 48> text{};
  std::snprintf(text.data(), text.size(), "samples/%04ld", number);
  return text.data();
}

std::string CaptureText(const CaptureFacts& facts) {
  Json samples = Json::Array();
  for (const CaptureSample& sample : facts.samples) {
    samples.PushBack(Json{{"folder", sample.folder}, {"time", sample.time}});
  }
  return JsonText(Json{{"format", kCaptureFormat},
                       {"agent", facts.version},
                       {"host", facts.host},
                       {"profile", facts.profile},
                       {"kernel", facts.kernel},
                       {"machine", facts.machine},
                       {"running", facts.isRunning},
                       {"private", facts.isPrivate},
                       {"records", facts.records},
                       {"samples", samples}},
                  2) +
         '\n';
}

std::string ReadCaptureText(std::string_view text, CaptureFacts& facts) {
  const ParsedJson parsed = ParseJson(text, {.depth = 8, .members = 64});
  if (parsed.fault != JsonFault::kNone || !parsed.value.IsObject()) {
    return "this is no object of JSON";
  }
  const Json* format = parsed.value.Find("format");
  if (format == nullptr || !format->IsUnsigned() || format->Number() < 1) {
    return "it has no format number";
  }
  if (format->Number() > static_cast<double>(kCaptureFormat)) {
    return "its format " + JsonText(*format) + " is newer than " + std::to_string(kCaptureFormat) +
           ", which this version reads";
  }
  const std::array<std::pair<const char*, std::string*>, 5> texts{{{"agent", &facts.version},
                                                                   {"host", &facts.host},
                                                                   {"profile", &facts.profile},
                                                                   {"kernel", &facts.kernel},
                                                                   {"machine", &facts.machine}}};
  for (const auto& [name, member] : texts) {
    if (!TakeCaptureMember(parsed.value, name, *member)) {
      return std::string(name) + " must be a text";
    }
  }
  if (!TakeCaptureMember(parsed.value, "running", facts.isRunning) ||
      !TakeCaptureMember(parsed.value, "private", facts.isPrivate)) {
    return "running and private must be true or false";
  }
  if (!HostProfileOf(facts.profile)) {
    return "no profile \"" + facts.profile + "\"";
  }
  if (facts.machine != MachineName()) {
    return "it was made on a machine of another kind: " + facts.machine;
  }
  const Json* samples = parsed.value.Find("samples");
  if (samples == nullptr || !samples->IsArray() || samples->Size() == 0 ||
      samples->Size() > kMostSamples) {
    return "samples must be an array of one to " + std::to_string(kMostSamples);
  }
  return TakeSamples(*samples, facts);
}

std::string ReadCaptureFile(const std::string& path, std::size_t limit, std::string& text) {
  const Descriptor file(OpenRegularFile(path, O_RDONLY, 0));
  if (!file.IsOpen()) {
    const int code = errno;
    return path + ": " +
           (code == ENXIO || code == ELOOP ? "this is no regular file" : std::strerror(code));
  }
  std::array<char, 65536> piece;
  text.clear();
  for (;;) {
    const ssize_t count = ::read(file.Get(), piece.data(), piece.size());
    if (count < 0 && errno != EINTR) {
      return path + ": " + std::strerror(errno);
    }
    if (count == 0) {
      return "";
    }
    text.append(piece.data(), count < 0 ? 0 : static_cast<std::size_t>(count));
    if (text.size() > limit) {
      return path + ": it has more than " + std::to_string(limit) + " bytes";
    }
  }
}

std::string CheckCaptureTree(const std::string& folder) {
  const Descriptor top(
      ::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY));
  if (!top.IsOpen()) {
    return folder + ": this is no folder";
  }
  std::error_code error;
  std::filesystem::recursive_directory_iterator entries(folder, error);
  for (; !error && entries != std::filesystem::recursive_directory_iterator();
       entries.increment(error)) {
    if (std::string problem = CheckEntry(*entries, folder, top.Get()); !problem.empty()) {
      return problem;
    }
  }
  return error ? folder + ": " + error.message() : "";
}
