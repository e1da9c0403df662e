#include "vr/input/TeleportRenderer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "engine/Buffer.h"
#include "engine/GL.h"
#include "engine/Geometry.h"
#include "engine/Material.h"
#include "engine/Renderer.h"
#include "vr/LibrarySettings.h"
#include "vr/SharedMaterials.h"

namespace VR {

namespace {

struct Vertex {
    float x, y, z;
    std::array<std::uint8_t, 4> rgba;
};
static_assert(sizeof(Vertex) == 16, "the vertex layout below is 16 bytes a vertex");

constexpr std::uint8_t HIT_GREY = 220;
constexpr std::uint8_t FREE_GREY = 150;
constexpr float WIDTH_ACTIVE = 8.0f;
constexpr float WIDTH_IDLE = 1.0f;
constexpr float POINT_SIZE_FACTOR = 2.5f;
constexpr double PI = 3.14159265358979323846;

// Premultiplied: a light blue, faint in the middle so the floor under the landing point stays readable,
// and most opaque at the rim.
constexpr std::array<std::uint8_t, 4> PAD_CENTRE{20, 50, 64, 64};
constexpr std::array<std::uint8_t, 4> PAD_RIM{60, 150, 191, 191};

std::shared_ptr<Brume::Buffer> makeVertexBuffer() {
    return std::make_shared<Brume::Buffer>(
        GL_STATIC_DRAW, sizeof(Vertex),
        std::vector<Brume::Buffer::Attribute>{{"Position", GL_FLOAT, 3, 0},
                                              {"VertexColor", GL_UNSIGNED_BYTE, 4, 12}});
}

std::shared_ptr<Brume::Material> sharedProgram(const char* name, const char* vertexFile,
                                               const char* fragmentFile) {
    return SharedMaterials::get(name, [vertexFile, fragmentFile] {
        const LibrarySettings& settings = LibrarySettings::instance();
        auto material = std::make_shared<Brume::Material>();
        material->loadShaders(settings.shaderPath(vertexFile), "", settings.shaderPath(fragmentFile));
        return material;
    });
}

// A closed flat cylinder standing on z = 0 around the origin, wound counter-clockwise seen from outside,
// so that culling can split it into the faces turned away from the eye and those turned towards it.
std::shared_ptr<Brume::Geometry> makePad() {
    constexpr int n = TeleportRenderer::PAD_SEGMENTS;
    constexpr float top = TeleportRenderer::PAD_HEIGHT;
    // 0: top centre, 1: bottom centre, then the rim: top at 2 + 2i, bottom at 3 + 2i.
    std::vector<Vertex> vertices{{0, 0, top, PAD_CENTRE}, {0, 0, 0, PAD_CENTRE}};
    std::vector<std::uint32_t> indices;
    for (int i = 0; i < n; ++i) {
        const double angle = 2.0 * PI * i / n;
        const auto x = static_cast<float>(TeleportRenderer::PAD_RADIUS * std::cos(angle));
        const auto y = static_cast<float>(TeleportRenderer::PAD_RADIUS * std::sin(angle));
        vertices.push_back({x, y, top, PAD_RIM});
        vertices.push_back({x, y, 0, PAD_RIM});

        const auto t0 = static_cast<std::uint32_t>(2 + 2 * i);
        const auto t1 = static_cast<std::uint32_t>(2 + 2 * ((i + 1) % n));
        const std::uint32_t b0 = t0 + 1;
        const std::uint32_t b1 = t1 + 1;
        indices.insert(indices.end(), {0, t0, t1, 1, b1, b0, b0, b1, t1, b0, t1, t0});
    }
    auto buffer = makeVertexBuffer();
    buffer->setData(vertices);
    auto geometry = std::make_shared<Brume::Geometry>(GL_TRIANGLES);
    geometry->addBuffer(std::move(buffer));
    geometry->setIndices(indices.data(), indices.size(), GL_UNSIGNED_INT, sizeof(std::uint32_t));
    return geometry;
}

// The width GL accepts closest to the one asked for.
float supportedLineWidth(float width) {
    GLfloat range[2] = {1.0f, 1.0f};
    glGetFloatv(GL_LINE_WIDTH_RANGE, range);
    // A forward-compatible core context rejects any width above 1 whatever range it reports.
    GLint flags = 0;
    glGetIntegerv(GL_CONTEXT_FLAGS, &flags);
    const float largest = (flags & GL_CONTEXT_FLAG_FORWARD_COMPATIBLE_BIT) != 0 ? 1.0f : range[1];
    return std::max(range[0], std::min(width, largest));
}

// Premultiplied-alpha blending and back-face culling for the translucent pass, with the caller's state put
// back when the scope ends, also when a draw throws.
class TranslucentScope {
public:
    TranslucentScope()
        : blendWasOn(glIsEnabled(GL_BLEND) == GL_TRUE), cullWasOn(glIsEnabled(GL_CULL_FACE) == GL_TRUE) {
        glGetIntegerv(GL_BLEND_SRC_RGB, &factors[0]);
        glGetIntegerv(GL_BLEND_DST_RGB, &factors[1]);
        glGetIntegerv(GL_BLEND_SRC_ALPHA, &factors[2]);
        glGetIntegerv(GL_BLEND_DST_ALPHA, &factors[3]);
        if (!cullWasOn) {
            glEnable(GL_CULL_FACE);
        }
        if (!blendWasOn) {
            glEnable(GL_BLEND);
        }
        changedFactors = factors != PREMULTIPLIED;
        if (changedFactors) {
            glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
        }
    }
    ~TranslucentScope() {
        glFrontFace(GL_CCW);
        if (changedFactors) {
            glBlendFuncSeparate(static_cast<GLenum>(factors[0]), static_cast<GLenum>(factors[1]),
                                static_cast<GLenum>(factors[2]), static_cast<GLenum>(factors[3]));
        }
        if (!blendWasOn) {
            glDisable(GL_BLEND);
        }
        if (!cullWasOn) {
            glDisable(GL_CULL_FACE);
        }
    }
    TranslucentScope(const TranslucentScope&) = delete;
    TranslucentScope& operator=(const TranslucentScope&) = delete;

private:
    static constexpr std::array<GLint, 4> PREMULTIPLIED{GL_ONE, GL_ONE_MINUS_SRC_ALPHA, GL_ONE,
                                                        GL_ONE_MINUS_SRC_ALPHA};
    bool blendWasOn;
    bool cullWasOn;
    bool changedFactors = false;
    std::array<GLint, 4> factors{};
};

} // namespace

TeleportRenderer::TeleportRenderer(float sizeFactor, Clock clock)
    : sizeFactor(sizeFactor), clock(std::move(clock)),
      lineMaterial(sharedProgram("TeleportRenderer.line", "TeleportLine.vrt", "TeleportLine.frg")),
      lineBuffer(makeVertexBuffer()), lineGeometry(std::make_shared<Brume::Geometry>(GL_LINES)),
      padMaterial(sharedProgram("TeleportRenderer.pad", "TeleportPad.vrt", "TeleportPad.frg")),
      padGeometry(makePad()) {
    // Sized once for the two ends; every draw overwrites them in place.
    lineBuffer->setData(std::vector<Vertex>(2, Vertex{0, 0, 0, {0, 0, 0, 255}}));
    lineGeometry->addBuffer(lineBuffer);
}

TeleportRenderer::~TeleportRenderer() = default;

void TeleportRenderer::draw(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& viewProjection,
                            bool teleportActive) {
    lineMaterial->set("modelViewProjectionMatrix", viewProjection);
    lineMaterial->set("pointSize", sizeFactor * POINT_SIZE_FACTOR);
    lineMaterial->set("animate", teleportActive);

    const std::uint8_t grey = lineHitsTarget == 1 ? HIT_GREY : FREE_GREY;
    const std::array<Vertex, 2> ends{Vertex{lineStart.x, lineStart.y, lineStart.z, {grey, grey, grey, 255}},
                                     Vertex{lineEnd.x, lineEnd.y, lineEnd.z, {grey, grey, grey, 255}}};
    lineBuffer->subData(ends.data(), ends.size(), 0);

    const float width = (teleportActive ? WIDTH_ACTIVE : WIDTH_IDLE) * sizeFactor;
    glLineWidth(supportedLineWidth(width));

    if (!teleportActive) {
        renderer.draw(lineMaterial, lineGeometry, 0, 0);
        return;
    }

    const std::int64_t milliseconds = clock() / 1000000;
    const std::int64_t phase =
        (milliseconds % ANIMATION_PERIOD_MS + ANIMATION_PERIOD_MS) % ANIMATION_PERIOD_MS;
    lineMaterial->set("timeStep", static_cast<float>(phase) / static_cast<float>(ANIMATION_PERIOD_MS));
    lineMaterial->set("startPoint", lineStart);
    padMaterial->set("modelViewProjectionMatrix",
                     viewProjection * Ko_1_1::Mat4d<float>::translationMatrix(padPosition));

    TranslucentScope translucent;
    renderer.draw(lineMaterial, lineGeometry, 0, 0);
    // Culling keeps one set of faces per pass: first the far ones, then the near ones blended over them.
    glFrontFace(GL_CW);
    renderer.draw(padMaterial, padGeometry, 0, 0);
    glFrontFace(GL_CCW);
    renderer.draw(padMaterial, padGeometry, 0, 0);
}

} // namespace VR
