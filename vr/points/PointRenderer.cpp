#include "vr/points/PointRenderer.h"

#include <algorithm>

#include "engine/Buffer.h"
#include "engine/GL.h"
#include "engine/Geometry.h"
#include "engine/Material.h"
#include "engine/Renderer.h"
#include "platform/Platform.h"
#include "vr/LibrarySettings.h"
#include "vr/RunRecorder.h"

namespace {

struct TexturedVertex {
    float x, y, z;
    float u, v;
};

std::shared_ptr<Brume::Material> loadProgram(const char* vertexFile, const char* fragmentFile) {
    const VR::LibrarySettings& settings = VR::LibrarySettings::instance();
    auto material = std::make_shared<Brume::Material>();
    material->loadShaders(settings.shaderPath(vertexFile), "", settings.shaderPath(fragmentFile));
    return material;
}

} // namespace

PointRenderer::PointRenderer(VR::PointGrabber& grabber, float size, int, int) : grabber(grabber) {
    pointSize = size;

    // Allocated once at the largest batch the grabber can publish, without data (a zero fill would cost
    // hundreds of megabytes of copying at start); uploads only overwrite what is drawn.
    for (int i = 0; i < BUFFER_COUNT; ++i) {
        buffers[i] = std::make_shared<Brume::Buffer>(
            GL_DYNAMIC_DRAW, sizeof(VR::Point3dRGB),
            std::vector<Brume::Buffer::Attribute>{{"Position", GL_FLOAT, 3, 0},
                                                  {"VertexColor", GL_UNSIGNED_BYTE, 4, 12}});
        buffers[i]->allocate(grabber.getMaxPointsFromPC2());
        pointGeometries[i] = std::make_shared<Brume::Geometry>(GL_POINTS);
        pointGeometries[i]->addBuffer(buffers[i]);
    }

    pointMaterial = loadProgram("Points.vrt", "Points.frg");
    bigPointMaterial = loadProgram("Bigpoints.vrt", "Bigpoints.frg");

    auto quadBuffer = std::make_shared<Brume::Buffer>(
        GL_STATIC_DRAW, sizeof(TexturedVertex),
        std::vector<Brume::Buffer::Attribute>{{"Position", GL_FLOAT, 3, 0},
                                              {"VertexTexCoord", GL_FLOAT, 2, 12}});
    quadBuffer->setData(
        std::vector<TexturedVertex>{{-1, -1, 0, 0, 0}, {1, -1, 0, 1, 0}, {-1, 1, 0, 0, 1}, {1, 1, 0, 1, 1}});
    quadGeometry = std::make_shared<Brume::Geometry>(GL_TRIANGLE_STRIP);
    quadGeometry->addBuffer(quadBuffer);
}

PointRenderer::~PointRenderer() = default;

PointRenderer::PointRenderer(PointRenderer&& other) noexcept = default;

void PointRenderer::draw(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& viewProjection) {
    uploadNewBuffer();
    drawPoints(renderer, viewProjection);
}

void PointRenderer::uploadNewBuffer() {
    const int s = currentSlot;
    VR::PointGrabber::BufferData& slot = slots[s];
    const std::int32_t pending = slot.centreCount + slot.peripheryCount - slot.uploadedCount;

    if (pending > 0) {
        const std::int32_t count = std::min(pending, UPLOAD_LIMIT);
        buffers[s]->subData(points.data() + slot.uploadedCount, static_cast<std::size_t>(count),
                            static_cast<std::size_t>(slot.uploadedCount) * sizeof(VR::Point3dRGB));
        slot.uploadedCount += count;
    } else if (pending == 0) {
        const bool taken = grabber.tryProcessObjects(
            [this, s](std::vector<VR::Point3dRGB>& batch, const VR::PointGrabber::BufferData& d) {
                // Swapping hands the grabber our previous allocation for a later batch.
                points.swap(batch);
                slots[s] = d;
                slotPoseTimes[s] = grabber.getPublishedPoseTime();
                slotDrawn[s] = false;
            });
        if (!taken) {
            return;
        }
        const std::int32_t count = std::min(UPLOAD_LIMIT, slot.centreCount + slot.peripheryCount);
        buffers[s]->subData(points.data(), static_cast<std::size_t>(count), 0);
        slot.uploadedCount = count;
    } else {
        return;
    }

    if (slot.uploadedCount == slot.centreCount + slot.peripheryCount) {
        currentSlot = (s + 1) % BUFFER_COUNT;
    }
}

PointRenderer::DrawSlots
PointRenderer::chooseDrawSlots(const VR::PointGrabber::BufferData (&slots)[BUFFER_COUNT], int currentSlot) {
    // Slots that never received a batch do not count, so nothing shows until both eyes have one.
    DrawSlots chosen;
    for (int i = 0; i < BUFFER_COUNT; ++i) {
        const VR::PointGrabber::BufferData& d = slots[i];
        if (i == currentSlot || d.centreCount + d.peripheryCount <= 0) {
            continue;
        }
        int& pick = d.firstEye ? chosen.firstEye : chosen.otherEye;
        if (pick < 0) {
            pick = i;
        }
    }
    return chosen;
}

void PointRenderer::drawPoints(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& viewProjection) {
    const DrawSlots chosen = chooseDrawSlots(slots, currentSlot);
    if (chosen.firstEye < 0 || chosen.otherEye < 0) {
        return;
    }
    const int firstEyeSlot = chosen.firstEye;
    const int otherEyeSlot = chosen.otherEye;
    recordFirstDraw(firstEyeSlot);
    recordFirstDraw(otherEyeSlot);

    if (slots[firstEyeSlot].peripheryCount > 0) {
        drawBuffers(renderer, firstEyeSlot, viewProjection, true);
    }
    if (slots[otherEyeSlot].peripheryCount > 0) {
        drawBuffers(renderer, otherEyeSlot, viewProjection, true);
    }
    // Deliberate order: the first eye's centre covers whatever lies under it, periphery included, and
    // only the other eye's centre is depth-tested against it.
    glDepthFunc(GL_ALWAYS);
    if (slots[firstEyeSlot].centreCount > 0) {
        drawBuffers(renderer, firstEyeSlot, viewProjection, false);
    }
    glDepthFunc(GL_LESS);
    if (slots[otherEyeSlot].centreCount > 0) {
        drawBuffers(renderer, otherEyeSlot, viewProjection, false);
    }
    glDepthFunc(GL_LESS);
}

void PointRenderer::recordFirstDraw(int slot) {
    if (recorder == nullptr || slotDrawn[slot]) {
        return;
    }
    slotDrawn[slot] = true;
    if (slotPoseTimes[slot] != 0) {
        recorder->pointsShown(Platform::monotonicNanoseconds() - slotPoseTimes[slot]);
    }
}

void PointRenderer::drawBuffers(Brume::Renderer& renderer, int slot,
                                const Ko_1_1::Mat4d<float>& viewProjection, bool periphery) {
    const VR::PointGrabber::BufferData& d = slots[slot];
    float size = pointSize * (d.reduced ? 2.0f : 1.0f);
    if (periphery) {
        size *= PERIPHERY_SIZE_FACTOR;
    }
    pointMaterial->set("pointSize", size);
    // Points are stored in the camera frame of their query.
    pointMaterial->set("modelViewProjectionMatrix", viewProjection * d.cameraToWorld);
    if (periphery) {
        renderer.draw(pointMaterial, pointGeometries[slot], d.centreCount, d.peripheryCount);
    } else {
        renderer.draw(pointMaterial, pointGeometries[slot], 0, d.centreCount);
    }
}

void PointRenderer::drawSingleBuffer(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& viewProjection,
                                     float size, bool writeStencil) {
    if (writeStencil) {
        glStencilFunc(GL_ALWAYS, STENCIL_INDEX, 0xFF);
        glStencilMask(0xFF);
    }
    const int slot = (currentSlot + 2) % BUFFER_COUNT;
    const VR::PointGrabber::BufferData& d = slots[slot];
    const std::int32_t count = d.centreCount + d.peripheryCount;
    // A count of 0 would make the renderer draw the whole buffer.
    if (count <= 0) {
        return;
    }
    pointMaterial->set("pointSize", size * (d.reduced ? 2.0f : 1.0f));
    pointMaterial->set("modelViewProjectionMatrix", viewProjection * d.cameraToWorld);
    renderer.draw(pointMaterial, pointGeometries[slot], 0, count);
}
