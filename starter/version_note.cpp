#include "starter/version_note.h"

#include "starter/product_version.h"

// The sizes of the name and the descriptor, the type, and these two.
asm(R"(
  .pushsection .note.starter, "a", @note
  .balign 4
  .long 8, 1f - 0f, 2
  .asciz "starter"
0:
  .asciz ")" STARTER_VERSION R"("
  .asciz ")" STARTER_REVISION R"("
1:
  .balign 4
  .popsection
)");
