/* A library that is no plug-in. */
#include "rv_base.h"

RV_API int rv_test_nothing(void);
int rv_test_nothing(void) { return 0; }
