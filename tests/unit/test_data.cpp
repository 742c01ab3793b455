#include "test_data.h"

#include "test_plugins.h"

const char* testData() { return RV_TEST_DATA; }

const char* testPlugins() { return RV_TEST_PLUGINS; }
