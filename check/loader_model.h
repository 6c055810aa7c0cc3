#ifndef CHECK_LOADER_MODEL_H
#define CHECK_LOADER_MODEL_H

#include "check/placed_directive.h"

#include <vector>

/// The fate of the name in a directive.
enum class Name_Effect {
  NONE,
  REPLACES,  ///< the service takes the place of one of this name
  STAYS_OUT, ///< the service is not loaded, as there is one of this name
  UNKNOWN    ///< there is no service of this name
};

/// The fate of a directive within the braces of a stream.
enum class Stream_Effect {
  NONE,
  NEEDS_DYNAMIC,    ///< the module is not loaded, as the stream is not loaded by this directive
  NOT_PUSHED,       ///< the module is not pushed, as a directive fails
  CUT_OFF,          ///< the module is not loaded, as a directive that is no module follows
  STREAM_MISTYPED,  ///< the host ends: the module is pushed onto what is no STREAM
  MODULE_MISTYPED,  ///< the host ends: what is pushed is no Module
  MODULE_NOT_THERE, ///< the host ends: the static module is not there
  STREAM_NOT_THERE  ///< the host ends: the stream is not there
};

/// A step after which the host ends with a fault as soon as a stream is taken apart, or earlier.
enum class Stream_Break {
  NONE,
  PUSHED_AGAIN, ///< a module has been on a stream before
  TAKEN_AWAY    ///< a module goes while it is on the stream
};

/// The step that the framework takes at a directive.
struct Loader_Step
{
  const Placed_Directive* placed;
  const Directive* stream = nullptr;    ///< the stream within whose braces the directive stands
  bool is_source_passed_over = false;   ///< the file is not read, as a service has its name
  Name_Effect name = Name_Effect::NONE; ///< REPLACES and STAYS_OUT come with `there`
  Place there = {};                     ///< of the service that has the name
  Stream_Effect in_stream = Stream_Effect::NONE;
  Place failed = {}; ///< with NOT_PUSHED, the directive that fails
  Stream_Break breaks = Stream_Break::NONE;
  std::string broken_stream = {}; ///< unless `breaks` is NONE
  bool is_reload = false;         ///< the step belongs to the first hang-up
  bool is_bare_stream = false;    ///< the stream that is loaded here has no module when all services are loaded
};

/// Whether the host ends at this step, or later because of it. Any thread.
bool ends_host(const Loader_Step& step);

/// Go through `directives` as the framework does, which have to outlive the steps, and tell what it does at each. A
/// file that is passed over has a single step. Then go through the files once more, as on a hang-up: of these steps,
/// only those follow that break a stream. The model goes on where the host would end. Any thread.
std::vector<Loader_Step> simulate_loader(const std::vector<Placed_Directive>& directives);

#endif // CHECK_LOADER_MODEL_H
