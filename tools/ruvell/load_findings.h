// What the library says while it loads a scene, as findings.
#ifndef RUVELL_LOAD_FINDINGS_H
#define RUVELL_LOAD_FINDINGS_H

#include "findings.h"
#include "library_log.h"
#include "scan.h"
#include <string>
#include <vector>

namespace ruvell {

// Adds the warnings and errors among the messages of a load to the findings, unless the scan has
// said the same already. The library counts its lines in a way of its own, and at a value it is on
// the next line often; `rescan` reads the scenes again to find the parameter that was meant.
void addLoadFindings(const std::vector<LoadMessage>& messages, Findings& findings,
                     const std::function<void(ScanOptions, Findings&)>& rescan);

} // namespace ruvell

#endif
