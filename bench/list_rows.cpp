// The allowed users and the excluded printers.
#include <fcntl.h>

#include <unordered_map>
#include <vector>

#include "floor.h"
#include "harness.h"
#include "rows.h"
#include "support/test_support.h"
#include "users/enable_users_accessor.h"
#include "users/white_list_file_access.h"
#include "workspace.h"

namespace vk::tq::bench {
namespace {

// The list of users that is loaded. The only instance stays with the file that it came from, so all
// rows have one folder, and each writes its list into the one file.
struct Users {
  explicit Users(int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
      text += "user" + std::to_string(i) + "=account" + std::to_string(i) + "\r\n";
      table.emplace(L"USER" + std::to_wstring(i), L"account" + std::to_wstring(i));
    }
    for (int i = 0; i < kQuestions; ++i) {
      const auto number = std::to_wstring(i * 7919LL % count);
      names.push_back(L"user" + number);
      keys.push_back(L"USER" + number);
    }
    testing::WriteNative(file(), text);
    list = CEnableUsersAccessor::GetInstance(Folder().path());
    std::wstring account;
    Require(list->GetTQLoginAccount(names.back(), L"", account) == 1, "a user is missing");
  }

  static constexpr int kQuestions = 2048;

  static const TempFolder& Folder() {
    static const TempFolder folder;
    return folder;
  }
  static std::string file() { return Folder().native("EnableUsers.ini"); }

  std::unordered_map<std::wstring, std::wstring> table;
  std::vector<std::wstring> names;
  std::vector<std::wstring> keys;  // in upper case
  CEnableUsersAccessor* list;
};

Contest InstanceContest() {
  auto users = std::make_shared<Users>(10'000);
  const std::wstring directory = Users::Folder().path();
  return {[users, directory] {
            Require(CEnableUsersAccessor::GetInstance(directory) == users->list, "a new instance");
          },
          [path = Users::file()] {
            const plain::File file(path, O_RDONLY);
            benchmark::DoNotOptimize(file.Size());
          }};
}

Contest LookupContest(int count) {
  auto users = std::make_shared<Users>(count);
  return {[users] {
            std::wstring account;
            int found = 0;
            for (const std::wstring& name : users->names) {
              found += users->list->GetTQLoginAccount(name, L"", account);
            }
            Require(found == Users::kQuestions, "a user is missing");
          },
          [users] {
            std::wstring account;
            int found = 0;
            for (const std::wstring& key : users->keys) {
              const auto hit = users->table.find(key);
              if (hit == users->table.end()) continue;
              account = hit->second;
              ++found;
            }
            Require(found == Users::kQuestions, "a user is missing");
          },
          {},
          Users::kQuestions};
}

// ---- The printers ----

struct Printers {
  explicit Printers(int count) {
    for (int i = 0; i < count; ++i) {
      const int kind = i % 4;
      names.push_back(L"Printer model " + std::to_wstring(i));
      kinds.push_back(kind);
      list.Add(std::to_wstring(kind), names.back());
    }
  }

  CWhiteListFileAccess list;
  std::vector<std::wstring> names;
  std::vector<int> kinds;
  std::vector<std::wstring> attributes = {L"Printer on the second floor", L"\\\\server\\printer-2F",
                                          L"192.0.2.17_port",
                                          L"Printer driver of some maker (color) V4"};
};

Contest WhitePrinterContest(int count) {
  auto printers = std::make_shared<Printers>(count);
  return {[printers] {
            const auto& a = printers->attributes;
            Require(printers->list.IsWhitePrinter(a[0], a[1], a[2], a[3]) == 0, "a match");
          },
          [printers] {
            bool is_found = false;
            for (std::size_t i = 0; i < printers->names.size(); ++i) {
              const auto& attribute =
                  printers->attributes[static_cast<std::size_t>(printers->kinds[i])];
              is_found |= attribute.find(printers->names[i]) != std::wstring::npos;
            }
            Require(!is_found, "a match");
          }};
}

}  // namespace

void AddListRows() {
  AddRow({"list", "GetInstance of an unchanged list of users", "open, fstat, close", 1.5},
         InstanceContest);
  AddRow({"list", "GetTQLoginAccount, one of 10,000 users", "one hash lookup", 2.0},
         [] { return LookupContest(10'000); });
  AddRow({"list", "IsWhitePrinter, 10,000 entries that do not match", "a find for each entry", 1.5},
         [] { return WhitePrinterContest(10'000); });
  for (const int count : {10, 100, 1'000, 10'000, 100'000}) {
    AddRow({"curve", "GetTQLoginAccount by users", "one hash lookup", {}, 11, count},
           [=] { return LookupContest(count); });
    AddRow({"curve", "IsWhitePrinter by entries", "a find for each entry", {}, 11, count},
           [=] { return WhitePrinterContest(count); });
  }
}

}  // namespace vk::tq::bench
