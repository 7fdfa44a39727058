// tqctl settings: the settings of this PC.
#include <algorithm>
#include <charconv>
#include <cwctype>

#include "foundation/product_folder.h"
#include "foundation/util.h"
#include "settings/client_setting_files.h"
#include "settings/client_setting_writer_table.h"
#include "storage/crypto.h"
#include "tqctl/client_settings.h"
#include "tqctl/key_file.h"
#include "tqctl/terminal.h"
#include "tqctl/text.h"

namespace tqctl {
namespace {

using vk::tq::CClientSetting;
using vk::tq::CUtil;
using vk::tq::ProductPath;
namespace keys = vk::tq::client_keys;

// ---- set ----

int Number(const std::wstring& value) {
  const std::string digits = Utf8(value);
  int number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error == std::errc() && end == digits.data() + digits.size()) return number;
  throw UsageError(L"\"" + value + L"\" is no number.");
}

template <int (CClientSetting::*write)(std::wstring)>
int WriteText(const std::wstring&, const std::wstring& value) {
  return (CClientSetting().*write)(value);
}

template <int (CClientSetting::*write)(int)>
int WriteNumber(const std::wstring&, const std::wstring& value) {
  return (CClientSetting().*write)(Number(value));
}

std::wstring Stored(const wchar_t* file, const std::wstring& key) {
  return CUtil::GetIniString(keys::kSettingSection, key, ProductPath(file));
}

// The library writes all six values of the trays at once: the other five stay what they are.
int WriteTray(const std::wstring& wanted_key, const std::wstring& value) {
  int uses[3] = {};
  std::wstring names[3];
  for (int i = 0; i < 3; ++i) {
    const keys::Tray& tray = keys::kTrays[i];
    const auto pick = [&](const wchar_t* key) {
      return wanted_key == key ? value : Stored(keys::kPrintProcessorIni, key);
    };
    const std::wstring use = pick(tray.use_key);
    uses[i] = use.empty() ? 0 : Number(use);
    names[i] = pick(tray.name_key);
  }
  return CClientSetting().WriteTrayData(uses[0], names[0], uses[1], names[1], uses[2], names[2]);
}

struct Writer {
  const wchar_t* key;
  const wchar_t* file;
  int (*write)(const std::wstring& key, const std::wstring& value);
};

using C = CClientSetting;
constexpr Writer kWriters[] = {
    {L"ClientIPAddress", keys::kClientIni, WriteText<&C::WriteClientIP>},
    {L"P1", keys::kClientIni, WriteText<&C::WritePrimPSIpAddr>},
    {L"P1Secondary", keys::kClientIni, WriteText<&C::WriteScndPSIpAddr>},
    {L"ServerAutoSetting", keys::kClientIni, WriteText<&C::WriteSvIpGetAutoFlg>},
    {L"UseTray1", keys::kPrintProcessorIni, WriteTray},
    {L"NameTray1", keys::kPrintProcessorIni, WriteTray},
    {L"UseTray2", keys::kPrintProcessorIni, WriteTray},
    {L"NameTray2", keys::kPrintProcessorIni, WriteTray},
    {L"UseTray3", keys::kPrintProcessorIni, WriteTray},
    {L"NameTray3", keys::kPrintProcessorIni, WriteTray},
    {L"NupSetting", keys::kPrintProcessorIni, WriteText<&C::WriteNupSetting>},
    {L"TonerSaveDisp", keys::kPrintProcessorIni, WriteNumber<&C::WriteTonerSaveDisp>},
    {L"FontImageDisp", keys::kPrintProcessorIni, WriteNumber<&C::WriteFontImageDisp>},
    {L"SpoolingJobSkipTimer", keys::kPrintProcessorIni, WriteNumber<&C::WriteSpoolingJobSkipTimer>},
    {L"WorkaroundRemnantJob", keys::kPrintProcessorIni, WriteNumber<&C::WriteWorkaroundRemnantJob>},
};

const Writer& WriterOf(const std::wstring& key) {
  const auto* const writer =
      std::ranges::find_if(kWriters, [&](const Writer& row) { return key == row.key; });
  if (writer != std::end(kWriters)) return *writer;
  std::wstring known;
  for (const Writer& row : kWriters) known += (known.empty() ? L"" : L", ") + std::wstring(row.key);
  throw UsageError(L"The library writes no key \"" + key + L"\", only " + known +
                   L". Edit the file for the others.");
}

struct SetOptions {
  std::wstring key;
  std::wstring value;
};

void DeclareSet(CLI::App& command, SetOptions& options) {
  AddText(command, "KEY", options.key, "A key that the library has a writer for")->required();
  AddText(command, "VALUE", options.value, "Its new value")->required();
}

void SetSetting(Context& context, const SetOptions& options) {
  // What is read back is cut there.
  constexpr std::size_t kLongest = 259;
  if (options.value.size() > kLongest) {
    throw UsageError(L"A value has at most " + std::to_wstring(kLongest) + L" characters.");
  }
  const Writer& writer = WriterOf(options.key);
  const std::wstring file = ProductPath(writer.file);
  const int result = writer.write(options.key, options.value);
  // Some writers do not tell, and some put a default in the place of a value that is no good.
  const std::wstring stored = Stored(writer.file, options.key);
  if (result != 1 || stored != options.value) {
    throw Failure(options.key + L" is \"" + stored + L"\" now, not \"" + options.value + L"\".",
                  L"Look whether the value is in its range, and whether you may write " +
                      QuotedPath(file) + L", whose folder must exist.");
  }
  context.out.Done(options.key + L" is \"" + stored + L"\" now.",
                   {{L"key", options.key}, {L"value", stored}, {L"file", NativePath(file)}});
}

// ---- account ----

struct AccountOptions {
  std::wstring user;
};

void DeclareAccount(CLI::App& command, AccountOptions& options) {
  AddText(command, "USER", options.user, "The user of the FTP account")->required();
}

// As Client.ini holds it.
std::wstring Enciphered(const std::wstring& text) {
  vk::tq::CByteArray cipher;
  vk::tq::CCrypto().EncryptByTripleDesToByteArray(text, cipher);
  std::wstring digits;
  for (const unsigned char byte : cipher) {
    constexpr const wchar_t* kDigits = L"0123456789ABCDEF";
    digits += {kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return digits;
}

// Read cuts blanks off both, and takes an empty one for a missing one.
void RefuseBlanks(const std::wstring& text, const wchar_t* what) {
  const auto is_blank = [](wchar_t c) { return std::iswspace(static_cast<std::wint_t>(c)) != 0; };
  if (!text.empty() && !is_blank(text.front()) && !is_blank(text.back())) return;
  throw UsageError(std::wstring(what) +
                   L" is empty, or has a blank at one of its ends, which the suite cuts off.");
}

void ShowAccount(Context& context, const AccountOptions& options) {
  RefuseBlanks(options.user, L"The user");
  RequireKeyForWriting();
  Secret password;
  ReadPassword(L"Password of " + options.user, password);
  RefuseBlanks(password.text, L"The password");
  const std::wstring user = Enciphered(options.user);
  const std::wstring secret = Enciphered(password.text);
  // Lines of Client.ini, so that they can be appended to it.
  context.out.ForPeople(L"P2=" + user);
  context.out.ForPeople(L"P3=" + secret);
  if (context.out.is_json()) context.out.ShowJson(Json::Object{{L"P2", user}, {L"P3", secret}});
}

}  // namespace

void AddSettings(CLI::App& app, Context& context) {
  CLI::App& noun = AddNoun(app, "settings", "The settings of this PC");
  AddSettingsCheck(noun, context);
  AddCommand(noun, context, "set", "Write a key of Client.ini or config.ini", DeclareSet,
             SetSetting);
  AddCommand(noun, context, "account",
             "The lines P2 and P3 of Client.ini for an FTP account; asks for the password",
             DeclareAccount, ShowAccount);
}

}  // namespace tqctl
