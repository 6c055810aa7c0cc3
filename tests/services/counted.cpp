// A service with metrics of its own. There are two libraries of it, counted and counted_twin, which have the same
// metrics. Each `init` adds one, and logs the value and the address of the counter. `init` fails without them.
// With the argument "many" it also makes ten thousand series.

#include <starter/metrics.h>

#include "scrt/log.h"

#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <cerrno>
#include <string>

class Counted : public ACE_Service_Object
{
public:
  int init(int argc, char** argv) override
  {
    using namespace starter;
    Counter* const inits = counter("counted_inits_total", "Calls of init.", {{"kind", "any"}, {"of", "all"}});
    Gauge* const last = gauge("counted_last_seconds", "A time.");
    Histogram* const sizes = histogram("counted_size_bytes", "Sizes.", {1, 10, 100});
    if (!inits || !last || !sizes)
      return -1;

    inits->increment();
    last->set(42.5);
    sizes->observe(7);
    LOG_RECORD(LM_INFO, "counted %d at %@.\n", static_cast<int>(inits->value()), static_cast<void*>(inits));
    if (argc == 1 && argv[0] == std::string("many"))
      for (int i = 0; i < 10000; ++i)
        counter("counted_many_total", "Many series.", {{"path", ("/some/path/" + std::to_string(i)).c_str()}})
            ->increment(i);
    return 0;
  }

  int fini() override { return 0; }
};

ACE_FACTORY_DEFINE(ACE_Svc, Counted)
