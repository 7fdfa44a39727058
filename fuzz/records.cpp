// The stored records of jobs and users. Input: a mode, and the XML text or, for the last two modes,
// the status file.
#include "fuzz/support.h"
#include "jobs/manage_file_access.h"
#include "jobs/nemi_print_info_file_access.h"
#include "storage/crypto.h"
#include "users/shared_user_data_file_access.h"
#include "users/user_data_file_access.h"

using namespace vk::tq;
using namespace vk::tq::fuzzing;

namespace {

void WriteEnciphered(const std::string& native, std::string_view text) {
  std::filesystem::create_directories(std::filesystem::path(native).parent_path());
  CCrypto().CryptingStringWriter(Wide(text), PathFromNative(native));
}

bool HasSameFields(const MANAGE_FILE& left, const MANAGE_FILE& right) {
  using M = MANAGE_FILE;
  constexpr CString M::*kTexts[] = {&M::NotifyName,  &M::ip,          &M::printerno,   &M::userno,
                                    &M::userid,      &M::accountname, &M::printuserno, &M::color,
                                    &M::number,      &M::jobid,       &M::usergroupid, &M::comment,
                                    &M::portname,    &M::deviceuse,   &M::printername, &M::tavocopy,
                                    &M::copiedjobid, &M::tavocopyerr};
  for (const auto text : kTexts) {
    if (left.*text != right.*text) return false;
  }
  return left.spoolsize == right.spoolsize && left.ManageStatus == right.ManageStatus;
}

void CheckJob(const Sandbox& sandbox, std::string_view text) {
  WriteEnciphered(sandbox.Native("Job.005"), text);
  const CString path = sandbox.Path("Job");
  CManageFileAccess job(path.c_str());
  Require(job.ReadAll() == 1, "any text can be read as a job");
  const MANAGE_FILE& record = job.GetManageData();
  Require(record.tavocopy == L"0" || record.tavocopy == L"1", "the copy flag is one");
  Require(job.WriteAll() == 1, "a record that was read can be written");
  CManageFileAccess again(path.c_str());
  Require(again.ReadAll() == 1 && HasSameFields(again.GetManageData(), record), "a job comes back");
}

void CheckPrintInformation(const Sandbox& sandbox, std::string_view text) {
  WriteEnciphered(sandbox.Native("information.xml"), text);
  const CString path = sandbox.Path("information.xml");
  CNemiPrintInfoFileAccess file(path.c_str());
  Require(file.ReadAll() == 1, "any text can be read as print information");
  Require(file.WriteAll() == 1, "a record that was read can be written");
  CNemiPrintInfoFileAccess again(path.c_str());
  Require(again.ReadAll() == 1 && again.GetNemiInfData() == file.GetNemiInfData(),
          "print information comes back");
}

template <class Access>
void CheckUser(const std::string& native, Access&& user, Access&& again, std::string_view text) {
  user.SetServiceDataDirectry();
  again.SetServiceDataDirectry();
  WriteEnciphered(native, text);
  Require(user.ReadAll() == 1, "any text can be read as user data");
  Require(user.WriteAll() == 1 && again.ReadAll() == 1, "a record that was read can be written");
  Require(again.GetUserID() == user.GetUserID() &&
              again.GetUserAccount() == user.GetUserAccount() &&
              again.GetPrintUserNo() == user.GetPrintUserNo() &&
              again.GetUserGroupNo() == user.GetUserGroupNo(),
          "user data comes back");
}

void CheckStatusFile(const Sandbox& sandbox, const char* name, std::string_view bytes) {
  sandbox.Write(sandbox.Native("Held.099"), "");
  sandbox.Write(sandbox.Native(name), bytes);
  CManageFileAccess job(sandbox.Path("Held").c_str());
  if (job.ReadStatus() == 0) Require(job.GetManageData().ManageStatus == 99, "no status is 99");
  if (bytes.size() == 1) Require(job.ReadStatus() == 1, "one byte is a status");
  Require(job.Delete() == 1 && job.IsExist() == 0, "the whole family goes");
}

}  // namespace

TQ_FUZZ_TARGET(input) {
  const Sandbox& sandbox = TheSandbox();
  const unsigned mode = input.Mode();
  const std::string_view rest = input.Rest();
  if (mode == 0) CheckJob(sandbox, rest);
  if (mode == 1) CheckPrintInformation(sandbox, rest);
  if (mode == 2) {
    CheckUser(sandbox.Config("../data/DATA.XML"), CUserDataFileAccess(), CUserDataFileAccess(),
              rest);
  }
  if (mode == 3) {
    CheckUser(sandbox.Config("../data/Shared.XML"), CSharedUserDataFileAccess(),
              CSharedUserDataFileAccess(), rest);
  }
  if (mode == 4) CheckStatusFile(sandbox, "Held.dat", rest);
  if (mode == 5) CheckStatusFile(sandbox, "Held.dat2", rest);
}
