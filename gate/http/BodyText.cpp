#include "gate/http/BodyText.h"

#include <zlib.h>

#include <array>
#include <cstddef>
#include <utility>

namespace {

constexpr std::size_t kBlock = 16384;
/// Quick: half a megabyte of rows takes some 5 ms, and shrinks to a tenth.
constexpr int kLevel = 1;
/// The window's bits, and 16 for gzip's own head and end.
constexpr int kGzipWindow = 15 + 16;

Bytef* BytesOf(std::string_view text) {
  return reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
}

}  // namespace

struct BodyText::Deflater {
  Deflater()
      : isReady(::deflateInit2(&stream, kLevel, Z_DEFLATED, kGzipWindow, 8, Z_DEFAULT_STRATEGY) ==
                Z_OK) {}
  ~Deflater() { ::deflateEnd(&stream); }
  Deflater(const Deflater&) = delete;
  Deflater& operator=(const Deflater&) = delete;

  ::z_stream stream{};
  bool isReady;
};

BodyText::BodyText(bool isGzip) {
  if (isGzip) {
    m_deflater = std::make_unique<Deflater>();
    if (!m_deflater->isReady) {
      m_deflater.reset();
    }
  }
}

BodyText::~BodyText() = default;

bool BodyText::Add(std::string_view bytes) {
  if (m_deflater != nullptr) {
    return Deflate(bytes, Z_NO_FLUSH);
  }
  if (!m_room.Grow(bytes.size())) {
    return false;
  }
  m_text += bytes;
  return true;
}

bool BodyText::Deflate(std::string_view bytes, int flush) {
  ::z_stream& stream = m_deflater->stream;
  stream.next_in = BytesOf(bytes);
  stream.avail_in = static_cast<uInt>(bytes.size());
  std::array<char, kBlock> block{};
  do {
    stream.next_out = BytesOf({block.data(), block.size()});
    stream.avail_out = static_cast<uInt>(block.size());
    ::deflate(&stream, flush);
    const std::size_t count = block.size() - stream.avail_out;
    if (!m_room.Grow(count)) {
      return false;
    }
    m_text.append(block.data(), count);
  } while (stream.avail_out == 0);
  return true;
}

bool BodyText::Finish(HttpAnswer& answer) {
  if (m_deflater != nullptr && !Deflate({}, Z_FINISH)) {
    return false;
  }
  answer.isGzip = std::exchange(m_deflater, nullptr) != nullptr;
  answer.body = std::move(m_text);
  answer.room = std::move(m_room);
  return true;
}

std::string Gunzip(std::string_view text) {
  ::z_stream stream{};
  if (::inflateInit2(&stream, kGzipWindow) != Z_OK) {
    return "";
  }
  const std::unique_ptr<::z_stream, int (*)(::z_stream*)> end(&stream, &::inflateEnd);
  stream.next_in = BytesOf(text);
  stream.avail_in = static_cast<uInt>(text.size());
  std::string expanded;
  std::array<char, kBlock> block{};
  int code = Z_OK;
  while (code == Z_OK) {
    stream.next_out = BytesOf({block.data(), block.size()});
    stream.avail_out = static_cast<uInt>(block.size());
    code = ::inflate(&stream, Z_NO_FLUSH);
    expanded.append(block.data(), block.size() - stream.avail_out);
  }
  return code == Z_STREAM_END ? expanded : "";
}
