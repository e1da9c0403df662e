#pragma once

#include <memory>

#include "common/Mat4d.h"
#include "common/Vec3d.h"
#include "engine/Renderer.h"

namespace Brume {
class Geometry;
class Material;
} // namespace Brume

namespace VR {

// The pointing controller's beam: the models folder's unit cylinder (radius 0.5, one unit along -z)
// stretched from the controller to where its ray ends. Thicker than a line and lit by nothing, so it reads
// at any distance and on any background; brighter when the ray hits something.
class LaserBeam {
public:
    static constexpr float RADIUS = 0.002f;
    // A free ray is shown this long: its far end would only be a thread to the horizon.
    static constexpr float FREE_LENGTH = 3.0f;

    explicit LaserBeam(std::shared_ptr<Brume::Geometry> cylinder);

    // Draws nothing for an empty cylinder (the host could not read the model) or a beam of no length.
    void draw(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& viewProjection,
              const Ko_1_1::Vec3d<float>& start, const Ko_1_1::Vec3d<float>& end, bool hits) const;

    // The cylinder's model matrix for a beam from start to end; identity for one of no length.
    static Ko_1_1::Mat4d<float> placement(const Ko_1_1::Vec3d<float>& start, const Ko_1_1::Vec3d<float>& end);

private:
    std::shared_ptr<Brume::Geometry> cylinder;
    std::shared_ptr<Brume::Material> material;
};

} // namespace VR
