#pragma once

#include <memory>
#include <string>

#include "common/Mat4d.h"
#include "platform/Export.h"

namespace vr {
struct RenderModel_t;
struct RenderModel_TextureMap_t;
} // namespace vr

namespace Brume {
class Geometry;
class Material;
class Renderer;
class Texture;
} // namespace Brume

namespace VR {

// The drawable form of one OpenVR render model: its vertices, triangles and diffuse texture copied to the
// GPU, drawn with one program shared by every controller model. The OpenVR layer owns the instances in its
// model cache; copies share the GPU objects. Made, drawn and destroyed on the render thread with its GL
// context current.
class ORVEL_VR_EXPORT VrModelRenderer {
public:
    // Copies everything it needs, so the caller may free the OpenVR records right afterwards. Throws
    // Brume::Exception when the shaders cannot be loaded or linked.
    VrModelRenderer(const std::string& name, const vr::RenderModel_t& model,
                    const vr::RenderModel_TextureMap_t& texture);
    VrModelRenderer(const VrModelRenderer& other);
    VrModelRenderer& operator=(const VrModelRenderer& other);
    virtual ~VrModelRenderer();

    // `matrix` is the whole transform from model space to clip space.
    void draw(Brume::Renderer& renderer, Ko_1_1::Mat4d<float> matrix) const;

    const std::shared_ptr<Brume::Geometry>& getGeometry() const { return geometry; }
    const std::shared_ptr<Brume::Texture>& getTexture() const { return texture; }
    const std::string& getName() const { return name; }

private:
    std::shared_ptr<Brume::Geometry> geometry;
    std::shared_ptr<Brume::Texture> texture;
    // One program for every controller model of a VR run, made by the first model.
    std::shared_ptr<Brume::Material> material;
    std::string name;
};

} // namespace VR
