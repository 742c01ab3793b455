// The reader of Wavefront OBJ files.
#ifndef RV_OBJ_H
#define RV_OBJ_H

#include "list.h"
#include "rv_math.h"
#include "rv_node.h"

#include <stdint.h>
#include <vector>

namespace rv {

struct ObjInput;

// What sscanf() reads in the "C" locale with "%f %f ..." and with "%u/%u/%u". They return how many
// numbers there were and leave the others as they are.
int scanFloats(const char* text, float* numbers, int count);
int scanCorner(const char* text, uint32_t* numbers);

} // namespace rv

// Turns a file into "polymesh" nodes, one per group.
class RtObjReader {
public:
    RtObjReader() = default;
    ~RtObjReader();
    RtObjReader(const RtObjReader&) = delete;
    RtObjReader& operator=(const RtObjReader&) = delete;

    // Appends the nodes of a file, plain or compressed with gzip, to the list. 1, or 0 when the
    // file cannot be opened or the heap is exhausted, which has been reported.
    int read(const char* file_name, RtList* list);

private:
    template <class T> using Vector = std::vector<T, rv::CheckedAllocator<T>>;

    // What precedes the current group in the file, and what it has of its own so far.
    struct Base {
        uint32_t base = 1; // index of its first element
        uint32_t count = 0;
        void endGroup();
    };

    void readLines(rv::ObjInput* input);
    void readLine(char* line);
    void readVertex(const char* text);
    void readNormal(const char* text);
    void readUV(const char* text);
    void readFace(char* text);
    void readCorner(const char* token);
    void beginGroup(char* text);
    void buildNode();
    void clearGroup();
    void clear();

    // Of the current group.
    Vector<RtPoint> vertices;
    Vector<RtVector> normals;
    Vector<float> uvs; // two per texture coordinate
    Vector<uint32_t> vidxs, nidxs, uvidxs;
    Vector<uint32_t> nsides; // one per face
    bool has_faces = false;
    const char* name = nullptr; // pooled, or null
    bool smoothing = false;
    RtNode* shader = nullptr;

    Base vertex, normal, texture;
    uint32_t corner[3] = {}; // vertex, texture and normal; required: kept from corner to corner
    RtList* nodes = nullptr;
    int node_count = 0;
    int line_count = 0;
};

#endif
