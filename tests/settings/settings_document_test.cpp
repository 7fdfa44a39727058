// Keeps docs/settings.md true: every row on Client.ini and on the system settings must hold what the
// tables of the code say.
#include <limits>
#include <sstream>

#include "settings/client_setting_table.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using namespace client_keys;

// What stands in a row, wherever: cells, and the numbers of the lines that a bad value leaves.
using Facts = std::vector<std::string>;

// ---- What the code says. What a key means, and what it may hold, is the document's own. ----

std::string Cell(const std::string& text) { return "| " + text + " |"; }
std::string Cell(int number) { return Cell(std::to_string(number)); }
std::string Code(const wchar_t* text) { return Cell("`" + ToUtf8(text) + "`"); }
std::string Line(int number) { return number != 0 ? std::to_string(number) : std::string(); }

std::string Between(Range range) {
  return Cell(std::to_string(range.least) + " to " + std::to_string(range.most));
}

Facts FactsOf(const NumberKey& key) {
  return {Cell(key.default_value), Between(key.accepted), Line(key.not_a_number),
          Line(key.out_of_limit)};
}
Facts FactsOf(const FlagKey& key) {
  return {key.default_value ? Cell(*key.default_value) : Cell("unchanged"), Line(key.empty),
          Line(key.bad)};
}
Facts FactsOf(const RequiredTextKey& key) { return {Line(key.missing), Line(key.blank)}; }
Facts FactsOf(const OptionalTextKey& key) { return {Line(key.missing)}; }
Facts FactsOf(const DirectoryKey& key) {
  return {(key.place == Place::kLocal ? "| …\\" : "| ") + ToUtf8(key.default_name) + " |",
          Line(key.missing), Line(key.blank), Line(key.not_creatable)};
}
Facts FactsOf(const IntegerKey& key) { return {Cell(key.default_value)}; }
Facts FactsOf(const CardCodeKey& key) { return {Line(key.bad)}; }

std::vector<Facts> ClientIniRows() {
  std::vector<Facts> rows;
  const auto add = [&](const auto& key) {
    rows.push_back(FactsOf(key));
    rows.back().push_back(Code(key.key));
  };
  for (const ClientKey& key : kClientKeys) std::visit(add, key);
  return rows;
}

std::string TextOf(const wchar_t* text) {
  return text == nullptr ? "not logged" : *text == L'\0' ? "empty" : ToUtf8(text);
}

// The item and the field, the getter, the meaning, the default and the label.
std::vector<Facts> SystemRows() {
  return {
#define TQ_NUMBER(item, getter, type, default_value, treatment, label, meaning) \
  {"| " #item " | 1 | `" #getter "` | " meaning " | " #default_value " |", TextOf(label)},
#define TQ_TEXT(item, getter, default_value, treatment, label, meaning) \
  {"| " #item " | 2 | `" #getter "` | " meaning " | ", TextOf(default_value), TextOf(label)},
#define TQ_TRAY(item, tray, use, use_label, name, name_label)                            \
  {"| " #item " | 1 | `GetUseTray(" #tray ")` | tray " #tray " on or off | " #use " |",  \
   TextOf(use_label)},                                                                   \
      {"| " #item " | 2 | `GetNameTray(" #tray ")` | display name of tray " #tray " | ", \
       TextOf(name), TextOf(name_label)},
#include "settings/system_setting_items.h"
  };
}

// ---- What the document says. ----

void Compare(const std::string& heading, const std::vector<Facts>& expected) {
  std::istringstream lines(ReadNative(std::string(TQ_TEST_DATA) + "/../../docs/settings.md"));
  std::string line;
  while (std::getline(lines, line) && line != heading) {
  }
  std::vector<std::string> rows;
  while (std::getline(lines, line) && !line.starts_with("## ")) {
    if (line.starts_with("| ")) rows.push_back(line);
  }
  ASSERT_EQ(rows.size(), expected.size() + 1) << heading;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    for (const std::string& fact : expected[i]) {
      EXPECT_THAT(rows[i + 1], ::testing::HasSubstr(fact)) << heading;
    }
  }
}

TEST(SettingsDocumentTest, TheTablesAreThoseOfTheCode) {
  Compare("## Client.ini", ClientIniRows());
  Compare("## System settings", SystemRows());
}

}  // namespace
}  // namespace vk::tq::testing
