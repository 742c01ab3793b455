// The texture coordinates of a context, put back at the end of a scope.
#ifndef RV_KEPT_COORDINATES_H
#define RV_KEPT_COORDINATES_H

#include "rv_shaderglobals.h"

namespace rv {

// Everything that textures are looked up by: u and v, their screen derivatives and the point in
// object space.
class KeptCoordinates {
public:
    explicit KeptCoordinates(RtShaderGlobals* context)
        : sg(context), object_point(sg->object_point), u(sg->u), v(sg->v), dudx(sg->dudx),
          dudy(sg->dudy), dvdx(sg->dvdx), dvdy(sg->dvdy)
    {
    }
    ~KeptCoordinates()
    {
        sg->object_point = object_point;
        sg->u = u, sg->v = v;
        sg->dudx = dudx, sg->dudy = dudy;
        sg->dvdx = dvdx, sg->dvdy = dvdy;
    }
    KeptCoordinates(const KeptCoordinates&) = delete;
    KeptCoordinates& operator=(const KeptCoordinates&) = delete;

private:
    RtShaderGlobals* const sg;
    const RtPoint object_point;
    const float u, v, dudx, dudy, dvdx, dvdy;
};

} // namespace rv

#endif
