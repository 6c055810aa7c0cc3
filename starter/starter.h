#ifndef STARTER_STARTER_H
#define STARTER_STARTER_H

/// @file
/// The rooms of the program whose functions unit tests call.

#include "starter/configuration.h"
#include "starter/fault.h"
#include "starter/identity.h"
#include "starter/machine.h"
#include "starter/signals.h"
#include "starter/stl_exports.h"

#endif // STARTER_STARTER_H
