/// The record of a print job.
#pragma once

#include <array>
#include <cstdint>

#include "platform/types.h"

namespace vk::tq {

/// Where a field is stored: "extension" is the number in the name of the job's numbered file, "XML"
/// an element of the same name in that file, "INI" a key of the same name in the status file, which
/// is written and never read back. The values that stand here are those that
/// `CManageFileAccess::InitManageData` gives.
struct MANAGE_FILE {
  std::int32_t ManageStatus = 0;  ///< extension, INI: the status, 0 to 999
  CString NotifyName;             ///< XML: name used to notify the user
  CString ip;                     ///< XML: IP address
  CString printerno;              ///< XML: printer number
  CString userno;                 ///< XML: user number
  CString userid;                 ///< XML: user id
  CString accountname;            ///< XML: account name
  CString printuserno;            ///< XML: number of the printing user
  CString usergroupid;            ///< XML: user group id
  CString color;                  ///< XML: colour setting
  CString number;                 ///< XML: a number, as text
  CString jobid;                  ///< XML: job id
  CString comment;                ///< XML: comment
  CString portname;               ///< XML: port name
  CString deviceuse;              ///< XML: device use
  CTime FileTime;  ///< last write of the numbered file, taken when it is read; not stored, and not
                   ///< reset
  CString printername;             ///< XML: printer name
  CString tavocopy;                ///< XML: "0" or "1" after reading
  CString copiedjobid;             ///< XML: id of the job that was copied
  CString tavocopyerr;             ///< XML: "0", "1" or "2" after reading
  std::int32_t spoolsize = 0;      ///< XML: spool size
  std::int32_t AuthPrintFlag = 1;  ///< INI: 1 authenticated printing, else log-only printing
  std::int32_t LocalTimeoutUnsentAuthPrint = 0;  ///< INI (LocalTimeoutUnsent): setting 86
  std::int32_t LocalTimeoutUnsentLogPrint = 30;  ///< INI (LocalTimeoutUnsent): setting 81
  std::int32_t AuthPrintTimeout = 30;            ///< INI: setting 18
  std::int32_t LogPrintTimeout = 30;             ///< INI: setting 82
  std::int32_t LogPrintRetryInterval = 0;        ///< INI: setting 83
  std::int32_t LogPrintRetryMaxCount = 0;        ///< INI: setting 84
  CString RetryDatetime;        ///< INI: date and time of the retry, as the caller formats it
  std::int32_t RetryCount = 0;  ///< INI: retries so far
  CString ErrorMessage;         ///< INI: error text, with an optional section 【対処】 (remedy)
  CString PrinterIpAddress;     ///< address of the printer, read from the second status file only
};

/// The elements of the numbered file that hold text, in the order in which they are written;
/// spoolsize follows them.
struct ManageFileText {
  const wchar_t* name;
  CString MANAGE_FILE::*field;
};
inline constexpr std::array<ManageFileText, 18> kManageFileTexts = {{
    {L"NotifyName", &MANAGE_FILE::NotifyName},
    {L"ip", &MANAGE_FILE::ip},
    {L"printerno", &MANAGE_FILE::printerno},
    {L"userno", &MANAGE_FILE::userno},
    {L"userid", &MANAGE_FILE::userid},
    {L"accountname", &MANAGE_FILE::accountname},
    {L"printuserno", &MANAGE_FILE::printuserno},
    {L"usergroupid", &MANAGE_FILE::usergroupid},
    {L"color", &MANAGE_FILE::color},
    {L"number", &MANAGE_FILE::number},
    {L"jobid", &MANAGE_FILE::jobid},
    {L"comment", &MANAGE_FILE::comment},
    {L"portname", &MANAGE_FILE::portname},
    {L"deviceuse", &MANAGE_FILE::deviceuse},
    {L"printername", &MANAGE_FILE::printername},
    {L"tavocopy", &MANAGE_FILE::tavocopy},
    {L"copiedjobid", &MANAGE_FILE::copiedjobid},
    {L"tavocopyerr", &MANAGE_FILE::tavocopyerr},
}};

/// The keys of the status file in the order in which they are written. A key has a number or a
/// text; LocalTimeoutUnsent has neither: it is LocalTimeoutUnsentAuthPrint when AuthPrintFlag is 1,
/// else LocalTimeoutUnsentLogPrint.
struct StatusFileKey {
  const wchar_t* section;
  const wchar_t* name;
  std::int32_t MANAGE_FILE::*number = nullptr;
  CString MANAGE_FILE::*text = nullptr;
};
inline constexpr std::array<StatusFileKey, 10> kStatusFileKeys = {{
    {L"Setting", L"AuthPrintFlag", &MANAGE_FILE::AuthPrintFlag},
    {L"Setting", L"LocalTimeoutUnsent"},
    {L"Setting", L"AuthPrintTimeout", &MANAGE_FILE::AuthPrintTimeout},
    {L"Setting", L"LogPrintTimeout", &MANAGE_FILE::LogPrintTimeout},
    {L"Setting", L"LogPrintRetryInterval", &MANAGE_FILE::LogPrintRetryInterval},
    {L"Setting", L"LogPrintRetryMaxCount", &MANAGE_FILE::LogPrintRetryMaxCount},
    {L"Information", L"ManageStatus", &MANAGE_FILE::ManageStatus},
    {L"Information", L"RetryDatetime", nullptr, &MANAGE_FILE::RetryDatetime},
    {L"Information", L"RetryCount", &MANAGE_FILE::RetryCount},
    {L"Information", L"ErrorMessage", nullptr, &MANAGE_FILE::ErrorMessage},
}};

}  // namespace vk::tq
