#ifndef TESTS_SUPPORT_WAIT_UNTIL_H
#define TESTS_SUPPORT_WAIT_UNTIL_H

#include <functional>

/// Wait until `condition` holds. False when a minute passes before that: long enough for a loaded machine under a
/// sanitizer.
bool wait_until(const std::function<bool()>& condition);

#endif // TESTS_SUPPORT_WAIT_UNTIL_H
