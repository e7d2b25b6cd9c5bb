#pragma once

/// COM automation's own headers, in the order in which they take each other.

// clang-format off
#include <windows.h>
#include <objbase.h>
#include <oleauto.h>
#include <wrl/client.h>
// clang-format on

#undef interface

namespace ptzd::com {
using Microsoft::WRL::ComPtr;
}
