// Utilities, locks and log calls.
#include <filesystem>

#include "faults/operation.h"
#include "foundation/file_lock.h"
#include "foundation/log.h"
#include "foundation/util.h"
#include "platform/log_output.h"

namespace vk::tq::testing {
namespace {

CString IniPath(Stage& stage) { return stage.WorkPath(L"some.ini"); }

void HoldIni(Stage& stage) {
  WriteNative(stage.native("work/some.ini"), "[Setting]\nText=a value of some length\nNumber=42\n");
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

Report Pattern(Stage&) {
  CString found, message;
  int error = 0;
  const CString text = L"job 4711 of 山田";
  return Reports(CUtil::ExtractPatternString(text, L"[0-9]+", found, error, message) == 1, found);
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

Report TakeAndRelease(Stage&) {
  HANDLE mutex = GetManageFileMutex(L"Global\\KITORA_QTL_JOB_MANAGE");
  if (mutex == nullptr) return {};
  return Reports(ReleaseManageFileMutex(mutex) == nullptr);
}

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
  const Promise rights = {L"CUtil::", 2};
  const Promise util = Promise{L"CUtil::", 2, kMemory}.Tells({101412, 101413});
  const Promise list = Promise{L"GetFileList2", 5, kMemory}.Tells({140542});
  const Promise jobs = Promise{L"GetManageFileMutex", 4, kMemory}.Tells({100800531});
  return {
      {"FileAccess", HoldIni, SetAccess<true>, rights, ViewAccess},
      {"FolderAccess", HoldIni, SetAccess<false>, rights, ViewAccess},
      {"Pattern", nullptr, Pattern, {L"CUtil::", 5, kMemory}},
      {"IpList", nullptr, IpList, util},
      {"FileList", HoldIni, FileList, list},
      {"JobFilesLock", nullptr, TakeAndRelease, jobs},
      {"LogLine", nullptr, WriteLogLine, kNoLine.Sure(0), ViewLog},
  };
}

}  // namespace vk::tq::testing
