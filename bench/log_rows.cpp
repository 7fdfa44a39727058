// A log call that goes nowhere.
#include "empty_function.h"
#include "foundation/log.h"
#include "harness.h"
#include "rows.h"
#include "workspace.h"

namespace vk::tq::bench {
namespace {

constexpr int kCalls = 1000;

Contest LogContest() {
  auto sink = std::make_shared<NullSink>(5);
  const auto message = std::make_shared<std::wstring>(L"管理ファイル２(情報)を読み込みました。");
  const auto ours = [sink, message] {
    for (int i = 0; i < kCalls; ++i) {
      Log4cxxMgr::LogOutDetail(2, 0, L"CManageFileAccess::ReadAll", __LINE__, *message);
    }
  };
  const auto floor = [] {
    for (int i = 0; i < kCalls; ++i) EmptyFunction();
  };
  ours();
  Require(sink->lines() == 0, "a line came through");
  return {ours, floor, {}, kCalls};
}

}  // namespace

void AddLogRows() {
  AddRow({"log", "a log call below the level that is kept", "a call of an empty function", 3.0},
         LogContest);
}

}  // namespace vk::tq::bench
