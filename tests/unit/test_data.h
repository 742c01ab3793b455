// Where the files of tests/data are.
#ifndef RV_TEST_DATA_H
#define RV_TEST_DATA_H

// The folder, without a slash at its end.
const char* testData();

#endif
