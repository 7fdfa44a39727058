/// What the small readers and the writers of CClientSetting work from. All keys lie in the section
/// "Setting".
#pragma once

namespace vk::tq::client_keys {

inline constexpr int kAddIconRetryDefault = 100;
/// Behind kDefaultFolder.
inline constexpr const wchar_t* kEmsDirDefaultName = L"EMS";

/// One tray of config.ini. A use value is 0 or the tray's code.
struct Tray {
  int code;
  const wchar_t* use_key;
  const wchar_t* name_key;
  const wchar_t* default_name;
  int bad_use;  ///< message number; the use value has become 0
  const wchar_t* bad_use_text;
  int no_name;  ///< message number; the name has become the default
  const wchar_t* no_name_text;
  const wchar_t* use_line;
  const wchar_t* name_line;
};

inline constexpr Tray kTrays[] = {
    {3, L"UseTray1", L"NameTray1", L"トレイ1",  //
     120200810, L"設定値が異常です。デフォルト値を使用します。[トレイ1 有効/無効] 設定値:[%d]",
     120200820, L"設定値がありません。デフォルト値を使用します。[トレイ1 表示名] 設定値:[%s]",
     L"config設定[トレイ1 有効/無効]    :[%d]", L"config設定[トレイ1 表示名]       :[%s]"},
    {4, L"UseTray2", L"NameTray2", L"トレイ2",  //
     120200830, L"設定値が異常です。デフォルト値を使用します。[トレイ2 有効/無効] 設定値:[%d]",
     120200840, L"設定値がありません。デフォルト値を使用します。[トレイ2 表示名] 設定値:[%s]",
     L"config設定[トレイ2 有効/無効]    :[%d]", L"config設定[トレイ2 表示名]       :[%s]"},
    {5, L"UseTray3", L"NameTray3", L"トレイ3",  //
     120200850, L"設定値が異常です。デフォルト値を使用します。[トレイ3 有効/無効] 設定値:[%d]",
     120200860, L"設定値がありません。デフォルト値を使用します。[トレイ3 表示名] 設定値:[%s]",
     L"config設定[トレイ3 有効/無効]    :[%d]", L"config設定[トレイ3 表示名]       :[%s]"},
};

/// One number of config.ini, accepted from 0 to a limit.
struct NumberWriter {
  const wchar_t* key;
  const wchar_t* function;
  int most;
  int default_value;
  int bad;  ///< message number; the text shows the default
  const wchar_t* bad_text;
  int written;  ///< message number
  const wchar_t* written_text;
  int exception;  ///< message number
};

inline constexpr NumberWriter kTonerSaveDisp{
    L"TonerSaveDisp",
    L"CClientSetting::WriteTonerSaveDisp",
    1,
    0,  //
    120200910,
    L"設定値が異常です。デフォルト値を使用します。[トナーセーブの表示] 設定値:[%d]",
    120200920,
    L"config設定[トナーセーブの表示]   :[%d]",
    120200930};

inline constexpr NumberWriter kFontImageDisp{
    L"FontImageDisp",
    L"CClientSetting::WriteFontImageDisp",
    1,
    0,  //
    120200940,
    L"設定値が異常です。デフォルト値を使用します。"
    L"[フォントをイメージとして印刷するの表示] 設定値:[%d]",
    120200950,
    L"config設定[フォントをイメージとして印刷する]   :[%d]",
    120200960};

inline constexpr NumberWriter kSpoolingJobSkipTimer{
    L"SpoolingJobSkipTimer",
    L"CClientSetting::WriteSpoolingJobSkipTimer",
    9999,
    180,  //
    120200970,
    L"設定値が異常です。デフォルト値を使用します。"
    L"[ドライバサービスでのスプーリング監視時間] 設定値:[%d]",
    120200980,
    L"config設定[ドライバサービスでのスプーリング監視時間] 設定値:[%d]",
    120200990};

inline constexpr NumberWriter kWorkaroundRemnantJob{L"WorkaroundRemnantJob",
                                                    L"CClientSetting::WriteWorkaroundRemnantJob",
                                                    9999,
                                                    0,  //
                                                    120200970,
                                                    L"設定値が異常です。デフォルト値を使用します。"
                                                    L"[残存ジョブの対処方法(No.87)] 設定値:[%d]",
                                                    120200980,
                                                    L"config設定[残存ジョブの対処方法] 設定値:[%d]",
                                                    120200990};

}  // namespace vk::tq::client_keys
