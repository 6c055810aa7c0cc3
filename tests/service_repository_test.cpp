#include "starter/service_repository.h"

#include <ace/DLL.h>
#include <ace/Service_Repository.h>
#include <ace/Service_Types.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
ACE_Service_Repository& repository()
{
  return *ACE_Service_Repository::instance();
}

void insert(const char* name)
{
  repository().insert(new ACE_Service_Type(name, nullptr, ACE_DLL(), true));
}

std::vector<std::string> names()
{
  std::vector<std::string> result;
  const ACE_Service_Type* service = nullptr;
  for (ACE_Service_Repository_Iterator i(repository(), false); i.next(service) != 0; i.advance())
    result.emplace_back(service->name());
  return result;
}

class service_repository : public testing::Test
{
protected:
  void SetUp() override
  {
    for (const std::string& name : names())
      repository().remove(name.c_str());
    pack_service_repository();
    for (const char* const name : {"a", "b", "c", "d"})
      insert(name);
  }
};
} // namespace

TEST_F(service_repository, has_no_gaps_after_it_was_packed)
{
  for (const char* const name : {"a", "c", "d"})
    repository().remove(name);
  insert("e");
  ASSERT_EQ(5u, repository().current_size());

  pack_service_repository();

  EXPECT_EQ(2u, repository().current_size());
  EXPECT_EQ((std::vector<std::string>{"b", "e"}), names());
}

TEST_F(service_repository, finds_every_service_after_it_was_packed)
{
  repository().remove("b");
  pack_service_repository();
  insert("e");

  EXPECT_EQ((std::vector<std::string>{"a", "c", "d", "e"}), names());
  for (const char* const name : {"a", "c", "d", "e"})
    EXPECT_EQ(0, repository().find(name)) << name;
  EXPECT_EQ(-1, repository().find("b"));
}

TEST_F(service_repository, stays_as_it_is_without_gaps)
{
  pack_service_repository();

  EXPECT_EQ((std::vector<std::string>{"a", "b", "c", "d"}), names());
}

TEST_F(service_repository, may_be_empty_when_it_is_packed)
{
  for (const char* const name : {"a", "b", "c", "d"})
    repository().remove(name);

  pack_service_repository();

  EXPECT_EQ(0u, repository().current_size());
}
