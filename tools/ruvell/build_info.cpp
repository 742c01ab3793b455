// The description of this build; the build system hands over what the compiler does not know.
#include "build_info.h"

namespace ruvell {

#if defined(__clang__)
static const char* const compiler = "clang " __clang_version__;
#else
static const char* const compiler = "gcc " __VERSION__;
#endif

std::string buildInfo()
{
    return std::string("linux x86-64, ") + compiler + ", OpenImageIO " RUVELL_OIIO_VERSION +
           ", " RUVELL_BUILD_TYPE " build";
}

} // namespace ruvell
