// Arbitrary bytes as one request on lldp-agent's configuration socket, read as the agent
// reads them. Whatever the bytes, the running configuration stays within the model's
// limits, and a request answered with a reason changes none of it.
#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>

#include "FuzzUtil.h"
#include "Kel/EventLog.h"
#include "tools/lldp-agent/Service.h"

namespace {

struct Agent {
  LldpAgent::Core core{LldpAgent::defaultConfig(), [](int, std::string_view) { return true; }};
  LldpAgent::Service service{core, {"", "", "", 4096}, [](int, std::string const&) {}};
  Agent() {
    Kel::EventLog::sinkIs([](Kel::EventLog::Record const&) {});
    LldpAgent::LinkInfo l;
    l.ifindex = 2;
    l.name = "eth0";
    l.ethernet = l.up = true;
    l.mtu = 1500;
    core.portIs(l, 0);
  }
};

using Fuzz::check;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static Agent a;
  auto const& c = *a.core.effective();
  auto const state = [&] {
    return std::make_tuple(c.messageTxInterval(), c.messageTxHoldTime(), c.reinitDelay(), a.core.port("eth0")->config->adminStatus());
  };
  auto const before = state();
  bool corrupt = false;
  std::string const why =
      a.service.request(std::string_view(reinterpret_cast<char const*>(data), size), ucred{1, 0, 0}, 1, corrupt);
  check(c.messageTxInterval() >= 1 && c.messageTxInterval() <= 32768);
  check(c.messageTxHoldTime() >= 3 && c.messageTxHoldTime() <= 65535);
  check(c.reinitDelay() >= 1 && c.reinitDelay() <= 10);
  if (!why.empty()) check(before == state());
  return 0;
}
