#include "settings/system_setting.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <string>
#include <variant>

#include "foundation/log.h"
#include "platform/error.h"
#include "platform/path.h"
#include "platform/text.h"

namespace vk::tq {

namespace {

constexpr std::wstring_view kLoadFile = L"CSystemSetting::LoadFile";
constexpr std::wstring_view kItemKey = L"項目キー";

/// What becomes of a field before it is stored.
enum Treatment {
  kStored,
  kLowFourBits,    ///< only these
  kOneToSix,       ///< any other number becomes 0
  kKeptWhenEmpty,  ///< an empty text changes nothing
};

constexpr int Treated(Treatment treatment, int number) {
  if (treatment == kLowFourBits) return number & 0x0F;
  if (treatment == kOneToSix) return number >= 1 && number <= 6 ? number : 0;
  return number;
}

// The number that up to three digits are, 0 for any other text.
constexpr std::size_t NumberOf(std::wstring_view key) {
  std::size_t number = 0;
  for (const wchar_t c : key) {
    if (c < L'0' || c > L'9' || number > 99) return 0;
    number = 10 * number + static_cast<std::size_t>(c - L'0');
  }
  return number;
}

// Full-width characters take two columns, half-width katakana one.
constexpr std::size_t ColumnsOf(std::wstring_view text) {
  std::size_t columns = 0;
  for (const wchar_t c : text) {
    const bool is_half_width = c < 0x1100 || (c >= 0xFF61 && c <= 0xFFDC);
    columns += is_half_width ? 1 : 2;
  }
  return columns;
}

}  // namespace

// One setting: where it stands in the file, and which member it fills.
struct CSystemSetting::Item {
  std::wstring_view key;
  const wchar_t* label;
  Treatment treatment;
  std::variant<int CSystemSetting::*, unsigned char CSystemSetting::*, CString CSystemSetting::*>
      member;

  bool is_text() const { return std::holds_alternative<CString CSystemSetting::*>(member); }
};

struct CSystemSetting::Items {
  using S = CSystemSetting;

  static constexpr Item kAll[] = {
#define TQ_NUMBER(item, getter, type, default_value, treatment, label, ...) \
  {L"" #item, label, treatment, &S::getter##_},
#define TQ_TEXT(item, getter, default_value, treatment, label, ...) \
  {L"" #item, label, treatment, &S::getter##_},
#define TQ_TRAY(item, tray, use, use_label, name, name_label) \
  {L"" #item, use_label, kStored, &S::GetUseTray##tray##_},   \
      {L"" #item, name_label, kStored, &S::GetNameTray##tray##_},
#include "settings/system_setting_items.h"
  };

  static constexpr int CSystemSetting::*kUseTray[] = {&S::GetUseTray1_, &S::GetUseTray2_,
                                                      &S::GetUseTray3_};
  static constexpr CString CSystemSetting::*kNameTray[] = {&S::GetNameTray1_, &S::GetNameTray2_,
                                                           &S::GetNameTray3_};

  // By number: where the settings of a key may begin, which stand next to each other. A file has
  // many more rows than there are settings, and each asks.
  static constexpr auto kPlaces = [] {
    std::array<const Item*, 1000> places{};
    places.fill(std::end(kAll));
    for (const Item* item = std::end(kAll); item != std::begin(kAll);) {
      --item;
      places[NumberOf(item->key)] = item;
    }
    return places;
  }();
};

CSystemSetting::CSystemSetting(const wchar_t* path, unsigned int flags)
    : path_(InternalPath(path ? path : L"")), flags_(flags) {}

int CSystemSetting::LoadFile() {
  Log4cxxMgr::LogOutDetail(0, 0, kLoadFile, __LINE__, L"START");
  if (!Open(path_.c_str(), flags_)) return -1;
  SetLastError(kErrorSuccess);  // it alone tells a failure from the end
  while (ReadRow()) StoreRow();
  if (GetLastError() != kErrorSuccess) return -1;
  LogSettings();
  Log4cxxMgr::LogOutDetail(0, 0, kLoadFile, __LINE__, L"END");
  return 0;
}

void CSystemSetting::StoreRow() {
  const CString& key = row_[0];
  Log4cxxMgr::LogOutDetail(1, 101300010, kLoadFile, __LINE__, kItemKey, key);
  for (const Item* item = Items::kPlaces[NumberOf(key)];
       item != std::end(Items::kAll) && item->key == key; ++item) {
    StoreItem(*item);
  }
}

void CSystemSetting::StoreItem(const Item& item) {
  constexpr int kNumberField = 1;
  constexpr int kTextField = 2;
  if (item.is_text()) {
    CString text;
    GetDataStr(text, kTextField);
    if (text.empty() && item.treatment == kKeptWhenEmpty) return;
    this->*std::get<CString CSystemSetting::*>(item.member) = std::move(text);
    return;
  }
  const int number = Treated(item.treatment, GetDataNum(kNumberField));
  if (const auto* member = std::get_if<int CSystemSetting::*>(&item.member)) {
    this->** member = number;
  } else {
    this->*std::get<unsigned char CSystemSetting::*>(item.member) =
        static_cast<unsigned char>(number);
  }
}

void CSystemSetting::LogSettings() const {
  constexpr int kLevel = 2;
  if (!Log4cxxMgr::IsKept(kLevel)) return;
  std::size_t column = 0;
  for (const Item& item : Items::kAll) {
    if (item.label != nullptr) column = std::max(column, ColumnsOf(item.label));
  }
  const auto log = [&](const Item& item) {
    if (item.label == nullptr) return;
    std::wstring line = Format(L"システム設定[%s]", item.label);
    line.append(column - ColumnsOf(item.label), L' ');
    line += L'：';
    std::visit(
        [&](auto member) {
          if constexpr (std::is_same_v<decltype(member), CString CSystemSetting::*>) {
            line += Format(L"%s", this->*member);
          } else {
            line += Format(L"%d", this->*member);
          }
        },
        item.member);
    Log4cxxMgr::LogOutDetail(kLevel, 101300020, kLoadFile, __LINE__, line);
  };
  const auto* const first = std::ranges::find(Items::kAll, L"5", &Item::key);
  const auto* const last = std::ranges::find(Items::kAll, L"500", &Item::key);
  log(*first);
  for (const Item& item : Items::kAll) {
    if (&item != first && &item != last) log(item);
  }
  log(*last);
}

int CSystemSetting::GetUseTray(int tray) const {
  const int use = tray >= 1 && tray <= 3 ? this->*Items::kUseTray[tray - 1] : -1;
  Log4cxxMgr::LogOutDetail(2, 101300110, L"CSystemSetting::GetUseTray", __LINE__,
                           Format(L"GetUseTray [(in)nTrayNo]：%d, [(out)nUseTray]：%d", tray, use));
  return use;
}

CString CSystemSetting::GetNameTray(int tray) const {
  CString name = tray >= 1 && tray <= 3 ? this->*Items::kNameTray[tray - 1] : CString();
  Log4cxxMgr::LogOutDetail(
      2, 101300110, L"CSystemSetting::GetNameTray", __LINE__,
      Format(L"GetNameTray [(in)nTrayNo]：%d, [(out)strNameTray]：%s", tray, name));
  return name;
}

int CSystemSetting::ReadCSV() {
  if (ReadRow()) return 1;
  row_.SetSize(0);
  return 0;
}

// Leaves the row before in place when there is no other.
bool CSystemSetting::ReadRow() {
  std::wstring_view line;
  if (!ReadLine(line) || line.empty()) return false;
  row_.SetSize(SplitLine(line));
  return true;
}

// Reuses the texts of the row before, which mostly have room enough. Gives the number of fields.
int CSystemSetting::SplitLine(std::wstring_view line) {
  int fields = 0;
  bool in_quote = false;
  CString* field = &EmptyField(fields++);
  const auto is_separator = [&](std::size_t at) { return line[at] == SEPARATOR_CHAR; };
  for (std::size_t i = 0; i < line.size(); ++i) {
    const std::size_t start = i;
    const wchar_t end_of_run = in_quote ? QUOTE_CHAR : SEPARATOR_CHAR;
    while (i < line.size() && line[i] != QUOTE_CHAR && line[i] != end_of_run) ++i;
    field->append(line, start, i - start);
    if (i == line.size()) break;
    if (line[i] == SEPARATOR_CHAR) {
      field = &EmptyField(fields++);
      continue;
    }
    const bool is_last = i + 1 == line.size();
    if (in_quote && !is_last && line[i + 1] == QUOTE_CHAR) {
      *field += QUOTE_CHAR;
      ++i;
      continue;
    }
    in_quote = !in_quote;
    const bool is_dropped = i <= 2 || is_last || is_separator(i + 1) || is_separator(i - 1);
    if (!is_dropped) *field += QUOTE_CHAR;
  }
  return fields;
}

CString& CSystemSetting::EmptyField(int field) {
  if (field == row_.GetSize()) row_.Add({});
  CString& text = row_[field];
  text.clear();
  return text;
}

void CSystemSetting::WriteCSV(const wchar_t* text) {
  WriteString(text);
  WriteString(L"\n");
}

int CSystemSetting::GetDataStr(CString& text, int field) const {
  text.clear();
  if (field < 0 || field >= row_.GetSize()) return 0;
  text = row_[field];
  return 1;
}

int CSystemSetting::GetDataStr(wchar_t* buffer, int limit, int field) const {
  constexpr int kLongest = 255;
  CString text;
  if (!GetDataStr(text, field) || text.empty() || buffer == nullptr || limit < 0) {
    return 0;
  }
  const std::size_t size = text.copy(buffer, static_cast<std::size_t>(std::min(limit, kLongest)));
  buffer[size] = L'\0';
  return static_cast<int>(size);
}

int CSystemSetting::GetDataNum(int field) const {
  if (field < 0 || field >= row_.GetSize()) {
    Log4cxxMgr::LogOutDetail(1, 101306, L"CSystemSetting::GetDataNum", __LINE__,
                             L"> idx is invalid -> EXIT 0");
    return 0;
  }
  return ParseInt(row_[field]);
}

int CSystemSetting::GetSize() const {
  return static_cast<int>(
      std::count_if(row_.begin(), row_.end(), [](const CString& text) { return !text.empty(); }));
}

}  // namespace vk::tq
