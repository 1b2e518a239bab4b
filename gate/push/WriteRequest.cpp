#include "gate/push/WriteRequest.h"

#include <snappy.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <protozero/types.hpp>
#include <protozero/varint.hpp>

namespace {

// Numbers of the fields of the messages.
constexpr protozero::pbf_tag_type kRequestSeries = 1;
constexpr protozero::pbf_tag_type kSeriesLabels = 1;
constexpr protozero::pbf_tag_type kSeriesSamples = 2;
constexpr protozero::pbf_tag_type kLabelName = 1;
constexpr protozero::pbf_tag_type kLabelValue = 2;
constexpr protozero::pbf_tag_type kSampleValue = 1;
constexpr protozero::pbf_tag_type kSampleTime = 2;

constexpr std::uint32_t kNoSample = std::numeric_limits<std::uint32_t>::max();
/// So many series are compared before a series counts as a new one, whatever names a host has.
constexpr std::size_t kMostLooks = 32;

/// The samples of each series, as chains of their places.
class SeriesChains {
 public:
  struct Chain {
    std::string_view series;
    std::uint32_t first;
    std::uint32_t last;
  };

  SeriesChains(std::string_view text, std::span<const PlacedSample> samples)
      : m_slots(std::bit_ceil(2 * samples.size() + 1), kNoSample),
        m_next(samples.size(), kNoSample) {
    m_chains.reserve(samples.size());
    for (std::uint32_t i = 0; i < samples.size(); ++i) {
      Add(samples[i].SeriesIn(text), i);
    }
  }

  [[nodiscard]] const std::vector<Chain>& All() const { return m_chains; }
  [[nodiscard]] std::uint32_t Next(std::uint32_t sample) const { return m_next[sample]; }

 private:
  void Add(std::string_view series, std::uint32_t sample) {
    const std::size_t start = std::hash<std::string_view>{}(series);
    for (std::size_t look = 0; look < kMostLooks; ++look) {
      std::uint32_t& slot = m_slots[(start + look) & (m_slots.size() - 1)];
      if (slot == kNoSample) {
        slot = static_cast<std::uint32_t>(m_chains.size());
        break;
      }
      Chain& chain = m_chains[slot];
      if (chain.series == series) {
        m_next[chain.last] = sample;
        chain.last = sample;
        return;
      }
    }
    m_chains.push_back({series, sample, sample});
  }

  std::vector<std::uint32_t> m_slots;  ///< places of chains, by the hash of the series
  std::vector<std::uint32_t> m_next;   ///< of each sample the next one of its series
  std::vector<Chain> m_chains;
};

std::size_t SizedField(std::size_t size) {
  return 1 + static_cast<std::size_t>(protozero::length_of_varint(size)) + size;
}

std::size_t LabelSize(const SeriesLabel& label) {
  return SizedField(label.name.size()) + SizedField(label.ValueSize());
}

std::size_t SampleSize(const PlacedSample& sample) {
  const auto time = static_cast<std::uint64_t>(sample.time);
  return 1 + sizeof sample.value + 1 + static_cast<std::size_t>(protozero::length_of_varint(time));
}

/// The bytes of a message: fields of known sizes, written one behind the other. They are compressed
/// block by block, as the library cuts them by itself: memory for all of them would be new to the
/// process with each message, and that costs more time than the writing.
class MessageBytes {
 public:
  /// To be called for what follows; no field looks at its room by itself.
  void MakeRoom(std::size_t size) {
    if (m_capacity - m_size >= size) {
      return;
    }
    Compress();
    if (m_capacity < size) {
      m_capacity = std::max(size, kBlock);
      m_bytes = std::make_unique_for_overwrite<char[]>(m_capacity);
      m_compressed =
          std::make_unique_for_overwrite<char[]>(snappy::MaxCompressedLength(m_capacity));
    }
  }
  /// All of it, compressed: the length of the message, then the blocks.
  [[nodiscard]] std::string TakeCompressed() {
    Compress();
    std::array<char, protozero::max_varint_length> length{};
    const int size = protozero::add_varint_to_buffer(length.data(), m_total);
    m_blocks.insert(0, length.data(), static_cast<std::size_t>(size));
    return std::move(m_blocks);
  }
  /// The head of a text, or of a message within this one, whose `size` bytes follow.
  void AddHead(protozero::pbf_tag_type tag, std::size_t size) {
    AddTag(tag, protozero::pbf_wire_type::length_delimited);
    AddVarint(size);
  }
  void AddText(protozero::pbf_tag_type tag, std::string_view text) {
    AddHead(tag, text.size());
    text.copy(End(), text.size());
    m_size += text.size();
  }
  void AddDouble(protozero::pbf_tag_type tag, double value) {
    AddTag(tag, protozero::pbf_wire_type::fixed64);
    const auto bits = std::bit_cast<std::uint64_t>(value);
    for (unsigned int shift = 0; shift < 64; shift += 8) {
      m_bytes[m_size++] = static_cast<char>(bits >> shift);
    }
  }
  void AddWhole(protozero::pbf_tag_type tag, std::int64_t value) {
    AddTag(tag, protozero::pbf_wire_type::varint);
    AddVarint(static_cast<std::uint64_t>(value));
  }

 private:
  static constexpr std::size_t kBlock = std::size_t{64} << 10;

  void Compress() {
    if (m_size == 0) {
      return;
    }
    std::size_t size = 0;
    snappy::RawCompress(m_bytes.get(), m_size, m_compressed.get(), &size);
    // Each block begins with its own length, which only the whole message has.
    const auto head = static_cast<std::size_t>(protozero::length_of_varint(m_size));
    m_blocks.append(m_compressed.get() + head, size - head);
    m_total += m_size;
    m_size = 0;
  }
  [[nodiscard]] char* End() { return m_bytes.get() + m_size; }
  void AddVarint(std::uint64_t value) {
    m_size += static_cast<std::size_t>(protozero::add_varint_to_buffer(End(), value));
  }
  void AddTag(protozero::pbf_tag_type tag, protozero::pbf_wire_type type) {
    AddVarint((tag << 3U) | static_cast<std::uint32_t>(type));
  }

  std::unique_ptr<char[]> m_bytes;
  std::size_t m_capacity = 0;
  std::size_t m_size = 0;
  std::unique_ptr<char[]> m_compressed;  ///< room for a block
  std::string m_blocks;                  ///< those before, compressed
  std::size_t m_total = 0;               ///< their bytes
};

/// Writes the message, series by series.
class WriteMessage {
 public:
  WriteMessage(std::string_view text, std::span<const PlacedSample> samples,
               const TargetLabels& labels)
      : m_samples(samples), m_chains(text, samples), m_extra(labels) {
    for (const SeriesChains::Chain& chain : m_chains.All()) {
      if (ReadSeries(chain.series, m_labels)) {
        AddExtra();
        Add(chain);
      } else {
        ForEach(chain, [this](const PlacedSample&) { ++m_leftOut; });
      }
    }
  }

  [[nodiscard]] std::string TakeCompressed() { return m_message.TakeCompressed(); }
  [[nodiscard]] std::size_t LeftOut() const { return m_leftOut; }

 private:
  template <class Act>
  void ForEach(const SeriesChains::Chain& chain, Act act) {
    for (std::uint32_t i = chain.first; i != kNoSample; i = m_chains.Next(i)) {
      act(m_samples[i]);
    }
  }
  void AddExtra() {
    for (const auto& [name, value] : m_extra) {
      const auto place = std::ranges::lower_bound(m_labels, name, {}, &SeriesLabel::name);
      if (place == m_labels.end() || place->name != name) {
        m_labels.insert(place, {name, value, false});
      }
    }
  }
  void Add(const SeriesChains::Chain& chain) {
    std::size_t size = 0;
    for (const SeriesLabel& label : m_labels) {
      size += SizedField(LabelSize(label));
    }
    ForEach(chain, [&](const PlacedSample& sample) { size += SizedField(SampleSize(sample)); });
    m_message.MakeRoom(SizedField(size));
    m_message.AddHead(kRequestSeries, size);
    for (const SeriesLabel& label : m_labels) {
      m_message.AddHead(kSeriesLabels, LabelSize(label));
      m_message.AddText(kLabelName, label.name);
      m_message.AddText(kLabelValue, ValueOf(label));
    }
    ForEach(chain, [&](const PlacedSample& sample) {
      m_message.AddHead(kSeriesSamples, SampleSize(sample));
      m_message.AddDouble(kSampleValue, sample.value);
      m_message.AddWhole(kSampleTime, sample.time);
    });
  }
  /// Without escapes.
  [[nodiscard]] std::string_view ValueOf(const SeriesLabel& label) {
    if (!label.isEscaped) {
      return label.value;
    }
    m_value.clear();
    label.AppendValue(m_value);
    return m_value;
  }

  std::span<const PlacedSample> m_samples;
  SeriesChains m_chains;
  const TargetLabels& m_extra;
  std::vector<SeriesLabel> m_labels;
  std::string m_value;
  MessageBytes m_message;
  std::size_t m_leftOut = 0;
};

}  // namespace

WriteBody MakeWriteBody(std::string_view text, std::span<const PlacedSample> samples,
                        const TargetLabels& labels) {
  WriteMessage message(text, samples, labels);
  WriteBody body;
  body.leftOut = message.LeftOut();
  body.samples = samples.size() - body.leftOut;
  body.bytes = message.TakeCompressed();
  return body;
}

std::vector<std::string> WriteHeaders() {
  return {"Content-Type: application/x-protobuf", "Content-Encoding: snappy",
          "X-Prometheus-Remote-Write-Version: 0.1.0", "User-Agent: qmtdmon/" QMT_VERSION};
}
