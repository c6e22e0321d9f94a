#pragma once
// All platform value types.
#include "Platform/AddressFamilyNumbers.h"
#include "Platform/AutoNegCapBits.h"
#include "Platform/EthAddr.h"
#include "Platform/IntfId.h"
#include "Platform/ObjectIdentifier.h"
#include "Platform/VlanId.h"
#include "Platform/VrfName.h"
#include "Platform/Watts.h"
