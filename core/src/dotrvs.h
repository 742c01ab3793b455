// Scene files (.rvs): the open input or output, reading into the universe and references to nodes
// that do not exist yet. The exported pair RvRVSLoad and RvRVSWrite stands on this.
#ifndef RV_DOTRVS_H
#define RV_DOTRVS_H

#include "list.h"
#include "rv_scenefile.h"

#include <atomic>
#include <stdio.h>
#include <zlib.h>

namespace rv {

inline constexpr unsigned scene_buffer_size = 262144;
inline constexpr unsigned scene_token_size = 32768;
inline constexpr unsigned scene_token_areas = 4;
// Three of the longest tokens, each closed by up to three characters.
inline constexpr unsigned scene_pushback_size = 3 * (scene_token_size - 1 + 3);

// Loads within others that still run: of include statements and of procedurals.
inline std::atomic<int> include_depth{ 0 };

} // namespace rv

// An open scene file. Made by RvRVSCreateFile, opened by RvRVSOpenFile.
struct RtRVSFile {
    gzFile gzip;        // a file that is read, or written compressed; null otherwise
    FILE* plain;        // standard input, a pipe or a file that is written; null otherwise
    char* file_name;    // as given
    bool is_stream;     // standard input or a pipe
    bool is_compressed; // opened to be written with gzip
    char* buffer;       // scene_buffer_size bytes and one guard byte
    uint32_t position;  // of the next byte in buffer; scene_buffer_size when it must be refilled
    char* pending;      // pushed-back tokens, scene_pushback_size bytes and a zero
    const char* pending_cursor; // where in `pending` reading goes on while it is set
    uint32_t token_count;       // tokens read
    const char* text;           // what is read instead of a stream, or null
    size_t text_length;         // bytes of `text` that are not in the buffer yet
    uint32_t length;            // bytes of the buffer that the input filled
    bool is_cut;                // the last token was quoted and ended by a comment
    bool has_failed;            // a read error was reported
    char* areas;                // scene_token_areas places for tokens
};

RtRVSFile* RvRVSCreateFile(const char* name);
// Frees the record; what it had open must be closed.
void RvRVSDestroyFile(RtRVSFile* file);
// Mode "r" or "w". Null when nothing could be opened; errno then tells why.
RtRVSFile* RvRVSOpenFile(const char* name, const char* mode);
// 0 with the record freed, or -1 for a pipe whose command failed and for a file whose last bytes
// could not be written. Required: the record of a failed pipe is left to the caller, for
// RvRVSDestroyFile; that of a failed file is, too.
int RvRVSCloseFile(RtRVSFile* file, const char* mode);

// RvRVSLoad that also appends every node that a block of the file made to `list`, unless null.
int RvRVSLoadList(const char* filename, RtList* list);

namespace rv {

// The same for a file that another load or a procedural asks for: its time is not counted as that
// of a scene, and what it refers to may still come.
int loadNested(const char* filename, RtList* list);

} // namespace rv

// Applies what override blocks stored for a node of this name; called before it is initialised.
void RvRVSApplyDelayedOverrides(RtNode* node);

#endif
