// tqctl ftp: files to and from the printer server.
#include "transport/ftp.h"

#include <string>

#include "tqctl/client_settings.h"
#include "tqctl/reason.h"
#include "tqctl/terminal.h"
#include "tqctl/text.h"

namespace tqctl {
namespace {

using vk::tq::CFtp;

struct ServerOptions {
  std::wstring server;
  std::wstring user;
  std::wstring folder;
  unsigned long timeout = 30;
};

void DeclareServer(CLI::App& command, ServerOptions& options) {
  AddText(command, "--server", options.server, "The server, if not P1 of Client.ini");
  AddText(command, "--user", options.user,
          "The user, whose password is asked for, if not the account of Client.ini");
  AddText(command, "--cd", options.folder, "The folder on the server");
  command.add_option("--timeout", options.timeout, "Seconds to wait for each answer")
      ->capture_default_str()
      ->check(CLI::Range(1, 3600));
}

struct Account {
  std::wstring server;
  Secret user;
  Secret password;
};

// What the options do not name comes from Client.ini.
void FindAccount(Context& context, const ServerOptions& options, Account& account) {
  account.server = options.server;
  account.user.text = options.user;
  if (account.server.empty() || account.user.text.empty()) {
    ClientSettings settings;
    ReadClientSettings(context, 0, settings);
    if (account.server.empty()) account.server = settings.values.P1;
    if (account.user.text.empty()) {
      account.user.text = settings.values.P2;
      account.password.text = settings.values.P3;
    }
  }
  if (account.server.empty()) {
    throw Failure(L"No server is named, and P1 of Client.ini is empty.",
                  L"Give --server, or \"tqctl settings set P1 ADDRESS\".");
  }
  if (account.user.text.empty()) {
    throw Failure(L"No user is named, and Client.ini holds no account.",
                  L"Give --user, or append what \"tqctl settings account USER\" prints to " +
                      QuotedPath(ClientIni()) + L".");
  }
  if (!options.user.empty()) {
    ReadPassword(L"Password of " + options.user + L" on " + account.server, account.password);
  }
}

// A connection that is logged in and stands in the folder that the options name.
class Session {
 public:
  Session(Context& context, const ServerOptions& options) : context_(context) {
    Account account;
    FindAccount(context, options, account);
    server_ = account.server;
    Do(L"There is no connection to " + server_, [&] {
      return ftp_.FtpConnect(server_.c_str(), account.user.text.c_str(),
                             account.password.text.c_str(), options.timeout * 1000);
    });
    if (options.folder.empty()) return;
    Do(L"The server does not change to " + options.folder,
       [&] { return ftp_.FtpChangeCurrentDirectory(options.folder.c_str()); });
  }

  const std::wstring& server() const { return server_; }
  CFtp& ftp() { return ftp_; }

  // Runs an operation of the library. A line with a code tells why it failed; without one, sizes
  // differ.
  void Do(const std::wstring& if_it_fails, const std::function<int()>& operation) {
    context_.log->ForgetFailure();
    if (operation() == 1) return;
    if (const auto code = context_.log->LastCode()) {
      throw FailureWith(if_it_fails, static_cast<unsigned>(*code));
    }
    throw Failure(if_it_fails + L".", L"Send it again with \"tqctl ftp put\".");
  }

 private:
  Context& context_;
  CFtp ftp_;
  std::wstring server_;
};

struct LocalFile {
  std::wstring folder;
  std::wstring name;
  std::wstring path;
};

LocalFile Split(const std::wstring& path) {
  const std::size_t end = path.find_last_of(L"/\\");
  if (end == std::wstring::npos) return {L"", path, path};
  return {path.substr(0, end + 1), path.substr(end + 1), path};
}

// Says "Sent 2 files to 192.0.2.1.".
void ShowDone(Context& context, const std::wstring& done, const std::vector<std::wstring>& names,
              const std::wstring& preposition, const std::wstring& server) {
  const std::wstring which =
      names.size() == 1 ? L"\"" + names.front() + L"\"" : std::to_wstring(names.size()) + L" files";
  const Json files(Json::Array(names.begin(), names.end()));
  context.out.Done(done + L" " + which + L" " + preposition + L" " + server + L".",
                   {{L"files", Cell(files, which)}, {L"server", server}});
}

// Runs an operation for each file. A failure also tells how many files are done.
void ForEachFile(const std::vector<std::wstring>& files, const std::wstring& done,
                 const std::function<void(const std::wstring&)>& operation) {
  std::size_t count = 0;
  try {
    for (const std::wstring& file : files) {
      operation(file);
      ++count;
    }
  } catch (Failure& failure) {
    if (count > 0) {
      failure.message += L" " + done + L" before it: " + std::to_wstring(count) + L" of " +
                         std::to_wstring(files.size()) + L".";
    }
    throw;
  }
}

std::vector<std::wstring> NativePaths(std::vector<std::wstring> paths) {
  for (std::wstring& path : paths) path = NativePath(path);
  return paths;
}

// ---- put ----

struct PutOptions {
  std::vector<std::wstring> files;
  ServerOptions to;
  int most_uploads = 0;
};

void DeclarePut(CLI::App& command, PutOptions& options) {
  AddTexts(command, "FILE", options.files, "The files to send")->required();
  DeclareServer(command, options.to);
  command
      .add_option("--verify", options.most_uploads,
                  "Compare the sizes, and send a file up to so many times until they are equal; it "
                  "then travels under its own name")
      ->check(CLI::Range(1, 255));
}

void Put(Context& context, const PutOptions& options) {
  for (const std::wstring& path : options.files) SizeToSend(path);  // a wrong name sends nothing
  Session session(context, options.to);
  ForEachFile(options.files, L"Sent", [&](const std::wstring& path) {
    const LocalFile file = Split(path);
    const Progress progress(file.name, SizeToSend(path), Progress::Counted::kRead);
    session.Do(QuotedPath(path) + L" was not sent", [&] {
      const auto most = static_cast<unsigned char>(options.most_uploads);
      return most == 0
                 ? session.ftp().FtpPut(file.folder.c_str(), file.name.c_str())
                 : session.ftp().FtpPutAndVerify(file.folder.c_str(), file.name.c_str(), most);
    });
  });
  ShowDone(context, L"Sent", NativePaths(options.files), L"to", session.server());
}

// ---- get ----

struct GetOptions {
  std::vector<std::wstring> names;
  ServerOptions from;
  std::wstring into = L".";
};

void DeclareGet(CLI::App& command, GetOptions& options) {
  AddTexts(command, "NAME", options.names, "The files to fetch, by their names on the server")
      ->required();
  DeclareServer(command, options.from);
  AddText(command, "--into", options.into, "The folder to put them into, if not the present one");
}

void Get(Context& context, const GetOptions& options) {
  Session session(context, options.from);
  ForEachFile(options.names, L"Fetched", [&](const std::wstring& name) {
    // The library does not tell how large a file of the server is.
    const Progress progress(name, Progress::kUnknown, Progress::Counted::kWritten);
    session.Do(L"\"" + name + L"\" was not fetched",
               [&] { return session.ftp().FtpGet(options.into.c_str(), name.c_str()); });
  });
  ShowDone(context, L"Fetched", options.names, L"from", session.server());
}

// ---- verify ----

struct VerifyOptions {
  std::vector<std::wstring> files;
  ServerOptions on;
};

void DeclareVerify(CLI::App& command, VerifyOptions& options) {
  AddTexts(command, "FILE", options.files, "The files whose sizes are compared")->required();
  DeclareServer(command, options.on);
}

void Verify(Context& context, const VerifyOptions& options) {
  for (const std::wstring& path : options.files) SizeToSend(path);
  Session session(context, options.on);
  ForEachFile(options.files, L"Verified", [&](const std::wstring& path) {
    session.Do(QuotedPath(path) + L" is not on the server with the same size",
               [&] { return session.ftp().FtpSizeVerify(path, Split(path).name.c_str()); });
  });
  ShowDone(context, L"Verified", NativePaths(options.files), L"on", session.server());
}

}  // namespace

void AddFtp(CLI::App& app, Context& context) {
  CLI::App& noun = AddNoun(app, "ftp", "Files to and from the printer server");
  AddCommand(noun, context, "put", "Send files", DeclarePut, Put);
  AddCommand(noun, context, "get", "Fetch files", DeclareGet, Get);
  AddCommand(noun, context, "verify", "Compare the sizes of files with those on the server",
             DeclareVerify, Verify);
}

}  // namespace tqctl
