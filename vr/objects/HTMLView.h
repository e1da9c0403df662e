#pragma once

#include <memory>

#include "common/IVRView.h"
#include "common/Mat4d.h"
#include "common/Vec3d.h"
#include "platform/Export.h"

namespace Brume {
class Geometry;
class Material;
class Renderer;
class Texture;
} // namespace Brume
class DoubleBufferedTexture;

// The tablet held in the left hand: shows the page the host renders (BGRA, top row first) and turns the
// right controller's ray into pointer moves and button events in page pixels, origin at the page's top left.
// A press that stays within 50 pixels for 20 frames is a click; moving further, or holding longer, starts
// a drag. The drag state is one for the process. The view is the host's and must outlive the tablet. Owned
// by the VR renderer; render thread only, with the run's GL context current.
class ORVEL_VR_EXPORT HTMLView {
public:
    static constexpr unsigned STENCIL_START_INDEX = 192;

    explicit HTMLView(VR::IVRView& view);
    ~HTMLView();
    HTMLView(const HTMLView&);
    HTMLView(HTMLView&&) noexcept;
    HTMLView& operator=(const HTMLView&);
    HTMLView& operator=(HTMLView&&) noexcept;

    // Takes a new page from the host first. Until the host delivers one, `placeholder` is shown instead;
    // with neither there is nothing to draw. With stencilPass the tablet writes STENCIL_START_INDEX (the
    // caller enables the test and chooses the operation); the stencil function and mask are left set.
    // Without VR the tablet fills a desktop view of its own and modelViewProjection is not used.
    void draw(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& modelViewProjection,
              std::shared_ptr<Brume::Texture> placeholder, bool stencilPass);
    // True when the controller's ray meets the tablet; hitPoint is where the ray meets its plane.
    bool handleInput(const Ko_1_1::Mat4d<float>& tabletPose, const Ko_1_1::Mat4d<float>& controllerPose,
                     bool buttonDown, Ko_1_1::Vec3d<float>& hitPoint);
    void setVrEnabled(bool enabled);

    const std::shared_ptr<DoubleBufferedTexture>& getPageTexture() const { return pageTexture; }
    float getHalfSize() const { return halfSize; }

private:
    bool getTabletClickPos(const Ko_1_1::Mat4d<float>& tabletPose, const Ko_1_1::Mat4d<float>& controllerPose,
                           Ko_1_1::Vec3d<float>& hitPoint, float& u, float& v);

    VR::IVRView* view;
    std::shared_ptr<DoubleBufferedTexture> pageTexture;
    std::shared_ptr<Brume::Geometry> quad;
    std::shared_ptr<Brume::Material> material;
    float halfSize = 0.3f;
    bool buttonDown = false;
    bool vrEnabled = true;
    bool oversizeReported = false;
    bool emptyPageReported = false;
};
