// Where the libraries are that the build made for tests.
#ifndef RV_TEST_PLUGINS_H
#define RV_TEST_PLUGINS_H

// The folder, without a slash at its end.
const char* testPlugins();

#endif
