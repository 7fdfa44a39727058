// tqctl fqdn: the name of an address, from DNS.
#include "tqctl/command.h"
#include "tqctl/reason.h"
#include "tqctl/text.h"
#include "transport/util_link.h"

namespace tqctl {
namespace {

using vk::tq::CUtilLink;

struct FqdnOptions {
  std::wstring address;
  std::wstring server;
};

void DeclareFqdn(CLI::App& command, FqdnOptions& options) {
  AddText(command, "ADDRESS", options.address, "A dotted IPv4 address")->required();
  AddText(command, "--server", options.server,
          "The dotted address of the DNS server to ask, in place of the machine's own");
}

void FindName(Context& context, const FqdnOptions& options) {
  std::wstring name;
  const long status =
      options.server.empty()
          ? CUtilLink::GetFQDN(options.address, name)
          : CUtilLink::GetFQDN(options.address, Narrow(options.server).c_str(), name);
  switch (status) {
    case 0:
      return context.out.Show(Fields{{L"address", options.address}, {L"name", name}});
    case 13:
    case 123:
      throw UsageError(L"\"" + options.address + L"\" is no dotted IPv4 address.");
    case 87:
      throw UsageError(L"\"" + options.server + L"\" is no dotted IPv4 address.");
    default:
      throw FailureWith(L"The name of " + options.address + L" was not found",
                        static_cast<unsigned>(status));
  }
}

}  // namespace

void AddFqdn(CLI::App& app, Context& context) {
  AddCommand(app, context, "fqdn", "The full name of an address, from DNS", DeclareFqdn, FindName);
}

}  // namespace tqctl
