#ifndef STARTER_BACKGROUND_H
#define STARTER_BACKGROUND_H

/// Go to the background: the calling process ends with status 0, and a descendant without a terminal, with "/" as its
/// working directory and without any open descriptor, returns true. False when that fails; the process stays where it
/// is. Logs nothing. Main thread, before any other exists.
bool go_to_background();

#endif // STARTER_BACKGROUND_H
