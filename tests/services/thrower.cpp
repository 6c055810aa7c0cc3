// A service that ends the process by an exception that nothing catches. Its first argument is the place, "init" or
// "timer". The second one is "std" for a std::exception, "other" for another type, or "none" for std::terminate without
// an exception.

#include "scrt/log.h"

#include <ace/Global_Macros.h>
#include <ace/Reactor.h>
#include <ace/Service_Object.h>

#include <exception>
#include <stdexcept>
#include <string>

class Thrower : public ACE_Service_Object
{
public:
  int init(int argc, ACE_TCHAR* argv[]) override;
  int handle_timeout(const ACE_Time_Value&, const void*) override;

private:
  [[noreturn]] void fail() const;

  std::string what_;
};

int Thrower::init(int argc, ACE_TCHAR* argv[])
{
  if (argc < 2)
    return -1;

  what_ = argv[1];
  if (std::string(argv[0]) == "init")
    fail();
  return ACE_Reactor::instance()->schedule_timer(this, nullptr, ACE_Time_Value::zero) == -1 ? -1 : 0;
}

int Thrower::handle_timeout(const ACE_Time_Value&, const void*)
{
  fail();
}

void Thrower::fail() const
{
  if (what_ == "std")
    throw std::runtime_error("thrown by the service");
  if (what_ == "other")
    throw 42;
  std::terminate();
}

ACE_FACTORY_DEFINE(ACE_Local_Service, Thrower)
