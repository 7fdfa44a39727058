// What a command shows: a table, a list of names and values, or a sentence. The same facts become
// aligned columns for people, with colour on a terminal alone, and one JSON document for machines.
#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace tqctl {

// A JSON value (RFC 8259).
struct Json {
  using Array = std::vector<Json>;
  using Object = std::vector<std::pair<std::wstring, Json>>;

  Json() = default;
  Json(bool is_true) : value(is_true) {}
  Json(std::integral auto number) : value(static_cast<std::int64_t>(number)) {}
  Json(std::wstring text) : value(std::move(text)) {}
  Json(const wchar_t* text) : value(std::wstring(text)) {}
  Json(Array items) : value(std::move(items)) {}
  Json(Object members) : value(std::move(members)) {}

  // On one line.
  std::string Serialized() const;

  std::variant<std::nullptr_t, bool, std::int64_t, std::wstring, Array, Object> value;
};

enum class Tone { kPlain, kStrong, kFaint, kGood, kWarning, kBad };

// One fact: for machines a JSON value, for people a text, which is the value's own unless another
// is given.
struct Cell {
  Cell(std::wstring value) : json(value), text(std::move(value)) {}
  Cell(const wchar_t* value) : Cell(std::wstring(value)) {}
  Cell(bool is_true) : json(is_true), text(is_true ? L"yes" : L"no") {}
  Cell(std::integral auto number) : json(number), text(std::to_wstring(number)), is_number(true) {}
  Cell(Json machine, std::wstring people, Tone its_tone = Tone::kPlain)
      : json(std::move(machine)), text(std::move(people)), tone(its_tone) {}

  Cell&& In(Tone its_tone) && {
    tone = its_tone;
    return std::move(*this);
  }

  Json json;
  std::wstring text;
  Tone tone = Tone::kPlain;
  bool is_number = false;  // set to the right of its column
};

// Seconds since 1970 as a date and time: UTC for machines, local for people.
Cell TimeCell(std::int64_t seconds);
// A span of time, for people in the greatest unit that fits.
Cell AgeCell(std::int64_t seconds);

// Names and values, in the order in which they are shown.
using Fields = std::vector<std::pair<std::wstring, Cell>>;
Json::Object ToJson(const Fields& fields);

struct Table {
  // The columns' names: members of each row's JSON object, and in upper case the headings.
  std::vector<std::wstring> columns;
  std::vector<std::vector<Cell>> rows;

  Json::Array ToJson() const;
};

class Output {
 public:
  // Settled once the options are read.
  void SetJson(bool is_json) { is_json_ = is_json; }
  bool is_json() const { return is_json_; }

  // A command calls one of these once: what it shows is one JSON document.
  void Show(const Table& table, std::wstring_view when_empty = L"Nothing.");
  void Show(const Fields& fields);
  // A sentence that says what was done; machines get the facts instead.
  void Done(std::wstring_view sentence, const Fields& facts = {});
  void ShowJson(const Json& json);
  // A text as it is; on a terminal without the power to command it.
  void ShowText(std::wstring_view text);
  // A command that composes its JSON itself gives people what they read with these; machines get
  // nothing of it.
  void ForPeople(const Table& table);
  void ForPeople(const Fields& fields);
  void ForPeople(std::wstring_view line);

  // Hands everything to the system; Failure when standard output does not take it.
  void Flush();

 private:
  bool is_json_ = false;
};

// A warning on standard error; the command goes on.
void Warn(std::wstring_view text);

// A line on standard error, with its beginning in a tone when that is a terminal.
void PrintError(Tone tone, std::wstring_view beginning, std::wstring_view rest);

}  // namespace tqctl
