#include "client/ManPage.h"

#include <array>
#include <string_view>
#include <utility>

#include "client/ask/Errors.h"
#include "client/view/KeyHelp.h"

namespace {

constexpr std::array<std::pair<int, const char*>, 5> kExitTexts{{
    {kExitDone, "Done."},
    {kExitFailed, "Failed: no daemon, a broken answer, or a record that could not be had."},
    {kExitUsage, "Wrong usage."},
    {kExitRefused, "The agent refused a change."},
    {kExitNotWritten, "A change could not be written to the daemon's file."},
}};

/// A text as it is, whatever the formatter makes of some of its characters.
std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char letter : text) {
    if (letter == '\\') {
      escaped += "\\e";
    } else if (letter == '-') {
      escaped += "\\-";
    } else {
      // A request begins a line with one of these.
      const bool isRequest =
          (letter == '.' || letter == '\'') && (escaped.empty() || escaped.back() == '\n');
      escaped += isRequest ? "\\&" : "";
      escaped += letter;
    }
  }
  return escaped;
}

std::string Bold(std::string_view text) { return "\\fB" + Escaped(text) + "\\fR"; }
std::string Italic(std::string_view text) { return "\\fI" + Escaped(text) + "\\fR"; }

std::string OptionHead(const OptionView& option) {
  if (option.isArgument) {
    return Italic(option.name);
  }
  return Bold(option.name) + (option.value.empty() ? "" : ' ' + Italic(option.value));
}

/// A command and its arguments, options in brackets unless they must be there.
std::string Synopsis(const CommandView& command, const std::string& path) {
  std::string line = Bold(path);
  for (const std::vector<OptionView>* options : {&command.options, &command.arguments}) {
    for (const OptionView& option : *options) {
      const std::string head = OptionHead(option);
      const char* more = option.isList ? " ..." : "";
      line += option.isRequired ? ' ' + head + more : " [" + head + more + ']';
    }
  }
  return line;
}

std::string Descriptions(const CommandView& command) {
  std::string text;
  for (const std::vector<OptionView>* options : {&command.arguments, &command.options}) {
    for (const OptionView& option : *options) {
      text += ".TP\n" + OptionHead(option) + '\n' + Escaped(option.description) + ".\n";
    }
  }
  return text;
}

/// The command and, behind it, its subcommands.
std::string CommandSections(const CommandView& command, const std::string& path) {
  std::string text;
  for (const CommandView& subcommand : command.subcommands) {
    const std::string name = path + ' ' + subcommand.name;
    text += ".SS " + Synopsis(subcommand, name) + '\n' + Escaped(subcommand.description) + ".\n" +
            Descriptions(subcommand) + CommandSections(subcommand, name);
  }
  return text;
}

/// The keys of the full-screen view, under their headings.
std::string KeySections() {
  std::string text;
  for (const KeyHelp& help : AllKeyHelp()) {
    const std::string keys = help.keys;
    text += keys.empty() ? ".SS " + Escaped(help.text) + '\n'
                         : ".TP\n" + Bold(keys) + '\n' + Escaped(help.text) + ".\n";
  }
  return text;
}

}  // namespace

std::string ManPage(const CommandView& tree) {
  const std::string& name = tree.name;
  std::string text = ".TH " + name + " 1 \"\" \"" + name + " " QMT_VERSION "\" \"User Commands\"\n";
  text += ".SH NAME\n" + name + " \\- operator's client of the monitoring daemon qmtdmon\n";
  text += ".SH SYNOPSIS\n" + Synopsis(tree, name) + ' ' + Italic("COMMAND") + " ...\n";
  text +=
      ".SH DESCRIPTION\n" + Escaped(tree.description) +
      ". Data goes to standard output, words for the operator to standard error. Without any word "
      "it prints what one wants first.\n";
  text += ".SH OPTIONS\nThese may also stand behind a command.\n" + Descriptions(tree);
  text += ".SH COMMANDS\n" + CommandSections(tree, name);
  text += ".SH KEYS OF VIEW\n" + KeySections();
  text += ".SH EXIT STATUS\n";
  for (const auto& [value, meaning] : kExitTexts) {
    text += ".TP\n.B " + std::to_string(value) + '\n' + Escaped(meaning) + '\n';
  }
  text +=
      ".SH ENVIRONMENT\n.TP\n.B QMT_PRODUCT_ROOT\n"
      "A path that stands before those of the daemon's files.\n";
  text +=
      ".SH FILES\n.TP\n.I /opt/qmtrx/mond/agent/run/control.sock\nThe control socket of the "
      "daemon.\n";
  text += ".SH SEE ALSO\n.BR qmtdmon (8),\n.BR qmtagt.ini (5)\n";
  return text;
}
