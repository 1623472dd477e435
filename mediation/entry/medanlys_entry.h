// The module's single entry point.
#pragma once

#if defined(__GNUC__)
#define MEDANLYS_EXPORT __attribute__((visibility("default")))
#else
#define MEDANLYS_EXPORT
#endif

extern "C" MEDANLYS_EXPORT void MEDANLYS();
