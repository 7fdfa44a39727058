#include "tqctl/client_settings.h"

#include <mutex>

#include "foundation/log.h"
#include "foundation/product_folder.h"
#include "settings/client_setting_files.h"
#include "tqctl/library_log.h"

namespace tqctl {
namespace {

class KeptLines : public vk::tq::LogSink {
 public:
  explicit KeptLines(bool is_shown) : shown_(is_shown) {}

  void Write(const vk::tq::LogRecord& record) override {
    shown_.Write(record);
    const std::lock_guard lock(mutex_);
    lines_.push_back({record.level, record.number, std::wstring(record.function),
                      std::wstring(record.message), record.code});
  }

  std::vector<LogLine> Take() {
    const std::lock_guard lock(mutex_);
    return std::move(lines_);
  }

 private:
  LibraryLog shown_;
  std::mutex mutex_;
  std::vector<LogLine> lines_;
};

class NoEvents : public vk::tq::EventSink {
 public:
  void Write(unsigned long, std::wstring_view, bool) override {}
};

}  // namespace

std::vector<LogLine> LinesOf(Context& context, const std::function<void()>& work) {
  const auto kept = std::make_shared<KeptLines>(context.is_verbose);
  vk::tq::InstallLogSink(kept);
  try {
    work();
  } catch (...) {
    vk::tq::InstallLogSink(context.log);
    throw;
  }
  vk::tq::InstallLogSink(context.log);
  return kept->Take();
}

void ReadClientSettings(Context& context, int mode, ClientSettings& settings) {
  vk::tq::InstallEventSink(std::make_shared<NoEvents>());
  settings.lines = LinesOf(context, [&] { settings.result = settings.values.Read(mode); });
  vk::tq::InstallEventSink(nullptr);
}

std::wstring ClientIni() { return vk::tq::ProductPath(vk::tq::client_keys::kClientIni); }

}  // namespace tqctl
