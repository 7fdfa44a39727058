// tqctl settings check: every key of Client.ini, with what the library says about it.
#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <utility>

#include "platform/path.h"
#include "settings/client_setting_table.h"
#include "tqctl/client_settings.h"
#include "tqctl/text.h"

namespace tqctl {
namespace {

using vk::tq::CClientSetting;
namespace keys = vk::tq::client_keys;

enum class State { kAsRead, kMade, kDefault, kFailure };
struct StateName {
  const wchar_t* name;
  Tone tone;
};
constexpr StateName kStates[] = {
    {L"read", Tone::kGood},
    {L"made", Tone::kGood},
    {L"default", Tone::kWarning},
    {L"failure", Tone::kBad},
};

// The lines about a directory that Read has made, or could not make.
constexpr int kDirectoryMade = 120200610;
constexpr int kDirectoryNotMade = 120200600;

struct Finding {
  const wchar_t* key;
  Cell value;
  State state;
  std::vector<LogLine> lines;
};

// Joins the values of one Read with the lines that it left. A line belongs to a key when it has one
// of the key's numbers, which some keys share, and names the key by its label or tells that it is
// missing.
class Joiner {
 public:
  explicit Joiner(ClientSettings& settings)
      : values_(settings.values), lines_(std::move(settings.lines)) {}

  Finding operator()(const keys::NumberKey& key) {
    const int value =
        std::visit([&](auto member) { return static_cast<int>(values_.*member); }, key.member);
    return Joined(key.key, value, Take({key.not_a_number, key.out_of_limit}, key.label));
  }

  Finding operator()(const keys::FlagKey& key) {
    return Joined(key.key, values_.*key.member ? 1 : 0, Take({key.empty, key.bad}, key.label));
  }

  Finding operator()(const keys::RequiredTextKey& key) {
    const std::wstring& text = values_.*key.member;
    const bool is_secret = key.member == &CClientSetting::P3 && !text.empty();
    return Joined(key.key, is_secret ? L"(not shown)" : text,
                  Take({key.missing, key.blank}, key.label, key.missing_text));
  }

  Finding operator()(const keys::OptionalTextKey& key) {
    return Joined(key.key, values_.*key.member, Take({key.missing}, key.key, key.missing_text));
  }

  Finding operator()(const keys::DirectoryKey& key) {
    const std::wstring& path = values_.*key.member;
    std::vector<LogLine> lines =
        Take({key.missing, key.blank, key.not_creatable}, key.label, key.missing_text);
    const bool is_bad = !lines.empty();
    const auto about = std::ranges::find_if(lines_, [&](const LogLine& line) {
      const std::wstring_view said = is_bad ? std::wstring_view(lines.front().message) : path;
      return IsAboutDirectory(line, is_bad ? kDirectoryNotMade : kDirectoryMade, said);
    });
    const bool is_told = about != lines_.end();
    if (is_told) {
      lines.insert(lines.begin(), *about);
      lines_.erase(about);
    }
    Finding finding = Joined(key.key, path, std::move(lines));
    if (!is_bad && is_told) finding.state = State::kMade;
    return finding;
  }

  Finding operator()(const keys::IntegerKey& key) {
    return Joined(key.key, values_.*key.member, {});
  }

  Finding operator()(const keys::CardCodeKey& key) {
    return Joined(key.key, values_.*key.member, Take({key.bad}, key.label));
  }

 private:
  static Finding Joined(const wchar_t* key, const Cell& value, std::vector<LogLine> lines) {
    const bool is_failure =
        std::ranges::any_of(lines, [](const LogLine& line) { return line.level >= 4; });
    const State state = is_failure       ? State::kFailure
                        : !lines.empty() ? State::kDefault
                                         : State::kAsRead;
    return {key, value, state, std::move(lines)};
  }

  // The line ends in the path, behind a full-width colon, and the text holds or is that path.
  static bool IsAboutDirectory(const LogLine& line, int number, std::wstring_view text) {
    if (line.number != number) return false;
    const std::wstring_view path =
        std::wstring_view(line.message).substr(line.message.find(L'：') + 1);
    return number == kDirectoryMade ? text == path
                                    : text.ends_with(L"[" + std::wstring(path) + L"]");
  }

  std::vector<LogLine> Take(std::initializer_list<int> numbers, std::wstring_view label,
                            const wchar_t* missing_text = nullptr) {
    const std::wstring named = L"[" + std::wstring(label) + L"]";
    const auto is_own = [&](const LogLine& line) {
      const bool is_named = line.message.find(named) != std::wstring::npos ||
                            (missing_text != nullptr && line.message == missing_text);
      return line.number != 0 && is_named && std::ranges::count(numbers, line.number) > 0;
    };
    const auto own = std::stable_partition(lines_.begin(), lines_.end(), std::not_fn(is_own));
    std::vector<LogLine> taken(own, lines_.end());
    lines_.erase(own, lines_.end());
    return taken;
  }

  const CClientSetting& values_;
  std::vector<LogLine> lines_;
};

std::vector<Finding> Join(ClientSettings& settings, bool has_transfer) {
  Joiner joiner(settings);
  std::vector<Finding> findings;
  for (const keys::ClientKey& key : keys::kClientKeys) {
    const auto* directory = std::get_if<keys::DirectoryKey>(&key);
    if (directory != nullptr && directory->traits.is_job_transfer && !has_transfer) continue;
    findings.push_back(std::visit(joiner, key));
  }
  return findings;
}

std::wstring TextOf(const std::vector<LogLine>& lines) {
  std::wstring text;
  for (const LogLine& line : lines) {
    if (!text.empty()) text += L" ";
    text += line.message;
    if (line.code && *line.code != 0) text += L" (error " + std::to_wstring(*line.code) + L")";
  }
  return text;
}

Json JsonOf(const Finding& finding) {
  Json::Array lines;
  for (const LogLine& line : finding.lines) {
    Json::Object members = {
        {L"level", line.level}, {L"number", line.number}, {L"message", line.message}};
    if (line.code) members.emplace_back(L"code", *line.code);
    lines.push_back(std::move(members));
  }
  return Json::Object{{L"key", finding.key},
                      {L"value", finding.value.json},
                      {L"state", kStates[static_cast<int>(finding.state)].name},
                      {L"lines", std::move(lines)}};
}

void ShowPeople(Output& out, const std::vector<Finding>& findings) {
  Table table{{L"key", L"value", L"state", L"what_the_library_says"}, {}};
  for (const Finding& finding : findings) {
    const StateName& state = kStates[static_cast<int>(finding.state)];
    Cell value = finding.value;
    value.is_number = false;  // most are texts
    table.rows.push_back(
        {finding.key, value, Cell(state.name).In(state.tone), TextOf(finding.lines)});
  }
  out.ForPeople(table);
}

std::wstring Summary(const std::vector<Finding>& findings, bool is_good) {
  const auto count = [&](State state) {
    return std::to_wstring(std::ranges::count(findings, state, &Finding::state));
  };
  return std::to_wstring(findings.size()) + L" keys. Failures: " + count(State::kFailure) +
         L", defaults: " + count(State::kDefault) + L", directories made: " + count(State::kMade) +
         L". " + (is_good ? L"The suite can work with them." : L"The suite cannot work with them.");
}

struct CheckOptions {
  bool has_transfer = false;
};

void DeclareCheck(CLI::App& command, CheckOptions& options) {
  command.add_flag("--transfer", options.has_transfer, "With the directories of job transfer");
}

void CheckSettings(Context& context, const CheckOptions& options) {
  ClientSettings settings;
  ReadClientSettings(context, options.has_transfer ? 1 : 0, settings);
  const bool is_there = std::filesystem::exists(vk::tq::PathToNative(ClientIni()));
  const bool is_good = settings.result == 1;
  const std::vector<Finding> findings = Join(settings, options.has_transfer);
  if (!is_good) context.status = kFailed;

  context.out.ForPeople(NativePath(ClientIni()) + (is_there ? L"" : L" does not exist."));
  ShowPeople(context.out, findings);
  context.out.ForPeople(Summary(findings, is_good));
  if (!context.out.is_json()) return;
  Json::Array rows;
  for (const Finding& finding : findings) rows.push_back(JsonOf(finding));
  context.out.ShowJson(Json::Object{{L"file", NativePath(ClientIni())},
                                    {L"exists", is_there},
                                    {L"good", is_good},
                                    {L"settings", std::move(rows)}});
}

}  // namespace

void AddSettingsCheck(CLI::App& noun, Context& context) {
  AddCommand(noun, context, "check", "Every key of Client.ini; makes directories that are missing",
             DeclareCheck, CheckSettings);
}

}  // namespace tqctl
