#include "vr/objects/MeshRenderer.h"

#include "engine/Buffer.h"
#include "engine/GL.h"
#include "engine/Geometry.h"
#include "engine/Material.h"
#include "engine/Renderer.h"
#include "engine/Texture.h"
#include "platform/Log.h"
#include "text/Bitmap.h"
#include "vr/LibrarySettings.h"

namespace {

std::shared_ptr<Brume::Material> loadProgram(const char* vertexFile, const char* fragmentFile) {
    const VR::LibrarySettings& settings = VR::LibrarySettings::instance();
    auto material = std::make_shared<Brume::Material>();
    material->loadShaders(settings.shaderPath(vertexFile), "", settings.shaderPath(fragmentFile));
    return material;
}

template <typename T>
std::shared_ptr<Brume::Buffer> makeBuffer(std::size_t stride, Brume::Buffer::Attribute attribute,
                                          const std::vector<T>& data) {
    auto buffer = std::make_shared<Brume::Buffer>(
        GL_STATIC_DRAW, stride, std::vector<Brume::Buffer::Attribute>{std::move(attribute)});
    if (!data.empty()) {
        buffer->setData(data);
    }
    return buffer;
}

void setLighting(Brume::Material& material, const Ko_1_1::Mat4d<float>& modelViewProjection,
                 const Ko_1_1::Mat4d<float>& modelView, const float (&light1)[4], const float (&light2)[4]) {
    material.set("modelViewMatrix", modelView);
    material.set("light1Direction", light1);
    material.set("light2Direction", light2);
    material.set("modelViewProjectionMatrix", modelViewProjection);
}

// What makes a host record unsafe to hand to GL (it would read outside the host's arrays), or null.
const char* damage(const VR::MeshData& mesh) {
    const std::size_t vertices = mesh.positions.size();
    for (const std::uint32_t index : mesh.indices) {
        if (index >= vertices) {
            return "an index beyond its vertices";
        }
    }
    if (!mesh.colors.empty() && mesh.colors.size() != vertices) {
        return "a colour count other than its vertex count";
    }
    if (!mesh.texCoords.empty() && mesh.texCoords.size() != vertices) {
        return "a texture coordinate count other than its vertex count";
    }
    if (mesh.texture && (mesh.texture->getNumberOfComponents() != 4 || mesh.texture->getWidth() == 0 ||
                         mesh.texture->getHeight() == 0)) {
        return "a texture that is not four bytes a pixel";
    }
    return nullptr;
}

} // namespace

MeshRenderer::MeshRenderer(VR::IVRView* view)
    : view(view), meshMaterial(loadProgram("Mesh.vrt", "Mesh.frg")),
      lineMaterial(loadProgram("Lines.vrt", "Lines.frg")),
      texturedMaterial(loadProgram("TexturedMesh.vrt", "TexturedMesh.frg")),
      meshGeometry(std::make_shared<Brume::Geometry>(GL_TRIANGLES)),
      lineGeometry(std::make_shared<Brume::Geometry>(GL_LINES)) {}

void MeshRenderer::buildMeshes() {
    std::vector<VR::MeshData> meshes;
    view->getMeshes(meshes);

    for (const VR::MeshData& mesh : meshes) {
        if (const char* problem = damage(mesh)) {
            VR::logLine(L"Mesh with %hs skipped\n", problem);
            continue;
        }
        std::shared_ptr<Brume::Geometry> geometry;
        if (mesh.mode == GL_TRIANGLES && mesh.texture) {
            geometry = std::make_shared<Brume::Geometry>(GL_TRIANGLES);
            texturedGeometries.push_back(geometry);
            const Bitmap& image = *mesh.texture;
            auto texture = std::make_shared<Brume::Texture>(static_cast<int>(image.getWidth()),
                                                            static_cast<int>(image.getHeight()), GL_RGBA,
                                                            GL_LINEAR, GL_LINEAR, GL_REPEAT, GL_REPEAT);
            textures.push_back(texture);
            texture->setData(image.data(), 4);
        } else if (mesh.mode == GL_TRIANGLES) {
            geometry = meshGeometry;
        } else if (mesh.mode == GL_LINES) {
            geometry = lineGeometry;
        } else {
            // The host's other primitive kinds have no program here; showing the rest beats failing the run.
            VR::logLine(L"Mesh of unsupported mode %u skipped\n", static_cast<unsigned>(mesh.mode));
            continue;
        }

        geometry->addBuffer(makeBuffer(12, {"position", GL_FLOAT, 3, 0}, mesh.positions));
        if (mesh.texture && mesh.mode == GL_TRIANGLES) {
            geometry->addBuffer(makeBuffer(8, {"vertexTexCoord", GL_FLOAT, 2, 0}, mesh.texCoords));
        } else {
            geometry->addBuffer(makeBuffer(3, {"color", GL_UNSIGNED_BYTE, 3, 0}, mesh.colors));
        }
        if (!mesh.indices.empty()) {
            geometry->setIndices(mesh.indices.data(), mesh.indices.size(), GL_UNSIGNED_INT, 4);
        }
    }
}

void MeshRenderer::drawMeshes(const Brume::Renderer& renderer,
                              const Ko_1_1::Mat4d<float>& modelViewProjection,
                              const Ko_1_1::Mat4d<float>& modelView, const Ko_1_1::Mat4d<float>& lightFrame,
                              bool stencilPass) {
    if (stencilPass) {
        glStencilFunc(GL_ALWAYS, STENCIL_INDEX, 0xFFFFFFFF);
        glStencilMask(0xFF);
    }

    // A fixed key light in the light frame, and its exact opposite as the second light, so that surfaces
    // turned away from the first are still lit.
    const float base[4] = {0.5f, 0.6f, 0.7f, 0.0f};
    float light1[4];
    float light2[4];
    for (int row = 0; row < 4; ++row) {
        float sum = 0.0f;
        for (int column = 0; column < 4; ++column) {
            sum += lightFrame.at(row, column) * base[column];
        }
        light1[row] = sum;
        light2[row] = -sum;
    }

    setLighting(*meshMaterial, modelViewProjection, modelView, light1, light2);
    renderer.draw(meshMaterial, meshGeometry, 0, 0);

    // Lines are too thin to aim at, so they never take part in picking.
    if (!stencilPass) {
        // Wide lines drawn before (the aimed teleport's) leave their width set.
        glLineWidth(1.0f);
        lineMaterial->set("modelViewProjectionMatrix", modelViewProjection);
        renderer.draw(lineMaterial, lineGeometry, 0, 0);
    }

    setLighting(*texturedMaterial, modelViewProjection, modelView, light1, light2);
    for (std::size_t i = 0; i < texturedGeometries.size(); ++i) {
        texturedMaterial->set("tex", textures[i]);
        renderer.draw(texturedMaterial, texturedGeometries[i], 0, 0);
    }
}
