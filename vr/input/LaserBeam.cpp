#include "vr/input/LaserBeam.h"

#include <cmath>

#include "engine/Geometry.h"
#include "engine/Material.h"
#include "vr/LibrarySettings.h"
#include "vr/SharedMaterials.h"

namespace VR {

LaserBeam::LaserBeam(std::shared_ptr<Brume::Geometry> cylinder_) : cylinder(std::move(cylinder_)) {
    material = SharedMaterials::get("LaserBeam", [] {
        const auto& settings = LibrarySettings::instance();
        auto made = std::make_shared<Brume::Material>();
        made->loadShaders(settings.shaderPath("Beam.vrt"), "", settings.shaderPath("Beam.frg"));
        return made;
    });
}

Ko_1_1::Mat4d<float> LaserBeam::placement(const Ko_1_1::Vec3d<float>& start,
                                          const Ko_1_1::Vec3d<float>& end) {
    Ko_1_1::Vec3d<float> along = end - start;
    const float length = along.length();
    if (!(length > 0.0f) || !std::isfinite(length)) {
        return {};
    }
    along = along * (1.0f / length);
    // Any two axes across the beam will do: the cylinder is round.
    Ko_1_1::Vec3d<float> across = std::fabs(along.z) < 0.9f
                                      ? Ko_1_1::Vec3d<float>{0.0f, 0.0f, 1.0f}.cross(along)
                                      : Ko_1_1::Vec3d<float>{1.0f, 0.0f, 0.0f}.cross(along);
    across.normalize();
    const Ko_1_1::Vec3d<float> third = along.cross(across);
    const float diameter = 2.0f * RADIUS;
    Ko_1_1::Mat4d<float> m;
    const Ko_1_1::Vec3d<float> columns[4] = {across * diameter, third * diameter, along * -length, start};
    for (int c = 0; c < 4; ++c) {
        m.at(0, c) = columns[c].x;
        m.at(1, c) = columns[c].y;
        m.at(2, c) = columns[c].z;
    }
    return m;
}

void LaserBeam::draw(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& viewProjection,
                     const Ko_1_1::Vec3d<float>& start, const Ko_1_1::Vec3d<float>& end, bool hits) const {
    Ko_1_1::Vec3d<float> shown = end;
    if (!hits && (end - start).length() > FREE_LENGTH) {
        Ko_1_1::Vec3d<float> direction = end - start;
        direction.normalize();
        shown = start + direction * FREE_LENGTH;
    }
    if (!cylinder || cylinder->getBuffers().empty() || !((shown - start).length() > 0.0f)) {
        return;
    }
    material->set("modelViewProjectionMatrix", viewProjection * placement(start, shown));
    const float colour[4] = {hits ? 0.55f : 0.85f, hits ? 0.9f : 0.85f, hits ? 1.0f : 0.85f,
                             hits ? 0.9f : 0.5f};
    material->set("color", colour);
    renderer.draw(material, cylinder, 0, 0);
}

} // namespace VR
