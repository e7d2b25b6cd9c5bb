#pragma once

/// What the IDL compiler makes of QVPTZ.idl. Its names are global; the library's own of the same names are in
/// `ptzd`.

#include "com/Automation.h"

// clang-format off
#include <QVPTZ.h>
// clang-format on

#undef interface
