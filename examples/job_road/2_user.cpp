// Chapter 2. Whose job it is, and which printers are left alone.
#include <chrono>
#include <fstream>
#include <thread>

#include "foundation/file_lock.h"
#include "road.h"
#include "storage/crypto.h"
#include "users/enable_users_accessor.h"
#include "users/user_data_file_access.h"
#include "users/white_list_file_access.h"

namespace demo {
namespace {

using vk::tq::CEnableUsersAccessor;
using vk::tq::CUserDataFileAccess;
using vk::tq::CWhiteListFileAccess;

// The tool of the administrator: writes the list, enciphered.
void WriteUserList(const Road& road, const std::string& text) {
  const std::wstring plain = road.product.path("users.ini");
  std::ofstream(road.product.native("users.ini")) << text;
  Expect(vk::tq::CCrypto().CryptFileMake(plain,
                                         Wide(road.product.file("config/EnableUsers.dat"))) == 0,
         "the list of allowed users is enciphered");
}

int AskForTheUser(Road& road) {
  std::wstring account;
  const int type =
      CEnableUsersAccessor::GetInstance()->GetEnableUserType(road.job_user, L"suzuki", account);
  const char* const lists[] = {"no list", "ChangeUsers", "LogOnlyUsers", "PcLogonQueryUsers"};
  Say("User " + Narrow(road.job_user) + " stands in " + lists[type] + ", account \"" +
      Narrow(account) + "\"");
  road.log.Show();
  road.account = account;
  return type;
}

void KeepTheUser(Road& road) {
  CUserDataFileAccess writer;
  writer.SetDataDirectry(road.settings.ServiceDataDir.c_str());
  writer.SetUserID(road.account.c_str());
  writer.SetUserAccount(road.job_user.c_str());
  Expect(writer.WriteAll() == 1, "the user's data is written");

  CUserDataFileAccess reader;
  reader.SetDataDirectry(road.settings.ServiceDataDir.c_str());
  Expect(reader.ReadAll() == 1, "the user's data is read");
  Expect(reader.GetUserID() == road.account, "the user's id comes back");
  Say("The user's data lies enciphered in " + Narrow(reader.GetDataDirectry()));
}

void LeavePrintersAlone(Road& road) {
  const std::wstring folder = Wide(road.product.file("config"));
  CWhiteListFileAccess list;
  list.Add(L"0", L"レシート*");
  list.Add(L"3", L"Label");
  vk::tq::HANDLE lock = vk::tq::GetPrinterWhiteListMutex();
  const bool is_written = list.Write(folder) == 1;
  vk::tq::ReleasePrinterWhiteListMutex(lock);
  Expect(is_written, "the exclusion list is written");

  CWhiteListFileAccess stored;
  lock = vk::tq::GetPrinterWhiteListMutex();
  const bool is_read = stored.Read(folder) == 1;
  vk::tq::ReleasePrinterWhiteListMutex(lock);
  Expect(is_read, "the exclusion list is read");
  const auto is_left_alone = [&](const wchar_t* printer, const wchar_t* driver) {
    return stored.IsWhitePrinter(printer, L"", L"", driver) == 1;
  };
  Expect(is_left_alone(L"レシート 1F", L"Generic"), "a receipt printer is left alone");
  Expect(!is_left_alone(L"2F 複合機", L"Generic"), "the office printer is not");
  Say("レシート 1F is on the exclusion list and is left alone; 2F 複合機 is not.");
}

}  // namespace

void SettleTheUser(Road& road) {
  Chapter("2. Whose job it is");
  WriteUserList(road, "[LogOnlyUsers]\nYAMADA=logonly\n");
  Expect(AskForTheUser(road) == 2, "the user is on the second list");

  Say("The administrator changes the list between two jobs. The next job sees it:");
  WriteUserList(road, "[ChangeUsers]\nyamada=yamada.t\n[LogOnlyUsers]\nYAMADA=logonly\n");
  Expect(AskForTheUser(road) == 1, "the user is on the first list now");
  Expect(road.account == L"yamada.t", "and has an account there");

  KeepTheUser(road);
  LeavePrintersAlone(road);
  road.log.Show();
}

}  // namespace demo
