#include "tqctl/completion.h"

#include <algorithm>

namespace tqctl {
namespace {

const CLI::App* FindCommand(const CLI::App& app, const std::string& name) {
  const auto commands =
      app.get_subcommands([&](const CLI::App* one) { return one->get_name() == name; });
  return commands.empty() ? nullptr : commands.front();
}

}  // namespace

std::string Completions(const CLI::App& app, const std::vector<std::string>& words) {
  if (words.empty()) return {};
  const CLI::App* command = &app;
  for (const std::string& word : words) {
    const CLI::App* const found = FindCommand(*command, word);
    if (found != nullptr && &word != &words.back()) command = found;
  }
  std::string lines;
  const auto offer = [&](const std::string& candidate) {
    if (candidate.starts_with(words.back())) lines += candidate + "\n";
  };
  if (!words.back().starts_with("-")) {
    for (const CLI::App* one : command->get_subcommands({})) offer(one->get_name());
    return lines;
  }
  const auto offer_options = [&](const CLI::App& from) {
    for (const CLI::Option* option : from.get_options()) {
      for (const std::string& name : option->get_lnames()) offer("--" + name);
    }
  };
  offer_options(*command);
  if (command != &app) {
    for (const char* everywhere : {"--json", "--verbose"}) offer(everywhere);
  }
  return lines;
}

}  // namespace tqctl
