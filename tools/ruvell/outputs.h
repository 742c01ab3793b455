// Where the image goes: the output statements of the scene, or a file named on the command line.
#ifndef RUVELL_OUTPUTS_H
#define RUVELL_OUTPUTS_H

#include <optional>
#include <ruvell/rv.h>
#include <string>
#include <vector>

namespace ruvell {

// One output statement of the options, taken apart. A statement of one word is a raw driver.
struct OutputStatement {
    std::string text;
    std::string variable, type, filter; // empty for a raw driver
    std::string driver;
};

std::vector<OutputStatement> outputStatements();

// The file that the driver of a statement writes; empty for drivers without files.
std::string outputFile(const OutputStatement& statement);

// Empty when an image file of that name can be written by some driver; otherwise what is wrong.
// Needs an open universe.
std::string checkOutputName(const std::string& file);

// Makes the image go to file. A driver of the scene that writes that format is redirected with all
// its statements, if it is the only driver; otherwise one statement takes the place of all.
void redirectOutputs(const std::string& file);

// Fills the places for frame numbers in the file names of all drivers.
void numberOutputs(int frame);

// True when the file can be written; otherwise reports an error. An image needs a folder that takes
// new files, a scene does so only when it is new itself.
bool checkImageFile(const std::string& file);
bool checkSceneFile(const std::string& file);

// True when the scene has outputs and all of them can be written; otherwise reports errors.
bool checkOutputFolders();

} // namespace ruvell

#endif
