// The built-in driver node types, and what the driver helpers keep.
#ifndef RV_DRIVERS_INTERNAL_H
#define RV_DRIVERS_INTERNAL_H

#include "declare.h"
#include "rv_drivers.h"
#include "rv_threads.h"

// Local data of a driver node, from its Initialize to its Finish.
struct RtDriverData {
    void* user_data;
    RtCritSec lock;             // around every call of a method while a render runs
    const char** required_aovs; // of raw drivers; null makes an ordinary one
    bool requires_depth;        // of raw drivers
    bool multiple_outputs;      // takes more than one output statement
};

// One output of a driver.
struct RtDriverOutput {
    const char* name;   // of the variable
    int type;           // RV_TYPE_* of the pixels
    const void* bucket; // rows of pixels, the topmost first; null while there is no bucket
};

// Walks the outputs of one driver, in order of the statements.
struct RtOutputIterator {
    const RtDriverOutput* outputs;
    int count;
    int next;
};

namespace rv {

// Null for anything but a driver that was initialised.
RtDriverData* driverData(const RtNode* node);

extern const RtNodeMethods driver_null_methods, driver_display_methods, driver_jpeg_methods,
    driver_png_methods, driver_tiff_methods, driver_exr_methods;

} // namespace rv

#endif
