// The road of one print job through the library, chapter by chapter. Each chapter stands in a file
// of its own and can be read by itself.
#pragma once

#include <string>

#include "demo.h"
#include "settings/client_setting.h"

namespace demo {

// What the chapters hand on to each other.
struct Road {
  Product product;
  LogStage log;

  vk::tq::CClientSetting settings;  // from chapter 1 on
  std::wstring job_user = L"Yamada";
  std::wstring account;    // from chapter 2 on: under which the job goes on
  std::wstring info_file;  // from chapter 3 on: the print information file
  std::wstring job;        // from chapter 4 on: the base path of the job's files

  // Prints what a folder holds, and what the library has logged.
  void Show(std::string_view folder) {
    demo::Show(std::string(folder) + ":", product.Listing(folder));
    log.Show();
  }
};

void ReadTheSettings(Road& road);
void SettleTheUser(Road& road);
void DescribeThePrint(Road& road);
void HoldTheJob(Road& road);
void ChangeTheStatus(Road& road);
void FindTheServersName(Road& road);
void CallTheSharedPrinter(Road& road);
void SendTheFiles(Road& road);
void EndTheJob(Road& road);

// The account that the FTP server of the demonstration knows.
inline constexpr const wchar_t* kFtpUser = L"tester";
inline constexpr const wchar_t* kFtpPassword = L"geheim secret";

}  // namespace demo
