// The messages of the library: how much of them is shown, the log file, and the messages of a
// load with the file and line they are about.
//
// The library knows the line while it reads a scene, but tells it only through its own log file.
// During a load that file is therefore an anonymous one, read back here; at all other times
// messages arrive through a callback, with their category.
#ifndef RUVELL_LIBRARY_LOG_H
#define RUVELL_LIBRARY_LOG_H

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

namespace ruvell {

enum Severity { severity_plain, severity_warning, severity_error, severity_fatal };

struct LogSettings {
    int verbosity = 0;  // 0 warnings and errors, 1 what is being done, 2 every detail
    bool quiet = false; // errors only
    std::string log_file;
};

// Declares -v, -q and --log-file.
void addLogOptions(CLI::App& app, LogSettings& settings);

// Opens the log file. Call it once, before the first universe. False, with an error, when the file
// cannot be written.
bool openLog(const LogSettings& settings);

// After RvBegin: routes the messages of the universe.
void attachLog();

// Receives, besides the destinations above, the messages of a category from outside of loads; from
// any thread, one call at a time.
using MessageListener = std::function<void(int mask, const std::string& text, int tab)>;
void setListener(int mask, MessageListener listener);

struct LoadMessage {
    Severity severity = severity_plain;
    int tab = 0;
    int line = 0;     // counted from 1; 0 when unknown
    std::string file; // empty outside of a file
    std::string text; // without file and line
    // A file that is included in this one. When it is given, the line is not known but counted
    // from where that file ended.
    std::string included;

    // Where the library was: in the how-manieth file of the capture, behind how many of the files
    // it includes, on which line as the library counts them.
    int load = -1;
    int segment = 0;
    int counted_line = 0;

    // "scene.rvs:12: text", as far as they are known.
    std::string located() const;
};

// Runs load() and returns what the library said meanwhile, without showing any of it.
std::vector<LoadMessage> captureMessages(const std::function<void()>& load);

// Shows messages as far as the settings want them.
void showMessages(const std::vector<LoadMessage>& messages);

} // namespace ruvell

#endif
