#include "tqctl/command.h"

#include "tqctl/text.h"

namespace tqctl {

CLI::App& AddNoun(CLI::App& app, const char* name, const char* help) {
  CLI::App& noun = *app.add_subcommand(name, help);
  noun.require_subcommand(1);
  return noun;
}

CLI::Option* AddText(CLI::App& command, const char* name, std::wstring& value, const char* help) {
  const auto set = [&value](const std::string& bytes) { value = Wide(bytes); };
  return command.add_option_function<std::string>(name, set, help)->type_name("");
}

CLI::Option* AddTexts(CLI::App& command, const char* name, std::vector<std::wstring>& values,
                      const char* help) {
  const auto set = [&values](const std::vector<std::string>& all) {
    for (const std::string& bytes : all) values.push_back(Wide(bytes));
  };
  CLI::Option* const option =
      command.add_option_function<std::vector<std::string>>(name, set, help);
  if (option->nonpositional()) option->expected(1)->allow_extra_args(false);
  return option->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)->type_name("");
}

}  // namespace tqctl
