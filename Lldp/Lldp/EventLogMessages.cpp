#include "Lldp/Lldp/EventLogMessages.h"

namespace Lldp {

using Kel::EventLog::noActionRequired;

NeighborMessage const LLDP_NEIGHBOR_NEW(
    "LLDP_NEIGHBOR_NEW", 5, "LLDP neighbor with chassisId %s and portId %s added on interface %s",
    "A new LLDP neighbor was added to the neighbor table.", noActionRequired, 0.0, 1.0, 0);

NeighborMessage const LLDP_NEIGHBOR_TIMEOUT(
    "LLDP_NEIGHBOR_TIMEOUT", 5, "LLDP neighbor with chassisId %s and portId %s timed out on interface %s",
    "An LLDP neighbor was deleted from the neighbor table since it timed out.", noActionRequired, 0.0, 1.0, 0);

NeighborMessage const LLDP_NEIGHBOR_GONE(
    "LLDP_NEIGHBOR_GONE", 5,
    "Received a shutdown frame from LLDP neighbor with chassisId %s and portId %s on interface %s",
    "An LLDP neighbor was deleted from the neighbor table since an LLDPDU with a TTL of 0 was received "
    "from that neighbor.",
    noActionRequired, 0.0, 1.0, 0);

Kel::EventLog::Handle<Kel::String, std::uint64_t, double> const LLDP_RX_RATELIMIT(
    "LLDP_RX_RATELIMIT", 4, "Exceeded Rx LLDPDU rate limit on %s (more than %d LLDPDUs in %f seconds)",
    "The switch received too many LLDPDUs on a port in too short a period of time, so we dropped the most "
    "recent received LLDPDU.",
    "This could indicate a mis-configured neighbor, or a network loop.  Check the configuration of the "
    "neighbor connected to the interface and configure the LLDPDUs to be sent at a reasonable rate and "
    "ensure there are no network loops.",
    60.0, 1.0, 0);

Kel::EventLog::Handle<Kel::String, Kel::String> const LLDP_REMOTE_TABLES_CLEARED(
    "LLDP_REMOTE_TABLES_CLEARED", 5, "LLDP neighbor table cleared by %s on %s",
    "The LLDP neighbor table was cleared by a CLI command.", noActionRequired, 0.0, 1.0, 0);

}  // namespace Lldp
