// A capture as the client unpacks, plays and masks it, which anybody may have made.
#include <archive.h>
#include <archive_entry.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "client/ask/Errors.h"
#include "client/capture/Archive.h"
#include "client/capture/ArchiveParts.h"
#include "client/capture/BinaryMask.h"
#include "client/capture/PlayPlan.h"
#include "client/capture/PrivateWords.h"
#include "client/capture/TextMask.h"
#include "json/JsonText.h"
#include "tests/fuzz/FuzzHelp.h"

namespace {

constexpr const char* kMark = "untouched";
constexpr UnpackLimits kSmall{.bytes = 1 << 16, .entries = 64, .nameBytes = 4096, .depth = 8};

/// One entry: its kind, its name and then its content or where it leads, each up to a zero byte.
void AddEntry(::archive* archive, Input& input) {
  constexpr unsigned kKinds[] = {AE_IFREG, AE_IFDIR, AE_IFLNK, AE_IFIFO, AE_IFCHR, AE_IFREG};
  const std::size_t kind = input.Byte() % std::size(kKinds);
  const bool isHardLink = kind == std::size(kKinds) - 1;
  const std::string name(input.Until('\0'));
  const std::string text(input.Until('\0'));
  const ArchiveEntry entry(::archive_entry_new(), ::archive_entry_free);
  ::archive_entry_set_pathname(entry.get(), name.c_str());
  ::archive_entry_set_filetype(entry.get(), kKinds[kind]);
  ::archive_entry_set_perm(entry.get(), 0777);
  const bool isFile = kKinds[kind] == AE_IFREG && !isHardLink;
  ::archive_entry_set_size(entry.get(), isFile ? static_cast<la_int64_t>(text.size()) : 0);
  if (isHardLink) {
    ::archive_entry_set_hardlink(entry.get(), text.c_str());
  } else if (kKinds[kind] == AE_IFLNK) {
    ::archive_entry_set_symlink(entry.get(), text.c_str());
  }
  if (::archive_write_header(archive, entry.get()) == ARCHIVE_OK && isFile) {
    ::archive_write_data(archive, text.data(), text.size());
  }
}

/// An archive with right sums and lengths, which bytes alone would not find.
void WriteArchive(const std::string& file, Input& input) {
  const ArchiveWriter archive(::archive_write_new(), ::archive_write_free);
  ::archive_write_set_format_pax(archive.get());
  ::archive_write_add_filter_zstd(archive.get());
  Require(::archive_write_open_filename(archive.get(), file.c_str()) == ARCHIVE_OK);
  while (!input.IsEmpty()) {
    AddEntry(archive.get(), input);
  }
}

/// Nothing has come into being beside the folder, and nothing in it leads out of it.
void RequireInside(const FuzzFolder& folder) {
  namespace fs = std::filesystem;
  std::string text;
  std::getline(std::ifstream(folder.Path("outside")), text);
  Require(text == kMark);
  Require(std::distance(fs::directory_iterator(folder.Path()), {}) == 3);
}

void RequireNoLinkOut(const FuzzFolder& folder) {
  namespace fs = std::filesystem;
  const std::string inside = fs::canonical(folder.Path("in")).string();
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder.Path("in"))) {
    Require(entry.is_symlink() || entry.is_regular_file() || entry.is_directory());
    std::error_code error;
    const fs::path target = fs::canonical(entry.path(), error);
    Require(bool(error) || target == inside || target.string().starts_with(inside + '/'));
  }
}

void TakeArchive(const FuzzFolder& folder) {
  std::filesystem::remove_all(folder.Path("in"));
  std::filesystem::create_directory(folder.Path("in"));
  bool isUnpacked = false;
  try {
    UnpackArchive(folder.Path("archive"), folder.Path("in"), kSmall);
    isUnpacked = true;
  } catch (const ClientError& error) {
    Require(*error.what() != '\0');
  }
  RequireInside(folder);
  if (isUnpacked) {
    RequireNoLinkOut(folder);
  }
}

void TakePlan(std::string_view text, const FuzzFolder& folder) {
  std::filesystem::remove_all(folder.Path("in"));
  std::filesystem::create_directory(folder.Path("in"));
  folder.Write("in/capture.json", text);
  try {
    Require(PlaySchedule("capture", folder.Path("in"), 2.0).find('\0') == std::string::npos);
  } catch (const ClientError&) {
  }
}

/// The masks leave the size where it counts, and no word that is to go.
void TakeMasks(Input& input) {
  StandIns standIns({1, 2});
  TextMask mask(standIns);
  const std::string word(input.Until('\n'));
  const bool isWord = !word.empty() && std::ranges::all_of(word, IsWordLetter);
  if (isWord) {
    mask.Replace(word, standIns.Word(word));
  }
  const int protocol = input.Byte();
  const std::string text(input.Rest());
  static_cast<void>(mask.Text(text));
  Require(mask.Bytes(text).size() == text.size());
  static_cast<void>(MaskHexColumns(text, protocol % 2 == 0, standIns));
  std::string datagram = text;
  MaskNetlink(protocol, datagram, standIns);
  Require(datagram.size() == text.size());
  std::string answer = text;
  MaskInterfaceAnswer(0x8900U + static_cast<unsigned>(protocol), answer, standIns);
  Require(answer.size() == text.size());
  WordCollector collector;
  collector.TakeFile("etc/passwd", text);
  collector.TakeFile("proc/mounts", text);
  collector.TakeCall(word, text);
  collector.TakeRow(ParseJson(text).value);
}

}  // namespace

/// The first byte, a digit in the seeds, chooses what the others are.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const FuzzFolder folder;
  folder.Write("outside", kMark);
  Input input(data, size);
  switch (input.Byte() % 4) {
    case 0:
      WriteArchive(folder.Path("archive"), input);
      TakeArchive(folder);
      break;
    case 1:
      folder.Write("archive", input.Rest());
      TakeArchive(folder);
      break;
    case 2:
      TakePlan(input.Rest(), folder);
      break;
    default:
      TakeMasks(input);
  }
  return 0;
}
