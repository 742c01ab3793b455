// Versions that plug-ins state.
#ifndef RV_VERSION_INTERNAL_H
#define RV_VERSION_INTERNAL_H

namespace rv {

// Applies RvCheckAPIVersion to the first three components of a text such as "3.3.6.0".
bool acceptsVersion(const char* text);

} // namespace rv

#endif
