// "-D NODE.PARAM=VALUE": any parameter of any node, with values written as in a scene file, links
// included.
#ifndef RUVELL_ASSIGNMENTS_H
#define RUVELL_ASSIGNMENTS_H

#include <string>
#include <vector>

namespace ruvell {

// Empty when text has the form NODE.PARAM=VALUE, otherwise what is wrong with it.
std::string checkAssignment(const std::string& text);

// Applies the assignments to the loaded scene, in order. What names a node that does not exist is
// kept for the contents of procedurals, when the scene has any. False, with an error, at the first
// that cannot be applied.
bool applyAssignments(const std::vector<std::string>& assignments);

} // namespace ruvell

#endif
