#include "vr/VrModelRenderer.h"

#include "vr/openvr/OpenVRTypes.h"

#include <cstring>
#include <utility>
#include <vector>

#include "engine/Buffer.h"
#include "engine/GL.h"
#include "engine/Geometry.h"
#include "engine/Material.h"
#include "engine/Renderer.h"
#include "engine/Texture.h"
#include "vr/LibrarySettings.h"
#include "vr/SharedMaterials.h"

namespace VR {

VrModelRenderer::VrModelRenderer(const std::string& name, const vr::RenderModel_t& model,
                                 const vr::RenderModel_TextureMap_t& textureMap)
    : name(name) {
    // OpenVR's vertex records are uploaded as they are; the normal in between is skipped by the layout.
    auto vertices =
        std::make_shared<Brume::Buffer>(GL_DYNAMIC_DRAW, sizeof(vr::RenderModel_Vertex_t),
                                        std::vector<Brume::Buffer::Attribute>{
                                            {"position", GL_FLOAT, 3, 0}, {"texCoordsIn", GL_FLOAT, 2, 24}});
    vertices->setData(
        std::vector<vr::RenderModel_Vertex_t>(model.rVertexData, model.rVertexData + model.unVertexCount));

    geometry = std::make_shared<Brume::Geometry>(GL_TRIANGLES);
    geometry->addBuffer(vertices);
    // The index upload always takes four bytes per index, so the 16-bit indices go through a buffer of
    // that size: reading that much from OpenVR's own array would run past its end.
    const std::size_t indexCount = static_cast<std::size_t>(model.unTriangleCount) * 3;
    std::vector<std::uint8_t> indices(indexCount * 4, 0);
    if (indexCount != 0) {
        std::memcpy(indices.data(), model.rIndexData, indexCount * sizeof(std::uint16_t));
    }
    geometry->setIndices(indices.data(), indexCount, GL_UNSIGNED_SHORT, sizeof(std::uint16_t));

    texture = std::make_shared<Brume::Texture>(textureMap.unWidth, textureMap.unHeight, GL_RGBA, GL_LINEAR,
                                               GL_LINEAR_MIPMAP_LINEAR, GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE);
    texture->setData(textureMap.rubTextureMapData, 4);

    material = SharedMaterials::get("Controller", [] {
        auto made = std::make_shared<Brume::Material>();
        const LibrarySettings& settings = LibrarySettings::instance();
        made->loadShaders(settings.shaderPath("Controller.vrt"), "", settings.shaderPath("Controller.frg"));
        return made;
    });
}

VrModelRenderer::VrModelRenderer(const VrModelRenderer& other) = default;

VrModelRenderer& VrModelRenderer::operator=(const VrModelRenderer& other) = default;

VrModelRenderer::~VrModelRenderer() = default;

void VrModelRenderer::draw(Brume::Renderer& renderer, Ko_1_1::Mat4d<float> matrix) const {
    material->set("matrix", matrix);
    material->set("diffuse", texture);
    renderer.draw(material, geometry, 0, 0);
}

} // namespace VR
