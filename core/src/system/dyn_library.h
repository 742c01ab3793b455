// Dynamic libraries of the platform.
#ifndef RV_SYSTEM_DYN_LIBRARY_H
#define RV_SYSTEM_DYN_LIBRARY_H

namespace rv {

// Required: a path of at least four characters that ends in ".so" loses the ending and gets the
// platform's own back, so that scene files name plug-ins alike everywhere. A path without an
// extension is tried as given, then with the platform's. Null when nothing could be loaded.
void* libraryLoad(const char* path);
void* librarySymbol(void* library, const char* name);
void libraryClose(void* library);

// Why the last load or look-up of this thread failed, without a trailing newline.
const char* libraryError();

} // namespace rv

#endif
