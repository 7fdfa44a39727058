// Utilities, locks and log calls.
#include <fcntl.h>
#include <unistd.h>

#include <cwchar>

#include "faults/operation.h"
#include "foundation/file_lock.h"
#include "foundation/log.h"
#include "foundation/util.h"
#include "platform/log_output.h"

namespace vk::tq::testing {
namespace {

using Pieces = std::vector<std::string>;

constexpr wchar_t kSection[] = L"Setting";
constexpr wchar_t kId[] = L"0123456789abcdef0123456789abcdef0123";

void Nothing(Stage&) {}

// The leader of the session that this process came with may have ended, or lie outside of its
// container. A process that leads a group, and cannot begin a session, has a shell that lives.
void BeginSession(Stage&) { setsid(); }

CString IniPath(Stage& stage) { return stage.WorkPath(L"some.ini"); }

void HoldIni(Stage& stage) {
  WriteNative(stage.native("work/some.ini"), "[Setting]\nText=a value of some length\nNumber=42\n");
}

Report FindNames(Stage& stage) {
  const CString directory = stage.WorkPath();
  CStringArray names;
  const bool is_done = GetFileList2(directory, L"*.INI", names) == 1;
  return Reports(is_done, is_done ? std::wstring_view(names.GetData()[0]) : L"");
}

template <HANDLE (*kTake)(), HANDLE (*kRelease)(HANDLE)>
Report TakeAndRelease(Stage&) {
  HANDLE mutex = kTake();
  if (mutex == nullptr) return {};
  return Reports(kRelease(mutex) == nullptr);
}

HANDLE TakeJobFiles() { return GetManageFileMutex(L"Global\\KITORA_QTL_JOB_MANAGE"); }

// Where nothing is written of a line, the log says nothing of it either.
Pieces ViewLog(Stage& stage) {
  const std::string log = stage.native("work/log");
  const std::string text = ExistsNative(log) ? ReadNative(log) : "";
  return {text.find("a line of some length\n") != std::string::npos ? "there" : "missing"};
}

}  // namespace

std::vector<Operation> FoundationOperations() {
  constexpr Throws kMemory = Throws::kForMemory;
  static constexpr wchar_t kLine[] = L"CUtil::";
  const std::vector<std::string> empty = {""};
  return {
      {"SpecialFolder", Nothing,
       [](Stage&) {
         const CString folder = CUtil::GetSpecialFolderPath(26);
         return Reports(!folder.empty(), folder.substr(folder.size() - 4));
       },
       nullptr, nullptr, 0, kMemory},
      {"ExePath", Nothing, [](Stage&) { return Reports(true, CUtil::GetExePath()); }, nullptr,
       nullptr, 0, kMemory, empty},
      {"IniString", HoldIni,
       [](Stage& stage) {
         return Reports(true, CUtil::GetIniString(kSection, L"Text", IniPath(stage)));
       },
       nullptr, nullptr, 0, kMemory, empty},
      {"IniInt",
       HoldIni,
       [](Stage& stage) {
         const int number = CUtil::GetIniInt(kSection, L"Number", IniPath(stage), 7);
         return Reports(true, number == 42 ? L"42" : L"7");
       },
       nullptr,
       nullptr,
       0,
       kMemory,
       {"7"}},
      {"ToUnicode", Nothing,
       [](Stage&) {
         return Reports(true, CUtil::ConvertToUnicode(932, "\x93\xFA\x96{ and ASCII"));
       },
       nullptr, nullptr, 0, kMemory, empty},
      {"FileAccess", HoldIni,
       [](Stage& stage) {
         const CString path = IniPath(stage);
         stage.Made();
         return Reports(CUtil::SetFileAccess(path, L"users", 1) == 1);
       },
       nullptr, kLine, 2},
      {"FolderAccess", HoldIni,
       [](Stage& stage) {
         const CString path = IniPath(stage).substr(0, IniPath(stage).rfind(L'\\'));
         stage.Made();
         return Reports(CUtil::SetFileAccess(path, L"users", 0) == 1);
       },
       nullptr, kLine, 2},
      {"LogonTime", BeginSession,
       [](Stage&) {
         const CString time = CUtil::GetLogonDateTimeFromLSA();
         return Reports(!time.empty());
       },
       nullptr, kLine, 2, kMemory},
      {"Pattern", Nothing,
       [](Stage&) {
         CString found, message;
         int error = 0;
         const bool is_done = CUtil::ExtractPatternString(L"job 4711 of 山田", L"[0-9]+", found,
                                                          error, message) == 1;
         return Reports(is_done, found);
       },
       nullptr, kLine, 5, kMemory},
      {"ImageLogId", Nothing,
       [](Stage& stage) {
         {
           const Calm calm;
           WriteNative(stage.native("registry.ini"),
                       "[SOFTWARE\\Wow6432Node\\ORV-INC\\Velkorandia\\Tessaloquin\\Option]\n"
                       "ImageLogIDDelimiter=#ID#\n");
         }
         wchar_t text[100], id[64];
         std::wcscpy(text, kId);
         std::wcscat(text, L"#ID#rest");
         const bool is_done = CUtil::SepareteImaglogID(text, id) == 1;
         return Reports(is_done, id);
       },
       nullptr, kLine, 2, kMemory},
      {"IpList", Nothing,
       [](Stage&) {
         CStringArray addresses;
         const bool is_done = CUtil::GetIPList(addresses) == 1;
         return Reports(is_done, addresses.IsEmpty() ? L"" : addresses.GetData()[0].c_str());
       },
       nullptr, kLine, 2, kMemory},
      {"Version", Nothing, [](Stage&) { return Reports(CUtil::IsWin8orLater(nullptr) == 1); },
       nullptr, kLine, 5, kMemory},
      {"FileList", HoldIni, FindNames, nullptr, L"GetFileList2", 5, kMemory},
      {"JobFilesLock", Nothing, TakeAndRelease<TakeJobFiles, ReleaseManageFileMutex>, nullptr,
       L"GetManageFileMutex", 4, kMemory},
      {"WhiteListLock", Nothing,
       TakeAndRelease<GetPrinterWhiteListMutex, ReleasePrinterWhiteListMutex>, nullptr,
       L"GetPrinterWhiteListMutex", 5, kMemory},
      {"LogLine",
       Nothing,
       [](Stage& stage) {
         stage.Made();
         AppendProgramLog(5, L"a line of some length");
         return Reports(true);
       },
       ViewLog,
       nullptr,
       0,
       Throws::kNothing,
       {},
       0},
  };
}

}  // namespace vk::tq::testing
