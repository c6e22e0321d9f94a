#pragma once
// Trace arguments and printf-style formats shared by Brisklog (binary records) and
// Duolog (text lines): the framework's compile-time checked formats (Kel/Printf.h),
// which list the conversions each kind of argument takes.
#include "Kel/Printf.h"

namespace Brisklog {

using Kel::Printf::Arg;
using Kel::Printf::argOf;
using Kel::Printf::Format;
using Kel::Printf::kindOf;
using Kel::Printf::render;
using Kel::Printf::renderTo;

}  // namespace Brisklog
