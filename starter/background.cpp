#include "starter/background.h"

#include <ace/ACE.h>

bool go_to_background()
{
  return ACE::daemonize("/", true, "<unknown>") != -1;
}
