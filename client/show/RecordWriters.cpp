#include "client/show/RecordWriters.h"

#include <string>
#include <utility>

#include "client/ask/SafeText.h"
#include "client/show/Terminal.h"

namespace {

/// `text`, whose lines begin with `blanks` more, but for the first.
std::string Deeper(const std::string& text, std::size_t blanks) {
  std::string out;
  for (const char c : text) {
    out += c;
    // Line ends within a text are escaped.
    if (c == '\n') {
      out.append(blanks, ' ');
    }
  }
  return out;
}

/// Hands on what is printed in pieces that are worth a call.
class Pieces {
 public:
  explicit Pieces(RecordWriter::Write write) : m_write(std::move(write)) {}

  void Add(std::string_view text) {
    constexpr std::size_t kPiece = 65536;
    m_text += text;
    if (m_text.size() >= kPiece) {
      Flush();
    }
  }
  void Flush() {
    m_write(m_text);
    m_text.clear();
  }

 private:
  RecordWriter::Write m_write;
  std::string m_text;
};

/// As JsonText would print an array of {"record", "category", "time", "rows"}.
class JsonRecords : public RecordWriter {
 public:
  JsonRecords(int indent, Write write) : m_indent(indent), m_out(std::move(write)) {}

  void Begin(const ShownRecord& record) override {
    const RecordAnswer& answer = record.answer;
    const std::string head = ShownJson(
        Json{{"record", answer.record}, {"category", answer.category}, {"time", answer.time}},
        m_indent, m_isForTerminal);
    m_out.Add(m_isFirst ? "[" : ",");
    m_isFirst = false;
    m_hasRows = false;
    BreakLine(1);
    // Without what ends the object.
    m_out.Add(Deeper(head.substr(0, head.size() - (m_indent < 0 ? 1 : 2)), Blanks(1)));
    m_out.Add(",");
    BreakLine(2);
    m_out.Add(m_indent < 0 ? "\"rows\":[" : "\"rows\": [");
  }

  bool Row(Json row) override {
    m_out.Add(std::exchange(m_hasRows, true) ? "," : "");
    BreakLine(3);
    m_out.Add(Deeper(ShownJson(row, m_indent, m_isForTerminal), Blanks(3)));
    return true;
  }

  void End() override {
    if (m_hasRows) {
      BreakLine(2);
    }
    m_out.Add("]");
    BreakLine(1);
    m_out.Add("}");
  }

  void Finish() override {
    if (m_isFirst) {
      m_out.Add("[");
    } else {
      BreakLine(0);
    }
    m_out.Add("]\n");
    m_out.Flush();
  }

 private:
  [[nodiscard]] std::size_t Blanks(int depth) const {
    return m_indent < 0 ? 0 : static_cast<std::size_t>(m_indent * depth);
  }
  void BreakLine(int depth) {
    if (m_indent >= 0) {
      m_out.Add('\n' + std::string(Blanks(depth), ' '));
    }
  }

  int m_indent;
  bool m_isForTerminal = WritesToTerminal();
  Pieces m_out;
  bool m_isFirst = true;
  bool m_hasRows = false;
};

/// Tables and CSV: a blank line between two records, and rows in parts.
class TextRecords : public RecordWriter {
 public:
  TextRecords(bool titles, const Screen& screen, Write write)
      : m_titles(titles), m_screen(screen), m_write(std::move(write)) {}

  void Begin(const ShownRecord& record) override {
    m_part = record;
    m_part.answer.rows = Json::Array();
    m_isBegun = false;
    BeginRecord(record);
  }

  bool Row(Json row) override {
    m_part.answer.rows.PushBack(std::move(row));
    if (m_part.answer.rows.Size() == kRowsAtATime) {
      Flush();
    }
    return true;
  }

  void End() override { Flush(); }
  void Finish() override {}

 protected:
  virtual void BeginRecord(const ShownRecord& record) = 0;
  /// The next rows, which may be none.
  virtual std::string PartText(const ShownRecord& part, const Screen& screen) = 0;

 private:
  void Flush() {
    std::string text = PartText(m_part, m_screen);
    m_part.answer.rows = Json::Array();
    if (!m_isBegun && m_titles) {
      const RecordName name{m_part.answer.record, m_part.answer.category};
      const std::string title = SafeText(name.Text()) + "  " + DateText(m_part.answer.time);
      text.insert(0, Emphasize(title, m_screen) + '\n');
    }
    if (text.empty()) {
      return;
    }
    if (!std::exchange(m_isBegun, true) && std::exchange(m_isSecond, true)) {
      text.insert(0, "\n");
    }
    m_write(text);
  }

  bool m_titles;
  Screen m_screen;
  Write m_write;
  ShownRecord m_part;       ///< with the rows that wait
  bool m_isBegun = false;   ///< something of this record was printed
  bool m_isSecond = false;  ///< something of any record was
};

class TableRecords : public TextRecords {
 public:
  using TextRecords::TextRecords;

 protected:
  void BeginRecord(const ShownRecord&) override { m_table = {}; }
  std::string PartText(const ShownRecord& part, const Screen& screen) override {
    return m_table.Text(part, screen);
  }

 private:
  RowsTable m_table;
};

class CsvRecords : public TextRecords {
 public:
  explicit CsvRecords(Write write) : TextRecords(false, {}, std::move(write)) {}

 protected:
  void BeginRecord(const ShownRecord&) override { m_rows = {}; }
  std::string PartText(const ShownRecord& part, const Screen&) override {
    return m_rows.Text(part.answer.rows);
  }

 private:
  CsvRows m_rows;
};

}  // namespace

std::unique_ptr<RecordWriter> MakeRecordWriter(Format format, bool titles, const Screen& screen,
                                               RecordWriter::Write write) {
  switch (format) {
    case Format::kJson:
      return std::make_unique<JsonRecords>(2, std::move(write));
    case Format::kJsonLine:
      return std::make_unique<JsonRecords>(-1, std::move(write));
    case Format::kCsv:
      return std::make_unique<CsvRecords>(std::move(write));
    default:
      return std::make_unique<TableRecords>(titles, screen, std::move(write));
  }
}

std::string RecordsText(std::vector<ShownRecord>& records, Format format, bool titles,
                        const Screen& screen) {
  std::string text;
  const auto writer =
      MakeRecordWriter(format, titles, screen, [&](std::string_view piece) { text += piece; });
  for (ShownRecord& record : records) {
    Json rows = std::exchange(record.answer.rows, Json::Array());
    writer->Begin(record);
    for (Json& row : rows.Elements()) {
      writer->Row(std::move(row));
    }
    writer->End();
  }
  writer->Finish();
  return text;
}
