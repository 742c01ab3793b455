// sample_iterator: the exported functions of the sample iterator (rv_aov_sampler.h).
#include "aovs/sample_iterator.h"

namespace rv {

static const char* namedValue(const RtAOVSampleIterator* iterator, const char* name, int type)
{
    return iterator ? iterator->value(namedAOV(name, type)) : nullptr;
}

} // namespace rv

void RvAOVSampleIteratorInitPixel(RtAOVSampleIterator* iterator, int x, int y)
{
    if (iterator)
        iterator->initPixel(x, y);
}

void RvAOVSampleIteratorReset(RtAOVSampleIterator* iterator)
{
    if (iterator)
        iterator->reset();
}

bool RvAOVSampleIteratorGetNext(RtAOVSampleIterator* iterator)
{
    return iterator && iterator->next();
}

RtPoint2 RvAOVSampleIteratorGetOffset(const RtAOVSampleIterator* iterator)
{
    return iterator ? RtPoint2{ iterator->offset_x, iterator->offset_y } : RV_P2_ZERO;
}

int RvAOVSampleIteratorGetDepth(const RtAOVSampleIterator* iterator)
{
    return iterator ? iterator->depth : 0;
}

bool RvAOVSampleIteratorGetNextDepth(RtAOVSampleIterator* iterator)
{
    return iterator && iterator->nextDepth();
}

#define RV_DEFINE_GETTERS(Suffix, Type, code)                                                      \
    Type RvAOVSampleIteratorGet##Suffix(const RtAOVSampleIterator* iterator)                       \
    {                                                                                              \
        return rv::loadOrZero<Type>(iterator ? iterator->ownValue(code) : nullptr);                \
    }                                                                                              \
    Type RvAOVSampleIteratorGetAOV##Suffix(const RtAOVSampleIterator* iterator, const char* name)  \
    {                                                                                              \
        return rv::loadOrZero<Type>(rv::namedValue(iterator, name, code));                         \
    }
RV_AOV_TYPES(RV_DEFINE_GETTERS)

bool RvAOVSampleIteratorHasValue(const RtAOVSampleIterator* iterator)
{
    return iterator && iterator->value(iterator->aov);
}

bool RvAOVSampleIteratorHasAOVValue(const RtAOVSampleIterator* iterator, const char* name, int type)
{
    return rv::namedValue(iterator, name, type);
}
