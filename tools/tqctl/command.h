// How the commands of the tool are made.
//
// Each noun has a file of its own with one function, AddJob in job.cpp, which adds the noun and its
// commands to the program; main.cpp has the table of these functions. A command is a record of its
// options, a function that declares them, and one that does the work:
//
//   struct DeleteOptions { std::wstring base; };
//   void DeclareDelete(CLI::App& command, DeleteOptions& options);
//   void DeleteJob(Context& context, const DeleteOptions& options);
//
//   AddCommand(noun, context, "delete", "Delete all files of a job", DeclareDelete, DeleteJob);
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tqctl/failure.h"
#include "tqctl/library_log.h"
#include "tqctl/output.h"

namespace tqctl {

// What every command is given.
struct Context {
  bool is_verbose = false;
  Output out;
  // The library's log lines; there once the command runs.
  std::shared_ptr<LibraryLog> log;
  // What a command sets that has shown its result and yet failed.
  ExitStatus status = kDone;
  // The command that the arguments name; it runs when all of them are known to be good.
  std::function<void()> work;
};

// The nouns.
void AddJob(CLI::App& app, Context& context);
void AddNemi(CLI::App& app, Context& context);
void AddCrypt(CLI::App& app, Context& context);
void AddLock(CLI::App& app, Context& context);
void AddSettings(CLI::App& app, Context& context);
void AddSystem(CLI::App& app, Context& context);
void AddUser(CLI::App& app, Context& context);
void AddUsers(CLI::App& app, Context& context);
void AddPrinters(CLI::App& app, Context& context);
void AddFtp(CLI::App& app, Context& context);
void AddShared(CLI::App& app, Context& context);
void AddFqdn(CLI::App& app, Context& context);

// Adds a noun, which needs one of its commands.
CLI::App& AddNoun(CLI::App& app, const char* name, const char* help);

template <class Options>
CLI::App& AddCommand(CLI::App& noun, Context& context, const char* name, const char* help,
                     void (*declare)(CLI::App&, Options&), void (*work)(Context&, const Options&)) {
  CLI::App& command = *noun.add_subcommand(name, help);
  const auto options = std::make_shared<Options>();
  declare(command, *options);
  command.callback([=, &context] { context.work = [=, &context] { work(context, *options); }; });
  return command;
}

// Options and arguments that are texts. The name is "--user" for an option, "BASE" for an argument.
CLI::Option* AddText(CLI::App& command, const char* name, std::wstring& value, const char* help);

// An option that may be given several times, with one text each time; an argument takes all that
// follow.
CLI::Option* AddTexts(CLI::App& command, const char* name, std::vector<std::wstring>& values,
                      const char* help);

}  // namespace tqctl
