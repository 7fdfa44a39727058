#include "tqctl/output.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <cwchar>
#include <cwctype>
#include <iterator>

#include "tqctl/failure.h"
#include "tqctl/terminal.h"
#include "tqctl/text.h"

namespace tqctl {
namespace {

std::string Quoted(std::wstring_view text) {
  std::string quoted = "\"";
  for (const char c : Utf8(text)) {
    if (c == '"' || c == '\\') {
      quoted += {'\\', c};
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
      quoted += escape;
    } else {
      quoted += c;
    }
  }
  return quoted + '"';
}

struct Serializer {
  std::string operator()(std::nullptr_t) const { return "null"; }
  std::string operator()(bool is_true) const { return is_true ? "true" : "false"; }
  std::string operator()(std::int64_t number) const { return std::to_string(number); }
  std::string operator()(const std::wstring& text) const { return Quoted(text); }
  std::string operator()(const Json::Array& items) const {
    std::string list;
    for (const Json& item : items) list += (list.empty() ? "" : ", ") + item.Serialized();
    return "[" + list + "]";
  }
  std::string operator()(const Json::Object& members) const {
    std::string list;
    for (const auto& [name, member] : members) {
      list += (list.empty() ? "" : ", ") + Quoted(name) + ": " + member.Serialized();
    }
    return "{" + list + "}";
  }
};

constexpr const char* kColours[] = {"", "\033[1m", "\033[2m", "\033[32m", "\033[33m", "\033[31m"};

std::string Coloured(Tone tone, std::wstring_view text, bool is_coloured) {
  if (!is_coloured || tone == Tone::kPlain || text.empty()) return Narrow(text);
  return kColours[static_cast<int>(tone)] + Narrow(text) + "\033[0m";
}

// A text in a field of so many columns; the last one of a line has no blanks behind it.
enum class Side { kLeft, kRight, kLeftAtEnd };
std::string Fitted(const Cell& cell, std::size_t columns, Side side, bool is_coloured) {
  const std::wstring text = Printable(cell.text);
  const std::string blanks(columns - std::min(columns, Columns(text)), ' ');
  std::string shown = Coloured(cell.tone, text, is_coloured);
  switch (side) {
    case Side::kRight:
      return blanks + shown;
    case Side::kLeft:
      return shown + blanks;
    case Side::kLeftAtEnd:
      break;
  }
  return shown;
}

void Print(const std::string& bytes) { std::fwrite(bytes.data(), 1, bytes.size(), stdout); }

constexpr std::string_view kGap = "  ";

std::string Line(const std::vector<Cell>& row, const std::vector<std::size_t>& widths,
                 bool is_coloured) {
  std::string line;
  for (std::size_t i = 0; i < row.size(); ++i) {
    const bool is_last = i + 1 == row.size();
    const Side side = row[i].is_number ? Side::kRight : is_last ? Side::kLeftAtEnd : Side::kLeft;
    line += Fitted(row[i], widths[i], side, is_coloured);
    if (!is_last) line += kGap;
  }
  return line + "\n";
}

// The headings stand over numbers as the numbers do.
std::vector<Cell> Headings(const Table& table) {
  std::vector<Cell> headings;
  for (std::wstring title : table.columns) {
    for (wchar_t& c : title) {
      c = c == L'_' ? L' ' : static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(c)));
    }
    headings.emplace_back(Cell(title).In(Tone::kStrong));
    headings.back().is_number =
        !table.rows.empty() && table.rows.front()[headings.size() - 1].is_number;
  }
  return headings;
}

}  // namespace

std::string Json::Serialized() const { return std::visit(Serializer(), value); }

Cell TimeCell(std::int64_t seconds) {
  const auto time = static_cast<std::time_t>(seconds);
  const auto format = [](const wchar_t* form, const std::tm* parts) {
    wchar_t text[32];
    return std::wstring(text, std::wcsftime(text, std::size(text), form, parts));
  };
  return {format(L"%Y-%m-%dT%H:%M:%SZ", std::gmtime(&time)),
          format(L"%Y-%m-%d %H:%M:%S", std::localtime(&time))};
}

Cell AgeCell(std::int64_t seconds) {
  constexpr struct {
    std::int64_t size;
    const wchar_t* name;
  } kUnits[] = {{86400, L" d"}, {3600, L" h"}, {60, L" min"}, {1, L" s"}};
  const auto* unit = std::find_if(std::begin(kUnits), std::end(kUnits) - 1,
                                  [&](const auto& one) { return seconds >= one.size; });
  Cell cell(seconds, std::to_wstring(seconds / unit->size) + unit->name);
  cell.is_number = true;
  return cell;
}

Json::Object ToJson(const Fields& fields) {
  Json::Object members;
  for (const auto& [name, cell] : fields) members.emplace_back(name, cell.json);
  return members;
}

Json::Array Table::ToJson() const {
  Json::Array items;
  for (const auto& row : rows) {
    Json::Object members;
    for (std::size_t i = 0; i < row.size(); ++i) members.emplace_back(columns[i], row[i].json);
    items.emplace_back(std::move(members));
  }
  return items;
}

void Output::Show(const Table& table, std::wstring_view when_empty) {
  if (is_json_) return ShowJson(table.ToJson());
  if (table.rows.empty()) return ForPeople(when_empty);
  ForPeople(table);
}

void Output::Show(const Fields& fields) {
  if (is_json_) return ShowJson(ToJson(fields));
  ForPeople(fields);
}

void Output::Done(std::wstring_view sentence, const Fields& facts) {
  if (is_json_) return ShowJson(ToJson(facts));
  ForPeople(sentence);
}

void Output::ShowJson(const Json& json) { Print(json.Serialized() + "\n"); }

void Output::ShowText(std::wstring_view text) {
  if (is_json_) return ShowJson(Json::Object{{L"text", std::wstring(text)}});
  if (!IsTerminal(Stream::kOutput)) return Print(Narrow(text));
  while (!text.empty()) {
    const std::size_t size = std::min(text.find(L'\n'), text.size());
    ForPeople(text.substr(0, size));
    text.remove_prefix(std::min(size + 1, text.size()));
  }
}

void Output::ForPeople(const Table& table) {
  if (is_json_) return;
  const std::vector<Cell> headings = Headings(table);
  std::vector<std::size_t> widths;
  for (std::size_t i = 0; i < headings.size(); ++i) {
    widths.push_back(Columns(headings[i].text));
    for (const auto& row : table.rows) {
      widths[i] = std::max(widths[i], Columns(Printable(row[i].text)));
    }
  }
  const bool is_coloured = HasColour(Stream::kOutput);
  Print(Line(headings, widths, is_coloured));
  for (const auto& row : table.rows) Print(Line(row, widths, is_coloured));
}

void Output::ForPeople(const Fields& fields) {
  if (is_json_) return;
  std::size_t width = 0;
  for (const auto& field : fields) width = std::max(width, Columns(field.first));
  const bool is_coloured = HasColour(Stream::kOutput);
  for (const auto& [name, cell] : fields) {
    const std::string value = Fitted(cell, 0, Side::kLeftAtEnd, is_coloured);
    const Cell title = Cell(name).In(Tone::kStrong);
    Print(value.empty() ? Fitted(title, 0, Side::kLeftAtEnd, is_coloured) + "\n"
                        : Fitted(title, width, Side::kLeft, is_coloured) + "  " + value + "\n");
  }
}

void Output::ForPeople(std::wstring_view line) {
  if (!is_json_) Print(Narrow(Printable(line)) + "\n");
}

void Output::Flush() {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return;
  throw Failure(L"Standard output does not take what was written.",
                L"Look for a full disk or a closed pipe.");
}

void Warn(std::wstring_view text) { PrintError(Tone::kWarning, L"tqctl: ", text); }

void PrintError(Tone tone, std::wstring_view beginning, std::wstring_view rest) {
  const std::string line = Coloured(tone, Printable(beginning), HasColour(Stream::kError)) +
                           Narrow(Printable(rest)) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace tqctl
