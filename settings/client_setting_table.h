/// The keys of Client.ini that CClientSetting::Read loads, one row each, in the order of reading.
///
/// Each row has one of six shapes, or is the card system code; settings/client_setting.cpp has one
/// function for each. The defaults are those of Read: where a member starts with another value,
/// client_setting.h says so.
#pragma once

#include <limits>
#include <optional>
#include <variant>

#include "foundation/log.h"
#include "settings/client_setting.h"
#include "settings/client_setting_files.h"

namespace vk::tq::client_keys {

struct Range {
  int least;
  int most;
};
constexpr Range Within(int least, int most) { return {least, most}; }
inline constexpr Range kAnyNumber{0, std::numeric_limits<int>::max()};
/// The bound itself, which is also what too many digits give, is not accepted.
inline constexpr int kBelowBound = std::numeric_limits<int>::max() - 1;

using NumberMember = std::variant<int CClientSetting::*, unsigned char CClientSetting::*>;

/// In what a few numbers differ from the others.
struct NumberTraits {
  const wchar_t* section = kSettingSection;
  int level = 3;                            ///< of both warnings
  const wchar_t* event = nullptr;           ///< goes to the event log with both warnings
  bool keeps_member = false;                ///< a text that is no number leaves the member alone
  bool hides_value = false;                 ///< the out-of-limit message shows the default
  std::optional<int> out_of_limit_value{};  ///< stored in place of the default
};

/// Decimal digits within a range; anything else is a warning and gives the default.
struct NumberKey {
  const wchar_t* key;
  NumberMember member;
  int default_value;
  Range accepted;
  int not_a_number;  ///< message number
  int out_of_limit;  ///< message number, 0 where every number is accepted
  const wchar_t* label;
  NumberTraits traits{};
};

/// "0" or "1", by the first character; anything else is a warning. Without a default the member
/// keeps its value, an empty value is passed over, and the message shows the text.
struct FlagKey {
  const wchar_t* key;
  bool CClientSetting::*member;
  std::optional<bool> default_value;
  int empty;  ///< message number
  int bad;    ///< message number
  const wchar_t* label;
};

enum class Form { kPlain, kEnciphered };

/// A text that must be there.
struct RequiredTextKey {
  const wchar_t* key;
  CString CClientSetting::*member;
  Form form;
  int missing;  ///< message number
  const wchar_t* missing_text;
  int blank;  ///< message number
  const wchar_t* label;
};

/// A text that may be missing: the member then copies another one, or keeps its value with a
/// warning.
struct OptionalTextKey {
  const wchar_t* key;
  CString CClientSetting::*member;
  CString CClientSetting::*substitute;
  int missing;  ///< message number
  const wchar_t* missing_text;
};

enum class Place { kLocal, kServer };

/// In what a few directories differ from the others.
struct DirectoryTraits {
  /// Read with mode 1 only, and not fatal when it cannot be made.
  bool is_job_transfer = false;
  unsigned long event_id = kEventError;
  const wchar_t* missing_event = nullptr;  ///< the event's text where it is not that of the log
};

/// A directory that must be there. A local one is made when it does not exist; its default stands
/// behind kDefaultFolder.
struct DirectoryKey {
  const wchar_t* key;
  CString CClientSetting::*member;
  Place place;
  const wchar_t* default_name;
  int missing;  ///< message number
  const wchar_t* missing_text;
  int blank;          ///< message number
  int not_creatable;  ///< message number, 0 for a place on the server
  const wchar_t* label;
  DirectoryTraits traits{};
};

/// Whatever number the value begins with, without a test or a message.
struct IntegerKey {
  const wchar_t* key;
  int CClientSetting::*member;
  int default_value;
};

/// Up to four hexadecimal digits, or nothing.
struct CardCodeKey {
  const wchar_t* key;
  CString CClientSetting::*member;
  int bad;  ///< message number
  const wchar_t* label;
};

using ClientKey = std::variant<NumberKey, FlagKey, RequiredTextKey, OptionalTextKey, DirectoryKey,
                               IntegerKey, CardCodeKey>;

using C = CClientSetting;

// The traits by name, so that a row stays a line or two.
inline constexpr NumberTraits kFtpRetryByte{.keeps_member = true, .out_of_limit_value = 20};
inline constexpr NumberTraits kInThreadSection{.section = kThreadSection};
inline constexpr NumberTraits kQuiet{.level = 2, .hides_value = true};
constexpr NumberTraits WithEvent(const wchar_t* text) { return {.event = text}; }
inline constexpr DirectoryTraits kJobTransfer{.is_job_transfer = true};
inline constexpr DirectoryTraits kWarningEvents{.event_id = kEventWarning};
constexpr DirectoryTraits WithMissingEvent(const wchar_t* text) {
  return {.event_id = kEventWarning, .missing_event = text};
}

inline constexpr ClientKey kClientKeys[] = {
    FlagKey{L"SharedPC", &C::SharedPC, {}, 0, 120200010, L"共有ＰＣ設定"},
    NumberKey{L"ServiceSocket", &C::ServiceSocket, 50514, Within(0, 65535), 120200020, 120200030,
              L"サービスソケットサーバポート番号"},
    RequiredTextKey{L"P1", &C::P1, Form::kPlain, 120200040,
                    L"プリンタサーバＩＰが、設定されていません。", 120200050,
                    L"プリンタサーバＩＰアドレス"},
    OptionalTextKey{L"P1Secondary", &C::P1Secondary, &C::P1, 0, nullptr},
    RequiredTextKey{L"P2", &C::P2, Form::kEnciphered, 120200060,
                    L"ＦＴＰユーザ名が、設定されていません。", 120200070, L"ＦＴＰユーザ名"},
    RequiredTextKey{L"P3", &C::P3, Form::kEnciphered, 120200080,
                    L"ＦＴＰパスワードが、設定されていません。", 120200090, L"ＦＴＰパスワード"},
    NumberKey{L"P4", &C::P4, 3, Within(0, 255), 120200100, 120200110, L"ＦＴＰリトライ回数",
              kFtpRetryByte},
    DirectoryKey{L"NemiInfoDir", &C::NemiInfoDir, Place::kLocal, L"NemiInf", 120200120,
                 L"ネミ印刷情報ファイル格納ディレクトリが、設定されていません。", 120200130,
                 120200140, L"ネミ印刷情報格納場所"},
    DirectoryKey{L"CertNemiInfoDir", &C::CertNemiInfoDir, Place::kLocal, L"NemiInfCert", 120200150,
                 L"認証中ネミ印刷情報ファイル格納ディレクトリが、設定されていません。", 120200160,
                 120200170, L"認証中ネミ印刷情報格納場所"},
    DirectoryKey{L"NemiManageDir", &C::NemiManageDir, Place::kLocal, L"NemiManage", 120200180,
                 L"ネミ印刷管理ファイル格納ディレクトリが、設定されていません。", 120200190,
                 120200200, L"ネミ印刷管理ファイル格納場所"},
    DirectoryKey{L"LomuInfoDir", &C::LomuInfoDir, Place::kLocal, L"LomuInf", 120200210,
                 L"ロム印刷情報ファイル格納ディレクトリが、設定されていません。", 120200220,
                 120200230, L"ロム印刷情報格納場所", kJobTransfer},
    DirectoryKey{L"CertLomuInfoDir", &C::CertLomuInfoDir, Place::kLocal, L"LomuInfCert", 120200240,
                 L"認証中ロム印刷情報ファイル格納ディレクトリが、設定されていません。", 120200250,
                 120200260, L"認証中ロム印刷情報格納場所", kJobTransfer},
    DirectoryKey{L"LomuManageDir", &C::LomuManageDir, Place::kLocal, L"LomuManage", 120200270,
                 L"ロム印刷管理ファイル格納ディレクトリが、設定されていません。", 120200280,
                 120200290, L"ロム印刷管理ファイル格納場所", kJobTransfer},
    DirectoryKey{L"JobTransDir", &C::JobTransDir, Place::kLocal, L"JobTrans", 120200300,
                 L"ジョブ転送ディレクトリが、設定されていません。", 120200310, 120200320,
                 L"ジョブ転送ディレクトリ", kJobTransfer},
    DirectoryKey{L"LomuServerDir", &C::LomuServerDir, Place::kServer, L"/LomuRecv", 120200390,
                 L"ロムジョブ転送先ディレクトリが、設定されていません。", 120200400, 0,
                 L"ロムジョブ転送先ディレクトリ", kJobTransfer},
    DirectoryKey{L"EmgWorkDir", &C::EmgWorkDir, Place::kLocal, L"EMGWork", 120200330,
                 L"緊急印刷ワークディレクトリが、設定されていません。", 120200340, 120200350,
                 L"緊急印刷ワークディレクトリ"},
    DirectoryKey{L"EmgTransDir", &C::EmgTransDir, Place::kLocal, L"EMGTrans", 120200360,
                 L"緊急印刷転送ディレクトリが、設定されていません。", 120200370, 120200380,
                 L"緊急印刷転送ディレクトリ"},
    DirectoryKey{L"EmgServerDir", &C::EmgServerDir, Place::kServer, L"/EMG", 120200410,
                 L"緊急印刷ファイル転送先ディレクトリが、設定されていません。", 120200420, 0,
                 L"緊急印刷ファイル転送先ディレクトリ"},
    DirectoryKey{L"ServiceDataDir", &C::ServiceDataDir, Place::kLocal, L"Data", 120200430,
                 L"サービス参照ユーザ情報ディレクトリが、設定されていません。", 120200440,
                 120200450, L"サービス参照ユーザ情報ディレクトリ"},
    NumberKey{L"SharedPrinterTransTimeout", &C::SharedPrinterTransTimeout, 5000, kAnyNumber,
              120200460, 0, L"共有プリンタファイル送信タイムアウト"},
    NumberKey{L"SharedPrinterTransRetry", &C::SharedPrinterTransRetry, 3, Within(0, 255), 120200470,
              120200480, L"共有プリンタファイル送信リトライ回数"},
    FlagKey{L"SharedPrinterUserType", &C::SharedPrinterUserType, false, 120200500, 120200490,
            L"共有プリンタの通知ユーザ使用設定"},
    FlagKey{L"SharedPrinter", &C::SharedPrinter, true, 120200520, 120200510,
            L"共有プリンタ機能使用有無"},
    NumberKey{L"SocketBackLog", &C::SocketBackLog, 20, Within(1, 2000), 120200530, 120200540,
              L"サービスソケットサーバ バックログ数"},
    FlagKey{L"SelectIPorHost", &C::SelectIPorHost, false, 120200560, 120200550,
            L"ＩＰ／ＰＣ名切替"},
    NumberKey{L"ShardJobDelete", &C::ShardJobDelete, 120, kAnyNumber, 120200570, 0,
              L"共有プリンタジョブ削除時間"},
    OptionalTextKey{L"ClientIPAddress", &C::ClientIPAddress, nullptr, 120200580,
                    L"クライアントIPアドレスが設定されていません。"},
    NumberKey{L"ClientIPAddressCycle", &C::ClientIPAddressCycle, 30, kAnyNumber, 120200590, 0,
              L"クライアントIPアドレス監視周期"},
    NumberKey{L"AuthorityMethod", &C::AuthorityMethod, 0, kAnyNumber, 120200600, 0,
              L"プリンタの権限方式"},
    NumberKey{L"DevCapaIntevalTime", &C::DevCapaIntevalTime, 120, kAnyNumber, 120200610, 0,
              L"DeviceCapability取得インターバルタイマー値"},
    NumberKey{L"ToastPrintingDisplayTime", &C::ToastPrintingDisplayTime, 10, kAnyNumber, 120200620,
              0, L"トースト表示時間(印刷中)"},
    NumberKey{L"ToastCanceledDisplayTime", &C::ToastCanceledDisplayTime, 10, kAnyNumber, 120200620,
              0, L"トースト表示時間(以外)"},
    NumberKey{L"SharedTimeout", &C::SharedTimeout, 10, kAnyNumber, 120200620, 0,
              L"共有PC設定のユーザ情報保持期間(秒)"},
    NumberKey{L"CheckSharedPrinterLoopSpan", &C::CheckSharedPrinterLoopSpan, 1000, kAnyNumber,
              120200620, 0, L"共有プリンタのチェックループ間隔"},
    NumberKey{L"CheckSharedPrinterNewJobSpan", &C::CheckSharedPrinterNewJobSpan, 0, kAnyNumber,
              120200620, 0, L"共有プリンタのプリンタ単位間隔"},
    DirectoryKey{L"PrinterInfoWorkDir", &C::PrinterInfoWorkDir, Place::kLocal, L"PrinterInfoWork",
                 120200670, L"プリンタ情報一時ディレクトリが、設定されていません。", 120200680,
                 120200685, L"プリンタ情報一時ディレクトリ",
                 WithMissingEvent(L"プリンタ情報一時格納ディレクトリが、設定されていません。")},
    DirectoryKey{L"PrinterInfoTransDir", &C::PrinterInfoTransDir, Place::kLocal,
                 L"PrinterInfoTrans", 120200690,
                 L"プリンタ情報転送ディレクトリが、設定されていません。", 120200700, 120200705,
                 L"プリンタ情報転送ディレクトリ", kWarningEvents},
    DirectoryKey{L"PrinterInfoServerDir", &C::PrinterInfoServerDir, Place::kServer, L"PrinterInfo",
                 120200710, L"プリンタ情報転送先ディレクトリが、設定されていません。", 120200720, 0,
                 L"プリンタ情報転送先ディレクトリ", kWarningEvents},
    NumberKey{L"PrinterInfoFtpRetry", &C::PrinterInfoFtpRetry, 6, Within(0, 255), 120200730,
              120200730, L"プリンタ情報FTP接続送信リトライ回数",
              WithEvent(L"プリンタ情報FTP転送リトライ回数が、設定されていません。")},
    NumberKey{L"PrinterInfoFtpRetryInterval", &C::PrinterInfoFtpRetryInterval, 10000,
              Within(0, 60000), 120200740, 120200742, L"プリンタ情報FTP接続送信リトライ間隔",
              WithEvent(L"プリンタ情報FTP転送リトライ間隔が、設定されていません。")},
    NumberKey{L"PrinterInfoCycle", &C::PrinterInfoCycle, 60000, Within(0, 360000), 120200744,
              120200746, L"プリンタ情報スレッド間隔", kInThreadSection},
    NumberKey{L"StandByIdleCount", &C::StandByIdleCount, 15, kAnyNumber, 120200748, 0,
              L"管理ファイル監視待機回数"},
    NumberKey{L"FileLockRetry", &C::FileLockRetry, 1, kAnyNumber, 120200748, 0,
              L"ファイルロック失敗時のリトライ回数"},
    NumberKey{L"SharedJobCancelInterval", &C::SharedJobCancelInterval, 10000, kAnyNumber, 120200748,
              0, L"共有プリンタキャンセル監視スレッドの監視間隔"},
    NumberKey{L"FtpSizeCheck", &C::FtpSizeCheck, C::FTPSIZECHECK_WIN8ONLY,
              Within(C::FTPSIZECHECK_NOCHECK, C::FTPSIZECHECK_ALLCHECK), 120200748, 120200750,
              L"FTPサイズチェック区分"},
    NumberKey{L"FtpConnectRetryInterval", &C::FtpConnectRetryInterval, 1000, Within(0, kBelowBound),
              120200748, 120200750, L"FTP接続リトライ間隔"},
    NumberKey{L"FQDNTryCount", &C::FQDNTryCount, 3, Within(1, kBelowBound), 120200760, 120200761,
              L"プリンタサーバのFQDNの取得試行回数"},
    NumberKey{L"FQDNExpirationMinute", &C::FQDNExpirationMinute, 60, Within(0, kBelowBound),
              120200762, 120200763, L"プリンタサーバのFQDNの有効期間"},
    NumberKey{L"EnableUpdateDevmode", &C::EnableUpdateDevmode, 1, Within(0, 1), 120200748,
              120200750, L"ロム仮想ドライバDevmode更新要否"},
    IntegerKey{L"ValidPrimaryAP", &C::ValidPrimaryAP, 1},
    IntegerKey{L"ValidPrimaryPS", &C::ValidPrimaryPS, 1},
    IntegerKey{L"ServerAutoSetting", &C::ServerAutoSetting, 0},
    IntegerKey{L"SharedPCInputUserIDArch", &C::SharedPCInputUserIDArch, 0},
    CardCodeKey{L"SharedPCCardSystemCode", &C::SharedPCCardSystemCode, 120200720,
                L"カードシステムコード"},
    NumberKey{L"PrintJobInfoDispUserName", &C::PrintJobInfoDispUserName, 1, Within(0, 1), 120200752,
              120200754, L"印刷情報の表示画面のステータスバーへのユーザ名表示フラグ", kQuiet},
};

}  // namespace vk::tq::client_keys
