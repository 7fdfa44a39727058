#include "servers/shared_printer_server.h"

#include <ctime>
#include <string_view>
#include <utility>

namespace vk::tq::servers {

using namespace testing;

namespace {

constexpr std::size_t kHeader = 8;
constexpr std::size_t kName = 26;

std::string TimeInUtc() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%Y/%m/%d %H:%M:%S", &parts)};
}

std::string UpToZero(const std::string& bytes) { return bytes.substr(0, bytes.find('\0')); }

}  // namespace

std::string ReadFrame(const Peer& client) {
  std::string header = client.Read(kHeader);
  if (header.size() < kHeader) return {};
  if (header.starts_with("CS02")) return header;
  std::size_t length = 0;
  for (const char byte : header.substr(4)) length = length << 8 | static_cast<unsigned char>(byte);
  const std::string body = client.Read(length);
  return body.size() == length ? header + body : std::string();
}

SharedPrinterServer::SharedPrinterServer(Decision decide)
    : decide_(std::move(decide)), server_([this](Peer& client, int) { Answer(client); }) {}

void SharedPrinterServer::Answer(Peer& client) const {
  const std::string frame = ReadFrame(client);
  if (frame.empty()) return;
  Request request{frame.substr(0, 4), {}, {}};
  if (request.command == "CS02") {
    const std::string time = TimeInUtc();
    client.Write(std::string("CR02\0\0\0", 7) + static_cast<char>(time.size()) + time);
    return;
  }
  const std::string body = frame.substr(kHeader);
  if (request.command == "CS01" && body.size() >= kName) {
    request.name = UpToZero(body.substr(0, kName));
    request.contents = body.substr(kName);
  } else if (request.command == "CS06") {
    request.contents = UpToZero(body);
  } else {
    return;
  }
  client.Write("CR" + request.command.substr(2) + (decide_(request) ? "0" : "1"));
}

}  // namespace vk::tq::servers
