// What the command itself has to say to the person at the terminal. Everything goes to standard
// error, so that standard output holds results only.
#ifndef RUVELL_REPORT_H
#define RUVELL_REPORT_H

#include <string>
#include <string_view>
#include <vector>

namespace ruvell {

// "ruvell: error: TEXT" and "ruvell: warning: TEXT". Never hidden, not even by --quiet.
void reportError(const std::string& text);
void reportWarning(const std::string& text);

// The names that somebody who wrote `wrong` may have meant, nearest first; at most three, and none
// when nothing is near.
std::vector<std::string> nearestNames(std::string_view wrong,
                                      const std::vector<std::string>& known);

// " (did you mean A or B?)", or nothing without names.
std::string suggestion(const std::vector<std::string>& names);

} // namespace ruvell

#endif
