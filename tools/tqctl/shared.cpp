// tqctl shared: the shared printer server.
#include "tqctl/command.h"
#include "tqctl/reason.h"
#include "tqctl/text.h"
#include "transport/shared_printer_communication.h"

namespace tqctl {
namespace {

using vk::tq::CSharedPrinterCommunication;

struct ServerOptions {
  std::wstring server;
  int port = 0;
  int timeout = 5;
};

void DeclareServer(CLI::App& command, ServerOptions& options) {
  AddText(command, "--server", options.server, "The server's name or address")->required();
  command.add_option("--port", options.port, "The server's port")
      ->required()
      ->check(CLI::Range(1, 65535));
  command.add_option("--timeout", options.timeout, "Seconds to wait for a connection")
      ->capture_default_str()
      ->check(CLI::Range(1, 3600));
}

CSharedPrinterCommunication ChannelTo(const ServerOptions& options, int retries) {
  return {options.server, options.port, options.timeout * 1000, retries};
}

// The library tells that an exchange failed, but not why.
Failure FailureAt(const ServerOptions& options, const std::wstring& what_happened) {
  return {what_happened + L" " + options.server + L", port " + std::to_wstring(options.port) + L".",
          L"Look whether the server runs there and what its log says; -v shows how far it went."};
}

struct SendOptions {
  std::wstring file;
  ServerOptions to;
  int retries = 3;
};

void DeclareSend(CLI::App& command, SendOptions& options) {
  AddText(command, "FILE", options.file, "The print information file, which is sent as it is")
      ->required();
  DeclareServer(command, options.to);
  command.add_option("--retries", options.retries, "How often to try again")
      ->capture_default_str()
      ->check(CLI::Range(0, 255));
}

void Send(Context& context, const SendOptions& options) {
  SizeToSend(options.file);
  if (ChannelTo(options.to, options.retries).SendNemiInfFile(options.file) != 1) {
    throw FailureAt(options.to, QuotedPath(options.file) + L" was not taken by");
  }
  context.out.Done(L"Sent " + QuotedPath(options.file) + L" to " + options.to.server + L".",
                   {{L"sent", NativePath(options.file)}, {L"server", options.to.server}});
}

struct PrintOptions {
  std::wstring job;
  std::wstring user;
  std::wstring client;
  ServerOptions to;
};

void DeclarePrint(CLI::App& command, PrintOptions& options) {
  AddText(command, "JOB", options.job, "The job's id")->required();
  AddText(command, "--user", options.user, "Whose job it is")->required();
  AddText(command, "--client", options.client, "The name of the PC that asks")->required();
  DeclareServer(command, options.to);
}

void Print(Context& context, const PrintOptions& options) {
  // The library writes them into an XML text as they are.
  for (const std::wstring* text : {&options.job, &options.user, &options.client}) {
    if (text->find_first_of(L"<&") == std::wstring::npos) continue;
    throw UsageError(L"\"" + *text + L"\" holds a < or &, which cannot be sent.");
  }
  if (ChannelTo(options.to, 0).SendSpoolPrintOut(options.user, options.job, options.client) != 1) {
    throw FailureAt(options.to, L"The job \"" + options.job + L"\" is not printed by");
  }
  context.out.Done(L"The server prints the job \"" + options.job + L"\".",
                   {{L"printed", options.job}, {L"server", options.to.server}});
}

void ShowTime(Context& context, const ServerOptions& options) {
  const std::int64_t time = ChannelTo(options, 0).GetServerTime(L"").GetTime();
  if (time == 0) throw FailureAt(options, L"No time came from");
  context.out.Show(Fields{{L"time", TimeCell(time)}});
}

}  // namespace

void AddShared(CLI::App& app, Context& context) {
  CLI::App& noun = AddNoun(app, "shared", "The shared printer server");
  AddCommand(noun, context, "send", "Deliver a print information file", DeclareSend, Send);
  AddCommand(noun, context, "print", "Ask for the print-out of a spooled job", DeclarePrint, Print);
  AddCommand(noun, context, "time", "The server's time, plus nine hours as the programs take it",
             DeclareServer, ShowTime);
}

}  // namespace tqctl
