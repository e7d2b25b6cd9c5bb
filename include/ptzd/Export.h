#pragma once

/// Marks what a shared library exports. Everything else is built with hidden visibility. On Windows the
/// library is linked statically, into hosts and into PTZD.dll, and exports nothing.
#if defined(_WIN32)
#define PTZD_API
#else
#define PTZD_API __attribute__((visibility("default")))
#endif
