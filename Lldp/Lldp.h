#pragma once
// The LLDP model: every value type of namespace Lldp.
#include "Lldp/Lldp/Dot3.h"
#include "Lldp/Lldp/Enums.h"
#include "Lldp/Lldp/Identifiers.h"
#include "Lldp/Lldp/LocationId.h"
#include "Lldp/Lldp/NestedValues.h"
#include "Lldp/Lldp/Strings.h"
#include "Lldp/Lldp/TlvRecords.h"
