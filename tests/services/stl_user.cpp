// A service that only declares the standard-library code that it uses here, so that it binds to the code in the
// executable. It records which one of two equal values it gets, and which file contains the code.

#include "tests/support/stl_declarations.h"

#include "scrt/log.h"

#include <ace/Global_Macros.h>
#include <ace/Service_Object.h>

#include <cstring>
#include <functional>
#include <string>
#include <utility>

#include <dlfcn.h>

namespace std
{
template <>
void swap<less<string>>(less<string>&, less<string>&) noexcept;

extern template struct less<string>;
} // namespace std

class Stl_User : public ACE_Service_Object
{
public:
  int init(int, ACE_TCHAR*[]) override;
};

template <typename F>
static const char* file_of(F* function)
{
  Dl_info info;
  if (!dladdr(reinterpret_cast<void*>(function), &info))
    return "nowhere";

  const char* const slash = std::strrchr(info.dli_fname, '/');
  return slash ? slash + 1 : info.dli_fname;
}

int Stl_User::init(int, ACE_TCHAR*[])
{
  unsigned long l = 1;
  unsigned long r = 1;
  const long sl = -1;
  const long sr = -1;
  LOG_RECORD(LM_INFO, "max of equal values: %C, %C\n", &std::max(l, r) == &r ? "second" : "first",
             &std::max(sl, sr) == &sr ? "second" : "first");

  r = 2;
  std::swap(l, r);
  LOG_RECORD(LM_INFO, "swapped: %u, %u\n", static_cast<unsigned>(l), static_cast<unsigned>(r));

  std::less<std::string> less;
  std::less<std::string> other;
  std::swap(less, other);
  const bool(&answers)[2] = {less("bar", "foo"), less("foo", "bar")};
  LOG_RECORD(LM_INFO, "less: %d, %d\n", answers[0], answers[1]);

  using Max = const unsigned long&(const unsigned long&, const unsigned long&);
  using Swap = void(unsigned long&, unsigned long&);
  LOG_RECORD(LM_INFO, "found in: %C, %C\n", file_of(static_cast<Max*>(std::max<unsigned long>)),
             file_of(static_cast<Swap*>(std::swap<unsigned long>)));
  return 0;
}

ACE_FACTORY_DEFINE(ACE_Local_Service, Stl_User)
