#include <array>
#include <string>
#include <utility>
#include <vector>

#include "foundation/log.h"
#include "platform/error.h"
#include "platform/profile.h"
#include "platform/text.h"
#include "settings/client_setting.h"
#include "settings/client_setting_files.h"
#include "settings/client_setting_writer_table.h"

namespace vk::tq {

using namespace client_keys;

namespace {

// ---- Client.ini ----

int WriteClientKey(const wchar_t* key, const CString& value) {
  const bool is_written =
      WriteProfileString(ProductPath(kClientIni), kSettingSection, key, OnOneLine(value));
  return is_written ? 1 : 0;
}

CString ReadClientKey(const wchar_t* key) {
  return Profile(ProductPath(kClientIni)).GetString(kSettingSection, key, L"", kValueBuffer);
}

// ---- config.ini ----

// What the writers of config.ini have in common: the trace lines and the handler.
template <class Work>
int WriteConfig(const wchar_t* function, int exception_number, const Work& work) {
  int result = 0;
  Log4cxxMgr::LogOutDetail(0, 0, function, __LINE__, L"START");
  try {
    work();
    result = 1;
  } catch (...) {
    Log4cxxMgr::LogOutDetail(5, exception_number, function, __LINE__,
                             static_cast<int>(GetLastError()),
                             L"config.iniファイルへの書き込みで予期せぬエラーが発生しました。");
  }
  Log4cxxMgr::LogOutDetail(0, 0, function, __LINE__, L"END");
  return result;
}

// Nobody looks at the result: a print processor that is not installed has no folder for the file.
void WriteConfigKeys(const std::vector<ProfileValue>& values) {
  WriteProfile(ProductPath(kPrintProcessorIni), values);
}

template <class Value>
void LogSetting(int number, const wchar_t* function, const wchar_t* text, const Value& value) {
  Log4cxxMgr::LogOutDetail(3, number, function, __LINE__, Format(text, value));
}

int WriteNumber(const NumberWriter& writer, int value) {
  return WriteConfig(writer.function, writer.exception, [&] {
    const bool is_good = value >= 0 && value <= writer.most;
    const int written = is_good ? value : writer.default_value;
    if (!is_good) LogSetting(writer.bad, writer.function, writer.bad_text, written);
    WriteConfigKeys({{kSettingSection, writer.key, std::to_wstring(written)}});
    LogSetting(writer.written, writer.function, writer.written_text, written);
  });
}

}  // namespace

int CClientSetting::WriteClientIP(CString address) {
  WriteClientKey(L"ClientIPAddress", address);
  return 1;
}

int CClientSetting::WritePrimPSIpAddr(CString address) { return WriteClientKey(L"P1", address); }

int CClientSetting::WriteScndPSIpAddr(CString address) {
  return WriteClientKey(L"P1Secondary", address);
}

int CClientSetting::WriteSvIpGetAutoFlg(CString flag) {
  return WriteClientKey(L"ServerAutoSetting", flag);
}

CString CClientSetting::ReadPrimPSIpAddr() { return ReadClientKey(L"P1"); }

CString CClientSetting::ReadScndPSIpAddr() { return ReadClientKey(L"P1Secondary"); }

int CClientSetting::ReadSvIpGetAutoFlg() {
  return Profile(ProductPath(kClientIni)).GetInt(kSettingSection, L"ServerAutoSetting", 0);
}

int CClientSetting::ReadAddIconRetry() {
  const CString text = ReadClientKey(L"AddIconRetry");
  int count = 0;
  if (!CheckNumeric(text.c_str(), kAddIconRetryDefault, &count)) {
    Log4cxxMgr::LogOutDetail(3, 120200630, L"CClientSetting::ReadAddIconRetry", __LINE__,
                             Format(L"設定値が異常です。デフォルト値を使用します。"
                                    L"[タスクトレイへのアイコン登録時リトライ回数] 設定値:[%s]",
                                    text));
  }
  return count;
}

int CClientSetting::ReadEMSDir(CString& directory) {
  const auto fail = [](int number, const CString& text) {
    Log4cxxMgr::LogOutDetail(4, number, L"CClientSetting::ReadEMSDir", __LINE__, text);
    CEventLogMgr::EventLogOut(kEventError, text);
    return 0;
  };
  EMSDir = directory = CString(kDefaultFolder) + kEmsDirDefaultName;
  CString value = ReadClientKey(L"EMSDir");
  if (value.empty()) {
    return fail(120200640, L"配信先ディレクトリが、設定されていません。");
  }
  value = Trim(value);
  if (value.empty()) {
    return fail(120200650, Format(L"設定値が異常です。[配信先ディレクトリ] 設定値:[%s]", value));
  }
  if (!CheckExistDirectry(value)) {
    return fail(120200660, Format(L"ディレクトリの存在確認及び、作成処理に失敗しました。"
                                  L"[配信先ディレクトリ] 設定値:[%s]",
                                  value));
  }
  EMSDir = directory = value;
  return 1;
}

int CClientSetting::WriteTrayData(int use1, CString name1, int use2, CString name2, int use3,
                                  CString name3) {
  constexpr wchar_t kFunction[] = L"CClientSetting::WriteTrayData";
  std::array<std::pair<int, CString>, std::size(kTrays)> trays{
      {{use1, std::move(name1)}, {use2, std::move(name2)}, {use3, std::move(name3)}}};
  return WriteConfig(kFunction, 120200880, [&] {
    for (std::size_t i = 0; i < trays.size(); ++i) {
      auto& [use, name] = trays[i];
      const Tray& tray = kTrays[i];
      name = OnOneLine(name);
      if (use != 0 && use != tray.code) {
        use = 0;
        LogSetting(tray.bad_use, kFunction, tray.bad_use_text, use);
      }
      if (name.empty()) {
        name = tray.default_name;
        LogSetting(tray.no_name, kFunction, tray.no_name_text, name);
      }
    }
    std::vector<ProfileValue> values;
    for (std::size_t i = 0; i < trays.size(); ++i) {
      const auto& [use, name] = trays[i];
      const Tray& tray = kTrays[i];
      LogSetting(120200870, kFunction, tray.use_line, use);
      LogSetting(120200870, kFunction, tray.name_line, name);
      values.push_back({kSettingSection, tray.use_key, std::to_wstring(use)});
      values.push_back({kSettingSection, tray.name_key, name});
    }
    WriteConfigKeys(values);
  });
}

int CClientSetting::WriteNupSetting(CString text) {
  constexpr wchar_t kFunction[] = L"CClientSetting::WriteNupSetting";
  return WriteConfig(kFunction, 120200910, [&] {
    const CString written = OnOneLine(text);
    WriteConfigKeys({{kSettingSection, L"NupSetting", written}});
    LogSetting(120200900, kFunction, L"config設定[使用Nup]              :[%s]", written);
  });
}

int CClientSetting::WriteTonerSaveDisp(int value) { return WriteNumber(kTonerSaveDisp, value); }

int CClientSetting::WriteFontImageDisp(int value) { return WriteNumber(kFontImageDisp, value); }

int CClientSetting::WriteSpoolingJobSkipTimer(int value) {
  return WriteNumber(kSpoolingJobSkipTimer, value);
}

int CClientSetting::WriteWorkaroundRemnantJob(int value) {
  return WriteNumber(kWorkaroundRemnantJob, value);
}

}  // namespace vk::tq
