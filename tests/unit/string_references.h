// Counts references to pooled strings, so that a test sees what is taken and given back.
#ifndef RV_STRING_REFERENCES_H
#define RV_STRING_REFERENCES_H

#include "frame.h"
#include "strpool.h"

// All references that the pool of the open universe counts.
inline int stringReferences()
{
    const RtStringPool* const pool = rv::the_frame->strings;
    int references = 0;
    for (unsigned i = 0; i < pool->capacity; ++i)
        if (pool->slots[i].refs > 0)
            references += pool->slots[i].refs;
    return references;
}

#endif
