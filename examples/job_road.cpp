// The road of one print job through the library, told step by step.
//
// Run without arguments it makes a temporary product folder and goes down the road. `job_road
// --read BASE` is the second process: it binds to the job, and prints what it sees.
#include <clocale>
#include <cstdio>
#include <cstring>

#include "demo.h"
#include "foundation/util.h"
#include "jobs/manage_file_access.h"
#include "storage/crypto.h"

namespace {

using vk::tq::CManageFileAccess;
using vk::tq::MANAGE_FILE;

// What a tray program would do: bind to the job, read it, show it.
int ReadAsAnotherProcess(const std::wstring& base) {
  CManageFileAccess job(base.c_str());
  if (job.ReadAll() != 1) return 1;
  const MANAGE_FILE& record = job.GetManageData();
  std::wstring name = job.GetInfoFileName();
  vk::tq::CUtil::GetFileName(name);
  std::printf("status %d, job %s, user %s, printer %s\n", record.ManageStatus,
              demo::Narrow(name).c_str(), demo::Narrow(record.userid).c_str(),
              demo::Narrow(record.printername).c_str());
  return 0;
}

class JobRoad {
 public:
  int Run() {
    HoldTheJob();
    ShowWhatIsStored();
    ChangeTheStatus();
    EndTheJob();
    demo::Chapter("Done");
    return 0;
  }

 private:
  // A new job gets its record, and the rename makes its status visible.
  void HoldTheJob() {
    demo::Chapter("1. A print job is held back");
    CManageFileAccess job(base_.c_str());
    MANAGE_FILE& record = job.GetManageData();
    record.ManageStatus = 5;
    record.NotifyName = L"山田 太郎";
    record.userid = L"yamada";
    record.accountname = L"営業部\\yamada";
    record.comment = L"見積書 <改訂①> & 請求書";
    record.printername = L"2F 複合機";
    record.jobid = L"0001";
    record.spoolsize = 48213;
    demo::Expect(job.WriteAll() == 1, "the job is written");
    demo::Say("One file holds it; its extension is its status.");
    ShowState();
  }

  void ShowWhatIsStored() {
    demo::Chapter("2. What the file holds");
    CManageFileAccess job(base_.c_str());
    std::wstring xml;
    demo::Expect(vk::tq::CCrypto().CryptingStringReader(job.GetInfoFileName(), xml) == 0,
                 "the file can be deciphered");
    demo::Expect(xml.find(L"<userid>yamada</userid>") != std::wstring::npos,
                 "the text holds the record");
    demo::Show("deciphered:", demo::Narrow(xml));
  }

  // Each change is a rename that every other process sees; from 95 to 99 a status file is written
  // too.
  void ChangeTheStatus() {
    demo::Chapter("3. The job moves on, and a second process watches");
    for (const int status : {5, 96, 97, 99}) {
      CManageFileAccess job(base_.c_str());
      job.GetManageData().ManageStatus = status;
      if (status == 99) job.GetManageData().ErrorMessage = kErrorMessage;
      demo::Expect(job.WriteStatus() == 1, "the status is written");
      const std::string seen = demo::RunSelf({"--read", demo::Narrow(base_)});
      demo::Say("the second process sees: " + seen.substr(0, seen.find('\n')));
      demo::Expect(seen.starts_with("status " + std::to_string(status) + ","),
                   "the second process sees the new status");
      ShowState();
    }
  }

  // The family disappears, and the error text that lay in the status file reaches the event log.
  void EndTheJob() {
    demo::Chapter("4. The job ends");
    CManageFileAccess job(base_.c_str());
    demo::Expect(job.Delete() == 1, "the job is deleted");
    demo::Expect(job.IsExist() == 0, "no file of the job is left");
    ShowState();
    demo::Expect(log_.events().size() == 1, "the error text reached the event log");
    demo::Show("event log:", demo::Narrow(log_.events().front()));
  }

  void ShowState() {
    demo::Show("the job's folder:", product_.Listing("jobs"));
    log_.Show();
  }

  static constexpr const wchar_t* kErrorMessage =
      L"用紙がありません。【対処】給紙トレイ1に用紙を入れ,もう一度印刷してください。";

  demo::Product product_;
  demo::LogStage log_;
  std::wstring base_ = product_.path("jobs/見積 0001");
};

}  // namespace

int main(int count, char** arguments) {
  std::setlocale(LC_CTYPE, "C.UTF-8");
  if (count == 3 && std::strcmp(arguments[1], "--read") == 0) {
    return ReadAsAnotherProcess(demo::Wide(arguments[2]));
  }
  return JobRoad().Run();
}
