#ifndef SCRT_SYSCONF_HELPER_H
#define SCRT_SYSCONF_HELPER_H

/// @file
/// This function reads the system configuration of the machine.

/// Returns the size of the physical memory in bytes, as sysconf(3) tells it: the number of pages times their size. A
/// failure of sysconf(3) is not recognised; its -1 is multiplied like any other number. Logs nothing. Any thread.
unsigned long long get_system_memory();

#endif // SCRT_SYSCONF_HELPER_H
