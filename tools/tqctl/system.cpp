// tqctl system: the system settings of the site.
#include "platform/error.h"
#include "settings/system_setting.h"
#include "tqctl/command.h"
#include "tqctl/reason.h"
#include "tqctl/text.h"

namespace tqctl {
namespace {

using vk::tq::CSystemSetting;

struct ShowOptions {
  std::wstring file;
};

void DeclareShow(CLI::App& command, ShowOptions& options) {
  AddText(command, "FILE", options.file, "The file of the site's rules")->required();
}

// A value that is not the default stands out.
std::vector<Cell> Row(int item, const std::string& name, const Cell& value, const Cell& standard,
                      const std::string& meaning) {
  std::vector<Cell> row = {item, WideToShow(name), value, standard, WideToShow(meaning)};
  row[2].is_number = row[3].is_number = false;  // some are texts
  if (value.text != standard.text) row[2].tone = Tone::kStrong;
  return row;
}

void AddTray(Table& table, const CSystemSetting& site, int item, int tray, int use,
             const wchar_t* name) {
  const std::string number = std::to_string(tray);
  table.rows.push_back(
      Row(item, "UseTray" + number, site.GetUseTray(tray), use, "use value of tray " + number));
  table.rows.push_back(Row(item, "NameTray" + number, site.GetNameTray(tray), name,
                           "display name of tray " + number));
}

void ShowSystem(Context& context, const ShowOptions& options) {
  CSystemSetting site(options.file.c_str(), CSystemSetting::modeRead);
  if (site.LoadFile() != 0) {
    throw FailureWith(L"The rules " + QuotedPath(options.file) + L" cannot be read",
                      vk::tq::GetLastError());
  }
  Table table{{L"item", L"name", L"value", L"default", L"meaning"}, {}};
  // A getter's name without its "Get" is the name of the setting.
#define TQ_NUMBER(item, getter, type, standard, treatment, label, meaning) \
  table.rows.push_back(Row(item, &#getter[3], int{site.getter()}, standard, meaning));
#define TQ_TEXT(item, getter, standard, treatment, label, meaning) \
  table.rows.push_back(Row(item, &#getter[3], site.getter(), standard, meaning));
#define TQ_TRAY(item, tray, use, use_label, name, name_label) \
  AddTray(table, site, item, tray, use, name);
#include "settings/system_setting_items.h"
  context.out.Show(table);
}

}  // namespace

void AddSystem(CLI::App& app, Context& context) {
  CLI::App& noun = AddNoun(app, "system", "The system settings of the site");
  AddCommand(noun, context, "show", "Every item of a file of rules", DeclareShow, ShowSystem);
}

}  // namespace tqctl
