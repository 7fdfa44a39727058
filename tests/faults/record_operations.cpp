// The files of jobs and users.
#include <functional>
#include <string>
#include <utility>

#include "faults/operation.h"
#include "jobs/manage_file_access.h"
#include "jobs/nemi_print_info_file_access.h"
#include "platform/path.h"
#include "storage/crypto.h"
#include "users/enable_users_accessor.h"
#include "users/shared_user_data_file_access.h"
#include "users/user_data_file_access.h"
#include "users/white_list_file_access.h"

namespace vk::tq {

class EnableUsersAccessorPeer {
 public:
  static void DropInstance() { delete std::exchange(CEnableUsersAccessor::s_pInstance, nullptr); }
};

namespace testing {
namespace {

// ---- Jobs ----

void Fill(MANAGE_FILE& record, const wchar_t* text, int status) {
  const Calm calm;
  record.userid = record.comment = record.printername = text;
  record.tavocopy = L"1";
  record.spoolsize = status;
  record.ManageStatus = status;
}

std::wstring TextOf(const MANAGE_FILE& record) {
  const Calm calm;
  return record.userid + L"," + record.comment + L"," + record.printername + L"," +
         record.tavocopy + L"," + std::to_wstring(record.spoolsize) + L"," +
         std::to_wstring(record.ManageStatus);
}

constexpr wchar_t kOldText[] = L"山田 <old>";
constexpr wchar_t kNewText[] = L"the new record & more of it";

using Job = CManageFileAccess;
constexpr auto kWriteAll = [](Job& job) { return job.WriteAll(); };
// Of more than a memory page, so that a second copy is written.
constexpr auto kWriteLong = [](Job& job) {
  {
    const Calm calm;
    job.GetManageData().comment.assign(5000, L'x');
  }
  return job.WriteInformation();
};
constexpr auto kWriteAllInFile = [](Job& job) { return job.WriteAll(1); };

template <int kStatus, auto kWriteIt = kWriteAll>
void HoldJob(Stage& stage) {
  Job job(stage.job.c_str());
  Fill(job.GetManageData(), kOldText, kStatus);
  ASSERT_EQ(kWriteIt(job), 1);
}

constexpr auto HoldJobInFile = HoldJob<97, kWriteAllInFile>;

void HoldJobInByte(Stage& stage) {
  HoldJobInFile(stage);
  WriteNative(stage.native("jobs/Job0001.dat"), "a");
}

void HoldJobInSecond(Stage& stage) {
  HoldJob<5, kWriteAllInFile>(stage);
  WriteNative(stage.native("jobs/Job0001.dat2"), "[Information]\nManageStatus=42\n");
}

void HoldJobWithError(Stage& stage) {
  HoldJob<96>(stage);
  WriteNative(stage.native("jobs/Job0001.dat"), "[Information]\nErrorMessage=no paper\n");
}

// The numbered files, what they hold, and the status file.
Pieces ViewJob(Stage& stage) {
  std::string numbered;
  std::string status_file;
  for (const std::string& name : ListNative(stage.native("jobs"))) {
    (name.ends_with(".dat") ? status_file : numbered) += name;
  }
  if (!status_file.empty()) status_file = ReadNative(stage.native("jobs/Job0001.dat"));
  Job job(stage.job.c_str());
  const bool is_read = job.ReadInformation() == 1;
  return {numbered, is_read ? ToUtf8(TextOf(job.GetManageData())) : "none", status_file};
}

// A job operation with a new object, whose record is the new one.
template <auto kOperation, int kStatus>
Report OnJob(Stage& stage) {
  Job job(stage.job.c_str());
  Fill(job.GetManageData(), kNewText, kStatus);
  stage.Made();
  const bool is_done = std::invoke(kOperation, job) == 1;
  return Reports(is_done, TextOf(job.GetManageData()));
}

struct LastEvent : EventSink {
  void Write(unsigned long, std::wstring_view message, bool) override {
    const Calm calm;
    text = message;
  }
  std::wstring text;
};

// Who deletes a job has reported its error text.
Report DeleteJob(Stage& stage) {
  const auto event = [] {
    const Calm calm;
    return std::make_shared<LastEvent>();
  }();
  InstallEventSink(event);
  Job job(stage.job.c_str());
  stage.Made();
  return Reports(job.Delete() == 1, event->text);
}

// ---- Print information ----

using Info = CNemiPrintInfoFileAccess;

std::wstring InfoPath(Stage& stage) {
  const Calm calm;
  return stage.path(L"jobs\\info.xml");
}
std::wstring MovedPath(Stage& stage) { return stage.WorkPath(L"info.xml"); }

void WriteInfo(const std::wstring& path, const wchar_t* text) {
  CNemiPrintInfoFileAccess info(path.c_str());
  info.GetNemiInfData().DocumentName = text;
  ASSERT_EQ(info.WriteAll(), 1);
}

void HoldInfo(Stage& stage) { WriteInfo(InfoPath(stage), kOldText); }

void HoldInfoAndTarget(Stage& stage) {
  HoldInfo(stage);
  WriteInfo(MovedPath(stage), L"to be replaced");
}

std::string InfoAt(const std::wstring& path) {
  CNemiPrintInfoFileAccess info(path.c_str());
  return info.ReadAll() == 1 ? ToUtf8(info.GetNemiInfData().DocumentName) : "none";
}

// The last piece: the record is not lost on its way.
Pieces ViewInfo(Stage& stage) {
  const std::string here = InfoAt(InfoPath(stage));
  const std::string there = InfoAt(MovedPath(stage));
  const bool is_kept = here == ToUtf8(kOldText) || there == ToUtf8(kOldText);
  return {here, there, is_kept ? "kept" : "not kept"};
}

template <auto kOperation>
Report OnInfo(Stage& stage) {
  const std::wstring target = stage.WorkPath();
  CNemiPrintInfoFileAccess info(InfoPath(stage).c_str());
  {
    const Calm calm;
    info.GetNemiInfData().DocumentName = kNewText;
  }
  stage.Made();
  return Reports(kOperation(info, target) == 1, info.GetNemiInfData().DocumentName);
}

using Path = std::wstring;
constexpr auto kReadInfo = [](Info& info, const Path&) { return info.ReadAll(); };
constexpr auto kWriteInfo = [](Info& info, const Path&) { return info.WriteAll(); };
constexpr auto kDeleteInfo = [](Info& info, const Path&) { return info.Delete(0); };
constexpr auto kMoveInfo = [](Info& info, const Path& to) { return info.Move(to.c_str()); };
constexpr auto kHasInfo = [](Info& info, const Path&) { return info.IsExist(); };

// ---- Users ----

template <class Access>
void HoldUser(Stage&) {
  Access user;
  user.SetUserID(kOldText);
  ASSERT_EQ(user.WriteAll(), 1);
}

template <class Access>
Pieces ViewUser(Stage&) {
  Access user;
  return {user.ReadAll() == 1 ? ToUtf8(user.GetUserID()) : "none"};
}

template <class Access, auto kOperation>
Report OnUser(Stage& stage) {
  Access user;
  {
    const Calm calm;
    user.SetUserID(kNewText);
  }
  stage.Made();
  return Reports(std::invoke(kOperation, user) == 1, user.GetUserID());
}

constexpr auto kHas = [](auto& user) { return user.IsExist(); };
using User = CUserDataFileAccess;
using Pc = CSharedUserDataFileAccess;

// ---- Lists ----

std::wstring TextOf(const CWhiteListFileAccess& list) {
  const Calm calm;
  std::wstring text;
  for (int i = 0; i < list.GetKinds().GetSize(); ++i) {
    text += list.GetKinds()[i] + L" " + list.GetNames()[i] + L"; ";
  }
  return text;
}

void HoldWhiteList(Stage& stage) {
  CWhiteListFileAccess list;
  list.Add(L"0", kOldText);
  list.Add(L"1", L"another");
  ASSERT_EQ(list.Write(stage.config), 1);
}

Pieces ViewWhiteList(Stage& stage) {
  CWhiteListFileAccess list;
  return {list.Read(stage.config) == 1 ? ToUtf8(TextOf(list)) : "none"};
}

void HoldEnabledUsers(Stage& stage) {
  EnableUsersAccessorPeer::DropInstance();
  WriteNative(stage.product_native("config/EnableUsers.ini"),
              "[ChangeUsers]\njob=account\n[LogOnlyUsers]\nlog=\n[PcLogonQueryUsers]\n*=query\n");
}

void HoldEncipheredUsers(Stage& stage) {
  HoldEnabledUsers(stage);
  ASSERT_EQ(CCrypto().CryptFileMake(stage.config + L"\\EnableUsers.ini",
                                    stage.config + L"\\EnableUsers.dat"),
            0);
}

Report OfEnabledUsers(Stage& stage) {
  CString accounts[3];
  const CEnableUsersAccessor& users = *CEnableUsersAccessor::GetInstance(stage.config);
  int types = 0;
  const wchar_t* const names[] = {L"JOB", L"log", L"any"};
  for (int i = 0; i < 3; ++i) {
    types = 10 * types + users.GetEnableUserType(names[i], L"current", accounts[i]);
  }
  const Calm calm;
  EnableUsersAccessorPeer::DropInstance();
  return Reports(types == 123, accounts[0] + L" " + accounts[1] + L" " + accounts[2]);
}

Report ReadWhiteList(Stage& stage) {
  CWhiteListFileAccess list;
  const bool is_done = list.Read(stage.config) == 1;
  return Reports(is_done, TextOf(list));
}

Report WriteWhiteList(Stage& stage) {
  CWhiteListFileAccess list;
  list.Add(L"3", kNewText);
  return Reports(list.Write(stage.config) == 1);
}

}  // namespace

std::vector<Operation> RecordOperations() {
  const Promise job = Promise{L"CManageFileAccess::"}.Tells({120600200, 120600210});
  const Promise job_exists = Promise{L"CManageFileAccess::"}.Tells({120600010, 120600020});
  const Promise job_delete = job.Tells({120600030, 120600060});
  const Promise job_status = job.Tells({0, 120600070, 120600100, 120600310, 120600320});
  const Promise job_text = job.Tells({0, 120600150, 120600160, 120600170});
  const Promise job_whole = job_text.Tells({120600010, 120600020});
  const Promise job_whole_in_file = job_whole.Tells({120600070, 120600100, 120600310, 120600320});
  // A change of status does not fail with its status file.
  const Promise job_rename = job.Sure(2).Tells({0, 120600140});
  const Promise job_write = job.Tells({0, 120600180, 120600190});
  const Promise job_write_all = job_write.Sure(2).Tells({120600140});
  const Promise info = Promise{L"CNemiPrintInfoFileAccess::"}.Tells({100907, 100908});
  const Promise info_exists = info.Tells({0, 100920});
  const Promise info_read = info_exists.Tells({100901, 100902, 100904, 100909});
  const Promise info_write = info.Tells({100822, 101002, 101007});
  const Promise info_delete = info_exists.Tells({100906, 100910});
  const Promise info_move = info_exists.Tells({100921, 101002, 101006, 101015});
  const std::set<int> read = {130301, 130303, 130304, 130307, 130308, 130311};
  const std::set<int> write = {130302, 130303, 130304, 130305, 130306};
  const std::set<int> remove = {130303, 130304, 130309};
  const Promise user = {L"CUserDataFileAccess::"};
  const Promise pc = {L"CSharedUserDataFileAccess::"};
  const Promise user_write = user.Torn().Tells(write), pc_write = pc.Torn().Tells(write);
  const Promise enabled = {L"CEnableUsersAccessor::", 2, Throws::kForMemory};
  const Promise white_list = {L"CWhiteListFileAccess::Read", 2, Throws::kForMemory};
  const Promise list_read = white_list.Tells({110800010, 110800020, 110800030});
  return {
      {"JobReadAll", HoldJobInFile, OnJob<&Job::ReadAll, 5>, job_whole_in_file, ViewJob},
      {"JobReadAllNumbered", HoldJob<96>, OnJob<&Job::ReadAll, 5>, job_whole, ViewJob},
      {"JobReadStatus", HoldJobInFile, OnJob<&Job::ReadStatus, 5>, job_status, ViewJob},
      {"JobReadByte", HoldJobInByte, OnJob<&Job::ReadStatus, 5>, job_status.Tells({120600090}),
       ViewJob},
      {"JobReadSecond", HoldJobInSecond, OnJob<&Job::ReadStatus, 5>,
       job.Tells({0, 120600100, 120600320}), ViewJob},
      {"JobReadInformation", HoldJob<5>, OnJob<&Job::ReadInformation, 5>, job_text, ViewJob},
      {"JobIsExist", HoldJob<5>, OnJob<&Job::IsExist, 5>, job_exists, ViewJob},
      {"JobDelete", HoldJobWithError, DeleteJob, job_delete, ViewJob},
      {"JobWriteStatus", HoldJob<5>, OnJob<&Job::WriteStatus, 96>, job_rename, ViewJob},
      {"JobWriteInformation", HoldJob<5>, OnJob<&Job::WriteInformation, 6>, job_write.Torn(),
       ViewJob},
      {"JobWriteLong", HoldJob<5>, OnJob<kWriteLong, 6>, job_write, ViewJob},
      {"JobWriteAll", HoldJob<5>, OnJob<kWriteAll, 96>, job_write_all.Torn(), ViewJob},
      {"JobWriteAllInFile", HoldJob<5>, OnJob<kWriteAllInFile, 97>, job_write_all.Torn(), ViewJob},
      {"JobWriteAllNew", nullptr, OnJob<kWriteAll, 96>, job_write_all.Or("Job0001.000"), ViewJob},
      {"InfoReadAll", HoldInfo, OnInfo<kReadInfo>, info_read, ViewInfo},
      {"InfoWriteAll", HoldInfo, OnInfo<kWriteInfo>, info_write.Torn(), ViewInfo},
      {"InfoWriteAllNew", nullptr, OnInfo<kWriteInfo>, info_write, ViewInfo},
      {"InfoDelete", HoldInfo, OnInfo<kDeleteInfo>, info_delete, ViewInfo},
      {"InfoMove", HoldInfoAndTarget, OnInfo<kMoveInfo>, info_move, ViewInfo},
      {"InfoIsExist", HoldInfo, OnInfo<kHasInfo>, kNoLine, ViewInfo},
      {"UserReadAll", HoldUser<User>, OnUser<User, &User::ReadAll>, user.Tells(read),
       ViewUser<User>},
      {"UserWriteAll", HoldUser<User>, OnUser<User, &User::WriteAll>, user_write, ViewUser<User>},
      {"UserWriteAllNew", nullptr, OnUser<User, &User::WriteAll>, kNoLine, ViewUser<User>},
      {"UserDelete", HoldUser<User>, OnUser<User, &User::Delete>, user.Tells(remove),
       ViewUser<User>},
      {"UserIsExist", HoldUser<User>, OnUser<User, kHas>, kNoLine, ViewUser<User>},
      {"SharedReadAll", HoldUser<Pc>, OnUser<Pc, &Pc::ReadAll>, pc.Tells(read), ViewUser<Pc>},
      {"SharedWriteAll", HoldUser<Pc>, OnUser<Pc, &Pc::WriteAll>, pc_write, ViewUser<Pc>},
      {"SharedDelete", HoldUser<Pc>, OnUser<Pc, &Pc::Delete>, pc.Tells(remove), ViewUser<Pc>},
      {"SharedIsExist", HoldUser<Pc>, OnUser<Pc, kHas>, kNoLine, ViewUser<Pc>},
      {"WhiteListRead", HoldWhiteList, ReadWhiteList, list_read, ViewWhiteList},
      {"WhiteListWrite", HoldWhiteList, WriteWhiteList, kNoLineButBadAlloc.Torn(), ViewWhiteList},
      {"EnabledUsers", HoldEnabledUsers, OfEnabledUsers, enabled},
      {"EnabledUsersEnciphered", HoldEncipheredUsers, OfEnabledUsers, enabled},
  };
}

}  // namespace testing
}  // namespace vk::tq
