#include <CLI/CLI.hpp>

#include "client/CommandLine.h"

namespace {

void AddToken(CLI::App& app, CommandLine& line) {
  CLI::App* token = app.add_subcommand("token", "Make tokens for those who ask over the network");
  token->require_subcommand(1);
  CLI::App* create = token->add_subcommand("new", "Make a token, and the line of the gate's file");
  create->add_option("NAME", line.token.name, "What the token is known by")->required();
  TakeOneOf(create->add_option("--role", line.token.role, "read (if not given) or metrics")
                ->option_text("ROLE"),
            line, {"read", "metrics"});
  create->add_option("--file", line.token.file, "Add the line to this file instead of printing it")
      ->option_text("FILE");
  create->callback([&] { line.run = [&] { return RunTokenNew(line.token); }; });
}

void AddCertificate(CLI::App& app, CommandLine& line) {
  CLI::App* cert = app.add_subcommand("cert", "Make certificates for the gate");
  cert->require_subcommand(1);
  CLI::App* create =
      cert->add_subcommand("new", "Make a key and a certificate that it signs itself");
  create
      ->add_option("--host", line.certificate.hosts,
                   "A further name or address of the host; may be given again")
      ->allow_extra_args(false)
      ->option_text("NAME");
  TakeNumber(create->add_option("--days", line.certificate.days,
                                "How long it is good for, 1 to 3650, 825 if not given"),
             1, 3650)
      ->option_text("N");
  create->add_option("--out", line.certificate.out, "Where to: PATH.crt and PATH.key")
      ->required()
      ->option_text("PATH");
  create->callback([&] { line.run = [&] { return RunCertificateNew(line.certificate); }; });
}

}  // namespace

void AddGateCommands(CLI::App& app, CommandLine& line) {
  CLI::App* console = app.add_subcommand("console", "Open the console in the browser");
  console->add_flag("--print", line.isPrinting, "Print the link, which is a secret, alone");
  console->callback([&] { line.run = [&] { return RunConsole(line.common, line.isPrinting); }; });
  AddToken(app, line);
  AddCertificate(app, line);
}
