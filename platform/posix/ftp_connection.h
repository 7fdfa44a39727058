// What an FTP connection can do.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/posix/ftp_control.h"
#include "platform/posix/native.h"

namespace vk::tq {

// The operations of platform/ftp_session.h on one control connection. They exclude each other.
class FtpConnection {
 public:
  FtpConnection(std::unique_ptr<FtpControl> control, const FtpTimeouts& timeouts)
      : control_(std::move(control)), timeouts_(timeouts) {}

  std::mutex& mutex() { return mutex_; }

  bool SetDirectory(std::wstring_view directory);
  bool Get(std::wstring_view remote_name, const std::wstring& local);
  bool Put(const std::wstring& local, std::wstring_view remote_name);
  bool Rename(std::wstring_view old_name, std::wstring_view new_name);
  bool Delete(std::wstring_view remote_name);
  std::optional<std::uint64_t> Size(std::wstring_view remote_name);
  std::optional<std::uint64_t> ListedSize(std::wstring_view remote_name);

 private:
  class OutgoingFile;
  // Takes what comes in; false, with the last error set, when it cannot.
  using Sink = std::function<bool(std::string_view bytes)>;

  bool SetType(char type);
  std::optional<std::uint16_t> Passive();
  // The data connection of a command that moves a file; none, with the last error set, on failure.
  FileDescriptor Begin(std::string_view verb, std::string_view argument);
  // Ends what Begin began; `is_whole` tells that all of it has moved, otherwise the last error why
  // not.
  bool End(FileDescriptor data, bool is_whole);
  // Begins, lets the work move the bytes, and ends: also when the work lacks memory.
  template <class Work>
  bool Transfer(std::string_view verb, std::string_view argument, const Work& work);
  bool Fetch(std::string_view verb, std::string_view argument, const Sink& sink);
  bool SendFile(int data, OutgoingFile& file);

  std::mutex mutex_;
  std::unique_ptr<FtpControl> control_;
  FtpTimeouts timeouts_;
  char type_ = '\0';  // what the server was told last
};

}  // namespace vk::tq
