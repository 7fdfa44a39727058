// Cipher and XML, and the files of jobs and users.
#include <string>
#include <utility>

#include "faults/operation.h"
#include "jobs/manage_file_access.h"
#include "jobs/nemi_print_info_file_access.h"
#include "storage/crypto.h"
#include "storage/xml.h"
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

constexpr wchar_t kOldText[] = L"山田 <old>";
constexpr wchar_t kNewText[] = L"the new record & more of it";

// ---- Objects whose record is a new one, unless a test prepares an old one ----

struct Job : CManageFileAccess {
  explicit Job(const Stage& on, const wchar_t* text = kNewText, int status = 96)
      : CManageFileAccess(on.job.c_str()), stage(on) {
    const Calm calm;
    MANAGE_FILE& record = GetManageData();
    record.userid = record.comment = record.printername = text;
    record.spoolsize = record.ManageStatus = status;
  }
  // Who deletes a job has reported its error text.
  CString Text() {
    const MANAGE_FILE& record = GetManageData();
    return record.userid + record.comment + record.printername + std::to_wstring(record.spoolsize) +
           L" " + std::to_wstring(record.ManageStatus) + stage.event;
  }
  const Stage& stage;
};

struct Info : CNemiPrintInfoFileAccess {
  explicit Info(const Stage& stage, const wchar_t* text = kNewText, bool is_moved = false)
      : CNemiPrintInfoFileAccess(((is_moved ? stage.work : stage.jobs) + L"\\info.xml").c_str()),
        target(stage.work) {
    const Calm calm;
    GetNemiInfData().DocumentName = text;
  }
  CString Text() { return GetNemiInfData().DocumentName; }
  const CString target;
};

template <class Access>
struct UserOf : Access {
  explicit UserOf(const Stage&, const wchar_t* text = kNewText) {
    const Calm calm;
    this->SetUserID(text);
  }
  CString Text() { return this->GetUserID(); }
};
using User = UserOf<CUserDataFileAccess>;
using Pc = UserOf<CSharedUserDataFileAccess>;

struct WhiteList : CWhiteListFileAccess {
  explicit WhiteList(const Stage& stage, const wchar_t* text = kNewText) : folder(stage.config) {
    Add(L"3", text);
  }
  int ReadAll() { return Read(folder); }
  int WriteAll() { return Write(folder); }
  CString Text() { return GetKinds()[0] + L" " + GetNames()[0]; }
  const CString folder;
};

// With all that operations on XML take or fill.
struct Xml : CXml {
  explicit Xml(const Stage& stage) {
    const Calm calm;
    path = stage.work + L"\\plain.xml";
    names = {L"a", L"b"};
    rows.m_aRows.Add({new CMapStringToString{{L"a", kNewText}}});
  }
  CMapStringToString& map() { return *rows.m_aRows[0].m_pColumns; }
  CString Text() {
    for (const RowData& row : rows.m_aRows) {
      for (const auto& [name, value] : *row.m_pColumns) text += name + L"=" + value + L";";
    }
    return text;
  }
  CString text = L"<Velkorandia><QTL><a>1</a><b>2</b></QTL><QTL><a>3</a></QTL></Velkorandia>", path;
  CStringArray names;
  RowArray rows;
};

// ---- What they find, and what they leave ----

template <class Object>
void Hold(Stage& stage) {
  ASSERT_EQ(Object(stage, kOldText).WriteAll(), 1);
}

template <class Object>
std::string TextOf(Object&& object) {
  return object.ReadAll() == 1 ? ToUtf8(object.Text()) : "none";
}

template <class Object>
Pieces View(Stage& stage) {
  return {TextOf(Object(stage))};
}

template <int kStatus, int kFlag = 0>
void HoldJob(Stage& stage) {
  ASSERT_EQ(Job(stage, kOldText, kStatus).WriteAll(kFlag), 1);
}

void HoldJobInByte(Stage& stage) {
  HoldJob<97, 1>(stage);
  WriteNative(stage.native("jobs/Job0001.dat"), "a");
}

void HoldJobInSecond(Stage& stage) {
  HoldJob<5, 1>(stage);
  WriteNative(stage.native("jobs/Job0001.dat2"), "[Information]\nManageStatus=42\n");
}

void HoldJobWithError(Stage& stage) {
  HoldJob<96>(stage);
  WriteNative(stage.native("jobs/Job0001.dat"), "[Information]\nErrorMessage=no paper\n");
}

// The numbered files, what they hold, and the status file.
Pieces ViewJob(Stage& stage) {
  std::string numbered, status_file;
  for (const std::string& name : ListNative(stage.native("jobs"))) {
    (name.ends_with(".dat") ? status_file : numbered) += name;
  }
  if (!status_file.empty()) status_file = ReadNative(stage.native("jobs/" + status_file));
  Job job(stage);
  return {numbered, job.ReadInformation() == 1 ? ToUtf8(job.Text()) : "none", status_file};
}

void HoldInfoAndTarget(Stage& stage) {
  Hold<Info>(stage);
  ASSERT_EQ(Info(stage, L"to be replaced", true).WriteAll(), 1);
}

// The last piece: the record is not lost on its way.
Pieces ViewInfo(Stage& stage) {
  const std::string here = TextOf(Info(stage)), there = TextOf(Info(stage, L"", true));
  const bool is_kept = here == ToUtf8(kOldText) || there == ToUtf8(kOldText);
  return {here, there, is_kept ? "kept" : "not kept"};
}

void HoldUsers(Stage& stage) {
  EnableUsersAccessorPeer::DropInstance();
  WriteNative(stage.product_native("config/EnableUsers.ini"),
              "[ChangeUsers]\njob=account\n[LogOnlyUsers]\nlog=\n[PcLogonQueryUsers]\n*=query\n");
}

void HoldEncipheredUsers(Stage& stage) {
  HoldUsers(stage);
  const CString list = stage.config + L"\\EnableUsers";
  ASSERT_EQ(CCrypto().CryptFileMake(list + L".ini", list + L".dat"), 0);
}

void HoldText(Stage& stage) {
  ASSERT_EQ(CCrypto().CryptingStringWriter(L"old", stage.work + L"\\text"), 0);
}

Pieces ViewText(Stage& stage) {
  CString text;
  const bool is_read = CCrypto().CryptingStringReader(stage.work + L"\\text", text) == 0;
  return {is_read ? ToUtf8(text) : "none"};
}

void HoldFiles(Stage& stage) {
  WriteNative(stage.native("work/plain"), std::string(0x100000 + 5, 'p'));
  ASSERT_EQ(CCrypto().CryptFileMake(stage.work + L"\\plain", stage.work + L"\\cipher"), 0);
}

Pieces ViewMade(Stage& stage) { return ViewFile(stage.native("work/made")); }

void HoldDocument(Stage& stage) {
  WriteNative(stage.native("work/plain.xml"), ToUtf8(Xml(stage).text));
}

// Behind a NUL stands what a writer did not come to cut off.
Pieces ViewDocument(Stage& stage) {
  const std::string bytes = ReadNative(stage.native("work/plain.xml"));
  return {bytes.substr(0, bytes.find('\0'))};
}

// ---- Operations that take more than a call ----

// Of more than a memory page, so that a second copy is written.
int WriteLong(Job& job) {
  {
    const Calm calm;
    job.GetManageData().comment.assign(5000, L'x');
  }
  return job.WriteInformation();
}

Report OfEnabledUsers(Stage& stage) {
  CString account;
  const auto& users = *CEnableUsersAccessor::GetInstance(stage.config);
  const bool is_known = users.GetEnableUserType(L"any", L"current", account) == 3;
  const Calm calm;
  EnableUsersAccessorPeer::DropInstance();
  return Reports(is_known, account);
}

Report Hash(Stage&) { return Reports(true, CCrypto().ComputeHash(kNewText)); }

Report CipherBytes(Stage&) {
  CByteArray bytes;
  CCrypto().EncryptByTripleDesToByteArray(kNewText, bytes);
  return Reports(true, CCrypto().DecryptByTripleDESToByteArray(bytes));
}

Report WriteText(Stage& stage) {
  return Reports(CCrypto().CryptingStringWriter(kNewText, stage.work + L"\\text") == 0);
}

Report ReadText(Stage& stage) {
  CString text;
  return Reports(CCrypto().CryptingStringReader(stage.work + L"\\text", text) == 0, text);
}

template <auto kMade>
Report MakeFile(Stage& stage) {
  const CString from = kMade == &CCrypto::CryptFileMake ? L"\\plain" : L"\\cipher";
  return Reports((CCrypto().*kMade)(stage.work + from, stage.work + L"\\made") == 0);
}

int SelectAll(Xml& it) {
  CStringArray values;
  return it.SelectXMLStringValue(it.text, it.names[0], values);
}

// One that gives 0.
template <class Work>
auto OnXml(Work work) {
  return On<Xml>([work](Xml& it) { return work(it) == 0; });
}

}  // namespace

std::vector<Operation> RecordOperations() {
  constexpr auto kWriteAll = [](Job& job) { return job.WriteAll(); };
  constexpr auto kWriteAllInFile = [](Job& job) { return job.WriteAll(1); };
  constexpr auto kMove = [](Info& info) { return info.Move(info.target.c_str()); };
  constexpr auto kHas = [](auto& user) { return user.IsExist(); };
  constexpr Promise kTorn = {.is_torn = true};
  // A change of status does not fail with its status file.
  constexpr Promise kRenamed = {.sure_pieces = 2};
  constexpr Promise kReplaced = {.sure_pieces = 2, .is_torn = true};
  constexpr Promise kMade = {.also = "Job0001.000", .sure_pieces = 2};
  return {
      {"JobReadAll", HoldJob<97, 1>, On<Job>(&Job::ReadAll), ViewJob},
      {"JobReadAllNumbered", HoldJob<96>, On<Job>(&Job::ReadAll), ViewJob},
      {"JobReadStatus", HoldJob<97, 1>, On<Job>(&Job::ReadStatus), ViewJob},
      {"JobReadByte", HoldJobInByte, On<Job>(&Job::ReadStatus), ViewJob},
      {"JobReadSecond", HoldJobInSecond, On<Job>(&Job::ReadStatus), ViewJob},
      {"JobReadInformation", HoldJob<5>, On<Job>(&Job::ReadInformation), ViewJob},
      {"JobIsExist", HoldJob<5>, On<Job>(&Job::IsExist), ViewJob},
      {"JobDelete", HoldJobWithError, On<Job>(&Job::Delete), ViewJob},
      {"JobWriteStatus", HoldJob<5>, On<Job>(&Job::WriteStatus), ViewJob, kRenamed},
      {"JobWriteInformation", HoldJob<5>, On<Job>(&Job::WriteInformation), ViewJob, kTorn},
      {"JobWriteLong", HoldJob<5>, On<Job>(WriteLong), ViewJob},
      {"JobWriteAll", HoldJob<5>, On<Job>(kWriteAll), ViewJob, kReplaced},
      {"JobWriteAllInFile", HoldJob<5>, On<Job>(kWriteAllInFile), ViewJob, kReplaced},
      {"JobWriteAllNew", nullptr, On<Job>(kWriteAll), ViewJob, kMade},
      {"InfoReadAll", Hold<Info>, On<Info>(&Info::ReadAll), ViewInfo},
      {"InfoWriteAll", Hold<Info>, On<Info>(&Info::WriteAll), ViewInfo, kTorn},
      {"InfoWriteAllNew", nullptr, On<Info>(&Info::WriteAll), ViewInfo},
      {"InfoDelete", Hold<Info>, On<Info>([](Info& info) { return info.Delete(0); }), ViewInfo},
      {"InfoMove", HoldInfoAndTarget, On<Info>(kMove), ViewInfo},
      {"InfoIsExist", Hold<Info>, On<Info>(kHas), ViewInfo},
      {"UserReadAll", Hold<User>, On<User>(&User::ReadAll), View<User>},
      {"UserWriteAll", Hold<User>, On<User>(&User::WriteAll), View<User>, kTorn},
      {"UserWriteAllNew", nullptr, On<User>(&User::WriteAll), View<User>},
      {"UserDelete", Hold<User>, On<User>(&User::Delete), View<User>},
      {"UserIsExist", Hold<User>, On<User>(kHas), View<User>},
      {"SharedReadAll", Hold<Pc>, On<Pc>(&Pc::ReadAll), View<Pc>},
      {"SharedWriteAll", Hold<Pc>, On<Pc>(&Pc::WriteAll), View<Pc>, kTorn},
      {"SharedDelete", Hold<Pc>, On<Pc>(&Pc::Delete), View<Pc>},
      {"SharedIsExist", Hold<Pc>, On<Pc>(kHas), View<Pc>},
      {"WhiteListRead", Hold<WhiteList>, On<WhiteList>(&WhiteList::ReadAll), View<WhiteList>},
      {"WhiteListWrite", nullptr, On<WhiteList>(&WhiteList::WriteAll), View<WhiteList>, kTorn},
      {"EnabledUsers", HoldUsers, OfEnabledUsers},
      {"EnabledUsersEnciphered", HoldEncipheredUsers, OfEnabledUsers},
      {"Hash", nullptr, Hash, nullptr, {.also = ""}},
      {"CipherBytes", nullptr, CipherBytes},
      {"TextWrite", HoldText, WriteText, ViewText, kTorn},
      {"TextRead", HoldText, ReadText, ViewText},
      {"FileEncipher", HoldFiles, MakeFile<&CCrypto::CryptFileMake>, ViewMade},
      {"FileDecipher", HoldFiles, MakeFile<&CCrypto::DecryptFileMake>, ViewMade},
      {"XmlSelectMap", nullptr,
       OnXml([](Xml& it) { return it.SelectXMLStringValue(it.text, it.names, it.map()); })},
      {"XmlSelectFirst", nullptr,
       OnXml([](Xml& it) { return it.SelectFirstXMLStringValue(it.text, it.names, it.map()); })},
      {"XmlSelectAll", nullptr, OnXml(SelectAll)},
      {"XmlSelectRows", nullptr,
       OnXml([](Xml& it) { return it.SelectXmlData(it.text, &it.rows); })},
      {"XmlCreate", nullptr,
       OnXml([](Xml& it) { return (it.text = it.CreateXmlString01(it.names, it.names)).empty(); })},
      {"XmlInsert", nullptr,
       OnXml([](Xml& it) { return it.InsertXMLValueText(it.text, it.names, it.names); })},
      {"XmlUpdate", nullptr,
       OnXml([](Xml& it) { return it.UpdateXMLValueText(it.text, it.names, it.names); })},
      {"XmlCreateFile", HoldDocument,
       OnXml([](Xml& it) { return it.CreateXmlString(it.path, it.rows, it.text); }), ViewDocument,
       kTorn},
      {"XmlInsertFile", HoldDocument,
       OnXml([](Xml& it) { return it.InsertXMLValue(it.path, it.names[0], it.names[1]); }),
       ViewDocument, kTorn},
  };
}

}  // namespace testing
}  // namespace vk::tq
