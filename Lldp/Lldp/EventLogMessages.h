#pragma once
// The neighbour-table event-log messages. Created when the library loads.
#include <cstdint>

#include "Kel/EventLog.h"
#include "Kel/String.h"

namespace Lldp {

// chassis identifier text, port identifier text, interface name
using NeighborMessage = Kel::EventLog::Handle<Kel::String, Kel::String, Kel::String>;

extern NeighborMessage const LLDP_NEIGHBOR_NEW;
extern NeighborMessage const LLDP_NEIGHBOR_TIMEOUT;
extern NeighborMessage const LLDP_NEIGHBOR_GONE;
// interface name, the frame limit, the period in seconds
extern Kel::EventLog::Handle<Kel::String, std::uint64_t, double> const LLDP_RX_RATELIMIT;
// who cleared the table, and where
extern Kel::EventLog::Handle<Kel::String, Kel::String> const LLDP_REMOTE_TABLES_CLEARED;

}  // namespace Lldp
