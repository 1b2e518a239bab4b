#pragma once

#include <string>

#include "client/report/Summary.h"
#include "client/show/Terminal.h"

// The summary in each format. Texts of the host become neither commands of a terminal nor markup.

[[nodiscard]] std::string SummaryText(const Summary& summary, const Screen& screen);
[[nodiscard]] std::string SummaryMarkdown(const Summary& summary);
/// One page that needs nothing besides; it draws its charts itself.
[[nodiscard]] std::string SummaryHtml(const Summary& summary);

/// `text` for a place of a table of Markdown: in one line, without anything that marks it up.
[[nodiscard]] std::string MarkdownCell(const std::string& text);
/// `text` for a text or a quoted attribute of HTML; bytes that are no UTF-8 are written out.
[[nodiscard]] std::string HtmlText(const std::string& text);
/// JSON that may stand in a script element: nothing in it ends the element.
[[nodiscard]] std::string ScriptJson(const Json& value);
