#ifndef STARTER_MACHINE_H
#define STARTER_MACHINE_H

/// The kernel's setting vm.swappiness, 0 for a text that does not begin with digits; only its first three characters
/// are looked at, which hold every valid setting. -1 when it cannot be read, with the `errno` of open(2) or read(2), or
/// when there is no text, which leaves `errno` alone. Logs nothing. Any thread.
short get_vm_swappiness();

/// Log the record about the machine: its kernel, processors and memory, the limit of open files, and the swappiness.
/// A swappiness that cannot be read gets a record of its own before that. Any thread.
void log_system_info();

/// Log the banner: the product, the component that the environment variable COMPONENT names, the build's version and
/// revision. A name that is too long for the record is cut. Any thread.
void log_product_info();

#endif // STARTER_MACHINE_H
