// Chapters 4, 5 and 9. The files of the job: written, renamed, watched, deleted.
#include "jobs/manage_file_access.h"
#include "road.h"
#include "storage/crypto.h"

namespace demo {

using vk::tq::CManageFileAccess;
using vk::tq::MANAGE_FILE;

namespace {

// What everybody sees who supports this machine: the tool is a process of its own.
std::string ListWithTheTool(const Road& road) {
  const std::string folder = Narrow(road.settings.NemiManageDir);
  std::string table = RunTool({"job", "list", folder});
  Show("tqctl job list " + folder + ":", table);
  return table;
}

}  // namespace

// A new job gets its record, and a rename makes its status visible.
void HoldTheJob(Road& road) {
  Chapter("4. The job is held back");
  road.job = road.settings.NemiManageDir + L"\\見積 0001";
  CManageFileAccess job(road.job.c_str());
  MANAGE_FILE& record = job.GetManageData();
  record.ManageStatus = 5;
  record.NotifyName = L"山田 太郎";
  record.userid = road.account;
  record.comment = L"見積書 <改訂①> & 請求書";
  record.printername = L"2F 複合機";
  record.jobid = L"Job0001";
  record.spoolsize = 48213;
  Expect(job.WriteAll() == 1, "the job is written");
  Say("One file holds it; its extension is its status.");
  road.Show("NemiManageDir");

  std::wstring xml;
  Expect(vk::tq::CCrypto().CryptingStringReader(job.GetInfoFileName(), xml) == 0,
         "the file can be deciphered");
  Expect(xml.find(L"<userid>yamada.t</userid>") != std::wstring::npos, "the text holds the record");
  Show("deciphered:", Narrow(xml));
}

// Each change is a rename that every other process sees; from 95 to 99 a status file is written
// too.
void ChangeTheStatus(Road& road) {
  Chapter("5. The job moves on, and the tool watches from a process of its own");
  Say("From 95 to 99 a status file is written too, for the groups users and power users. A "
      "machine");
  Say("without a group of that name leaves a line at level 2, which does no harm.");
  for (const int status : {5, 96, 97, 99}) {
    CManageFileAccess job(road.job.c_str());
    job.GetManageData().ManageStatus = status;
    if (status == 99) {
      job.GetManageData().ErrorMessage =
          L"用紙がありません。【対処】給紙トレイ1に用紙を入れ,もう一度印刷してください。";
    }
    Expect(job.WriteStatus() == 1, "the status is written");
    const std::string seen = ListWithTheTool(road);
    Expect(seen.find("  " + std::to_string(1000 + status).substr(1) + "  ") != std::string::npos,
           "the tool sees the new status");
    road.Show("NemiManageDir");
  }
}

// The family disappears, and the error text that lay in the status file reaches the event log.
void EndTheJob(Road& road) {
  Chapter("9. The job ends");
  CManageFileAccess job(road.job.c_str());
  const std::size_t events = road.log.events().size();
  Expect(job.Delete() == 1, "the job is deleted");
  Expect(job.IsExist() == 0, "no file of the job is left");
  road.Show("NemiManageDir");
  Expect(road.log.events().size() == events + 1, "the error text reached the event log");
  Show("event log:", Narrow(road.log.events().back()));
}

}  // namespace demo
