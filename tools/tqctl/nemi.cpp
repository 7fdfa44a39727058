// tqctl nemi: print information files, which describe the document of a held job.
#include <filesystem>

#include "jobs/nemi_print_info_file_access.h"
#include "platform/path.h"
#include "storage/crypto.h"
#include "storage/xml.h"
#include "tqctl/assignment.h"
#include "tqctl/command.h"
#include "tqctl/held_lock.h"
#include "tqctl/key_file.h"
#include "tqctl/text.h"

namespace tqctl {
namespace {

using vk::tq::CNemiPrintInfoFileAccess;
using vk::tq::NEMI_INF_FILE;

constexpr const wchar_t* kLock = L"KITORA_QTL_JOB_INFO_NEMI";

// The fields that the file holds, in the order of the record.
constexpr auto kForEachField = [](auto& record, const auto& visit) {
  for (const auto& row : vk::tq::kNemiFields) {
    if (row.written_at > 0) visit(row.element, record.*row.member);
  }
};

void RequireFile(const std::wstring& path) {
  if (std::filesystem::is_regular_file(vk::tq::PathToNative(path))) return;
  throw Failure(L"There is no print information file " + QuotedPath(path) + L".",
                L"Look at the path; \"tqctl settings check\" shows the folders of these files.");
}

// Reads a file whole: the library's read leaves NUpName out, which a write would then lose.
void Read(CNemiPrintInfoFileAccess& file, const std::wstring& path) {
  RequireFile(path);
  std::wstring text;
  if (file.ReadAll() != 1 || vk::tq::CCrypto().CryptingStringReader(path, text) != 0) {
    throw Failure(L"The print information file " + QuotedPath(path) + L" cannot be read.",
                  L"Look at its rights, and at the key file with \"tqctl crypt check\".");
  }
  if (text.find(L"<QTL") == std::wstring::npos) {
    throw Failure(QuotedPath(path) + L" holds no print information under this key file.",
                  L"Look at the key file with \"tqctl crypt check FILE\".");
  }
  vk::tq::CXml().SelectXMLStringValue01(text, L"NUpName", file.GetNemiInfData().NUpName);
}

struct PathOptions {
  std::wstring path;
};

void DeclarePath(CLI::App& command, PathOptions& options) {
  AddText(command, "PATH", options.path, "The print information file")->required();
}

void ShowFile(Context& context, const PathOptions& options) {
  CNemiPrintInfoFileAccess file(options.path.c_str());
  Read(file, options.path);
  Fields fields;
  kForEachField(file.GetNemiInfData(), [&](const wchar_t* name, const std::wstring& value) {
    fields.emplace_back(name, value);
  });
  context.out.Show(fields);
}

struct SetOptions {
  std::wstring path;
  std::vector<std::wstring> fields;
};

void DeclareSet(CLI::App& command, SetOptions& options) {
  AddText(command, "PATH", options.path, "The print information file; made if it is missing")
      ->required();
  AddTexts(command, "--field", options.fields, "A field, as name=value; may be repeated")
      ->required();
}

void SetFile(Context& context, const SetOptions& options) {
  const HeldLock lock(kLock);
  CNemiPrintInfoFileAccess file(options.path.c_str());
  const bool is_new = !std::filesystem::exists(vk::tq::PathToNative(options.path));
  if (!is_new) Read(file, options.path);
  RequireKeyForWriting();
  AssignAll(file.GetNemiInfData(), options.fields, kForEachField);
  if (file.WriteAll() != 1) {
    throw Failure(
        L"The print information file " + QuotedPath(options.path) + L" cannot be written.",
        L"Look at the rights of the file and its folder. A field takes no control characters.");
  }
  context.out.Done(
      (is_new ? L"Made the file " : L"Changed the file ") + QuotedPath(options.path) + L".",
      {{L"file", NativePath(options.path)}, {L"new", is_new}});
}

struct MoveOptions {
  std::wstring path;
  std::wstring folder;
};

void DeclareMove(CLI::App& command, MoveOptions& options) {
  AddText(command, "PATH", options.path, "The print information file")->required();
  AddText(command, "FOLDER", options.folder, "Where it goes, under its name with .xml")->required();
}

void MoveFile(Context& context, const MoveOptions& options) {
  RequireFile(options.path);
  CNemiPrintInfoFileAccess file(options.path.c_str());
  if (file.Move(options.folder.c_str()) != 1) {
    throw Failure(L"The file " + QuotedPath(options.path) + L" cannot be moved to " +
                      QuotedPath(options.folder) + L".",
                  L"Look whether the folder is there, and at the rights of both folders.");
  }
  context.out.Done(
      L"Moved " + QuotedPath(options.path) + L" to " + QuotedPath(options.folder) + L".",
      {{L"from", NativePath(options.path)}, {L"to", NativePath(options.folder)}});
}

void DeleteFile(Context& context, const PathOptions& options) {
  RequireFile(options.path);
  CNemiPrintInfoFileAccess file(options.path.c_str());
  if (file.Delete(0) != 1) {
    throw Failure(L"The file " + QuotedPath(options.path) + L" cannot be deleted.",
                  L"Look at the rights of its folder.");
  }
  context.out.Done(L"Deleted " + QuotedPath(options.path) + L".",
                   {{L"deleted", NativePath(options.path)}});
}

}  // namespace

void AddNemi(CLI::App& app, Context& context) {
  CLI::App& noun = AddNoun(app, "nemi", "Print information files of held jobs");
  AddCommand(noun, context, "show", "Show what a file holds", DeclarePath, ShowFile);
  AddCommand(noun, context, "set", "Change fields of a file, or make one", DeclareSet, SetFile);
  AddCommand(noun, context, "move", "Move a file to another folder", DeclareMove, MoveFile);
  AddCommand(noun, context, "delete", "Delete a file", DeclarePath, DeleteFile);
}

}  // namespace tqctl
