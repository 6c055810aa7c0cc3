#ifndef CHECK_PLACED_DIRECTIVE_H
#define CHECK_PLACED_DIRECTIVE_H

#include "check/finding.h"
#include "check/svc_conf.h"

#include <cstddef>
#include <string>

/// The findings of the probes about the service or the factory that a directive names.
struct Availability
{
  std::string library_error; ///< why its library cannot be loaded; empty when it can
  std::string bind_error;    ///< which of its functions no library has; empty when none is missing
  std::string symbol_error;  ///< why its symbol is not found in the library; empty when it is
  bool is_function = false;  ///< its symbol is a function
  bool is_object = false;    ///< its symbol is data
  bool has_static = true;    ///< the static service or factory of this name is there when the turn comes
};

/// A directive with the place where it stands.
struct Placed_Directive
{
  Directive directive;
  Place place;
  std::size_t source; ///< the number of the file or of the directive of -S that it comes from
  Availability found; ///< filled in by run_probes()
};

#endif // CHECK_PLACED_DIRECTIVE_H
