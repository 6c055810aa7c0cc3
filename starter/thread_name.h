#ifndef STARTER_THREAD_NAME_H
#define STARTER_THREAD_NAME_H

enum { THREAD_NAME_SIZE = 16 }; ///< bytes of the system's names of threads, with the terminating NUL

/// Look up the system's function for the names of threads, which a C library may lack. Main thread, before the signal
/// handlers that use the names are installed.
void look_up_thread_names();

/// The name of the calling thread, "unknown" if the system does not tell; padded with zero bytes. Logs nothing. Any
/// thread, in signal handlers too.
void get_thread_name(char (&thread_name)[THREAD_NAME_SIZE]);

#endif // STARTER_THREAD_NAME_H
