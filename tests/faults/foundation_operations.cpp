// Utilities, locks and log calls.
#include <unistd.h>

#include <filesystem>

#include "faults/operation.h"
#include "foundation/file_lock.h"
#include "foundation/log.h"
#include "foundation/util.h"
#include "platform/log_output.h"

namespace vk::tq::testing {
namespace {

constexpr wchar_t kSection[] = L"Setting";

// The leader of the session that this process came with may have ended, or lie outside of its
// container. A process that leads a group, and cannot begin a session, has a shell that lives.
void BeginSession(Stage&) { setsid(); }

CString IniPath(Stage& stage) { return stage.WorkPath(L"some.ini"); }

void HoldIni(Stage& stage) {
  WriteNative(stage.native("work/some.ini"), "[Setting]\nText=a value of some length\nNumber=42\n");
}

Report SpecialFolder(Stage&) {
  const CString folder = CUtil::GetSpecialFolderPath(26);
  return Reports(!folder.empty(), folder.substr(folder.size() - 4));
}

Report IniString(Stage& stage) {
  return Reports(true, CUtil::GetIniString(kSection, L"Text", IniPath(stage)));
}

Report IniInt(Stage& stage) {
  return Reports(true, std::to_wstring(CUtil::GetIniInt(kSection, L"Number", IniPath(stage), 7)));
}

Report ToUnicode(Stage&) {
  return Reports(true, CUtil::ConvertToUnicode(932, "\x93\xFA\x96{ and ASCII"));
}

// Of the file, or of the folder that it lies in.
template <bool kIsFile>
Report SetAccess(Stage& stage) {
  const CString path = kIsFile ? IniPath(stage) : CString(stage.WorkPath());
  stage.Made();
  return Reports(CUtil::SetFileAccess(path, L"users", kIsFile ? 1 : 0) == 1);
}

// The modes: on no account may the owner lose the file.
Pieces ViewAccess(Stage& stage) {
  Pieces modes;
  for (const char* const name : {"work", "work/some.ini"}) {
    const auto mode = std::filesystem::status(stage.native(name)).permissions();
    modes.push_back(std::to_string(static_cast<unsigned>(mode)));
  }
  return modes;
}

Report LogonTime(Stage&) { return Reports(!CUtil::GetLogonDateTimeFromLSA().empty()); }

Report Pattern(Stage&) {
  CString found, message;
  int error = 0;
  const CString text = L"job 4711 of 山田";
  return Reports(CUtil::ExtractPatternString(text, L"[0-9]+", found, error, message) == 1, found);
}

void HoldDelimiter(Stage& stage) {
  WriteNative(stage.native("registry.ini"),
              "[SOFTWARE\\Wow6432Node\\ORV-INC\\Velkorandia\\Tessaloquin\\Option]\n"
              "ImageLogIDDelimiter=#ID#\n");
}

Report ImageLogId(Stage&) {
  wchar_t text[100] = L"0123456789abcdef0123456789abcdef0123#ID#rest";
  wchar_t id[64];
  const bool is_done = CUtil::SepareteImaglogID(text, id) == 1;
  const Calm calm;
  return Reports(is_done, id);
}

Report IpList(Stage&) {
  CStringArray addresses;
  if (CUtil::GetIPList(addresses) != 1) return {};
  return Reports(true, addresses[0]);
}

Report FileList(Stage& stage) {
  const CString directory = stage.WorkPath();
  CStringArray names;
  if (GetFileList2(directory, L"*.INI", names) != 1) return {};
  return Reports(true, names[0]);
}

template <HANDLE (*kTake)(), HANDLE (*kRelease)(HANDLE)>
Report TakeAndRelease(Stage&) {
  HANDLE mutex = kTake();
  if (mutex == nullptr) return {};
  return Reports(kRelease(mutex) == nullptr);
}

HANDLE TakeJobFiles() { return GetManageFileMutex(L"Global\\KITORA_QTL_JOB_MANAGE"); }

Report WriteLogLine(Stage& stage) {
  stage.Made();
  AppendProgramLog(5, L"a line of some length");
  return Reports(true);
}

// Where nothing is written of a line, the log says nothing of it either.
Pieces ViewLog(Stage& stage) {
  const std::string log = stage.native("work/log");
  const std::string text = ExistsNative(log) ? ReadNative(log) : "";
  return {text.find("a line of some length\n") != std::string::npos ? "there" : "missing"};
}

}  // namespace

std::vector<Operation> FoundationOperations() {
  constexpr Throws kMemory = Throws::kForMemory;
  const Promise quiet = kNoLineButBadAlloc;
  const Promise rights = {L"CUtil::", 2};
  const Promise util = {L"CUtil::", 2, kMemory};
  const Promise failure = {L"CUtil::", 5, kMemory};
  const Promise list = Promise{L"GetFileList2", 5, kMemory}.Tells({140542});
  const Promise jobs = Promise{L"GetManageFileMutex", 4, kMemory}.Tells({100800531});
  const Promise printers = Promise{L"GetPrinterWhiteListMutex", 5, kMemory}.Tells({100800530});
  return {
      {"SpecialFolder", nullptr, SpecialFolder, quiet},
      {"ExePath", nullptr, [](Stage&) { return Reports(true, CUtil::GetExePath()); }, quiet.Or("")},
      {"IniString", HoldIni, IniString, quiet.Or("")},
      {"IniInt", HoldIni, IniInt, quiet.Or("7")},
      {"ToUnicode", nullptr, ToUnicode, quiet.Or("")},
      {"FileAccess", HoldIni, SetAccess<true>, rights, ViewAccess},
      {"FolderAccess", HoldIni, SetAccess<false>, rights, ViewAccess},
      {"LogonTime", BeginSession, LogonTime, util},
      {"Pattern", nullptr, Pattern, failure},
      {"ImageLogId", HoldDelimiter, ImageLogId, util.Tells({101414})},
      {"IpList", nullptr, IpList, util.Tells({101412, 101413})},
      {"Version", nullptr, [](Stage&) { return Reports(CUtil::IsWin8orLater(nullptr) == 1); },
       failure},
      {"FileList", HoldIni, FileList, list},
      {"JobFilesLock", nullptr, TakeAndRelease<TakeJobFiles, ReleaseManageFileMutex>, jobs},
      {"WhiteListLock", nullptr,
       TakeAndRelease<GetPrinterWhiteListMutex, ReleasePrinterWhiteListMutex>, printers},
      {"LogLine", nullptr, WriteLogLine, kNoLine.Sure(0), ViewLog},
  };
}

}  // namespace vk::tq::testing
