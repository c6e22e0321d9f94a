#pragma once
// The LLDP model: every value type of namespace Lldp, and the address text functions.
#include "Lldp/Lldp/AddressText.h"
#include "Lldp/Lldp/Values.h"
