#include "gate/push/WriteRequest.h"

#include <snappy.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <protozero/pbf_writer.hpp>
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

/// Writes the message, series by series.
class WriteMessage {
 public:
  WriteMessage(std::string_view text, std::span<const PlacedSample> samples,
               const TargetLabels& labels)
      : m_samples(samples), m_chains(text, samples), m_extra(labels) {
    // Memory that is not touched costs nothing, and that which has to be moved does.
    m_message.reserve(2 * text.size());
    for (const SeriesChains::Chain& chain : m_chains.All()) {
      if (ReadSeries(chain.series, m_labels)) {
        AddExtra();
        Add(chain);
      } else {
        ForEach(chain, [this](const PlacedSample&) { ++m_leftOut; });
      }
    }
  }

  [[nodiscard]] const std::string& Text() const { return m_message; }
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
    Open(kRequestSeries, size);
    for (const SeriesLabel& label : m_labels) {
      Open(kSeriesLabels, LabelSize(label));
      m_fields.add_string(kLabelName, label.name.data(), label.name.size());
      m_value.clear();
      label.AppendValue(m_value);
      m_fields.add_string(kLabelValue, m_value);
    }
    ForEach(chain, [&](const PlacedSample& sample) {
      Open(kSeriesSamples, SampleSize(sample));
      m_fields.add_double(kSampleValue, sample.value);
      m_fields.add_int64(kSampleTime, sample.time);
    });
  }
  /// The head of a message within another, whose fields follow: as sizes are known, nothing has to
  /// be moved later.
  void Open(protozero::pbf_tag_type tag, std::size_t size) {
    constexpr auto kType = static_cast<std::uint32_t>(protozero::pbf_wire_type::length_delimited);
    protozero::add_varint_to_buffer(&m_message, (tag << 3U) | kType);
    protozero::add_varint_to_buffer(&m_message, size);
  }

  std::span<const PlacedSample> m_samples;
  SeriesChains m_chains;
  const TargetLabels& m_extra;
  std::vector<SeriesLabel> m_labels;
  std::string m_value;
  std::string m_message;
  protozero::pbf_writer m_fields{m_message};
  std::size_t m_leftOut = 0;
};

}  // namespace

WriteBody MakeWriteBody(std::string_view text, std::span<const PlacedSample> samples,
                        const TargetLabels& labels) {
  const WriteMessage message(text, samples, labels);
  WriteBody body;
  body.leftOut = message.LeftOut();
  body.samples = samples.size() - body.leftOut;
  const std::size_t longest = snappy::MaxCompressedLength(message.Text().size());
  const auto compressed = std::make_unique_for_overwrite<char[]>(longest);
  std::size_t size = 0;
  snappy::RawCompress(message.Text().data(), message.Text().size(), compressed.get(), &size);
  body.bytes.assign(compressed.get(), size);
  return body;
}

std::vector<std::string> WriteHeaders() {
  return {"Content-Type: application/x-protobuf", "Content-Encoding: snappy",
          "X-Prometheus-Remote-Write-Version: 0.1.0", "User-Agent: qmtdmon/" QMT_VERSION};
}
