#include "platform/ftp_session.h"

#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "platform/posix/ftp_connection.h"
#include "platform/posix/ftp_reply.h"
#include "platform/posix/native.h"
#include "platform/secure_memory.h"

namespace vk::tq {
namespace {

// What an internet handle stands for.
struct Internet {
  std::mutex mutex;
  FtpTimeouts timeouts;
};

// What a find handle stands for: the search itself is over.
struct Search {};

using Thing = std::variant<std::shared_ptr<Internet>, std::shared_ptr<FtpConnection>, Search>;

// Every open handle. A thing lives on while an operation uses it, also when its handle is closed.
class HandleTable {
 public:
  struct Entry {
    FtpHandle parent;
    Thing thing;
  };
  using Entries = std::map<FtpHandle, Entry>;

  static HandleTable& Get() {
    // Never destroyed, since objects with static storage may hold handles to the very end.
    static HandleTable* table = std::make_unique<HandleTable>().release();
    return *table;
  }

  // No handle when the parent has been closed meanwhile.
  FtpHandle Add(FtpHandle parent, Thing thing) {
    const std::lock_guard lock(mutex_);
    if (parent != kNoFtpHandle && !entries_.contains(parent)) {
      Fail(kErrorInvalidHandle);
      return kNoFtpHandle;
    }
    const FtpHandle handle = ++last_handle_;
    entries_.emplace(handle, Entry{parent, std::move(thing)});
    return handle;
  }

  template <class T>
  std::shared_ptr<T> Find(FtpHandle handle) {
    const std::lock_guard lock(mutex_);
    const auto found = entries_.find(handle);
    if (found == entries_.end()) {
      Fail(kErrorInvalidHandle);
      return {};
    }
    const auto* thing = std::get_if<std::shared_ptr<T>>(&found->second.thing);
    if (thing == nullptr) Fail(kErrorInternetIncorrectHandleType);
    return thing == nullptr ? std::shared_ptr<T>() : *thing;
  }

  // Takes a handle and all that were made from it out of the table. What they stand for ends with
  // the result, outside the lock: a connection takes leave of its server.
  // It needs no memory: what is open must be closed when there is none.
  Entries Remove(FtpHandle handle) {
    Entries removed;
    const std::lock_guard lock(mutex_);
    // A handle is always smaller than those that were made from it.
    for (auto next = entries_.find(handle); next != entries_.end();) {
      const auto entry = next++;
      if (entry->first == handle || removed.contains(entry->second.parent)) {
        removed.insert(entries_.extract(entry));
      }
    }
    return removed;
  }

 private:
  std::mutex mutex_;
  Entries entries_;
  FtpHandle last_handle_ = kNoFtpHandle;
};

// Runs an operation. When memory runs out it gives an empty result.
template <class Work>
std::invoke_result_t<Work> Run(const Work& work) noexcept {
  try {
    ForgetRefusal();
    return work();
  } catch (const std::bad_alloc&) {
    Fail(kErrorNotEnoughMemory);
    return {};
  }
}

// Runs an operation of a connection, or gives an empty result when there is none.
template <class Operation, class... Arguments>
auto OnConnection(FtpHandle handle, Operation operation, const Arguments&... arguments) noexcept {
  return Run([&]() -> std::invoke_result_t<Operation, FtpConnection&, const Arguments&...> {
    const auto connection = HandleTable::Get().Find<FtpConnection>(handle);
    if (connection == nullptr) return {};
    const std::lock_guard lock(connection->mutex());
    return std::invoke(operation, *connection, arguments...);
  });
}

std::uint32_t& TimeoutIn(FtpTimeouts& timeouts, FtpTimeout which) {
  switch (which) {
    case FtpTimeout::kConnect:
      return timeouts.connect;
    case FtpTimeout::kControlSend:
      return timeouts.control_send;
    case FtpTimeout::kControlReceive:
      return timeouts.control_receive;
    case FtpTimeout::kDataSend:
      return timeouts.data_send;
    case FtpTimeout::kDataReceive:
      break;
  }
  return timeouts.data_receive;
}

FtpHandle Refuse(ErrorCode code) {
  Fail(code);
  return kNoFtpHandle;
}

}  // namespace

FtpHandle OpenFtp(std::wstring_view /*agent*/) {
  return Run([] { return HandleTable::Get().Add(kNoFtpHandle, std::make_shared<Internet>()); });
}

bool SetFtpTimeout(FtpHandle internet, FtpTimeout which, std::uint32_t milliseconds) {
  const auto holder = HandleTable::Get().Find<Internet>(internet);
  if (holder == nullptr) return false;
  if (milliseconds == 0) return Fail(kErrorInvalidParameter);
  const std::lock_guard lock(holder->mutex);
  TimeoutIn(holder->timeouts, which) = milliseconds;
  return true;
}

FtpHandle ConnectFtp(FtpHandle internet, std::wstring_view host, std::uint16_t port,
                     std::wstring_view user, std::wstring_view password) {
  return Run([&]() -> FtpHandle {
    const auto holder = HandleTable::Get().Find<Internet>(internet);
    if (holder == nullptr) return kNoFtpHandle;
    std::unique_lock lock(holder->mutex);
    const FtpTimeouts timeouts = holder->timeouts;
    lock.unlock();
    const std::optional<std::string> host_bytes = FtpBytes(host);
    if (!host_bytes) return Refuse(kErrorInternetNameNotResolved);
    std::optional<std::string> user_bytes = FtpBytes(user.empty() ? L"anonymous" : user);
    if (!user_bytes) return Refuse(kErrorInternetIncorrectUserName);
    const WipeOnExit wipe_user(*user_bytes);
    std::optional<std::string> password_bytes = FtpBytes(password);
    if (!password_bytes) return Refuse(kErrorInternetIncorrectPassword);
    const WipeOnExit wipe_password(*password_bytes);
    auto control = FtpControl::Connect(
        {*host_bytes, port, user_bytes->c_str(), password_bytes->c_str()}, timeouts);
    if (control == nullptr) return kNoFtpHandle;
    return HandleTable::Get().Add(internet,
                                  std::make_shared<FtpConnection>(std::move(control), timeouts));
  });
}

bool CloseFtpHandle(FtpHandle handle) {
  return Run(
      [&] { return !HandleTable::Get().Remove(handle).empty() || Fail(kErrorInvalidHandle); });
}

bool SetFtpDirectory(FtpHandle connection, std::wstring_view directory) {
  return OnConnection(connection, &FtpConnection::SetDirectory, directory);
}

bool GetFtpFile(FtpHandle connection, std::wstring_view remote_name, const std::wstring& local) {
  return OnConnection(connection, &FtpConnection::Get, remote_name, local);
}

bool PutFtpFile(FtpHandle connection, const std::wstring& local, std::wstring_view remote_name) {
  return OnConnection(connection, &FtpConnection::Put, local, remote_name);
}

bool RenameFtpFile(FtpHandle connection, std::wstring_view old_name, std::wstring_view new_name) {
  return OnConnection(connection, &FtpConnection::Rename, old_name, new_name);
}

bool DeleteFtpFile(FtpHandle connection, std::wstring_view remote_name) {
  return OnConnection(connection, &FtpConnection::Delete, remote_name);
}

std::optional<std::uint64_t> FtpFileSize(FtpHandle connection, std::wstring_view remote_name) {
  return OnConnection(connection, &FtpConnection::Size, remote_name);
}

FtpHandle FindFtpFile(FtpHandle connection, std::wstring_view remote_name, std::uint64_t& size) {
  const std::optional<std::uint64_t> listed =
      OnConnection(connection, &FtpConnection::ListedSize, remote_name);
  if (!listed) return kNoFtpHandle;
  size = *listed;
  return Run([&] { return HandleTable::Get().Add(connection, Search()); });
}

}  // namespace vk::tq
