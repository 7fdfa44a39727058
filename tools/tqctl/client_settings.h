// Client.ini, read with what the library has to say about it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "settings/client_setting.h"
#include "tqctl/command.h"

namespace tqctl {

// A log line of the library, kept.
struct LogLine {
  int level = 0;
  int number = 0;
  std::wstring function;
  std::wstring message;
  std::optional<int> code = {};
};

// The lines that the library writes while some work is done. They are shown with -v, but none of
// them counts as the reason of a later failure.
std::vector<LogLine> LinesOf(Context& context, const std::function<void()>& work);

struct ClientSettings {
  vk::tq::CClientSetting values;
  int result = 0;
  std::vector<LogLine> lines;
};

// Reads once, with the mode of CClientSetting::Read. Directories that are missing are made, but
// nothing goes to the event log: this is no start of the suite's own programs.
void ReadClientSettings(Context& context, int mode, ClientSettings& settings);

// The path of Client.ini.
std::wstring ClientIni();

// The command that shows all of it.
void AddSettingsCheck(CLI::App& noun, Context& context);

}  // namespace tqctl
