#ifndef CHECK_SERVICE_FINDINGS_H
#define CHECK_SERVICE_FINDINGS_H

#include "check/finding.h"
#include "check/loader_model.h"

#include <vector>

/// Add to `findings` what goes wrong at the steps of the loader: libraries and factories, parameters, names, modules of
/// streams, and files that are passed over.
void check_steps(const std::vector<Loader_Step>& steps, Findings& findings);

#endif // CHECK_SERVICE_FINDINGS_H
