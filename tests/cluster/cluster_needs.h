#ifndef TESTS_CLUSTER_CLUSTER_NEEDS_H
#define TESTS_CLUSTER_CLUSTER_NEEDS_H

#include "tests/support/requirements.h"
#include "tests/support/systemd_machine.h"

/// Tells what this machine lacks for a cluster, or for the resource agent in one machine; null when it has all.
inline const char* missing_for_cluster()
{
  return !is_root()                         ? "root, for namespaces of its own"
         : !Systemd_Machine::is_installed() ? "systemd"
         : !has_tool("dbus-daemon")         ? "dbus"
         : !has_tool("ip")                  ? "iproute2"
         : !has_tool("nc")                  ? "netcat-openbsd"
         : !has_tool("corosync")            ? "corosync"
         : !has_tool("pacemakerd")          ? "pacemaker"
         : !has_tool("crm_resource")        ? "pacemaker-cli-utils"
         : !has_tool("crm")                 ? "crmsh"
         : !has_tool("ocf-tester")          ? "resource-agents"
         : !has_tool("xmllint")             ? "libxml2-utils"
         : !can_overlay()                   ? "the right to mount file systems over others"
                                            : nullptr;
}

#endif // TESTS_CLUSTER_CLUSTER_NEEDS_H
