#pragma once

#include <cstdint>
#include <memory>

#include "platform/Export.h"

namespace Brume {

class Geometry;
class Material;
class Target;

// The one path every draw takes: binds the material's program and textures, sets the geometry's
// attributes up by name on each draw, and draws into the current target (null: the default frame buffer).
// It leaves blending, depth, stencil and culling to the objects that draw. Render thread only.
class ORVEL_VR_EXPORT Renderer {
public:
    void setTarget(std::shared_ptr<Target> target);
    const std::shared_ptr<Target>& getTarget() const { return target; }

    // Binds the target's frame buffer (frame buffer 0 without one) and clears colour and depth.
    void clear();

    // first = 0 and count = 0 draw everything.
    void draw(std::shared_ptr<Material> material, std::shared_ptr<Geometry> geometry, std::int64_t first,
              std::int64_t count) const;

private:
    std::shared_ptr<Target> target;
};

} // namespace Brume
