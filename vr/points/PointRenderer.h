#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "common/Mat4d.h"
#include "common/Point3dRGB.h"
#include "platform/Export.h"
#include "vr/points/PointGrabber.h"

namespace Brume {
class Buffer;
class Geometry;
class Material;
class Renderer;
} // namespace Brume

namespace VR {
class RunRecorder;
} // namespace VR

// Turns the point grabber's batches into GPU buffers and draws them. Three buffer slots rotate: one is
// filled a little each frame while the two most recent complete batches (one per eye) are drawn. Owned
// by the VR renderer; render thread only, with its GL context current from construction to destruction.
// The grabber is not owned and must outlive it.
class ORVEL_VR_EXPORT PointRenderer {
public:
    static constexpr int BUFFER_COUNT = 3;
    // The stencil value that marks point pixels for picking.
    static constexpr int STENCIL_INDEX = 1;
    // Periphery points are sparse; drawing them larger closes the gaps between them.
    static constexpr float PERIPHERY_SIZE_FACTOR = 8.0f;
    // Points written to the GPU per frame, so that a large batch never stalls one frame.
    static constexpr std::int32_t UPLOAD_LIMIT = 400000;

    // The slots drawPoints draws: the first complete slot of each eye apart from the one being filled;
    // -1 where an eye has none.
    struct DrawSlots {
        int firstEye = -1;
        int otherEye = -1;
    };
    static DrawSlots chooseDrawSlots(const VR::PointGrabber::BufferData (&slots)[BUFFER_COUNT],
                                     int currentSlot);

    // Sizes its buffers for the grabber's current resolution, so set that first. The two integers are
    // reserved and not used.
    PointRenderer(VR::PointGrabber& grabber, float pointSize, int, int);
    ~PointRenderer();
    PointRenderer(PointRenderer&& other) noexcept;
    PointRenderer(const PointRenderer&) = delete;
    PointRenderer& operator=(const PointRenderer&) = delete;
    PointRenderer& operator=(PointRenderer&&) = delete;

    // Once per eye image: uploadNewBuffer, then drawPoints.
    void draw(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& viewProjection);

    // Draws the most recently completed batch alone, all of its points at pointSize (doubled for a
    // reduced batch). With writeStencil the stencil test passes always with STENCIL_INDEX and writes all
    // bits; enabling the test and choosing the stencil operations is the caller's part.
    void drawSingleBuffer(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& viewProjection,
                          float pointSize, bool writeStencil);

    // Continues the upload of the slot being filled, or takes over a new batch from the grabber when that
    // slot is complete; the slot turns when all its points are on the GPU.
    void uploadNewBuffer();

    // Draws the newest complete batch of each eye; nothing until both eyes have one. Leaves the depth
    // function at GL_LESS.
    void drawPoints(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& viewProjection);

    void setPointSize(float size) { pointSize = size; }
    float getPointSize() const { return pointSize; }
    // Receives, for each batch, the time from its camera's head pose to the first frame that draws it;
    // null records nothing. The recorder must outlive the renderer's drawing.
    void setRecorder(VR::RunRecorder* r) { recorder = r; }

    // The slot being filled.
    int getCurrentSlot() const { return currentSlot; }
    const VR::PointGrabber::BufferData& getSlot(int slot) const { return slots[slot]; }
    const std::shared_ptr<Brume::Buffer>& getBuffer(int slot) const { return buffers[slot]; }

private:
    void drawBuffers(Brume::Renderer& renderer, int slot, const Ko_1_1::Mat4d<float>& viewProjection,
                     bool periphery);
    void recordFirstDraw(int slot);

    // One geometry per slot, each reading its slot's buffer: a geometry's buffers cannot be replaced, and
    // switching geometries makes the same binding calls a rebinding would.
    std::shared_ptr<Brume::Geometry> pointGeometries[BUFFER_COUNT];
    int currentSlot = 0;
    float pointSize = 1.0f;
    std::vector<VR::Point3dRGB> points;
    std::shared_ptr<Brume::Buffer> buffers[BUFFER_COUNT];
    std::shared_ptr<Brume::Material> pointMaterial;
    // Round points for a later use; built with the rest so a broken shader shows at set-up.
    std::shared_ptr<Brume::Material> bigPointMaterial;
    std::shared_ptr<Brume::Geometry> quadGeometry;
    VR::PointGrabber& grabber;
    VR::PointGrabber::BufferData slots[BUFFER_COUNT];
    // Beside the slot records, whose layout the host shares: each batch's pose time, and whether it was
    // drawn.
    std::int64_t slotPoseTimes[BUFFER_COUNT] = {};
    bool slotDrawn[BUFFER_COUNT] = {};
    VR::RunRecorder* recorder = nullptr;
};
