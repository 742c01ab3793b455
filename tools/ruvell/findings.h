// What is wrong with a scene: problems with the file and line they were found at.
#ifndef RUVELL_FINDINGS_H
#define RUVELL_FINDINGS_H

#include <map>
#include <set>
#include <string>
#include <vector>

namespace ruvell {

enum class Weight { warning, error };

// What a problem means for loading the scene.
enum class Effect {
    none,      // the scene loads, though perhaps not as meant
    endless,   // loading it would not come to an end, or would exhaust the process
    forbidden, // not allowed in safe mode, or fatal to whoever loads it
};

// Groups findings that say the same kind of thing; see Findings::has.
enum class Topic {
    other,
    unknown_type,
    unknown_parameter,
    bad_boolean,
    bad_enumeration,
    braces,
    undefined_name,
    duplicate_name,
    missing_file,
    array,
    declaration,
    nesting,
    address,
    unseen, // cannot be checked
    text,   // NULs and the like
};

struct Place {
    std::string file;
    int line = 0; // from 1; 0 for the file as a whole
};

struct Finding {
    Place place;
    Weight weight = Weight::error;
    std::string message;
    std::string hint; // empty, or how to mend it
    Topic topic = Topic::other;
    Effect effect = Effect::none;
};

class Findings {
public:
    // Files are listed in the order in which they are first named.
    void nameFile(const std::string& file) { file_order.emplace(file, file_order.size()); }
    // Of one and the same message the first few are kept, the others counted.
    void add(Finding finding);

    const std::vector<Finding>& list() const { return kept; }
    bool empty() const { return kept.empty(); }
    bool has(Topic topic) const;
    bool has(Effect effect) const;
    // In order of file and line, with a last one for each message that
    // occurred too often to be listed.
    std::vector<Finding> sorted() const;

private:
    std::vector<Finding> kept;
    std::set<Effect> effects;               // of these
    std::map<std::string, int> occurrences; // by message
    std::map<std::string, size_t> file_order;
};

// "file:line: error: message (hint)".
std::string describe(const Finding& finding);
// One array of objects for programs to read.
std::string toJson(const std::vector<Finding>& findings);

} // namespace ruvell

#endif
