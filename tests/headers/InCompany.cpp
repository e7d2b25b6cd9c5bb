#ifdef _WIN32
#include <windows.h>
#else
#include <X11/Xlib.h>
#endif

#include "common/Variant.h"

#include "AllHeaders.h"

static_assert(host::Variant::Kinds == 3, "the library's header took the place of the host's");
