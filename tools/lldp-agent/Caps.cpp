#include "tools/lldp-agent/Caps.h"

#include <sys/capability.h>
#include <sys/prctl.h>

#include <memory>
#include <stdexcept>

namespace LldpAgent {
namespace {
using CapPtr = std::unique_ptr<std::remove_pointer_t<cap_t>, int (*)(void*)>;
CapPtr current() { return CapPtr(cap_get_proc(), cap_free); }
}  // namespace

void requireNetRaw() {
  CapPtr caps = current();
  cap_flag_value_t v = CAP_CLEAR;
  if (!caps || cap_get_flag(caps.get(), CAP_NET_RAW, CAP_EFFECTIVE, &v) != 0 || v != CAP_SET)
    throw std::runtime_error(
        "lldp-agent needs CAP_NET_RAW for its packet sockets: run it as root or grant it with "
        "'setcap cap_net_raw+ep lldp-agent'");
}

void dropAllButNetRaw() {
  // The bounding set first (needs CAP_SETPCAP, which a root start has; without it the
  // bounding set already holds no more than was granted).
  CapPtr caps = current();
  cap_flag_value_t setpcap = CAP_CLEAR;
  cap_get_flag(caps.get(), CAP_SETPCAP, CAP_EFFECTIVE, &setpcap);
  if (setpcap == CAP_SET)
    for (cap_value_t c = 0; c <= CAP_LAST_CAP; ++c)
      if (c != CAP_NET_RAW && prctl(PR_CAPBSET_DROP, c, 0, 0, 0) != 0 && CAP_IS_SUPPORTED(c))
        throw std::runtime_error("cannot drop capability " + std::to_string(c) + " from the bounding set");
  CapPtr only(cap_init(), cap_free);
  cap_value_t const raw[] = {CAP_NET_RAW};
  if (!only || cap_set_flag(only.get(), CAP_PERMITTED, 1, raw, CAP_SET) != 0 ||
      cap_set_flag(only.get(), CAP_EFFECTIVE, 1, raw, CAP_SET) != 0 || cap_set_proc(only.get()) != 0)
    throw std::runtime_error("cannot drop the capabilities other than CAP_NET_RAW");
}

std::string currentCaps() {
  CapPtr caps = current();
  char* text = caps ? cap_to_text(caps.get(), nullptr) : nullptr;
  std::string s = text ? text : "?";
  if (text) cap_free(text);
  return s;
}

}  // namespace LldpAgent
