// The metadata store of a node type (rv_metadata.h).
#ifndef RV_METADATA_INTERNAL_H
#define RV_METADATA_INTERNAL_H

#include "rv_metadata.h"
#include "system/memory.h"

#include <map>

namespace rv {

// Ordered by parameter, name and type, so that iteration does not depend on addresses.
struct MetaDataKey {
    const char* param; // pooled; "" for the node type itself
    const char* name;  // pooled
    uint8_t type;
    bool operator<(const MetaDataKey& other) const;
};

using MetaDataMap = std::map<MetaDataKey, RtMetaDataEntry, std::less<MetaDataKey>,
                             CheckedAllocator<std::pair<const MetaDataKey, RtMetaDataEntry>>>;

} // namespace rv

struct RtMetaDataStore {
    rv::MetaDataMap entries;
};

namespace rv {

RtMetaDataStore* metaDataCreate();
void metaDataDestroy(RtMetaDataStore* store);

// The annotation, or null.
const RtMetaDataEntry* metaDataFind(const RtMetaDataStore* store, const char* param,
                                    const char* name, int type);

// Value of an annotation of the entry's store, or `otherwise`.
bool metaDataBool(const RtNodeEntry* entry, const char* param, const char* name, bool otherwise);
int metaDataInt(const RtMetaDataStore* store, const char* name, int otherwise);

} // namespace rv

#endif
