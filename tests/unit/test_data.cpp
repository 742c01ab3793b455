#include "test_data.h"

const char* testData() { return RV_TEST_DATA; }
