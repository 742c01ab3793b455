// Removal of whole faces from a mesh.
#ifndef RV_MESH_FACES_H
#define RV_MESH_FACES_H

#include "objects/polymesh.h"

namespace rv {

// The user data that hides single faces, one BOOLEAN for each; null when there is none of that
// kind. With `report` set a warning tells why data of that name cannot be used.
const RtArray* faceVisibility(const RtNode* node, bool report);

// True for a face of the mesh that the array does not hide.
bool isFaceVisible(const RtPolyMesh& mesh, const RtArray* visibility, uint32_t face);

// Removes the faces for which keep(face) is false, with all their data per corner and face; the
// mesh must be triangulated anew. Without memory for that all faces stay.
template <class Keep> void keepFaces(RtPolyMesh* mesh, Keep keep);

// keepFaces, with one byte for each face.
void keepMarkedFaces(RtPolyMesh* mesh, const uint8_t* marks);

// One byte for each face, zero; null when the heap is exhausted.
uint8_t* allocateFaceMarks(const RtPolyMesh& mesh);

template <class Keep> void keepFaces(RtPolyMesh* mesh, Keep keep)
{
    uint32_t first = 0; // to go
    while (first < mesh->npolygons && keep(first))
        ++first;
    if (first == mesh->npolygons)
        return;
    uint8_t* const marks = allocateFaceMarks(*mesh);
    if (!marks)
        return;
    for (uint32_t face = 0; face < mesh->npolygons; ++face)
        marks[face] = keep(face);
    keepMarkedFaces(mesh, marks);
    RvFree_func(marks);
}

} // namespace rv

#endif
