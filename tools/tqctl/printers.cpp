// tqctl printers: the list of printers that the suite leaves alone.
#include <algorithm>
#include <filesystem>
#include <string>

#include "foundation/file_lock.h"
#include "foundation/product_folder.h"
#include "platform/path.h"
#include "tqctl/command.h"
#include "tqctl/key_file.h"
#include "tqctl/text.h"
#include "users/white_list_file_access.h"

namespace tqctl {
namespace {

using vk::tq::CWhiteListFileAccess;

// Holds the lock of the list, as its callers have to.
class ListLock {
 public:
  ListLock() : mutex_(vk::tq::GetPrinterWhiteListMutex()) {
    if (mutex_ != nullptr) return;
    throw Failure(L"The lock of the list cannot be had.",
                  L"Another program keeps it, or made it for itself alone. Try again.");
  }
  ListLock(const ListLock&) = delete;
  ListLock& operator=(const ListLock&) = delete;
  ~ListLock() { vk::tq::ReleasePrinterWhiteListMutex(mutex_); }

 private:
  vk::tq::HANDLE mutex_;
};

struct ListOptions {
  std::wstring folder;

  std::wstring Folder() const { return folder.empty() ? vk::tq::ProductPath(L"\\config") : folder; }
};

void DeclareList(CLI::App& command, ListOptions& options) {
  AddText(command, "--dir", options.folder, "The folder of the list, if not the product's own");
}

// A list that is missing is an empty one. A folder that is missing is a mistake.
void Read(const std::wstring& folder, CWhiteListFileAccess& list) {
  if (!std::filesystem::is_directory(vk::tq::PathToNative(folder))) {
    throw Failure(L"There is no folder " + QuotedPath(folder) + L".", L"Look at the path.");
  }
  const bool is_there = std::filesystem::exists(vk::tq::PathToNative(folder + L"\\WhiteList.dat"));
  if (!is_there || list.Read(folder) == 1) return;
  throw Failure(L"The list in " + QuotedPath(folder) + L" cannot be read.",
                L"Look at the rights of WhiteList.dat, and at the key file with \"tqctl crypt "
                L"check\".");
}

void Write(const std::wstring& folder, const CWhiteListFileAccess& list) {
  RequireKeyForWriting();
  if (list.Write(folder) == 1) return;
  throw Failure(L"The list in " + QuotedPath(folder) + L" cannot be written.",
                L"Look at the rights of WhiteList.dat, and at the key file with \"tqctl crypt "
                L"check\".");
}

// Kind 0 is compared with a printer's first attribute, and so on.
constexpr const wchar_t* kAttributes[] = {L"first", L"second", L"third", L"driver"};

void ShowList(Context& context, const ListOptions& options) {
  CWhiteListFileAccess list;
  {
    const ListLock lock;
    Read(options.Folder(), list);
  }
  Table table{{L"kind", L"attribute", L"name"}, {}};
  for (int i = 0; i < list.GetKinds().GetSize(); ++i) {
    const std::wstring& kind = list.GetKinds()[i];
    const int number = static_cast<int>(std::wcstol(kind.c_str(), nullptr, 10));
    const bool is_known = number >= 0 && number < static_cast<int>(std::size(kAttributes));
    table.rows.push_back({kind, is_known ? kAttributes[number] : L"none", list.GetNames()[i]});
  }
  context.out.Show(table, L"The list is empty: the suite leaves no printer alone.");
}

struct AddOptions {
  ListOptions list;
  int kind = 0;
  std::wstring name;
};

void DeclareAdd(CLI::App& command, AddOptions& options) {
  command
      .add_option(
          "KIND", options.kind,
          "0: NAME is a printer's first attribute, or its beginning when a * follows; 1, 2, "
          "3: NAME is a part of the second, the third, or the driver's name")
      ->required()
      ->check(CLI::Range(0, 3));
  AddText(command, "NAME", options.name, "What the attribute is compared with")->required();
  DeclareList(command, options.list);
}

void AddPrinter(Context& context, const AddOptions& options) {
  if (options.name.empty()) {
    throw UsageError(L"NAME is empty: as a part of a name it would stand for every printer.");
  }
  if (options.name.find(L"\r\n") != std::wstring::npos) {
    throw UsageError(L"A name is one line.");
  }
  const std::wstring folder = options.list.Folder();
  CWhiteListFileAccess list;
  const ListLock lock;
  Read(folder, list);
  list.Add(std::to_wstring(options.kind), options.name);
  Write(folder, list);
  context.out.Done(L"Added \"" + options.name + L"\".",
                   {{L"kind", options.kind}, {L"name", options.name}});
}

struct RemoveOptions {
  ListOptions list;
  std::wstring kind;
  std::wstring name;
};

void DeclareRemove(CLI::App& command, RemoveOptions& options) {
  AddText(command, "KIND", options.kind, "The entry's kind, as list shows it")->required();
  AddText(command, "NAME", options.name, "The entry's name, as list shows it")->required();
  DeclareList(command, options.list);
}

void RemovePrinter(Context& context, const RemoveOptions& options) {
  const std::wstring folder = options.list.Folder();
  CWhiteListFileAccess list;
  CWhiteListFileAccess kept;
  const ListLock lock;
  Read(folder, list);
  for (int i = 0; i < list.GetKinds().GetSize(); ++i) {
    const std::wstring& kind = list.GetKinds()[i];
    const std::wstring& name = list.GetNames()[i];
    if (kind != options.kind || name != options.name) kept.Add(kind, name);
  }
  if (kept.GetKinds().GetSize() == list.GetKinds().GetSize()) {
    throw Failure(L"The list has no entry \"" + options.name + L"\" of kind " + options.kind + L".",
                  L"\"tqctl printers list\" shows its entries.");
  }
  Write(folder, kept);
  context.out.Done(L"Removed \"" + options.name + L"\".",
                   {{L"kind", options.kind}, {L"name", options.name}});
}

struct TestOptions {
  ListOptions list;
  std::wstring attributes[4];
};

void DeclareTest(CLI::App& command, TestOptions& options) {
  AddText(command, "FIRST", options.attributes[0], "The printer's first attribute")->required();
  AddText(command, "--second", options.attributes[1], "Its second attribute");
  AddText(command, "--third", options.attributes[2], "Its third attribute");
  AddText(command, "--driver", options.attributes[3], "The name of its driver");
  DeclareList(command, options.list);
}

void TestPrinter(Context& context, const TestOptions& options) {
  CWhiteListFileAccess list;
  {
    const ListLock lock;
    Read(options.list.Folder(), list);
  }
  const auto& printer = options.attributes;
  const bool is_listed = list.IsWhitePrinter(printer[0], printer[1], printer[2], printer[3]) == 1;
  context.out.Done(L"The suite " + std::wstring(is_listed ? L"leaves" : L"does not leave") +
                       L" the printer \"" + printer[0] + L"\" alone.",
                   {{L"printer", printer[0]}, {L"listed", is_listed}});
}

}  // namespace

void AddPrinters(CLI::App& app, Context& context) {
  CLI::App& noun = AddNoun(app, "printers", "The printers that the suite leaves alone");
  AddCommand(noun, context, "list", "Every entry of the list", DeclareList, ShowList);
  AddCommand(noun, context, "add", "Add an entry", DeclareAdd, AddPrinter);
  AddCommand(noun, context, "remove", "Remove an entry", DeclareRemove, RemovePrinter);
  AddCommand(noun, context, "test", "Whether the list names a printer", DeclareTest, TestPrinter);
}

}  // namespace tqctl
