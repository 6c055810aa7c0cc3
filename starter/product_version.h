#ifndef STARTER_PRODUCT_VERSION_H
#define STARTER_PRODUCT_VERSION_H

/// @file
/// STARTER_VERSION and STARTER_REVISION, the texts that tell which build this is.

#if __has_include("starter/version.h")
#include "starter/version.h" // written by the build
#else
#define STARTER_VERSION "0"
#define STARTER_REVISION "unknown"
#endif

#endif // STARTER_PRODUCT_VERSION_H
