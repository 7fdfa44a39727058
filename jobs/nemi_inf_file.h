/// The record of a print information file.
#pragma once

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

}  // namespace vk::tq
