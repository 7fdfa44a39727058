// tqctl crypt: enciphered texts and files, and the key file.
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <system_error>

#include "platform/path.h"
#include "storage/crypto.h"
#include "tqctl/command.h"
#include "tqctl/key_file.h"
#include "tqctl/terminal.h"
#include "tqctl/text.h"

namespace tqctl {
namespace {

namespace fs = std::filesystem;
using vk::tq::CCrypto;
using vk::tq::PathToNative;

// What bytes become that are no UTF-8, such as those that another key makes of a text.
constexpr wchar_t kNoCharacter = 0xFFFD;

// What went wrong with the files of an operation.
Failure FileFailure(const std::wstring& what, const CCrypto& crypto) {
  return {what + L": " + WideToShow(std::generic_category().message(crypto.m_nLastError)) + L".",
          L"Look at the paths and at the rights of the files and folders."};
}

void RequireFree(const std::wstring& path, bool is_replacing) {
  if (is_replacing || !fs::exists(PathToNative(path))) return;
  throw Failure(L"The file " + QuotedPath(path) + L" exists.",
                L"Choose another name, or add --force to replace its contents.");
}

// ---- crypt text, crypt untext ----

struct TextOptions {
  std::wstring file;
  bool is_replacing = false;
};

void DeclareText(CLI::App& command, TextOptions& options) {
  AddText(command, "FILE", options.file, "The enciphered file to be written")->required();
  command.add_flag("--force", options.is_replacing, "Replace what the file holds");
}

void DeclareUntext(CLI::App& command, TextOptions& options) {
  AddText(command, "FILE", options.file, "The enciphered file")->required();
}

std::wstring TextOfStandardInput() {
  const std::string bytes(std::istreambuf_iterator<char>(std::cin), {});
  auto text = Decoded(bytes);
  if (!text || bytes.find('\0') != std::string::npos) {
    throw Failure(L"Standard input is no text in the locale's encoding.",
                  L"\"tqctl crypt encrypt\" takes files of any kind.");
  }
  return *std::move(text);
}

void WriteText(Context& context, const TextOptions& options) {
  RequireFree(options.file, options.is_replacing);
  RequireKeyForWriting();
  const std::wstring text = TextOfStandardInput();
  CCrypto crypto;
  if (WithKey([&] { return crypto.CryptingStringWriter(text, options.file); }) != 0) {
    throw FileFailure(L"The file " + QuotedPath(options.file) + L" cannot be written", crypto);
  }
  context.out.Done(L"Wrote " + std::to_wstring(text.size()) + L" characters to " +
                       QuotedPath(options.file) + L".",
                   {{L"file", NativePath(options.file)}, {L"characters", text.size()}});
}

void ReadText(Context& context, const TextOptions& options) {
  CCrypto crypto;
  std::wstring text;
  if (WithKey([&] { return crypto.CryptingStringReader(options.file, text); }) != 0) {
    throw FileFailure(L"The file " + QuotedPath(options.file) + L" cannot be read", crypto);
  }
  context.out.ShowText(text);
  if (text.find(kNoCharacter) == std::wstring::npos) return;
  Warn(L"This is hardly the text that was enciphered. See \"tqctl crypt check FILE\".");
  context.status = kFailed;
}

// ---- crypt encrypt, crypt decrypt ----

struct FileOptions {
  std::wstring source;
  std::wstring destination;
  bool is_replacing = false;
};

void DeclareFiles(CLI::App& command, FileOptions& options) {
  AddText(command, "SOURCE", options.source, "The file to be read")->required();
  AddText(command, "DESTINATION", options.destination, "The file to be made")->required();
  command.add_flag("--force", options.is_replacing, "Replace what DESTINATION holds");
}

std::uint64_t SizeOf(const std::wstring& path) {
  std::error_code error;
  const std::uint64_t size = fs::file_size(PathToNative(path), error);
  return error ? 0 : size;
}

void MakeFile(Context& context, const FileOptions& options, const wchar_t* doing,
              const wchar_t* done, int (CCrypto::*make)(const std::wstring&, const std::wstring&)) {
  std::error_code ignored;
  if (fs::equivalent(PathToNative(options.source), PathToNative(options.destination), ignored)) {
    throw Failure(L"SOURCE and DESTINATION are the same file.", L"Choose another DESTINATION.");
  }
  RequireFree(options.destination, options.is_replacing);
  RequireKeyForWriting();
  CCrypto crypto;
  const int result = WithKey([&] {
    const Progress progress(doing, SizeOf(options.source), Progress::Counted::kRead);
    return (crypto.*make)(options.source, options.destination);
  });
  if (result != 0) {
    throw FileFailure(L"From " + QuotedPath(options.source) + L" to " +
                          QuotedPath(options.destination) + L" nothing was made",
                      crypto);
  }
  const std::uint64_t size = SizeOf(options.destination);
  context.out.Done(std::wstring(done) + L" " + QuotedPath(options.source) + L" to " +
                       QuotedPath(options.destination) + L", " + std::to_wstring(size) + L" bytes.",
                   {{L"source", NativePath(options.source)},
                    {L"destination", NativePath(options.destination)},
                    {L"bytes", size}});
}

void EncryptFile(Context& context, const FileOptions& options) {
  MakeFile(context, options, L"Enciphering", L"Enciphered", &CCrypto::CryptFileMake);
}

void DecryptFile(Context& context, const FileOptions& options) {
  MakeFile(context, options, L"Deciphering", L"Deciphered", &CCrypto::DecryptFileMake);
}

// ---- crypt check ----

struct CheckOptions {
  std::wstring file;
};

void DeclareCheck(CLI::App& command, CheckOptions& options) {
  AddText(command, "FILE", options.file, "An enciphered text file that the key is to open");
}

// What another key makes of a text is nothing, is no UTF-8, or holds control characters.
bool IsText(const std::wstring& text) {
  return !text.empty() && std::none_of(text.begin(), text.end(), [](wchar_t c) {
    return c == kNoCharacter || (c < 0x20 && c != L'\n' && c != L'\r' && c != L'\t');
  });
}

std::wstring RightsOfKeyFile() {
  std::error_code error;
  const auto rights = fs::status(PathToNative(KeyFilePath()), error).permissions();
  const auto has = [&](fs::perms some) { return (rights & some) != fs::perms::none; };
  if (error) return L"unknown";
  if (has(fs::perms::others_all)) return L"open to everybody";
  return has(fs::perms::group_all) ? L"open to its group" : L"its owner's alone";
}

void CheckKey(Context& context, const CheckOptions& options) {
  const KeyFile key = LookAtKeyFile();
  const bool exists = key.state != KeyFile::State::kMissing;
  Fields fields = {{L"key_file", NativePath(KeyFilePath())}, {L"exists", exists}};
  if (exists) {
    fields.emplace_back(L"length", key.size);
    const std::wstring rights = RightsOfKeyFile();
    fields.emplace_back(
        L"rights", Cell(rights).In(rights == L"open to everybody" ? Tone::kWarning : Tone::kPlain));
  }
  fields.emplace_back(L"good", key.IsGood());
  fields.emplace_back(L"verdict",
                      Cell(Explain(key.state)).In(key.IsGood() ? Tone::kGood : Tone::kBad));
  bool is_good = key.IsGood();
  if (!options.file.empty()) {
    CCrypto crypto;
    std::wstring text;
    if (WithKey([&] { return crypto.CryptingStringReader(options.file, text); }) != 0) {
      throw FileFailure(L"The file " + QuotedPath(options.file) + L" cannot be read", crypto);
    }
    const bool is_text = IsText(text);
    is_good = is_good && is_text;
    fields.emplace_back(L"file", NativePath(options.file));
    fields.emplace_back(L"deciphers", Cell(is_text).In(is_text ? Tone::kGood : Tone::kBad));
  }
  context.out.Show(fields);
  if (!is_good) context.status = kFailed;
}

// ---- crypt keygen ----

struct NoOptions {};

void DeclareNothing(CLI::App&, NoOptions&) {}

void MakeKeyFile(Context& context, const NoOptions&) {
  const std::wstring path = KeyFilePath();
  const std::string native = PathToNative(path);
  std::error_code error;
  fs::create_directories(fs::path(native).parent_path(), error);
  if (!error) error = MakePrivateFile(native, RandomCharacters(32));
  if (error == std::errc::file_exists) {
    throw Failure(L"There is a key file " + QuotedPath(path) + L" already.",
                  L"What it has enciphered is lost without it. Move it away, if that is meant.");
  }
  if (error) {
    throw Failure(
        L"The key file " + QuotedPath(path) + L" cannot be made: " + WideToShow(error.message()) +
            L".",
        L"Look at the rights of its folder; TQ_COMMON_APPDATA moves it to another place.");
  }
  context.out.Done(L"Made the key file " + QuotedPath(path) +
                       L", which you alone may read. Keep a copy in a safe place.",
                   {{L"key_file", NativePath(path)}});
}

}  // namespace

void AddCrypt(CLI::App& app, Context& context) {
  CLI::App& noun = AddNoun(app, "crypt", "Enciphered texts and files, and the key file");
  AddCommand(noun, context, "text", "Encipher standard input as a text file", DeclareText,
             WriteText);
  AddCommand(noun, context, "untext", "Show the text of an enciphered file", DeclareUntext,
             ReadText);
  AddCommand(noun, context, "encrypt", "Encipher a file of any kind", DeclareFiles, EncryptFile);
  AddCommand(noun, context, "decrypt", "Decipher such a file; zeros may follow the data",
             DeclareFiles, DecryptFile);
  AddCommand(noun, context, "check", "Tell whether the key file is good", DeclareCheck, CheckKey);
  AddCommand(noun, context, "keygen", "Make a key file, if there is none", DeclareNothing,
             MakeKeyFile);
}

}  // namespace tqctl
