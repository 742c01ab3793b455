// What this build really is: platform, compiler, image library, kind of build. The compile-options
// text of the library is part of its interface's version and says nothing about the build.
#ifndef RUVELL_BUILD_INFO_H
#define RUVELL_BUILD_INFO_H

#include <string>

namespace ruvell {

std::string buildInfo();

} // namespace ruvell

#endif
