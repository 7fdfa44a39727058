// What the demonstration needs beside the library: a stage to print on, a product folder, a second
// process.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/log.h"

namespace demo {

// Wide text to the terminal's UTF-8, and back. main() sets the locale.
std::string Narrow(std::wstring_view text);
std::wstring Wide(const std::string& bytes);

// Prints a heading, a line of explanation, and lists that are set off from them.
void Chapter(std::string_view title);
void Say(std::string_view text);
void Show(std::string_view what, std::string_view text);

// Ends the demonstration with a message and a failure when a step did not give what it should.
void Expect(bool is_true, std::string_view what);

// A temporary product folder with a key file; the library's folders point into it. Removed at the
// end.
class Product {
 public:
  Product();
  Product(const Product&) = delete;
  Product& operator=(const Product&) = delete;
  ~Product();

  // A native path below the temporary folder, and the same for the library.
  std::string native(std::string_view name) const;
  std::wstring path(std::string_view name) const;
  // The native path of a file of the product itself, such as "config/Client.ini".
  std::string file(std::string_view name) const;
  // Names and sizes of the files in a folder.
  std::string Listing(std::string_view folder) const;

 private:
  std::string root_;
};

// Collects the library's log lines and events, to be shown step by step.
class LogStage {
 public:
  LogStage();
  LogStage(const LogStage&) = delete;
  LogStage& operator=(const LogStage&) = delete;
  ~LogStage();

  // Prints what has been logged since the last call, or only the last lines of it.
  void Show();
  void ShowLast(std::size_t count);
  // The same, but only the lines that hold a text.
  void ShowOnly(std::string_view text);
  // The events so far.
  std::vector<std::wstring> events() const;

 private:
  struct Store;
  std::shared_ptr<Store> store_;
};

// Runs tqctl, the tool for people, in a process of its own; gives what it prints.
std::string RunTool(const std::vector<std::string>& arguments);

}  // namespace demo
