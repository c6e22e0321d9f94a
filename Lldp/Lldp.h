#pragma once
// The LLDP model: every value type and entity of namespace Lldp, their factories, and
// the address text functions.
#include "Lldp/Lldp/AddressText.h"
#include "Lldp/Lldp/Entities.h"
#include "Lldp/Lldp/Values.h"
