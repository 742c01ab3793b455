// The statements of scene files and the values of parameters.
#ifndef RV_DOTRVS_PARSE_H
#define RV_DOTRVS_PARSE_H

#include "dotrvs_input.h"
#include "nodes.h"

// Reads a statement and does what it says. False when an included file could not be loaded. Nodes
// of its block are appended to `list`, unless null.
bool RvRVSParseStatement(RtRVSFile* file, RtList* list);
// Reads an assignment to a parameter and carries it out; with `defer` nodes that it names are
// looked up later. False at the end of the block or of the input.
bool RvRVSParseParameter(RtRVSFile* file, RtNode* node, bool defer);
// Reads the value of an array parameter; null after an error. The caller owns it.
RtArray* RvRVSParseArray(RtRVSFile* file, const char* param, RtNode* node);

namespace rv {

// Reads "{", or reports what stands in its place.
void readOpeningBrace(RtRVSFile* file);

// RV_TYPE_* by which a parameter, component or user parameter is read; RV_TYPE_NONE for none.
int parameterType(const RtNode* node, const char* name);

// The array that a parameter or a user parameter holds, or null.
RtArray* arrayParameter(const RtNode* node, const char* name);

// Sets an array parameter. The array is destroyed when the node does not take it.
void giveArray(RtNode* node, const char* name, RtArray* array);

// An array around a heap block, which it owns from now on; null, with the block left to the
// caller, when the heap is exhausted.
RtArray* adoptBlock(int nelements, int nkeys, int type, void* data);

} // namespace rv

#endif
