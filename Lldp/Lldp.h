#pragma once
// The LLDP model: every value type and entity of namespace Lldp, their factories, and
// the address text functions. The event-log messages are in Lldp/Lldp/EventLogMessages.h,
// apart, because the logging machinery is heavy to compile.
#include "Lldp/Lldp/AddressText.h"
#include "Lldp/Lldp/Entities.h"
#include "Lldp/Lldp/Values.h"
