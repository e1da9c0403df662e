#pragma once

#include <memory>
#include <vector>

#include "common/IVRView.h"
#include "common/Mat4d.h"
#include "platform/Export.h"

namespace Brume {
class Geometry;
class Material;
class Renderer;
class Texture;
} // namespace Brume

// Shows the host's own meshes (coloured or textured triangles and line sets) among the scan points. It asks
// the host once, in buildMeshes, and draws the same geometry for the rest of the run. Owned by the VR
// renderer; render thread only, with its GL context current from construction to destruction. The view is
// not owned and must outlive it.
class ORVEL_VR_EXPORT MeshRenderer {
public:
    // The stencil value that marks mesh pixels for picking.
    static constexpr int STENCIL_INDEX = 2;

    // Loads the three programs; throws Brume::Exception when a shader file is missing or broken.
    explicit MeshRenderer(VR::IVRView* view);
    ~MeshRenderer() = default;
    // Copies share the engine objects.
    MeshRenderer(const MeshRenderer&) = default;
    MeshRenderer(MeshRenderer&&) = default;
    MeshRenderer& operator=(const MeshRenderer&) = default;
    MeshRenderer& operator=(MeshRenderer&&) = default;

    // Asks the host for its meshes and uploads them; call once. All untextured triangles share one geometry
    // and all lines another, so a second record of either kind throws "Attribute is already in use.".
    void buildMeshes();

    // Lines are left out of the stencil pass, where triangles write STENCIL_INDEX under the stencil
    // operation the caller set; the stencil function and mask stay as this leaves them. Throws
    // Brume::Exception when a program lacks one of the uniforms it is given.
    void drawMeshes(const Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& modelViewProjection,
                    const Ko_1_1::Mat4d<float>& modelView, const Ko_1_1::Mat4d<float>& lightFrame,
                    bool stencilPass);

private:
    VR::IVRView* view;
    std::shared_ptr<Brume::Material> meshMaterial;
    std::shared_ptr<Brume::Material> lineMaterial;
    std::shared_ptr<Brume::Material> texturedMaterial;
    std::shared_ptr<Brume::Geometry> meshGeometry;
    std::shared_ptr<Brume::Geometry> lineGeometry;
    std::vector<std::shared_ptr<Brume::Geometry>> texturedGeometries;
    // Parallel to texturedGeometries: the texture of the mesh at the same index.
    std::vector<std::shared_ptr<Brume::Texture>> textures;
};
