#include "client/commands/Commands.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <set>
#include <thread>
#include <utility>

#include "client/ask/Connection.h"
#include "client/ask/Errors.h"
#include "client/ask/SafeText.h"
#include "client/commands/ConfigText.h"
#include "client/looks/Pace.h"
#include "client/looks/RecordNames.h"
#include "client/show/RecordWriters.h"
#include "client/show/RowValues.h"

namespace {

/// A schedule has no shorter interval.
constexpr std::chrono::milliseconds kScheduleLook{500};
constexpr std::string_view kSocketBelowRoot = "/opt/qmtrx/mond/agent/run/control.sock";

std::string Indented(const Json& value) { return ShownJson(value, 2) + '\n'; }

/// The member `name` of an answer, once it is known to be there.
const Json& Part(const Json& answer, const char* name) { return *answer.Find(name); }

int ShowOnce(const CommonOptions& common, const RecordOptions& options, RecordReader& reader,
             int stop = -1) {
  const auto writer =
      MakeRecordWriter(options.format, options.records.size() > 1, ReadScreen(common.color),
                       [stop](std::string_view text) { WriteOutput(text, stop); });
  const std::vector<std::string> notes = reader.Read(*writer);
  writer->Finish();
  std::for_each(notes.begin(), notes.end(), Complain);
  return reader.AnyFailed() ? kExitFailed : kExitDone;
}

/// Shows the samples of a watch, in place where the screen can do that.
class SampleWriter {
 public:
  SampleWriter(const CommonOptions& common, Format format, int stop)
      : m_color(common.color), m_format(format), m_stop(stop) {}

  void Write(Sample& sample) {
    const Screen screen = ReadScreen(m_color);
    const std::string text = RecordsText(sample.records, m_format, true, screen);
    if (m_format == Format::kTable && screen.redraws) {
      Redraw(text, sample.notes, screen);
    } else {
      for (const std::string& note : sample.notes) {
        if (m_complaints.insert(note).second) {
          Complain(note);
        }
      }
      WriteOutput((m_format == Format::kTable && !m_isFirst ? "\n" : "") + text, m_stop);
    }
    m_isFirst = false;
  }

  /// Leaves a redrawn screen with the cursor below, and says what would else be gone with it.
  void Finish() const {
    if (m_inPlace) {
      WriteOutput("\n");
      std::for_each(m_lastNotes.begin(), m_lastNotes.end(), Complain);
    }
  }

 private:
  void Redraw(std::string text, std::vector<std::string>& notes, const Screen& screen) {
    for (const std::string& note : notes) {
      text.insert(0, SafeText(note) + "\n");
    }
    m_inPlace = true;
    m_lastNotes = std::move(notes);
    WriteOutput(Frame(text, screen), m_stop);
  }

  ColorMode m_color;
  Format m_format;
  int m_stop;
  bool m_isFirst = true;
  bool m_inPlace = false;
  std::vector<std::string> m_lastNotes;
  std::set<std::string> m_complaints;  ///< a complaint is made once, not with every sample
};

/// When each record of a sample was made.
std::vector<std::int64_t> TimesOf(const Sample& sample) {
  std::vector<std::int64_t> times;
  for (const ShownRecord& record : sample.records) {
    times.push_back(record.answer.time);
  }
  return times;
}

/// Shows the rows of the schedules each time that there are new ones; the exit value.
int ShowScheduled(const CommonOptions& common, const WatchOptions& options, const StopSignals& stop,
                  SampleWriter& writer) {
  RecordReader reader(common.socket, options.what, "last", stop.Get());
  std::vector<std::int64_t> shown;
  std::uint64_t samples = 0;
  do {
    Sample sample = reader.Read();
    if (sample.records.empty()) {
      std::for_each(sample.notes.begin(), sample.notes.end(), Complain);
      return kExitFailed;
    }
    std::vector<std::int64_t> times = TimesOf(sample);
    if (times != shown && *std::max_element(times.begin(), times.end()) != 0) {
      shown = std::move(times);
      writer.Write(sample);
      if (++samples == options.count) {
        return reader.AnyFailed() ? kExitFailed : kExitDone;
      }
    }
  } while (!stop.WaitUntil(std::chrono::steady_clock::now() + kScheduleLook));
  return kExitDone;
}

/// Collects and shows sample after sample; the exit value.
int ShowSamples(const CommonOptions& common, const WatchOptions& options, const StopSignals& stop,
                SampleWriter& writer) {
  const Pace pace(options.everySeconds);
  RecordReader reader(common.socket, options.what, "get", stop.Get());
  for (std::uint64_t samples = 1;; ++samples) {
    Sample sample = reader.Read();
    if (sample.records.empty() && samples == 1) {
      std::for_each(sample.notes.begin(), sample.notes.end(), Complain);
      return kExitFailed;
    }
    writer.Write(sample);
    if (samples == options.count) {
      return reader.AnyFailed() ? kExitFailed : kExitDone;
    }
    if (stop.WaitUntil(pace.Next())) {
      return kExitDone;
    }
  }
}

}  // namespace

std::string DefaultSocket() {
  const char* root = std::getenv("QMT_PRODUCT_ROOT");
  return std::string(root == nullptr ? "" : root).append(kSocketBelowRoot);
}

int RunRecords(const CommonOptions& common, bool json) {
  Connection connection(common.socket);
  const Json answer = connection.Ask({{"op", "records"}});
  const std::vector<Listing> records = ReadListing(answer);
  WriteOutput(json ? Indented(Part(answer, "records"))
                   : ListingText(records, ReadScreen(common.color)));
  return kExitDone;
}

int RunGet(const CommonOptions& common, const RecordOptions& options, double overSeconds,
           const StopSignals* stop) {
  const Pace pace(overSeconds, "--over");
  const int descriptor = stop == nullptr ? -1 : stop->Get();
  RecordReader reader(common.socket, options, "get", descriptor);
  const auto second = std::chrono::steady_clock::now() + pace.Length();
  if (reader.LookFirst()) {
    if (stop == nullptr) {
      std::this_thread::sleep_until(second);
    } else if (stop->WaitUntil(second)) {
      throw Interrupted{};
    }
  }
  return ShowOnce(common, options, reader, descriptor);
}

int RunLast(const CommonOptions& common, const RecordOptions& options) {
  RecordReader reader(common.socket, options, "last");
  return ShowOnce(common, options, reader);
}

int RunWatch(const CommonOptions& common, const WatchOptions& options) {
  const StopSignals stop;
  SampleWriter writer(common, options.what.format, stop.Get());
  int value = kExitDone;
  try {
    value = (options.isScheduled ? ShowScheduled : ShowSamples)(common, options, stop, writer);
  } catch (const Interrupted&) {
    // The end that was asked for.
  } catch (const ClientError&) {
    writer.Finish();
    throw;
  }
  writer.Finish();
  return value;
}

int RunSchema(const CommonOptions& common, const std::string& record, bool json) {
  const RecordName typed = ParseRecordName(record);
  Connection connection(common.socket);
  const RecordName name = RecordNames(connection).Need(typed);
  const Json answer = connection.Ask(SchemaRequest(name));
  const Schema schema = ReadSchema(answer);
  WriteOutput(json ? Indented(Part(answer, "schema"))
                   : SchemaText(schema, ReadScreen(common.color)));
  return kExitDone;
}

int RunStatus(const CommonOptions& common, bool json) {
  Connection connection(common.socket);
  const Json answer = connection.Ask({{"op", "status"}});
  const Status status = ReadStatus(answer);
  WriteOutput(json ? Indented(Part(answer, "status"))
                   : StatusText(status, ReadScreen(common.color)));
  return kExitDone;
}

int RunConfig(const CommonOptions& common, bool json) {
  Connection connection(common.socket);
  const Json answer = connection.Ask({{"op", "config"}});
  const std::vector<ConfigNode> tree = ReadConfig(answer);
  WriteOutput(
      json ? Indented(Part(answer, "config"))
           : ConfigText(tree, ReadScreen(common.color), ReadHostProfile(Part(answer, "config"))));
  return kExitDone;
}
