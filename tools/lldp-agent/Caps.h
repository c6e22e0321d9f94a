#pragma once
// The agent needs CAP_NET_RAW (packet sockets, also for ports that appear later) and
// nothing else.
#include <string>

namespace LldpAgent {

// Throws std::runtime_error with a message saying what is missing and how to grant it
// (setcap cap_net_raw+ep, or run as root) when CAP_NET_RAW is not in the effective set.
void requireNetRaw();
// Keeps CAP_NET_RAW in the permitted and effective sets and clears every other
// capability (permitted, effective, inheritable, and the bounding set where allowed).
// Throws std::runtime_error when that fails.
void dropAllButNetRaw();
// The effective set as text (cap_to_text), for logs and tests.
std::string currentCaps();

}  // namespace LldpAgent
