#ifndef STARTER_VERSION_NOTE_H
#define STARTER_VERSION_NOTE_H

/// @file
/// The executable has a note (see elf(5)) of the name "starter" and the type 2, which tells services what they run in.
/// Its descriptor is the version and then the revision of the build, each a text that ends with a null character. A
/// program that is older has no such note.

#endif // STARTER_VERSION_NOTE_H
