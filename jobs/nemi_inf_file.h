/// The record of a print information file.
#pragma once

#include <iterator>

#include "platform/types.h"

namespace vk::tq {

/// Describes a document, its print settings, the counts of its pages, and its ways through the
/// system. Every field is text, and but for FilePath stands in the file as an element of its name.
struct NEMI_INF_FILE {
  CString FilePath;             ///< the file's path, set when it is read; not stored
  CString ID;                   ///< id of the print job
  CString DocumentName;         ///< document name
  CString UserName;             ///< user name
  CString NotifyName;           ///< name for notification
  CString PrintKind;            ///< kind of print
  CString NupOperator;          ///< n-up: operator
  CString NUpName;              ///< n-up: name; written, but not read
  CString NUp;                  ///< n-up: value
  CString Copies;               ///< copies
  CString CreationDate;         ///< date of creation
  CString Duplex;               ///< duplex setting
  CString TonerSaver;           ///< toner saving setting
  CString Feed;                 ///< paper feed
  CString FeedName;             ///< name of the paper feed
  CString Color;                ///< colour setting
  CString Tumble;               ///< tumble setting of duplex printing
  CString PageCount;            ///< pages
  CString TotalPageCount;       ///< total pages
  CString ColorPageCount;       ///< colour pages
  CString ColorTotalPageCount;  ///< total colour pages
  CString MonoPageCount;        ///< monochrome pages
  CString MonoTotalPageCount;   ///< total monochrome pages
  CString LandScape;            ///< landscape setting
  CString PaperSize;            ///< paper size
  CString PaperSizeName;        ///< name of the paper size
  CString SharedServer;         ///< the shared server
  CString SharedPrinterIp;      ///< IP address of the shared printer
  CString JobId;                ///< job id
  CString UserId;               ///< user id
  CString AccessKey;            ///< access key of the user
  CString PrintUserNo;          ///< number of the printing user
  CString UserGroupNo;          ///< user group number
  CString ClientName;           ///< client name
  CString ClientIp;             ///< client IP address
  CString PrinterNo;            ///< printer number
  CString StatusNo;             ///< status number
  CString LocalJobNo;           ///< local job number
  CString LocalAddJobTime;      ///< time at which the job was added locally
  CString Emergency;            ///< emergency flag
  CString CertFlag;             ///< authentication flag
  CString CountLimitWarn;       ///< warning on the count limit
  CString ColorLimitWarn;       ///< warning on the colour limit
  CString RegistTime;           ///< time of registration
  CString Comment;              ///< comment
  CString PortName;             ///< port name
  CString DeviceUse;            ///< device use
  CString ImageLogID;           ///< image log id

  bool operator==(const NEMI_INF_FILE&) const = default;
};

/// How a field is stored. The rows stand in the order of the record, which is the order of reading.
struct NemiField {
  const wchar_t* element;
  CString NEMI_INF_FILE::*member;
  int written_at;  ///< position among the elements of the file, from 1; 0 when it is not stored
  bool is_read = true;
};

inline constexpr NemiField kNemiFields[] = {
    {L"FilePath", &NEMI_INF_FILE::FilePath, 0, false},
    {L"ID", &NEMI_INF_FILE::ID, 1},
    {L"DocumentName", &NEMI_INF_FILE::DocumentName, 2},
    {L"UserName", &NEMI_INF_FILE::UserName, 3},
    {L"NotifyName", &NEMI_INF_FILE::NotifyName, 4},
    {L"PrintKind", &NEMI_INF_FILE::PrintKind, 8},
    {L"NupOperator", &NEMI_INF_FILE::NupOperator, 9},
    {L"NUpName", &NEMI_INF_FILE::NUpName, 10, false},
    {L"NUp", &NEMI_INF_FILE::NUp, 11},
    {L"Copies", &NEMI_INF_FILE::Copies, 12},
    {L"CreationDate", &NEMI_INF_FILE::CreationDate, 13},
    {L"Duplex", &NEMI_INF_FILE::Duplex, 14},
    {L"TonerSaver", &NEMI_INF_FILE::TonerSaver, 15},
    {L"Feed", &NEMI_INF_FILE::Feed, 16},
    {L"FeedName", &NEMI_INF_FILE::FeedName, 17},
    {L"Color", &NEMI_INF_FILE::Color, 18},
    {L"Tumble", &NEMI_INF_FILE::Tumble, 25},
    {L"PageCount", &NEMI_INF_FILE::PageCount, 19},
    {L"TotalPageCount", &NEMI_INF_FILE::TotalPageCount, 20},
    {L"ColorPageCount", &NEMI_INF_FILE::ColorPageCount, 21},
    {L"ColorTotalPageCount", &NEMI_INF_FILE::ColorTotalPageCount, 22},
    {L"MonoPageCount", &NEMI_INF_FILE::MonoPageCount, 23},
    {L"MonoTotalPageCount", &NEMI_INF_FILE::MonoTotalPageCount, 24},
    {L"LandScape", &NEMI_INF_FILE::LandScape, 7},
    {L"PaperSize", &NEMI_INF_FILE::PaperSize, 5},
    {L"PaperSizeName", &NEMI_INF_FILE::PaperSizeName, 6},
    {L"SharedServer", &NEMI_INF_FILE::SharedServer, 26},
    {L"SharedPrinterIp", &NEMI_INF_FILE::SharedPrinterIp, 27},
    {L"JobId", &NEMI_INF_FILE::JobId, 28},
    {L"UserId", &NEMI_INF_FILE::UserId, 29},
    {L"AccessKey", &NEMI_INF_FILE::AccessKey, 30},
    {L"PrintUserNo", &NEMI_INF_FILE::PrintUserNo, 31},
    {L"UserGroupNo", &NEMI_INF_FILE::UserGroupNo, 32},
    {L"ClientName", &NEMI_INF_FILE::ClientName, 33},
    {L"ClientIp", &NEMI_INF_FILE::ClientIp, 34},
    {L"PrinterNo", &NEMI_INF_FILE::PrinterNo, 35},
    {L"StatusNo", &NEMI_INF_FILE::StatusNo, 36},
    {L"LocalJobNo", &NEMI_INF_FILE::LocalJobNo, 37},
    {L"LocalAddJobTime", &NEMI_INF_FILE::LocalAddJobTime, 38},
    {L"Emergency", &NEMI_INF_FILE::Emergency, 39},
    {L"CertFlag", &NEMI_INF_FILE::CertFlag, 40},
    {L"CountLimitWarn", &NEMI_INF_FILE::CountLimitWarn, 41},
    {L"ColorLimitWarn", &NEMI_INF_FILE::ColorLimitWarn, 42},
    {L"RegistTime", &NEMI_INF_FILE::RegistTime, 43},
    {L"Comment", &NEMI_INF_FILE::Comment, 44},
    {L"PortName", &NEMI_INF_FILE::PortName, 45},
    {L"DeviceUse", &NEMI_INF_FILE::DeviceUse, 46},
    {L"ImageLogID", &NEMI_INF_FILE::ImageLogID, 47},
};
static_assert(sizeof(NEMI_INF_FILE) == std::size(kNemiFields) * sizeof(CString),
              "every field has its row");

}  // namespace vk::tq
