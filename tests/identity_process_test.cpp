#include "tests/support/requirements.h"
#include "tests/support/starter_process.h"
#include "tests/support/syscall_trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <sstream>
#include <tuple>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using Texts = std::vector<std::string>;

// Ids of accounts and groups that are the same on every Debian system.
enum : gid_t { NOBODY = 65534, ADM = 4, TTY = 5, LP = 7, MAN = 12 };

static const char SOURCE[] = "starter/starter.cpp";
static const Logged CREATED = info("Created 'select' reactor\n").in(SOURCE);

static Logged not_found(const std::string& text, const std::string& kind)
{
  return error("Failed to get " + text + ' ' + kind + " entry, errno=2, No such file or directory\n").in(SOURCE);
}

static Logged refused(const std::string& what)
{
  return error_failed("Failed to " + what + ", errno=1, Operation not permitted\n").in(SOURCE);
}

// The value that all four ids in a line of /proc/PID/status have after a switch. The whole line when they differ.
static std::string id(const Starter_Process& starter, const std::string& name)
{
  std::istringstream line(starter.status_field(name));
  Texts ids;
  for (std::string value; line >> value;)
    ids.push_back(value);
  return ids.size() == 4 && ids == Texts(4, ids[0]) ? ids[0] : starter.status_field(name);
}

// The identity of a process when it is ready, and its calls and records until then.
struct Outcome
{
  std::string uid;
  std::string gid;
  std::string groups;
  std::vector<Logged> records; // without the last one, which says that the reactor has been made
  Texts calls;                 // those that set identities or read the groups
  int status;
};

// Starts the program with `args` and a reactor, and ends it.
static Outcome run(Texts args, Start_Options options)
{
  const Syscall_Trace trace("setuid,setgid,setreuid,setregid,setresuid,setresgid,setfsuid,setfsgid,setgroups,"
                            "getgroups");
  trace.apply_to(options);
  options.probe = true;
  args.insert(args.end(), {"--reactor", "select"});

  Starter_Process starter(args, options);
  if (!starter.wait_for_event_loop())
    return {"", "", "", {error(starter.log())}, {}, starter.wait_status()};

  Outcome outcome{id(starter, "Uid"), id(starter, "Gid"), starter.status_field("Groups"), {}, {}, 0};
  starter.send(SIGTERM);
  outcome.status = starter.wait_status();
  outcome.calls = trace.calls(starter.pid());
  outcome.records = starter.command_line_records();
  // The start-up must go on in every case.
  EXPECT_EQ(0, outcome.status) << starter.log();
  EXPECT_THAT(outcome.records, testing::Contains(CREATED).Times(1));
  if (!outcome.records.empty() && outcome.records.back() == CREATED)
    outcome.records.pop_back();
  return outcome;
}

static Start_Options as(uid_t uid, gid_t gid, const std::vector<gid_t>& groups = {})
{
  Start_Options options;
  options.uid = uid;
  options.gid = gid;
  options.groups = groups;
  return options;
}

static Start_Options as_nobody()
{
  return as(NOBODY, NOBODY);
}

class identity_process : public testing::Test
{
protected:
  void SetUp() override
  {
    NEEDS(is_root(), "root, who alone can become somebody else");
    NEEDS(can_trace(), "strace and the right to trace processes");
  }
};

// ---- What is called, and in which order

TEST_F(identity_process, stays_what_it_is_without_user_and_groups)
{
  const Outcome root = run({}, as(0, 0, {ADM, MAN}));
  EXPECT_THAT(root.calls, IsEmpty());
  EXPECT_THAT(root.records, IsEmpty());
  EXPECT_EQ("0", root.uid);
  EXPECT_EQ("4 12", root.groups);

  const Outcome nobody = run({}, as(NOBODY, NOBODY, {ADM}));
  EXPECT_THAT(nobody.calls, IsEmpty());
  EXPECT_THAT(nobody.records, IsEmpty());
  EXPECT_EQ("65534", nobody.uid);
  EXPECT_EQ("65534", nobody.gid);
  EXPECT_EQ("4", nobody.groups);
}

TEST_F(identity_process, sets_primary_group_then_account_groups_then_user_then_supplementary_groups)
{
  const Outcome outcome = run({"--group", "adm", "--user", "nobody", "--primary-group", "man"}, as(0, 0));

  // The process has lost the privilege for the last step.
  EXPECT_THAT(outcome.calls,
              ElementsAre("setgid(12) = 0", "setgroups(1, [12]) = 0", "setuid(65534) = 0", "getgroups(65536, [12]) = 1",
                          "setgroups(2, [12, 4]) = -1 EPERM (Operation not permitted)"));
  EXPECT_THAT(outcome.records, ElementsAre(refused("set supplementary groups")));
  EXPECT_EQ("65534", outcome.uid);
  EXPECT_EQ("12", outcome.gid);
  EXPECT_EQ("12", outcome.groups);
}

TEST_F(identity_process, takes_the_primary_group_of_the_user)
{
  for (const char* const user : {"nobody", "65534", " 65534", "+65534"}) {
    SCOPED_TRACE(user);
    const Outcome outcome = run({"--user", user}, as(0, 0, {ADM}));

    EXPECT_THAT(outcome.calls, ElementsAre("setgid(65534) = 0", "setgroups(1, [65534]) = 0", "setuid(65534) = 0"));
    EXPECT_THAT(outcome.records, IsEmpty());
    EXPECT_EQ("65534", outcome.uid);
    EXPECT_EQ("65534", outcome.gid);
    EXPECT_EQ("65534", outcome.groups);
  }
}

TEST_F(identity_process, switches_to_the_last_user_of_the_line)
{
  const Outcome outcome = run({"--user", "root", "--user", "nobody"}, as(0, 0));

  EXPECT_EQ("65534", outcome.uid);
}

TEST_F(identity_process, calls_nothing_for_its_own_identity)
{
  for (const char* const user : {"root", "0", "", "+0"}) {
    SCOPED_TRACE(user);
    const Outcome outcome = run({"--user", user}, as(0, 0, {ADM}));
    EXPECT_THAT(outcome.calls, IsEmpty());
    EXPECT_THAT(outcome.records, IsEmpty());
    EXPECT_EQ("4", outcome.groups);
  }

  const Outcome outcome = run({"--user", "nobody", "--primary-group", "nogroup"}, as_nobody());
  EXPECT_THAT(outcome.calls, IsEmpty());
  EXPECT_THAT(outcome.records, IsEmpty());
}

TEST_F(identity_process, sets_the_groups_but_not_the_user_when_only_the_group_differs)
{
  const Outcome outcome = run({"--user", "root", "--primary-group", "man"}, as(0, 0, {ADM}));

  EXPECT_THAT(outcome.calls, ElementsAre("setgid(12) = 0", "setgroups(1, [12]) = 0"));
  EXPECT_EQ("0", outcome.uid);
  EXPECT_EQ("12", outcome.gid);
}

TEST_F(identity_process, sets_groups_and_user_but_not_the_primary_group_when_only_the_user_differs)
{
  const Outcome outcome = run({"--user", "nobody"}, as(0, NOBODY, {ADM}));

  EXPECT_THAT(outcome.calls, ElementsAre("setgroups(1, [65534]) = 0", "setuid(65534) = 0"));
  EXPECT_EQ("65534", outcome.uid);
  EXPECT_EQ("65534", outcome.gid);
}

TEST_F(identity_process, sets_only_the_primary_group_without_a_user)
{
  for (const char* const group : {"man", "12"}) {
    SCOPED_TRACE(group);
    const Outcome outcome = run({"--primary-group", group}, as(0, 0, {ADM}));
    EXPECT_THAT(outcome.calls, ElementsAre("setgid(12) = 0"));
    EXPECT_THAT(outcome.records, IsEmpty());
    EXPECT_EQ("0", outcome.uid);
    EXPECT_EQ("12", outcome.gid);
    EXPECT_EQ("4", outcome.groups);
  }

  EXPECT_THAT(run({"--primary-group", "man"}, as(0, MAN)).calls, IsEmpty());
}

TEST_F(identity_process, appends_supplementary_groups_in_the_order_of_the_line)
{
  const Outcome outcome = run({"--group", "tty", "--group", "4", "--group=man"}, as(0, 0, {LP}));

  EXPECT_THAT(outcome.calls, ElementsAre("getgroups(65536, [7]) = 1", "setgroups(4, [7, 5, 4, 12]) = 0"));
  EXPECT_THAT(outcome.records, IsEmpty());
  EXPECT_EQ("4 5 7 12", outcome.groups); // the kernel sorts them
}

TEST_F(identity_process, appends_a_supplementary_group_again_that_is_there_already)
{
  const Outcome outcome = run({"--group", "adm", "--group", "man", "--group", "man"}, as(0, 0, {ADM, MAN}));

  EXPECT_THAT(outcome.calls, ElementsAre("getgroups(65536, [4, 12]) = 2", "setgroups(5, [4, 12, 4, 12, 12]) = 0"));
  EXPECT_EQ("4 4 12 12 12", outcome.groups);
}

TEST_F(identity_process, sets_supplementary_groups_of_a_user_that_it_is_already)
{
  const Outcome outcome = run({"--user", "root", "--group", "adm"}, as(0, 0));

  EXPECT_THAT(outcome.calls, ElementsAre("getgroups(65536, []) = 0", "setgroups(1, [4]) = 0"));
  EXPECT_THAT(outcome.records, IsEmpty());
}

TEST_F(identity_process, has_switched_before_it_makes_its_reactor)
{
  Start_Options options;
  const Syscall_Trace trace("setuid,epoll_create,epoll_create1");
  trace.apply_to(options);

  Starter_Process starter({"--reactor", "dev_poll", "--user", "nobody"}, options);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();

  EXPECT_THAT(trace.calls(starter.pid()), ElementsAre("setuid(65534) = 0", StartsWith("epoll_create")));
}

// ---- Failures

TEST_F(identity_process, goes_on_after_each_refused_step)
{
  const Outcome outcome = run({"--user", "root", "--group", "adm"}, as_nobody());

  EXPECT_THAT(outcome.calls, ElementsAre("setgid(0) = -1 EPERM (Operation not permitted)",
                                         "setgroups(1, [0]) = -1 EPERM (Operation not permitted)",
                                         "setuid(0) = -1 EPERM (Operation not permitted)", "getgroups(65536, []) = 0",
                                         "setgroups(1, [4]) = -1 EPERM (Operation not permitted)"));
  EXPECT_THAT(outcome.records, ElementsAre(refused("set gid to 0"), refused("init groups by root (uid=0) and  (gid=0)"),
                                           refused("set uid to 0"), refused("set supplementary groups")));
  EXPECT_EQ("65534", outcome.uid);
  EXPECT_EQ("65534", outcome.gid);
}

TEST_F(identity_process, names_user_and_group_as_the_system_does)
{
  const Outcome outcome = run({"--user", "0", "--primary-group", "4"}, as_nobody());

  EXPECT_THAT(outcome.records,
              ElementsAre(refused("set gid to 4"), refused("init groups by root (uid=0) and adm (gid=4)"),
                          refused("set uid to 0")));
}

TEST_F(identity_process, reads_an_empty_user_as_the_superuser)
{
  const Outcome outcome = run({"--user="}, as_nobody());

  EXPECT_THAT(outcome.records, ElementsAre(refused("set gid to 0"), refused("init groups by root (uid=0) and  (gid=0)"),
                                           refused("set uid to 0")));
}

TEST_F(identity_process, reads_an_empty_group_as_the_group_of_the_superuser)
{
  EXPECT_THAT(run({"--primary-group="}, as_nobody()).records, ElementsAre(refused("set gid to 0")));
  EXPECT_THAT(run({"--group="}, as(0, 0, {ADM})).calls,
              ElementsAre("getgroups(65536, [4]) = 1", "setgroups(2, [4, 0]) = 0"));
}

TEST_F(identity_process, switches_nothing_for_an_unknown_user)
{
  for (const char* const user : {"no-such-user", "4000000000", "4294967295", "4294967296", "-1", "0x", "NOBODY", " "}) {
    SCOPED_TRACE(user);
    const Outcome outcome = run({"--user", user}, as(0, 0, {ADM}));

    EXPECT_THAT(outcome.calls, IsEmpty());
    EXPECT_THAT(outcome.records, ElementsAre(not_found(user, "password")));
    EXPECT_EQ("0", outcome.uid);
    EXPECT_EQ("4", outcome.groups);
  }
}

TEST_F(identity_process, sets_a_known_primary_group_for_an_unknown_user)
{
  const Outcome outcome = run({"--user", "no-such-user", "--primary-group", "man"}, as(0, 0));

  EXPECT_THAT(outcome.calls, ElementsAre("setgid(12) = 0"));
  EXPECT_THAT(outcome.records, ElementsAre(not_found("no-such-user", "password")));
}

TEST_F(identity_process, sets_no_group_for_an_unknown_primary_group)
{
  for (const char* const group : {"no-such-group", "4000000000", "4294967296", "-1", "4x"}) {
    SCOPED_TRACE(group);
    const Outcome outcome = run({"--primary-group", group}, as(0, 0));

    EXPECT_THAT(outcome.calls, IsEmpty());
    EXPECT_THAT(outcome.records, ElementsAre(not_found(group, "group")));
    EXPECT_EQ("0", outcome.gid);
  }
}

TEST_F(identity_process, takes_the_users_own_group_for_an_unknown_primary_group)
{
  const Outcome outcome = run({"--user", "nobody", "--primary-group", "no-such-group"}, as(0, 0));
  EXPECT_THAT(outcome.calls, ElementsAre("setgid(65534) = 0", "setgroups(1, [65534]) = 0", "setuid(65534) = 0"));
  EXPECT_THAT(outcome.records, ElementsAre(not_found("no-such-group", "group")));

  const Outcome denied = run({"--user", "root", "--primary-group", "no-such-group"}, as_nobody());
  EXPECT_THAT(denied.records,
              ElementsAre(not_found("no-such-group", "group"), refused("set gid to 0"),
                          refused("init groups by root (uid=0) and  (gid=0)"), refused("set uid to 0")));
}

TEST_F(identity_process, looks_the_primary_group_up_before_the_user_and_other_groups_last)
{
  const Outcome outcome =
      run({"--group", "no-such-c", "--user", "no-such-b", "--primary-group", "no-such-a"}, as(0, 0));

  EXPECT_THAT(outcome.records, ElementsAre(not_found("no-such-a", "group"), not_found("no-such-b", "password"),
                                           not_found("no-such-c", "group")));
}

TEST_F(identity_process, leaves_an_unknown_supplementary_group_out)
{
  const Outcome outcome = run({"--group", "adm", "--group", "no-such-group", "--group", "man"}, as(0, 0, {LP}));

  EXPECT_THAT(outcome.calls, ElementsAre("getgroups(65536, [7]) = 1", "setgroups(3, [7, 4, 12]) = 0"));
  EXPECT_THAT(outcome.records, ElementsAre(not_found("no-such-group", "group")));
}

TEST_F(identity_process, sets_its_groups_again_when_no_supplementary_group_is_known)
{
  const Outcome outcome = run({"--group", "no-such-group"}, as(0, 0, {LP}));

  EXPECT_THAT(outcome.calls, ElementsAre("getgroups(65536, [7]) = 1", "setgroups(1, [7]) = 0"));
}

TEST_F(identity_process, starts_from_an_empty_list_when_its_groups_cannot_be_read)
{
  Start_Options options = with_fault("FAULT_GETGROUPS");
  options.groups = {LP};
  const Outcome outcome = run({"--group", "adm", "--group", "man"}, options);

  EXPECT_THAT(outcome.calls, ElementsAre("setgroups(2, [4, 12]) = 0"));
  EXPECT_THAT(outcome.records, ElementsAre(error_failed("Failed to get supplementary groups, errno=5, "
                                                        "Input/output error\n")
                                               .in(SOURCE)));
  EXPECT_EQ("4 12", outcome.groups);
}

TEST_F(identity_process, appends_no_more_groups_than_there_are_slots)
{
  Start_Options options = with_fault("FAULT_NGROUPS", "3");
  options.groups = {LP};
  const Outcome outcome =
      run({"--group", "adm", "--group", "man", "--group", "tty", "--group", "no-such-group"}, options);

  EXPECT_THAT(outcome.calls, ElementsAre("getgroups(3, [7]) = 1", "setgroups(3, [7, 4, 12]) = 0"));
}

TEST_F(identity_process, has_room_for_one_group_more_after_an_unknown_one_in_the_last_slot)
{
  Start_Options options = with_fault("FAULT_NGROUPS", "2");
  options.groups = {LP};
  const Outcome outcome = run({"--group", "no-such-group", "--group", "man", "--group", "tty"}, options);

  EXPECT_THAT(outcome.calls, ElementsAre("getgroups(2, [7]) = 1", "setgroups(2, [7, 12]) = 0"));
  EXPECT_THAT(outcome.records, ElementsAre(not_found("no-such-group", "group")));
}

TEST_F(identity_process, starts_from_an_empty_list_when_it_has_more_groups_than_slots)
{
  Start_Options options = with_fault("FAULT_NGROUPS", "2");
  options.groups = {ADM, LP, MAN};
  const Outcome outcome = run({"--group", "tty"}, options);

  EXPECT_THAT(outcome.calls, ElementsAre(testing::MatchesRegex("getgroups\\(2, 0x[0-9a-f]+\\) = -1 EINVAL.*"),
                                         "setgroups(1, [5]) = 0"));
  EXPECT_THAT(outcome.records, ElementsAre(error_failed("Failed to get supplementary groups, errno=22, "
                                                        "Invalid argument\n")
                                               .in(SOURCE)));
}

TEST_F(identity_process, assumes_sizes_that_the_system_does_not_tell)
{
  for (const char* const unknown : {"-1", "0"}) {
    SCOPED_TRACE(unknown);
    Start_Options options = with_fault("FAULT_GETPW_SIZE", unknown);
    options.env["FAULT_GETGR_SIZE"] = unknown;
    options.env["FAULT_NGROUPS"] = unknown;
    options.groups = {LP};
    const Outcome outcome = run({"--user", "root", "--primary-group", "root", "--group", "adm"}, options);

    EXPECT_THAT(outcome.calls, ElementsAre("getgroups(65536, [7]) = 1", "setgroups(2, [7, 4]) = 0"));
    EXPECT_THAT(outcome.records, IsEmpty());
  }
}

TEST_F(identity_process, reports_the_error_of_a_lookup)
{
  const std::string range = ", errno=34, Numerical result out of range\n";

  for (const char* const user : {"nobody", "65534"})
    EXPECT_THAT(run({"--user", user}, with_fault("FAULT_GETPW_SIZE", "16")).records,
                ElementsAre(error("Failed to get " + std::string(user) + " password entry" + range).in(SOURCE)));
  for (const char* const group : {"adm", "4"})
    EXPECT_THAT(run({"--primary-group", group}, with_fault("FAULT_GETGR_SIZE", "8")).records,
                ElementsAre(error("Failed to get " + std::string(group) + " group entry" + range).in(SOURCE)));
}

// The emergency record names its own place in the source, and a back trace follows.
static void expect_no_buffer_record(const Record& record)
{
  EXPECT_EQ(ENOMEM, record.error) << record;
  const std::string start =
      "Unexpected error in starter/starter.cpp:" + std::to_string(record.line) + ", buf is NULL:\n";
  EXPECT_THAT(with_file(record), BeginsLike(emergency_failed(start).in(SOURCE)));
  EXPECT_THAT(record.text.substr(start.size()), testing::ContainsRegex("starter.*\n")) << "no trace";
}

TEST_F(identity_process, reports_a_lookup_without_a_buffer)
{
  for (const Texts& option : {Texts{"--user", "nobody"}, Texts{"--primary-group", "man"}}) {
    SCOPED_TRACE(option[0]);
    Starter_Process starter({option[0], option[1], "--reactor", "select"}, with_fault("FAULT_NEW_ARRAY", "1"));
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

    const std::vector<Record> records = starter.records();
    ASSERT_LE(2U, records.size());
    expect_no_buffer_record(records[0]);
    EXPECT_EQ("Created 'select' reactor\n", records[1].text);
    EXPECT_EQ("0", id(starter, "Uid"));
    EXPECT_EQ("0", id(starter, "Gid"));
    starter.send(SIGTERM);
    EXPECT_EQ(0, starter.wait_status()) << starter.log();
  }
}

TEST_F(identity_process, leaves_a_supplementary_group_out_that_it_has_no_buffer_for)
{
  Start_Options options = with_fault("FAULT_NEW_ARRAY", "2"); // the first array is the list of groups
  options.groups = {LP};
  const Outcome outcome = run({"--group", "adm", "--group", "man"}, options);

  EXPECT_THAT(outcome.calls, ElementsAre("getgroups(65536, [7]) = 1", "setgroups(2, [7, 12]) = 0"));
  EXPECT_THAT(outcome.records, ElementsAre(BeginsLike(emergency_failed("Unexpected error in ").in(SOURCE))));
}

TEST_F(identity_process, skips_supplementary_groups_silently_without_a_list_buffer)
{
  const Outcome outcome = run({"--group", "adm"}, with_fault("FAULT_NEW_ARRAY", "1"));

  EXPECT_THAT(outcome.calls, IsEmpty());
  EXPECT_THAT(outcome.records, IsEmpty());
}

// ---- Accounts of the test's own

// The process sees the account files of the system with these lines added. A mount namespace, which ends with the
// process, puts each file over the file of the system.
class identity_process_with_accounts : public identity_process
{
protected:
  void SetUp() override
  {
    identity_process::SetUp();
    if (IsSkipped() || HasFatalFailure())
      return;
    NEEDS(can_mount(), "unshare and the right to mount");
  }

  Start_Options with_accounts(const std::string& passwd, const std::string& group) const;

private:
  Temp_Dir dir_;
};

Start_Options identity_process_with_accounts::with_accounts(const std::string& passwd, const std::string& group) const
{
  Start_Options options;
  options.wrapper = {"unshare",
                     "--mount",
                     "sh",
                     "-c",
                     "mount --bind \"$1\" /etc/passwd && mount --bind \"$2\" /etc/group && shift 2 && exec \"$@\"",
                     "sh",
                     dir_.write("passwd", read_file("/etc/passwd") + passwd),
                     dir_.write("group", read_file("/etc/group") + group)};
  return options;
}

TEST_F(identity_process_with_accounts, takes_the_groups_that_the_account_is_in)
{
  const Start_Options options =
      with_accounts("crew:x:3001:3001::/:/bin/false\n", "crew:x:3001:\ndeck:x:3002:crew\nhold:x:3003:nobody,crew\n");
  const Outcome outcome = run({"--user", "crew", "--group", "deck", "--group", "adm"}, options);

  EXPECT_THAT(outcome.calls,
              ElementsAre("setgid(3001) = 0", "setgroups(3, [3001, 3002, 3003]) = 0", "setuid(3001) = 0",
                          "getgroups(65536, [3001, 3002, 3003]) = 3",
                          "setgroups(5, [3001, 3002, 3003, 3002, 4]) = -1 EPERM (Operation not permitted)"));
  EXPECT_THAT(outcome.records, ElementsAre(refused("set supplementary groups")));
  EXPECT_EQ("3001 3002 3003", outcome.groups);
}

TEST_F(identity_process_with_accounts, looks_up_by_name_what_is_no_id)
{
  const Start_Options options = with_accounts("4x:x:3002:3002::/:/bin/false\n4294967296:x:3003:3003::/:/bin/false\n"
                                              "7:x:3004:3004::/:/bin/false\n",
                                              "4x:x:3002:\n4294967296:x:3003:\n12:x:3004:\n");
  // A number is an id even if an account has it as its name. These are the ids of lp and man.
  const std::tuple<const char*, const char*, const char*> users[] = {
      {"4x", "3002", "3002"}, {"4294967296", "3003", "3003"}, {"7", "7", "7"}};
  for (const auto& [user, uid, gid] : users) {
    SCOPED_TRACE(user);
    const Outcome outcome = run({"--user", user}, options);
    EXPECT_EQ(uid, outcome.uid);
    EXPECT_EQ(gid, outcome.gid);
    EXPECT_THAT(outcome.records, IsEmpty());
  }

  const std::tuple<const char*, const char*> groups[] = {{"4x", "3002"}, {"4294967296", "3003"}, {"12", "12"}};
  for (const auto& [group, gid] : groups) {
    SCOPED_TRACE(group);
    EXPECT_EQ(gid, run({"--primary-group", group}, options).gid);
    EXPECT_EQ(gid, run({"--group", group}, options).groups);
  }
}

// An account has the largest id here, and -1 must not be taken for this id.
TEST_F(identity_process_with_accounts, looks_up_minus_one_by_name)
{
  const Start_Options options = with_accounts("last:x:4294967295:3001::/:/bin/false\n", "last:x:4294967295:\n");

  EXPECT_THAT(run({"--user", "4294967295"}, options).calls,
              ElementsAre("setgid(3001) = 0", "setgroups(1, [3001]) = 0", "setuid(-1) = -1 EINVAL (Invalid argument)"));
  EXPECT_THAT(run({"--user", "-1"}, options).records, ElementsAre(not_found("-1", "password")));
  EXPECT_THAT(run({"--primary-group", "4294967295"}, options).records,
              ElementsAre(error_failed("Failed to set gid to 4294967295, errno=22, Invalid argument\n").in(SOURCE)));
  EXPECT_THAT(run({"--primary-group", "-1"}, options).records, ElementsAre(not_found("-1", "group")));
  EXPECT_THAT(run({"--group", "-1"}, options).records, ElementsAre(not_found("-1", "group")));
}

TEST_F(identity_process_with_accounts, finds_large_ids)
{
  const Start_Options options = with_accounts("large:x:4294967293:4294967294::/:/bin/false\n", "large:x:4294967294:\n");
  const Outcome outcome = run({"--user", "4294967293"}, options);

  EXPECT_THAT(outcome.calls,
              ElementsAre("setgid(4294967294) = 0", "setgroups(1, [4294967294]) = 0", "setuid(4294967293) = 0"));
  EXPECT_EQ("4294967293", outcome.uid);
  EXPECT_EQ("4294967294", outcome.gid);
}

// Some systems know root and nobody without account files, so the test uses two other accounts.
TEST_F(identity_process_with_accounts, accepts_a_number_only_with_an_account_of_that_number)
{
  const Start_Options options = with_accounts("crew:x:3001:3001::/:/bin/false\n", "");

  EXPECT_EQ("3001", run({"--user", "3001"}, options).uid);
  const Outcome outcome = run({"--user", "3002"}, options);
  EXPECT_THAT(outcome.calls, IsEmpty());
  EXPECT_THAT(outcome.records, ElementsAre(not_found("3002", "password")));
}

TEST_F(identity_process_with_accounts, looks_up_an_oversized_entry_only_once)
{
  const Start_Options options = with_accounts("long:x:3001:3001:" + std::string(5000, 'x') + ":/:/bin/false\n", "");
  const Outcome outcome = run({"--user", "long"}, options);

  EXPECT_THAT(outcome.calls, IsEmpty());
  EXPECT_THAT(outcome.records, ElementsAre(error("Failed to get long password entry, errno=34, "
                                                 "Numerical result out of range\n")
                                               .in(SOURCE)));
}
