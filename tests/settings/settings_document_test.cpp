// Keeps docs/settings.md true: every row of its tables is compared with the tables of the code.

#include <limits>
#include <sstream>

#include "settings/client_setting_table.h"
#include "settings/client_setting_writer_table.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using namespace client_keys;
using Cells = std::vector<std::string>;

// ---- What the code says. The meaning, which is the second cell of a row, is the document's own.
// ----

std::string Code(const wchar_t* text) { return std::string("`") + ToUtf8(text) + "`"; }

std::string Warning(const std::string& effect, int number, std::string_view more = {}) {
  return effect + " (warning " + std::to_string(number) + std::string(more) + ")";
}

std::string Failure(const std::string& effect, int number, std::string_view more = {}) {
  return effect + " (failure " + std::to_string(number) + std::string(more) + ")";
}

std::string RangeText(Range range) {
  return std::to_string(range.least) + " to " + std::to_string(range.most);
}

// Default, accepted values, and what a bad value does.
Cells Facts(const NumberKey& key) {
  const std::string more = key.traits.event ? ", event" : key.traits.level == 2 ? ", level 2" : "";
  std::string bad = "no number: " + Warning(key.traits.keeps_member ? "unchanged" : "default",
                                            key.not_a_number, more);
  if (key.out_of_limit != 0) {
    const auto other = key.traits.out_of_limit_value;
    bad += "; out of range: " +
           Warning(other ? std::to_string(*other) : "default", key.out_of_limit, more);
  }
  return {std::to_string(key.default_value), RangeText(key.accepted), bad};
}

Cells Facts(const FlagKey& key) {
  if (!key.default_value) {
    return {"unchanged", "0 or 1", "empty: unchanged; other: " + Warning("unchanged", key.bad)};
  }
  return {*key.default_value ? "1" : "0", "0 or 1",
          "empty: " + Warning("default", key.empty) + "; other: " + Warning("default", key.bad)};
}

Cells Facts(const RequiredTextKey& key) {
  return {
      "required", key.form == Form::kEnciphered ? "enciphered, in hexadecimal" : "text",
      "missing: " + Failure("unchanged", key.missing) + "; blank: " + Failure("empty", key.blank)};
}

Cells Facts(const OptionalTextKey& key) {
  if (key.substitute == &CClientSetting::P1) return {"a copy of `P1`", "text", "blank: default"};
  return {"unchanged", "text", "blank: " + Warning("unchanged", key.missing)};
}

Cells Facts(const DirectoryKey& key) {
  const bool is_local = key.place == Place::kLocal;
  const std::string event = key.traits.event_id == kEventWarning ? ", warning event" : "";
  std::string bad = "missing: " + Failure("default", key.missing, event) +
                    "; blank: " + Failure("default", key.blank, event);
  if (is_local) {
    bad += "; cannot be made: " + Failure("default", key.not_creatable,
                                          key.traits.is_job_transfer ? ", but result 1" : event);
  }
  return {(is_local ? "…\\" : "") + ToUtf8(key.default_name),
          is_local ? "directory, made when it is missing" : "place on the server", bad};
}

Cells Facts(const IntegerKey& key) {
  return {std::to_string(key.default_value), "any integer", "the number that it begins with, or 0"};
}

Cells Facts(const CardCodeKey& key) {
  return {"empty", "up to 4 hexadecimal digits", Failure("empty", key.bad, ", no event")};
}

std::vector<Cells> ClientIniRows() {
  std::vector<Cells> rows;
  const auto add = [&](const auto& key) {
    Cells row = {Code(key.key)};
    for (std::string& fact : Facts(key)) row.push_back(std::move(fact));
    rows.push_back(std::move(row));
  };
  for (const ClientKey& key : kClientKeys) std::visit(add, key);
  return rows;
}

std::vector<Cells> SingleKeyRows() {
  return {
      {"`AddIconRetry`", std::to_string(kAddIconRetryDefault),
       "0 to " + std::to_string(std::numeric_limits<int>::max()), Warning("default", 120200630)},
      {"`EMSDir`", "…\\" + ToUtf8(kEmsDirDefaultName), "directory, made when it is missing",
       "missing: " + Failure("default", 120200640) + "; blank: " + Failure("default", 120200650) +
           "; cannot be made: " + Failure("default", 120200660)}};
}

std::vector<Cells> ConfigIniRows() {
  std::vector<Cells> rows;
  for (const Tray& tray : kTrays) {
    rows.push_back({Code(tray.use_key), "0", "0 or " + std::to_string(tray.code),
                    Warning("default", tray.bad_use)});
    rows.push_back({Code(tray.name_key), ToUtf8(tray.default_name), "text",
                    "empty: " + Warning("default", tray.no_name)});
  }
  rows.push_back({"`NupSetting`", "none", "any text", "written as it is"});
  for (const NumberWriter& writer :
       {kTonerSaveDisp, kFontImageDisp, kSpoolingJobSkipTimer, kWorkaroundRemnantJob}) {
    rows.push_back({Code(writer.key), std::to_string(writer.default_value),
                    RangeText({0, writer.most}), Warning("default", writer.bad)});
  }
  return rows;
}

// Here the meaning is the code's, too.
std::vector<Cells> SystemRows() {
  const auto treatment = [](std::string_view name) -> std::string {
    if (name == "kLowFourBits") return "the low four bits";
    if (name == "kOneToSix") return "1 to 6, any other 0";
    if (name == "kKeptWhenEmpty") return "empty: unchanged";
    return "as it comes";
  };
  const auto label = [](const wchar_t* text) { return text ? ToUtf8(text) : "not logged"; };
  std::vector<Cells> rows;
  const auto add = [&](const std::string& item, const char* field, const std::string& getter,
                       const std::string& meaning, const std::string& default_value,
                       const std::string& stored, const wchar_t* logged) {
    rows.push_back(
        {item, field, "`" + getter + "`", meaning, default_value, stored, label(logged)});
  };
  const auto stored = [&](std::string_view type, std::string_view name) {
    return type == "unsigned char" ? "the low byte" : treatment(name);
  };
#define TQ_NUMBER(item, getter, type, default_value, treatment, logged, meaning) \
  add(#item, "1", #getter, meaning, #default_value, stored(#type, #treatment), logged);
#define TQ_TEXT(item, getter, default_value, treatment, logged, meaning)              \
  add(#item, "2", #getter, meaning, *default_value ? ToUtf8(default_value) : "empty", \
      stored("", #treatment), logged);
#define TQ_TRAY(item, tray, use, use_label, name, name_label)                                \
  add(#item, "1", "GetUseTray(" #tray ")", "tray " #tray " on or off", #use, stored("", ""), \
      use_label);                                                                            \
  add(#item, "2", "GetNameTray(" #tray ")", "display name of tray " #tray, ToUtf8(name),     \
      stored("", ""), name_label);
#include "settings/system_setting_items.h"
  return rows;
}

// ---- What the document says. ----

// The rows of the table below a heading, without its two head lines.
std::vector<Cells> DocumentRows(const std::string& heading) {
  std::istringstream lines(ReadNative(std::string(TQ_TEST_DATA) + "/../../docs/settings.md"));
  std::string line;
  while (std::getline(lines, line) && line != heading) {
  }
  std::vector<Cells> rows;
  while (std::getline(lines, line) && !line.starts_with("## ")) {
    if (!line.starts_with("| ")) continue;
    Cells cells;
    for (std::size_t start = 2; start < line.size();) {
      const std::size_t end = std::min(line.find(" |", start), line.size());
      cells.push_back(line.substr(start, end - start));
      start = end + 3;
    }
    rows.push_back(std::move(cells));
  }
  if (!rows.empty()) rows.erase(rows.begin());
  return rows;
}

std::string Joined(const Cells& cells) {
  std::string line = "|";
  for (const std::string& cell : cells) line += " " + cell + " |";
  return line;
}

// The same rows in the same order; what is printed can be pasted into the document.
void Compare(const std::string& heading, const std::vector<Cells>& expected, bool has_own_meaning) {
  const auto rows = DocumentRows(heading);
  EXPECT_EQ(rows.size(), expected.size()) << heading;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    Cells row = expected[i];
    Cells documented = i < rows.size() ? rows[i] : Cells{};
    if (has_own_meaning) {
      const std::string meaning = documented.size() > 1 ? documented[1] : "";
      EXPECT_NE(meaning, "") << heading;
      row.insert(row.begin() + 1, meaning);
    }
    EXPECT_EQ(Joined(documented), Joined(row));
  }
}

TEST(SettingsDocumentTest, TheTablesAreThoseOfTheCode) {
  Compare("## Client.ini", ClientIniRows(), true);
  Compare("## Client.ini: keys with operations of their own", SingleKeyRows(), true);
  Compare("## config.ini", ConfigIniRows(), true);
  Compare("## System settings", SystemRows(), false);
}

}  // namespace
}  // namespace vk::tq::testing
