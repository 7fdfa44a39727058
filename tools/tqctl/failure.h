// What ends a command early. main() catches both and turns them into an exit status.
#pragma once

#include <exception>
#include <string>
#include <utility>

namespace tqctl {

// The exit statuses of the tool.
enum ExitStatus { kDone = 0, kFailed = 1, kWrongUsage = 2 };

// The work could not be done: what happened, and what to do about it, as whole sentences.
class Failure : public std::exception {
 public:
  Failure(std::wstring what_happened, std::wstring what_to_do)
      : message(std::move(what_happened)), advice(std::move(what_to_do)) {}

  std::wstring message;
  std::wstring advice;
};

// An argument is of a form that no command takes.
class UsageError : public std::exception {
 public:
  explicit UsageError(std::wstring what_is_wrong) : message(std::move(what_is_wrong)) {}

  std::wstring message;
};

}  // namespace tqctl
