// Keeps docs/settings.md true: every row of its tables is compared with the tables of the code. Of
// what a bad value does, the numbers of the lines are compared.

#include <limits>
#include <regex>
#include <sstream>

#include "settings/client_setting_table.h"
#include "settings/client_setting_writer_table.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using namespace client_keys;
using Cells = std::vector<std::string>;

// ---- What the code says. The meaning of a key is the document's own. ----

std::string Code(const wchar_t* text) { return std::string("`") + ToUtf8(text) + "`"; }

// The numbers of lines, without those that a key has not.
std::string Numbers(std::initializer_list<int> numbers) {
  std::string text;
  for (const int number : numbers) {
    if (number != 0) text += std::to_string(number) + " ";
  }
  return text;
}

std::string RangeText(Range range) {
  return std::to_string(range.least) + " to " + std::to_string(range.most);
}

// Default, accepted values, and the lines that a bad value leaves.
Cells Facts(const NumberKey& key) {
  return {std::to_string(key.default_value), RangeText(key.accepted),
          Numbers({key.not_a_number, key.out_of_limit})};
}
Cells Facts(const FlagKey& key) {
  return {key.default_value ? std::to_string(*key.default_value) : "unchanged", "0 or 1",
          Numbers({key.empty, key.bad})};
}
Cells Facts(const RequiredTextKey& key) {
  return {"required", key.form == Form::kEnciphered ? "enciphered, in hexadecimal" : "text",
          Numbers({key.missing, key.blank})};
}
Cells Facts(const OptionalTextKey& key) {
  return {key.substitute == &CClientSetting::P1 ? "a copy of `P1`" : "unchanged", "text",
          Numbers({key.missing})};
}
Cells Facts(const DirectoryKey& key) {
  const bool is_local = key.place == Place::kLocal;
  return {(is_local ? "…\\" : "") + ToUtf8(key.default_name),
          is_local ? "directory, made when it is missing" : "place on the server",
          Numbers({key.missing, key.blank, key.not_creatable})};
}
Cells Facts(const IntegerKey& key) {
  return {std::to_string(key.default_value), "any integer", ""};
}
Cells Facts(const CardCodeKey& key) {
  return {"empty", "up to 4 hexadecimal digits", Numbers({key.bad})};
}

std::vector<Cells> ClientIniRows() {
  std::vector<Cells> rows;
  const auto add = [&](const auto& key) {
    rows.push_back(Facts(key));
    rows.back().insert(rows.back().begin(), Code(key.key));
  };
  for (const ClientKey& key : kClientKeys) std::visit(add, key);
  return rows;
}

std::vector<Cells> SingleKeyRows() {
  return {{"`AddIconRetry`", std::to_string(kAddIconRetryDefault),
           RangeText({0, std::numeric_limits<int>::max()}), Numbers({120200630})},
          {"`EMSDir`", "…\\" + ToUtf8(kEmsDirDefaultName), "directory, made when it is missing",
           Numbers({120200640, 120200650, 120200660})}};
}

std::vector<Cells> ConfigIniRows() {
  std::vector<Cells> rows;
  for (const Tray& tray : kTrays) {
    rows.push_back(
        {Code(tray.use_key), "0", "0 or " + std::to_string(tray.code), Numbers({tray.bad_use})});
    rows.push_back(
        {Code(tray.name_key), ToUtf8(tray.default_name), "text", Numbers({tray.no_name})});
  }
  rows.push_back({"`NupSetting`", "none", "any text", ""});
  for (const NumberWriter& writer :
       {kTonerSaveDisp, kFontImageDisp, kSpoolingJobSkipTimer, kWorkaroundRemnantJob}) {
    rows.push_back({Code(writer.key), std::to_string(writer.default_value),
                    RangeText({0, writer.most}), Numbers({writer.bad})});
  }
  return rows;
}

// Here the meaning is the code's, too.
std::string Stored(std::string_view treatment, std::string_view type = {}) {
  if (type == "unsigned char") return "the low byte";
  if (treatment == "kLowFourBits") return "the low four bits";
  if (treatment == "kOneToSix") return "1 to 6, any other 0";
  return treatment == "kKeptWhenEmpty" ? "empty: unchanged" : "as it comes";
}

std::string OrElse(const wchar_t* text, const char* otherwise) {
  return text != nullptr && *text != L'\0' ? ToUtf8(text) : otherwise;
}

template <class... Text>
Cells Row(const Text&... cells) {
  return {cells...};
}

std::vector<Cells> SystemRows() {
  return {
#define TQ_NUMBER(item, getter, type, default_value, treatment, label, meaning)        \
  Row(#item, "1", "`" #getter "`", meaning, #default_value, Stored(#treatment, #type), \
      OrElse(label, "not logged")),
#define TQ_TEXT(item, getter, default_value, treatment, label, meaning)                         \
  Row(#item, "2", "`" #getter "`", meaning, OrElse(default_value, "empty"), Stored(#treatment), \
      ToUtf8(label)),
#define TQ_TRAY(item, tray, use, use_label, name, name_label)                                  \
  Row(#item, "1", "`GetUseTray(" #tray ")`", "tray " #tray " on or off", #use, Stored(""),     \
      ToUtf8(use_label)),                                                                      \
      Row(#item, "2", "`GetNameTray(" #tray ")`", "display name of tray " #tray, ToUtf8(name), \
          Stored(""), ToUtf8(name_label)),
#include "settings/system_setting_items.h"
  };
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

// The same rows in the same order. A meaning of the document's own must be there; in the last cell
// then the numbers count.
void Compare(const std::string& heading, const std::vector<Cells>& expected, bool has_own_meaning) {
  static const std::regex kNumber("[0-9]{9}");
  auto rows = DocumentRows(heading);
  for (Cells& row : rows) {
    if (!has_own_meaning) break;
    ASSERT_GT(row.size(), 1U) << heading;
    EXPECT_NE(row[1], "") << heading;
    row.erase(row.begin() + 1);
    row.back() =
        std::regex_replace(row.back(), kNumber, "$& ", std::regex_constants::format_no_copy);
  }
  EXPECT_EQ(rows, expected) << heading;
}

TEST(SettingsDocumentTest, TheTablesAreThoseOfTheCode) {
  Compare("## Client.ini", ClientIniRows(), true);
  Compare("## Client.ini: keys with operations of their own", SingleKeyRows(), true);
  Compare("## config.ini", ConfigIniRows(), true);
  Compare("## System settings", SystemRows(), false);
}

}  // namespace
}  // namespace vk::tq::testing
