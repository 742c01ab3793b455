// Standard error, shared by messages and by the one line that shows how far the work is. Lines are
// written whole, from any thread; a status line steps aside for them.
#ifndef RUVELL_TERMINAL_H
#define RUVELL_TERMINAL_H

#include <string>

namespace ruvell {

// True when standard error is a terminal: only then is there a status line.
bool hasTerminal();

// Writes one line. Control characters, which names in a scene may hold, appear as '?'.
void writeLine(const std::string& text);

// Shows text as the last line of the terminal, cut to its width, in place of the one before.
void showStatus(const std::string& text);

// Takes the status line away.
void clearStatus();

// What writeLine() makes of control characters.
std::string printable(std::string text);

// One line as the process ends, from any thread or signal handler: it takes no lock, needs no
// memory and never waits for whoever reads. Null only takes the status line away.
void writeLastLine(const char* text);

} // namespace ruvell

#endif
