// kivoExport.h: KIVO_EXPORT marks the classes and functions the shared
// library exports; the library is compiled with hidden visibility, so
// everything without the mark stays internal.
#pragma once

#define KIVO_EXPORT __attribute__((visibility("default")))
