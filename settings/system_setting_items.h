// The items of the system settings, in the order in which they are declared and logged. There is no
// guard: whoever includes this list says first what a row becomes.
//
//   TQ_NUMBER(item key, getter, type, default, treatment, label, meaning)     field 1 of the row
//   TQ_TEXT(item key, getter, default, treatment, label, meaning)             field 2 of the row
//   TQ_TRAY(item key, tray, default and label of the use value, default and label of the name)
//
// The treatments stand in system_setting.cpp: kStored is stored as it comes. An item without a
// label is not logged.

TQ_NUMBER(9, GetEmergencyFlag, int, 1, kStored, L"緊急時印刷パスワード有無",
          "emergency print has a password")
TQ_NUMBER(13, GetEmsUpdateCycle, int, 5, kStored, L"配信ファイル更新周期",
          "update cycle of the delivered files")
TQ_NUMBER(14, GetAccessKeyMode, int, 0, kStored, L"アクセスキー使用有無", "access key in use")
TQ_NUMBER(5, GetSystemEdition, int, 1, kStored, L"システムエディション", "system edition")
TQ_NUMBER(17, GetJobNA, int, 0, kStored, L"N/Aジョブの取り扱い", "handling of N/A jobs")
TQ_NUMBER(18, GetLocalTimeOut, int, 30, kStored, L"印刷中タイムアウト値", "time-out while printing")
TQ_NUMBER(30, GetAutoChangeNextTime, int, 1440, kStored, L"印刷モードの自動復帰時間",
          "automatic return time of the print mode")
TQ_NUMBER(29, GetEmergencyAutoChange, int, 0, kStored, L"印刷モードの自動切り替え",
          "automatic switch of the print mode")
TQ_NUMBER(26, GetModeDisplayUserID, int, 1, kStored, L"ユーザ登録設定を表示する/しない",
          "show the user registration setting")
TQ_NUMBER(27, GetModeSaveGroupNo, int, 1, kStored, L"グループ選択設定を保存する/しない",
          "save the group selection setting")
TQ_NUMBER(28, GetModeSpoolPrintOut, int, 0, kStored, nullptr, "spool print-out mode")
TQ_NUMBER(16, GetRenewAccessKeyDisp, int, 0, kStored, L"アクセスキー変更表示/非表示",
          "show the access key change")
TQ_NUMBER(19, GetSharedPrinterUnmount, unsigned char, 0, kStored, L"共有プリンタの自動アンマウント",
          "automatic unmount of the shared printer")
TQ_NUMBER(33, GetConfigFilesUpdateSpanDay, int, 1, kStored, L"設定ファイルの更新間隔(日)",
          "update interval of the settings files, in days")
TQ_NUMBER(34, GetConfigFilesUpdateRetryCount, int, 36, kStored, L"設定ファイルの再取得回数(回)",
          "repeated fetches of the settings files")
TQ_NUMBER(35, GetPInfoUpdateSpanDay, int, 1, kStored, L"プリンタ情報の収集間隔",
          "collection interval of printer information")
TQ_NUMBER(36, GetPInfoUpdateDelayMinute, int, 5, kStored, L"プリンタ情報の収集までのディレイ時間",
          "delay before printer information is collected")
TQ_NUMBER(37, GetUserRegistExpireDay, int, 999, kStored, L"ユーザ登録の有効期間",
          "validity of a user registration")
TQ_NUMBER(38, GetEnableUserIDRegex, int, 0, kStored, L"Windowsアカウントの一部利用機能　有効/無効",
          "partial use of the Windows account on or off")
// NOLINTNEXTLINE(readability-redundant-string-init): every text has its default here
TQ_TEXT(38, GetUserIDRegexPattern, L"", kStored, L"ユーザID抽出用正規表現パターン",
        "regular expression that extracts the user ID")
TQ_NUMBER(15, GetDefaultUserID, int, 0, kStored, L"デフォルトユーザIDにWindowsアカウントを使用する",
          "Windows account as default user ID")
TQ_NUMBER(40, GetFileTranferType, int, 0, kLowFourBits, L"ファイル転送方式", "file transfer method")
TQ_NUMBER(41, GetCertificateValidationCheck, int, 0, kStored, L"SSLサーバ証明書の検証",
          "validation of the SSL server certificate")
TQ_NUMBER(42, GetTavoUse, int, 0, kStored, L"タボ印刷使用", "Tavo print in use")
TQ_TEXT(43, GetDelimiterForTavo, L"#SC#", kKeptWhenEmpty, L"タボ　セパレータ", "Tavo separator")
TQ_NUMBER(45, GetTavoLocalTimeOut, int, 5, kStored, L"タボ　印刷中T.O.",
          "Tavo time-out while printing")
TQ_NUMBER(44, GetEnableRumaPrint, int, 0, kStored, L"ルマ機能 有効／無効",
          "Ruma function on or off")
TQ_TRAY(59, 1, 0, L"トレイ1 有効/無効", L"トレイ1", L"トレイ1 表示名")
TQ_TRAY(60, 2, 0, L"トレイ2 有効/無効", L"トレイ2", L"トレイ2 表示名")
TQ_TRAY(61, 3, 0, L"トレイ3 有効/無効", L"トレイ3", L"トレイ3 表示名")
TQ_NUMBER(62, GetModeMultiServerSetting, int, 0, kOneToSix,
          L"サーバ二重化、サーバ自動設定する/しない",
          "server duplication, automatic server setting")
TQ_TEXT(66, GetNupSetting, L"1,2,4,6,9,16", kStored, L"使用Nup", "N-up values in use")
TQ_NUMBER(67, GetTonerSaveDisp, int, 1, kStored, L"トナーセーブの表示", "show toner save")
TQ_NUMBER(68, GetFontImageDisp, int, 1, kStored, L"フォントをイメージとして印刷するの表示",
          "show printing of fonts as images")
TQ_NUMBER(500, GetImageLogSetting, int, 0, kStored, L"イメログ機能の有効無効",
          "image log function on or off")
TQ_NUMBER(86, GetLocalTimeoutUnsentAuthPrint, int, 0, kStored,
          L"ローカル認証プリントの送信初期状態監視時間",
          "watch time of the first send state, local authenticated print")
TQ_NUMBER(81, GetLocalTimeoutUnsentLogPrint, int, 30, kStored,
          L"ローカルログだけプリントの送信初期状態監視時間",
          "watch time of the first send state, local log-only print")
TQ_NUMBER(82, GetLogPrintTimeout, int, 1440, kStored, L"ログだけ印刷のタイムアウト監視時間",
          "time-out watch of log-only print")
TQ_NUMBER(83, GetLogPrintRetryInterval, int, 10, kStored, L"ログだけ印刷のリトライ間隔時間",
          "retry interval of log-only print")
TQ_NUMBER(84, GetLogPrintRetryMaxCount, int, 144, kStored, L"ログだけ印刷の最大リトライ印刷回数",
          "most retries of log-only print")
TQ_NUMBER(85, GetSpoolingJobSkipTimer, int, 180, kStored,
          L"ドライバサービスでのスプーリング監視時間", "spooling watch time in the driver service")

#undef TQ_NUMBER
#undef TQ_TEXT
#undef TQ_TRAY
