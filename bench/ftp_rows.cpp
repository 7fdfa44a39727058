// Transfers to a real server on loopback, without the pauses between the steps.
#include <curl/curl.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <vector>

#include "floor.h"
#include "harness.h"
#include "platform/clock.h"
#include "platform/service_table.h"
#include "rows.h"
#include "servers/ftp_server.h"
#include "transport/ftp.h"
#include "workspace.h"

namespace vk::tq::bench {
namespace {

constexpr std::size_t kMiB = 1 << 20;

class NoPauses : public Clock {
 public:
  std::int64_t Now() override { return 0; }
  std::uint32_t TickCount() override { return 0; }
  void Sleep(std::uint32_t) override {}
};

// Files to be sent, and who takes them.
struct Transfer : Workspace {
  Transfer(int count, std::size_t size) : port(Service::kFtpControl, server.port()), clock(pauses) {
    const std::string bytes(std::min(size, kMiB), 'x');
    for (int i = 0; i < count; ++i) {
      std::array<char, 32> name{};
      snprintf(name.data(), name.size(), "file%03d.dat", i);
      names.emplace_back(name.data());
      const plain::File file(native(names.back()), O_WRONLY | O_CREAT);
      for (std::size_t done = 0; done < size; done += bytes.size()) {
        file.Write(bytes.data(), bytes.size());
      }
    }
    const int connected = ftp.FtpConnect(L"127.0.0.1", servers::FtpServer::kUser,
                                         servers::FtpServer::kPassword, 60000);
    Require(connected == 1, "no connection");
  }
  ~Transfer() { ftp.FtpDisConnect(); }

  std::string Url(const std::string& name) const {
    return "ftp://127.0.0.1:" + std::to_string(server.port()) + "/" + name;
  }
  void RemoveSent() const {
    for (const std::string& name : names) unlink(server.home(name).c_str());
  }

  servers::FtpServer server;
  ScopedServicePort port;
  NoPauses pauses;
  ScopedClock clock;
  std::vector<std::string> names;
  CFtp ftp;
};

constexpr const char* kAccount = "tester:geheim secret";

// One transfer after the other; the handle of all keeps the connection. It is driven here and not
// by curl_easy_perform, which now and then waits a whole second for a reply that has come.
class Curl {
 public:
  Curl() : all_(curl_multi_init()), handle_(curl_easy_init()) {
    curl_easy_setopt(handle_, CURLOPT_USERPWD, kAccount);
    curl_easy_setopt(handle_, CURLOPT_UPLOAD, 1L);
  }
  Curl(const Curl&) = delete;
  Curl& operator=(const Curl&) = delete;
  ~Curl() {
    curl_easy_cleanup(handle_);
    curl_multi_cleanup(all_);
  }

  void Put(const std::string& path, const std::string& url) {
    FILE* const file = fopen(path.c_str(), "rb");
    Require(file != nullptr, "a file cannot be opened");
    struct stat status {};
    fstat(fileno(file), &status);
    curl_easy_setopt(handle_, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle_, CURLOPT_READDATA, file);
    curl_easy_setopt(handle_, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(status.st_size));
    const CURLcode code = Perform();
    fclose(file);
    Require(code == CURLE_OK, curl_easy_strerror(code));
  }

 private:
  CURLcode Perform() {
    constexpr int kMostMilliseconds = 1;
    curl_multi_add_handle(all_, handle_);
    int running = 1;
    for (;;) {
      curl_multi_perform(all_, &running);
      if (running == 0) break;
      curl_multi_poll(all_, nullptr, 0, kMostMilliseconds, nullptr);
    }
    int left = 0;
    const CURLMsg* const message = curl_multi_info_read(all_, &left);
    const CURLcode code = message != nullptr ? message->data.result : CURLE_FAILED_INIT;
    curl_multi_remove_handle(all_, handle_);
    return code;
  }

  CURLM* all_;
  CURL* handle_;
};

void PutByProgram(const Transfer& transfer) {
  std::string files = "{";
  for (const std::string& name : transfer.names) {
    if (files.size() > 1) files += ',';
    files += transfer.native(name);
  }
  const int code =
      RunProgram({"curl", "-s", "-S", "-u", kAccount, "-T", files + "}", transfer.Url("")});
  Require(code == 0, "the curl program fails");
}

Contest PutContest(int count, std::size_t size, bool against_program) {
  auto t = std::make_shared<Transfer>(count, size);
  auto curl = std::make_shared<Curl>();
  const auto ours = [t] {
    const std::wstring folder = t->path(L"");
    for (const std::string& name : t->names) {
      const std::wstring wide(name.begin(), name.end());
      Require(t->ftp.FtpPut(folder.c_str(), wide.c_str()) == 1, "not sent");
    }
  };
  const auto floor = [t, curl, against_program] {
    if (against_program) return PutByProgram(*t);
    for (const std::string& name : t->names) curl->Put(t->native(name), t->Url(name));
  };
  for (const auto& side : {std::function<void()>(ours), std::function<void()>(floor)}) {
    t->RemoveSent();
    side();
    Require(plain::ReadFile(t->server.home(t->names.back())).size() == size, "another size");
  }
  return {ours, floor, [t] { t->RemoveSent(); }, count};
}

}  // namespace

void AddFtpRows() {
  for (const bool against_program : {false, true}) {
    const std::string floor = against_program ? "the curl program" : "libcurl";
    const double target = against_program ? 1.0 : 1.1;
    AddRow({"ftp", "FtpPut of 256 MiB", floor, target, 7},
           [=] { return PutContest(1, 256 * kMiB, against_program); });
    AddRow({"ftp", "FtpPut, each of 200 files of 2 KiB over one connection", floor, target, 5},
           [=] { return PutContest(200, 2048, against_program); });
  }
}

}  // namespace vk::tq::bench
