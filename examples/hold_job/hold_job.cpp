// Holds one print job back, reads it again as another program would, and removes it.
#include <clocale>
#include <cstdio>

#include "jobs/manage_file_access.h"

int main() {
  using vk::tq::CManageFileAccess;
  std::setlocale(LC_ALL, "");

  // A new job: fill the record, write it. The file C:\Jobs\Job0001.005 now holds it, enciphered.
  CManageFileAccess job(L"C:\\Jobs\\Job0001");
  job.GetManageData().ManageStatus = 5;
  job.GetManageData().userid = L"山田";
  job.GetManageData().printername = L"2F 複合機";
  if (job.WriteAll() != 1) return std::puts("the job cannot be written"), 1;

  // Any other program finds the job by its base path; the extension tells the status.
  CManageFileAccess seen(L"C:\\Jobs\\Job0001");
  if (seen.ReadAll() != 1) return std::puts("the job cannot be read"), 1;
  std::printf("status %d, user %ls\n", seen.GetManageData().ManageStatus,
              seen.GetManageData().userid.c_str());

  // A change of status is a rename.
  seen.GetManageData().ManageStatus = 96;
  if (seen.WriteStatus() != 1) return std::puts("the status cannot be changed"), 1;

  return seen.Delete() == 1 ? 0 : 1;
}
