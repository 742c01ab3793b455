// Helpers for the Parameters methods of the built-in node types.
//
// A type lays its parameter block out as a plain record: its own parameters, then for cameras,
// lights and shapes the kind's common block as a member `common`, then `const char* name`. The
// members are named like the parameters, so that rendering reads plain fields:
//
//     struct Sphere { RtArray* radius; rv::ShapeParams common; const char* name; };
//     rv::declareLayout<Sphere>(metadata);
//     RvNodeParamARRAY(params, RV_FIELD(Sphere, radius), RvArray(1, 1, RV_TYPE_FLOAT, 0.5));
#ifndef RV_DECLARE_H
#define RV_DECLARE_H

#include "rv_metadata.h"
#include "rv_nodeentry.h"
#include "rv_params.h"

#include <stddef.h>
#include <type_traits>

// Offset and name of a member whose name is that of its parameter.
#define RV_FIELD(Record, field) static_cast<int>(offsetof(Record, field)), #field

namespace rv {

// Tells the registry where things are: the size of the record, the place of the kind's common
// block (the place of the name when the kind has none) and the place of the name.
template <class Record> void declareLayout(RtMetaDataStore* metadata)
{
    static_assert(std::is_standard_layout_v<Record>);
    size_t base = offsetof(Record, name);
    if constexpr (requires(Record record) { record.common; })
        base = offsetof(Record, common);
    RvMetaDataSetInt(metadata, nullptr, "_struct_size", static_cast<int>(sizeof(Record)));
    RvMetaDataSetInt(metadata, nullptr, "_baseoffset", static_cast<int>(base));
    RvMetaDataSetInt(metadata, nullptr, "_baseoffset2", static_cast<int>(offsetof(Record, name)));
}

inline void declareSynonym(RtMetaDataStore* metadata, const char* param, const char* older_name)
{
    RvMetaDataSetStr(metadata, param, "synonym", older_name);
}

inline void declareFlag(RtMetaDataStore* metadata, const char* param, const char* flag)
{
    RvMetaDataSetBool(metadata, param, flag, true);
}

// The shared do-nothing method: converts to a method of any signature, which returns zero.
struct DoNothing {
    template <class R, class... A> using Method = R (*)(A...);
    template <class R, class... A> constexpr operator Method<R, A...>() const
    {
        return [](A...) -> R {
            if constexpr (!std::is_void_v<R>)
                return R();
        };
    }
};
inline constexpr DoNothing do_nothing;

} // namespace rv

#endif
