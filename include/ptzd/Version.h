#pragma once

// Macros, so that the preprocessor, resource files and the build can read them. Only the numbers here are
// edited for a release.
#define PTZD_VERSION_MAJOR 1
#define PTZD_VERSION_MINOR 36
#define PTZD_VERSION "1.36"
