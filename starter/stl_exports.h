#ifndef STARTER_STL_EXPORTS_H
#define STARTER_STL_EXPORTS_H

/// Make sure that the executable contains the string code that services bind to. No effect at run time.
void init_stl_symbols();

#endif // STARTER_STL_EXPORTS_H
