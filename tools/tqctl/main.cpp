// tqctl: the command-line tool for people who install, support and debug the suite.
#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "tqctl/command.h"
#include "tqctl/completion.h"
#include "tqctl/text.h"

namespace tqctl {
namespace {

constexpr void (*kNouns[])(CLI::App&, Context&) = {
    AddJob,  AddNemi,  AddCrypt,    AddLock, AddSettings, AddSystem,
    AddUser, AddUsers, AddPrinters, AddFtp,  AddShared,   AddFqdn,
};

// A failure, as people read it on standard error, or as the one JSON document.
void Report(Context& context, const std::wstring& message, const std::wstring& library_says,
            const std::wstring& advice) {
  if (context.out.is_json() && std::ferror(stdout) == 0) {
    Fields error = {{L"message", message}, {L"advice", advice}};
    if (!library_says.empty()) error.emplace_back(L"log", library_says);
    context.out.ShowJson(Json::Object{{L"error", ToJson(error)}});
    return;
  }
  PrintError(Tone::kBad, L"tqctl: ", message);
  if (!library_says.empty() && !context.is_verbose) {
    PrintError(Tone::kFaint, L"  The library says: ", library_says);
  }
  PrintError(Tone::kPlain, L"  ", advice);
}

int ReportWrongUsage(Context& context, std::wstring message) {
  if (!message.empty() && message.back() != L'.') message += L'.';
  Report(context, message, L"", L"Add --help to the command to see what it takes.");
  return kWrongUsage;
}

std::wstring WhatIsWrong(const CLI::App& app, const CLI::Error& error) {
  // A word that nothing takes says more than what is missing because of it.
  const std::vector<std::string> not_taken = app.remaining(true);
  if (!not_taken.empty()) return L"\"" + WideToShow(not_taken.front()) + L"\" is not expected here";
  const CLI::App* command = &app;
  std::wstring name = L"tqctl";
  while (!command->get_subcommands().empty()) {
    command = command->get_subcommands().front();
    name += L" " + WideToShow(command->get_name());
  }
  std::wstring choice;
  for (const CLI::App* one : command->get_subcommands({})) {
    choice += (choice.empty() ? L"" : L", ") + WideToShow(one->get_name());
  }
  if (!choice.empty()) return L"\"" + name + L"\" needs one of: " + choice;
  return WideToShow(error.what());
}

void Declare(CLI::App& app, Context& context) {
  app.name("tqctl");
  app.description("Works on jobs, settings, users and transfers of the print-management suite.");
  app.set_help_flag("-h,--help", "Show this help");
  app.set_version_flag("--version", TQCTL_VERSION, "Show the version");
  app.add_flag_callback(
      "--json", [&] { context.out.SetJson(true); }, "Show JSON, for programs");
  app.add_flag("-v,--verbose", context.is_verbose, "Show the library's log lines too");
  app.fallthrough();  // these may stand behind a command as well
  app.footer("Every command also takes --json and -v; see tqctl --help.");
  app.require_subcommand(1);
  for (const auto add : kNouns) add(app, context);
}

int RunCommand(Context& context) {
  context.log = std::make_shared<LibraryLog>(context.is_verbose);
  vk::tq::InstallLogSink(context.log);
  try {
    context.work();
    context.out.Flush();
    return context.status;
  } catch (const Failure& failure) {
    Report(context, failure.message, context.log->LastFailure(), failure.advice);
  } catch (const UsageError& error) {
    return ReportWrongUsage(context, error.message);
  } catch (const std::exception& exception) {
    Report(context, WideToShow(exception.what()), context.log->LastFailure(),
           L"Run the command again with -v to see what happened before.");
  }
  std::fflush(stdout);
  return kFailed;
}

int Main(int count, char** arguments) {
  UseLocale();
  Context context;
  // Wrong usage is found before the options are read.
  context.out.SetJson(std::any_of(arguments, arguments + count, [](const char* argument) {
    return argument == std::string_view("--json");
  }));
  CLI::App app;
  Declare(app, context);
  if (count > 1 && arguments[1] == std::string_view("__complete")) {  // asked by the shell
    std::fputs(Completions(app, {arguments + 2, arguments + count}).c_str(), stdout);
    return kDone;
  }
  try {
    app.parse(count, arguments);
  } catch (const CLI::Success& help) {
    context.work = [&] { app.exit(help); };
    return RunCommand(context);  // while the exception lives
  } catch (const CLI::Error& error) {
    return ReportWrongUsage(context, WhatIsWrong(app, error));
  } catch (const UsageError& error) {
    return ReportWrongUsage(context, error.message);
  }
  return RunCommand(context);
}

}  // namespace
}  // namespace tqctl

int main(int count, char** arguments) { return tqctl::Main(count, arguments); }
