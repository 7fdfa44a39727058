// tqctl users: the list of allowed users.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>

#include "foundation/product_folder.h"
#include "platform/path.h"
#include "storage/crypto.h"
#include "tqctl/client_settings.h"
#include "tqctl/key_file.h"
#include "tqctl/text.h"
#include "users/enable_users_accessor.h"

namespace tqctl {
namespace {

using vk::tq::CCrypto;
using vk::tq::CEnableUsersAccessor;
using vk::tq::PathToNative;

// ---- lookup ----

struct LookupOptions {
  std::wstring name;
  std::wstring login;
  std::wstring folder;
};

void DeclareLookup(CLI::App& command, LookupOptions& options) {
  AddText(command, "NAME", options.name, "The user of a print job")->required();
  AddText(command, "--login", options.login,
          "The present login user, who stands for an entry without an account");
  AddText(command, "--dir", options.folder, "The folder of the list, if not the product's own");
}

// The list is loaded by GetInstance, which tells in a line of its own that there is none.
std::vector<LogLine> Load(Context& context, const std::wstring& folder) {
  std::vector<LogLine> lines = LinesOf(context, [&] { CEnableUsersAccessor::GetInstance(folder); });
  std::erase_if(lines, [](const LogLine& line) {
    return line.function != L"CEnableUsersAccessor::CEnableUsersAccessor" || line.level < 2;
  });
  return lines;
}

void LookUp(Context& context, const LookupOptions& options) {
  const std::wstring folder =
      options.folder.empty() ? vk::tq::ProductPath(L"\\config") : options.folder;
  const std::vector<LogLine> lines = Load(context, folder);
  if (!lines.empty() && lines.front().level > 2) {
    throw Failure(
        L"The list in " + QuotedPath(folder) + L" cannot be read: " + lines.front().message,
        L"Look at the rights of the list, and at the key file with \"tqctl crypt check\".");
  }
  if (!lines.empty()) {
    throw Failure(L"There is no list of allowed users in " + QuotedPath(folder) + L".",
                  L"Write EnableUsers.ini, and put it there with \"tqctl users pack\".");
  }
  constexpr const wchar_t* kLists[] = {L"none", L"ChangeUsers", L"LogOnlyUsers",
                                       L"PcLogonQueryUsers"};
  std::wstring account;
  const int type = CEnableUsersAccessor::GetInstance(folder)->GetEnableUserType(
      options.name, options.login, account);
  context.out.Show(Fields{
      {L"user", options.name}, {L"type", type}, {L"list", kLists[type]}, {L"account", account}});
}

// ---- pack, unpack ----

struct FileOptions {
  std::wstring source;
  std::wstring target;
  bool is_forced = false;
};

template <bool is_pack>
void DeclareFile(CLI::App& command, FileOptions& options) {
  AddText(command, is_pack ? "FILE.ini" : "FILE.dat", options.source,
          is_pack ? "The plain list" : "The enciphered list")
      ->required();
  AddText(command, "-o,--output", options.target,
          "The file to write, if not the one of the same name beside it");
  command.add_flag("-f,--force", options.is_forced, "Overwrite a file that is there");
}

std::wstring Target(const FileOptions& options, const std::wstring& extension) {
  std::wstring target = options.target;
  if (target.empty()) {
    const std::size_t point = options.source.find_last_of(L"./\\");
    const bool has_extension = point != std::wstring::npos && options.source[point] == L'.';
    target = options.source.substr(0, has_extension ? point : options.source.size()) + extension;
  }
  if (!options.is_forced && std::filesystem::exists(PathToNative(target))) {
    throw Failure(QuotedPath(target) + L" is there already.",
                  L"Choose another name with --output, or overwrite it with --force.");
  }
  return target;
}

void Make(const FileOptions& options, const std::wstring& target,
          int (CCrypto::*make)(const std::wstring&, const std::wstring&)) {
  if (WithKey([&] { return (CCrypto().*make)(options.source, target); }) != 0) {
    throw Failure(QuotedPath(target) + L" cannot be made from " + QuotedPath(options.source) + L".",
                  L"Look whether the one can be read and the other written, and at the key file "
                  L"with \"tqctl crypt check\".");
  }
}

void ShowMade(Context& context, const std::wstring& target) {
  context.out.Done(L"Made " + QuotedPath(target) + L".", {{L"made", NativePath(target)}});
}

void Pack(Context& context, const FileOptions& options) {
  const std::wstring target = Target(options, L".dat");
  RequireKeyForWriting();
  Make(options, target, &CCrypto::CryptFileMake);
  ShowMade(context, target);
}

// The library's file ends in the zero bytes that filled the last cipher block. A text ends before
// its first NUL, which has two bytes in UTF-16.
void CutFilling(const std::wstring& target) {
  const std::string native = PathToNative(target);
  std::ifstream file(native, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  const std::size_t unit = bytes.starts_with("\xFF\xFE") ? 2 : 1;
  std::size_t end = 0;
  while (end + unit <= bytes.size() &&
         bytes.compare(end, unit, std::string_view("\0\0", unit)) != 0) {
    end += unit;
  }
  std::filesystem::resize_file(native, end);
}

void Unpack(Context& context, const FileOptions& options) {
  const std::wstring target = Target(options, L".ini");
  Make(options, target, &CCrypto::DecryptFileMake);
  CutFilling(target);
  ShowMade(context, target);
}

}  // namespace

void AddUsers(CLI::App& app, Context& context) {
  CLI::App& noun = AddNoun(app, "users", "The list of allowed users");
  AddCommand(noun, context, "lookup", "Which list a user is on, and the account there",
             DeclareLookup, LookUp);
  AddCommand(noun, context, "pack", "Encipher a list", DeclareFile<true>, Pack);
  AddCommand(noun, context, "unpack", "Decipher a list", DeclareFile<false>, Unpack);
}

}  // namespace tqctl
