// The node types of the open universe, taken apart for display.
#ifndef RUVELL_NODE_TYPES_H
#define RUVELL_NODE_TYPES_H

#include <ruvell/rv.h>
#include <string>
#include <vector>

namespace ruvell {

struct ParamInfo {
    std::string name;
    std::string type;                 // "FLOAT"; of arrays "ARRAY of FLOAT"
    std::string default_value;        // as a scene file has it
    std::vector<std::string> allowed; // names of an enumeration, otherwise empty
};

struct TypeInfo {
    std::string name;
    std::string kind;   // "shader", "light", ...
    std::string output; // type of the output, "none" for most kinds
    std::string plugin; // path of the plug-in, empty for built-in types
    std::vector<ParamInfo> params;
};

TypeInfo describeType(const RtNodeEntry* entry);

// In order of installation.
std::vector<TypeInfo> describeAllTypes();

// Kinds in the order in which they are shown, with their titles.
struct KindTitle {
    const char* kind;
    const char* title;
};
extern const std::vector<KindTitle> kind_titles;

} // namespace ruvell

#endif
