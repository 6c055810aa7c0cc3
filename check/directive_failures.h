#ifndef CHECK_DIRECTIVE_FAILURES_H
#define CHECK_DIRECTIVE_FAILURES_H

#include "check/loaded_services.h"
#include "check/loader_model.h"
#include "check/placed_directive.h"

// The framework counts the directives that fail, and pushes no module after the first one in a source. The functions
// log nothing. Any thread.

/// The stream within whose braces directives stand.
struct Stream
{
  const Directive& head;
  const Loaded_Services& services; ///< those that are there when the turn of a directive comes
};

/// Whether the library and the factory of a dynamic directive are there.
bool is_loadable(const Placed_Directive& placed);

/// Whether a directive outside of braces, or the head of a stream, fails with these services there.
bool fails(const Placed_Directive& placed, const Loaded_Services& services);

/// How the host ends at a directive within braces that is no "dynamic". The framework follows null pointers where
/// something is missing.
Stream_Effect fatal_effect(const Directive& directive, const Stream& stream);

/// Whether a directive within braces fails. "suspend" looks for the name of the stream instead of the module, and
/// therefore always does.
bool fails_in_stream(const Directive& directive, const Stream& stream);

#endif // CHECK_DIRECTIVE_FAILURES_H
