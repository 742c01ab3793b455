// The "override" node type.
#ifndef RV_OVERRIDE_H
#define RV_OVERRIDE_H

#include "declare.h"

namespace rv {

extern const RtNodeMethods override_methods;

} // namespace rv

#endif
